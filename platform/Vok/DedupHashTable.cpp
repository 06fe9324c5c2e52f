#include "Vok/DedupHashTable.h"

#include <cinttypes>

namespace Vok {

namespace {

// Shards of the thread-safe variant: enough that two threads rarely meet on
// one lock, few enough that an empty table stays small.
constexpr unsigned threadSafeShardBits = 4;
constexpr std::size_t initialSlots = 8;

}  // namespace

std::atomic<bool> DedupHandle::countingEnabled_{true};
std::atomic<DedupHashTable::ReleaseWindowHook> DedupHashTable::releaseWindowHook_{nullptr};

DedupHandle::~DedupHandle() = default;

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
    table_->doRemoveFromDedupTable(this);
}

DedupHashTable::DedupHashTable(bool threadSafe)
    : threadSafe_(threadSafe),
      shardShift_(32 - (threadSafe ? threadSafeShardBits : 0)),
      shards_(new Shard[std::size_t(1) << (threadSafe ? threadSafeShardBits : 0)]),
      shardCount_(std::size_t(1) << (threadSafe ? threadSafeShardBits : 0)) {
    for (std::size_t i = 0; i < shardCount_; ++i)
        shards_[i].slots.resize(initialSlots);
}

DedupHashTable::~DedupHashTable() {
    lifeTimeNotifieeIs(nullptr);
    // Survivors (still held elsewhere) become detached private-looking
    // handles: they no longer point at this table and die with their last
    // holder.
    std::vector<DedupHandle const*> survivors;
    for (std::size_t s = 0; s < shardCount_; ++s) {
        for (auto& slot : shards_[s].slots)
            if (slot.handle)
                survivors.push_back(slot.handle);
        shards_[s].slots.clear();
        shards_[s].used = 0;
    }
    for (auto const* handle : survivors) {
        handle->table_ = nullptr;
        handle->referencesDec();
    }
}

std::size_t DedupHashTable::size() const {
    std::size_t total = 0;
    for (std::size_t s = 0; s < shardCount_; ++s) {
        ShardLock lock(shards_[s], threadSafe_);
        total += shards_[s].used;
    }
    return total;
}

void DedupHashTable::insertSlot(Shard& shard, U32 hash, DedupHandle const* handle) {
    if ((shard.used + 1) * 2 > shard.slots.size()) {
        std::vector<Slot> old(shard.slots.size() * 2);
        old.swap(shard.slots);
        for (auto const& slot : old) {
            if (!slot.handle)
                continue;
            std::size_t i = shard.home(slot.hash);
            while (shard.slots[i].handle)
                i = shard.next(i);
            shard.slots[i] = slot;
        }
    }
    std::size_t i = shard.home(hash);
    while (shard.slots[i].handle)
        i = shard.next(i);
    shard.slots[i] = Slot{hash, handle};
    ++shard.used;
}

void DedupHashTable::eraseSlot(Shard& shard, std::size_t index) {
    // Backward-shift deletion keeps every probe chain unbroken without
    // tombstones.
    std::size_t hole = index;
    for (std::size_t i = shard.next(hole);; i = shard.next(i)) {
        Slot const& slot = shard.slots[i];
        if (!slot.handle)
            break;
        std::size_t home = shard.home(slot.hash);
        // Move the entry into the hole when its home is not cyclically in (hole, i].
        bool homeInRange = hole <= i ? (hole < home && home <= i) : (hole < home || home <= i);
        if (!homeInRange) {
            shard.slots[hole] = slot;
            hole = i;
        }
    }
    shard.slots[hole] = Slot{};
    --shard.used;
}

DedupHandle::PtrConst DedupHashTable::dedup(DedupHandle const* candidate,
                                            PreInsertCallback preInsert) const {
    KIV_ASSERT(candidate != nullptr, "__null != candidate");
    VOK_ASSERT_NEVER_DEDUPED(candidate);
    U32 hash = candidate->placementHashCompute();
    Shard& shard = shardFor(hash);
    ShardLock lock(shard, threadSafe_);
    for (std::size_t i = shard.home(hash);; i = shard.next(i)) {
        Slot const& slot = shard.slots[i];
        if (slot.handle == nullptr)
            break;
        if (slot.hash == hash && slot.handle->compare(candidate))
            return DedupHandle::PtrConst(slot.handle);
    }
    if (preInsert)
        preInsert(const_cast<DedupHandle*>(candidate));
    candidate->table_ = this;
    candidate->stateIs(dedupHandleStateDeduped());
    // The table's own reference plus the one returned to the caller.
    if (DedupHandle::countingEnabled())
        candidate->countAndState_.fetch_add(DedupHandle::tableReferences + 1,
                                            std::memory_order_relaxed);
    insertSlot(shard, hash, candidate);
    if (lifeTimeNotifiee_)
        lifeTimeNotifiee_->handleInsert(candidate);
    return DedupHandle::PtrConst::adopt(candidate);
}

void DedupHashTable::doRemoveFromDedupTable(DedupHandle const* handle) const {
    if (ReleaseWindowHook hook = releaseWindowHook_.load(std::memory_order_relaxed))
        hook(handle);
    U32 hash = handle->placementHashCompute();
    Shard& shard = shardFor(hash);
    {
        ShardLock lock(shard, threadSafe_);
        U32 previous = handle->countAndState_.fetch_sub(1, std::memory_order_acq_rel);
        // Another holder appeared (a lookup revived it) before the lock: it
        // stays, and that holder's release will come back here.
        if ((previous & DedupHandle::countMask) != DedupHandle::tableReferences + 1)
            return;
        std::size_t i = shard.home(hash);
        while (shard.slots[i].handle != handle) {
            KIV_ASSERT(shard.slots[i].handle != nullptr, "handle in its dedup table");
            i = shard.next(i);
        }
        eraseSlot(shard, i);
        if (lifeTimeNotifiee_)
            lifeTimeNotifiee_->handleRemove(handle);
        handle->table_ = nullptr;
    }
    // Outside the lock: destroying a list releases its members, which may
    // live in this very table.
    handle->referencesDec();
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
