#include "Vok/DedupHashTable.h"

#include <algorithm>
#include <cinttypes>
#include <iterator>
#include <string>
#include <vector>

#include "Kiv/Errors.h"

namespace Vok {

namespace {

// Shards of the thread-safe variant: enough that two threads rarely meet on
// one lock, few enough that an empty table stays small.
constexpr unsigned threadSafeShardBits = 4;
constexpr std::size_t initialSlots = 8;

// Which table each id names. Ids are handed out lowest first and reused
// once their table is gone, so a process with few tables keeps its ids, and
// the entries it reads, in the first cache lines.
struct TableRegistry {
    std::mutex mutex;
    U64 used[(DedupHashTable::maxLiveTables + 1) / 64] = {};  // bit 0 (id 0, none) set on first use
    std::atomic<DedupHashTable const*> tables[DedupHashTable::maxLiveTables + 1];
};
constinit TableRegistry registry;

U16 tableIdAllocate(DedupHashTable const* table) {
    std::lock_guard<std::mutex> lock(registry.mutex);
    registry.used[0] |= 1;
    for (std::size_t w = 0; w < std::size(registry.used); ++w) {
        if (~registry.used[w] == 0)
            continue;
        unsigned bit = static_cast<unsigned>(__builtin_ctzll(~registry.used[w]));
        registry.used[w] |= U64(1) << bit;
        auto id = static_cast<U16>(w * 64 + bit);
        registry.tables[id].store(table, std::memory_order_release);
        return id;
    }
    throw Kiv::RangeError("more than " + std::to_string(DedupHashTable::maxLiveTables) +
                          " dedup tables alive at once");
}

void tableIdFree(U16 id) {
    std::lock_guard<std::mutex> lock(registry.mutex);
    registry.tables[id].store(nullptr, std::memory_order_release);
    registry.used[id / 64] &= ~(U64(1) << (id % 64));
}

// A slot for `handle` with `fingerprint` at distance + 1 `distance`
// (saturating at the field's maximum).
U64 slotOf(DedupHandle const* handle, U64 fingerprint, std::size_t distance) {
    auto const address = static_cast<U64>(reinterpret_cast<std::uintptr_t>(handle));
    KIV_ASSERT(address >> 48 == 0, "handle address fits 48 bits");
    return address << 16 | fingerprint << 6 | (distance < 0x3f ? distance : 0x3f);
}

}  // namespace

std::atomic<bool> DedupHandle::countingEnabled_{true};
std::atomic<DedupHashTable::ReleaseWindowHook> DedupHashTable::releaseWindowHook_{nullptr};

DedupHandle::~DedupHandle() = default;

DedupHashTable const* DedupHandle::dedupTable() const noexcept {
    return DedupHashTable::tableWithId(tableId_);
}

void DedupHandle::referencesIncChecked(U32 old) const noexcept {
    if ((old & countMask) == 0) {
        // Only a private handle gets its first holder this way; an interned
        // one at zero is being destroyed.
        KIV_ASSERT(old >> stateShift != dedupHandleStateDeduped(), "referencesIncReturnRef");
        return;
    }
    // At the limit: take the increment back; the count stays there for good.
    if (processSingleThreaded())
        countAndState_.store(old, std::memory_order_relaxed);
    else
        countAndState_.fetch_sub(1, std::memory_order_relaxed);
}

void DedupHandle::referencesDecFrom(U32 current) const noexcept {
    for (;;) {
        U32 const count = current & countMask;
        if (count >= referencesLimit)
            return;
        KIV_ASSERT(count != 0, "referencesDec");
        // The release that would leave only the table's reference runs
        // under the table's lock, where lookups cannot revive the handle.
        if (count == tableReferences + 1 && tableId_ != 0) {
            releaseLastOutsideReference();
            return;
        }
        if (processSingleThreaded()) {
            countAndState_.store(current - 1, std::memory_order_relaxed);
        } else if (!countAndState_.compare_exchange_weak(current, current - 1,
                                                         std::memory_order_acq_rel,
                                                         std::memory_order_relaxed)) {
            continue;
        }
        if (count == 1)
            delete this;
        return;
    }
}

void DedupHandle::referencesDecBy(U32 n) const noexcept {
    if (n == 0 || !countingEnabled_.load(std::memory_order_relaxed))
        return;
    U32 current = countAndState_.load(std::memory_order_relaxed);
    for (;;) {
        U32 const count = current & countMask;
        if (count >= referencesLimit)
            return;
        KIV_ASSERT(count >= n, "referencesDecBy");
        // Every reference but one goes here; the last goes through
        // referencesDec, which knows the releases that need the lock.
        U32 const here = count - n >= tableReferences + 1 ? n : n - 1;
        if (here == 0)
            break;
        if (processSingleThreaded()) {
            countAndState_.store(current - here, std::memory_order_relaxed);
        } else if (!countAndState_.compare_exchange_weak(current, current - here,
                                                         std::memory_order_acq_rel,
                                                         std::memory_order_relaxed)) {
            continue;
        }
        if (here == n)
            return;
        break;
    }
    referencesDec();
}

void DedupHandle::stateIs(DedupHandleState state) const noexcept {
    U32 current = countAndState_.load(std::memory_order_relaxed);
    while (!countAndState_.compare_exchange_weak(
        current, (current & countMask) | (static_cast<U32>(state) << stateShift),
        std::memory_order_acq_rel, std::memory_order_relaxed)) {
    }
}

void DedupHandle::dedupStateNotToBeDedupedIs() const {
    KIV_ASSERT(dedupState() == dedupHandleStateNeverDeduped(),
               "dedupState() == Vok::dedupHandleStateNeverDeduped()");
    stateIs(dedupHandleStateNotToBeDeduped());
}

void DedupHandle::releaseLastOutsideReference() const noexcept {
    DedupHashTable::tableWithId(tableId_)->doRemoveFromDedupTable(this);
}

DedupHashTable const* DedupHashTable::tableWithId(U16 id) noexcept {
    return registry.tables[id].load(std::memory_order_acquire);
}

DedupHashTable::DedupHashTable(bool threadSafe)
    : threadSafe_(threadSafe),
      shardShift_(32 - (threadSafe ? threadSafeShardBits : 0)),
      shards_(new Shard[std::size_t(1) << (threadSafe ? threadSafeShardBits : 0)]),
      shardCount_(std::size_t(1) << (threadSafe ? threadSafeShardBits : 0)),
      id_(tableIdAllocate(this)) {
    for (std::size_t i = 0; i < shardCount_; ++i) {
        shards_[i].slots.reset(new U64[initialSlots]());
        shards_[i].mask = initialSlots - 1;
    }
}

DedupHashTable::~DedupHashTable() {
    lifeTimeNotifieeIs(nullptr);
    // Survivors (still held elsewhere) become detached private-looking
    // handles: they no longer name this table and die with their last
    // holder.
    std::vector<DedupHandle const*> survivors;
    forEach([&survivors](DedupHandle const* handle) { survivors.push_back(handle); });
    for (std::size_t s = 0; s < shardCount_; ++s) {
        std::fill_n(shards_[s].slots.get(), shards_[s].mask + 1, U64(0));
        shards_[s].used = 0;
    }
    for (auto const* handle : survivors) {
        handle->tableId_ = 0;
        handle->referencesDec();
    }
    tableIdFree(id_);
}

std::size_t DedupHashTable::size() const {
    std::size_t total = 0;
    for (std::size_t s = 0; s < shardCount_; ++s) {
        ShardLock lock(shards_[s], threadSafe_);
        total += shards_[s].used;
    }
    return total;
}

std::size_t DedupHashTable::Shard::indexOf(DedupHandle const* handle) const {
    std::size_t i = home(handle->placementHash());
    for (;;) {
        KIV_ASSERT(slots[i] != 0, "handle in its dedup table");
        if (slotHandle(slots[i]) == handle)
            return i;
        i = next(i);
    }
}

void DedupHashTable::Shard::grow() {
    std::unique_ptr<U64[]> old = std::move(slots);
    std::size_t const oldSize = mask + 1;
    slots.reset(new U64[oldSize * 2]());
    mask = oldSize * 2 - 1;
    used = 0;
    // The new home needs one more bit of the placement hash than a slot
    // keeps: it comes from the handle.
    for (std::size_t i = 0; i < oldSize; ++i)
        if (old[i])
            insert(slotHandle(old[i])->placementHash(), slotHandle(old[i]));
}

void DedupHashTable::Shard::insert(U32 hash, DedupHandle const* handle) {
    if ((used + 1) * 8 > (mask + 1) * 7)
        grow();
    U64 const fingerprint = fingerprintOf(hash);
    U64 entry = slotOf(handle, fingerprint, 1);
    std::size_t distance = 1;
    for (std::size_t i = home(hash);; i = next(i), ++distance) {
        U64 const slot = slots[i];
        if (slot == 0) {
            slots[i] =
                (entry & ~distanceMask) | (distance < distanceMask ? distance : distanceMask);
            ++used;
            return;
        }
        // Robin Hood: an entry nearer its home yields its slot to the one
        // that has come further, and moves on in its place.
        std::size_t const theirs = distanceAt(i, slot);
        if (theirs < distance) {
            slots[i] =
                (entry & ~distanceMask) | (distance < distanceMask ? distance : distanceMask);
            entry = slot;
            distance = theirs;
        }
    }
}

void DedupHashTable::Shard::erase(std::size_t index) {
    // Backward-shift deletion: the entries after the hole that are not at
    // their home move back one slot, so no probe chain needs a tombstone.
    std::size_t hole = index;
    for (std::size_t i = next(hole);; i = next(i)) {
        U64 const slot = slots[i];
        std::size_t const distance = slot ? distanceAt(i, slot) : 0;
        if (distance <= 1)
            break;
        slots[hole] =
            (slot & ~distanceMask) | (distance - 1 < distanceMask ? distance - 1 : distanceMask);
        hole = i;
    }
    slots[hole] = 0;
    --used;
}

DedupHandle::PtrConst DedupHashTable::dedup(DedupHandle const* candidate,
                                            PreInsertCallback preInsert) const {
    KIV_ASSERT(candidate != nullptr, "__null != candidate");
    VOK_ASSERT_NEVER_DEDUPED(candidate);
    U32 const hash = candidate->placementHashCompute();
    Shard& shard = shardFor(hash);
    ShardLock lock(shard, threadSafe_);
    if (DedupHandle const* found =
            shard.find(hash, [candidate](DedupHandle const* h) { return h->compare(candidate); }))
        return DedupHandle::PtrConst(found);
    if (preInsert)
        preInsert(const_cast<DedupHandle*>(candidate));
    candidate->placementHash_ = hash;
    candidate->tableId_ = id_;
    // The state (never deduped, 0, before) and, when counting, the table's
    // own reference plus the one returned to the caller, in one change.
    U32 const add = U32(dedupHandleStateDeduped()) << DedupHandle::stateShift |
                    (DedupHandle::countingEnabled() ? DedupHandle::tableReferences + 1 : 0);
    if (processSingleThreaded())
        candidate->countAndState_.store(
            candidate->countAndState_.load(std::memory_order_relaxed) + add,
            std::memory_order_relaxed);
    else
        candidate->countAndState_.fetch_add(add, std::memory_order_acq_rel);
    shard.insert(hash, candidate);
    if (lifeTimeNotifiee_)
        lifeTimeNotifiee_->handleInsert(candidate);
    return DedupHandle::PtrConst::adopt(candidate);
}

void DedupHashTable::doRemoveFromDedupTable(DedupHandle const* handle) const {
    if (ReleaseWindowHook hook = releaseWindowHook_.load(std::memory_order_relaxed))
        hook(handle);
    Shard& shard = shardFor(handle->placementHash_);
    {
        ShardLock lock(shard, threadSafe_);
        U32 previous;
        if (processSingleThreaded()) {
            // No other thread to revive it: a plain decrement (a locked one
            // was a third of this function's time).
            previous = handle->countAndState_.load(std::memory_order_relaxed);
            handle->countAndState_.store(previous - 1, std::memory_order_relaxed);
        } else {
            previous = handle->countAndState_.fetch_sub(1, std::memory_order_acq_rel);
        }
        // Another holder appeared (a lookup revived it) before the lock: it
        // stays, and that holder's release will come back here.
        if ((previous & DedupHandle::countMask) != DedupHandle::tableReferences + 1)
            return;
        shard.erase(shard.indexOf(handle));
        if (lifeTimeNotifiee_)
            lifeTimeNotifiee_->handleRemove(handle);
        handle->tableId_ = 0;
    }
    // Only the table's reference is left, and it is ours now: out of the
    // table, the handle can be reached by no lookup and held by no one else
    // (the decrement above ordered every earlier holder's release before
    // this), so it goes without counting down to zero. Outside the lock:
    // destroying a list releases its members, which may live in this very
    // table.
    delete handle;
}

DedupHashTableLifeTimeNotifiee::Ptr DedupHashTable::lifeTimeNotifiee() const {
    return lifeTimeNotifiee_;
}

void DedupHashTable::lifeTimeNotifieeIs(DedupHashTableLifeTimeNotifiee::Ptr const& notifiee) {
    if (notifiee == lifeTimeNotifiee_)
        return;
    auto old = std::move(lifeTimeNotifiee_);
    lifeTimeNotifiee_ = notifiee;
    if (old)
        old->handleNotificationStop(this);
}

void DedupHashTable::dumpState(DumpContext const& dumpCtx, U32 indentCount) const {
    std::size_t entries = size();
    if (indentCount == 0)
        dumpCtx.print("DedupHashTable entries %zu%s\n", entries, threadSafe_ ? " threadSafe" : "");
    else
        dumpCtx.print("%*cDedupHashTable entries %zu%s\n", static_cast<int>(indentCount), ' ',
                      entries, threadSafe_ ? " threadSafe" : "");
}

}  // namespace Vok
