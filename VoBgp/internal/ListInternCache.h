// ListInternCache: a per-thread cache in front of one list kind's interning
// tables, so that threads interning the same popular lists into one
// thread-safe table set neither take the table's shard lock nor write the
// list's shared reference count on every route.
//
// What it does: internReceived(octets, size) gives the same interned list
// as List::internReceived on the cache's tables. The cache remembers the
// lists it has handed out, placed by the received values' placement hash and
// recognised by comparing the sorted values with the interned list's members
// (immutable once interned). On a cache hit nothing shared is touched.
//
// Batched reference counts: the cache holds references in credit. It takes
// `batch` references on a list with one atomic add
// (DedupHandle::referencesIncBy) and hands them out one by one as ordinary
// owned references (Kiv::Ptr adopts them) without touching the count. A
// reference the caller hands back through giveBack, and a copy made through
// copy(), moves between the caller and the credit, again without touching
// the count. flush() (and the destructor) returns each list's credit with
// one atomic subtract (DedupHandle::referencesDecBy), which may be the last
// release and remove the list from its table the ordinary way. References
// the caller releases itself (a plain Ptr going out of scope) count down the
// ordinary way and are always correct, only slower.
//
// Contract:
//   - One cache per thread: a cache is not thread-safe (it may pass to
//     another thread through a synchronising hand-over, a thread's start or
//     join). Everything it shares with other threads goes through the lists'
//     atomic counts and the tables' locks.
//   - Observable behaviour changes only in when a list's last release
//     happens: while a cache holds credit on a list, the list stays
//     interned (an observer of the table sees it removed at the flush, not
//     at the release of its last outside holder).
//   - Destroy (or flush) a cache before its tables.
//   - At most `capacity` lists are cached; a miss beyond that flushes the
//     whole cache first (popular lists come back at once), so a long run
//     keeps no more lists alive than that. A cached list costs one 8-octet
//     slot (the table is at most 3/4 full). Credit stops at 254 references
//     a list: a give-back beyond returns half of them with one subtract.
//
// Why a list's count never reaches the table's own reference while a
// reference is out: the count is the table's reference plus every cache's
// credit plus every reference held outside caches. Handing out and giving
// back move one reference between a credit and a holder and leave that sum
// unchanged; a batch is taken only while the cache holds at least one
// reference itself (an entry keeps credit >= 1; a new entry is made while
// the caller's fresh reference from the table is held), so the relaxed add
// can never meet a count at the table's reference, exactly as copying a held
// Kiv::Ptr cannot. Credit is returned only by referencesDecBy, which
// subtracts with acquire-release like referencesDec and leaves the release
// that would reach the table's reference to referencesDec's locked path.
//
// Why reading a cached list's members without the lock is safe: the cache
// first got each list from a lookup under the table's shard lock (or by
// interning it on this thread), so the lock's acquire made the list's
// content, written before it was published in the table, visible to this
// thread; interned lists never change afterwards, and the cache's own credit
// keeps the list from being removed or freed while it is cached.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "Kiv/Assert.h"
#include "Kiv/Ptr.h"
#include "Kiv/Types.h"
#include "VoBgp/ExtCommIp6ListDedupTable.h"
#include "VoBgp/VoBgpCommunityList.h"

namespace Routing::Bgp {

// How the cache reaches one list kind: the value type read from the wire,
// the tables, the members' keys (sorted ascending in an interned list) and
// the kind's own interning entry point for lists not interned yet.
template <class List>
struct ListInternKind;

template <class List, class V>
struct PlainListInternKind {
    using Value = V;
    struct Tables {
        typename CommListTraits<V>::Table const* lists;
    };
    static CommListDedupTableBase const* listTable(Tables const& tables) { return tables.lists; }
    static std::span<V const> members(List const& list) { return list.commVectorRawPtr(); }
    static V const& key(V const& value) { return value; }
    template <class Values>
    static Kiv::Ptr<List const> internSorted(Tables const& tables, Values const& values) {
        return List::internSorted(tables.lists, values);
    }
};
template <>
struct ListInternKind<CommList> : PlainListInternKind<CommList, U32> {};
template <>
struct ListInternKind<LargeCommList> : PlainListInternKind<LargeCommList, Acl::CommunityValue> {};

// Lists of interned communities: members are keyed by their content, and a
// list whose members come from another value table is another list.
template <class List, class V, class ValueTable, class ListTable>
struct ExtListInternKind {
    using Value = V;
    struct Tables {
        ValueTable const* values;
        ListTable const* lists;
    };
    static CommListDedupTableBase const* listTable(Tables const& tables) { return tables.lists; }
    static auto members(List const& list) { return list.commVectorRawPtr()->span(); }
    template <class CommPtr>
    static decltype(auto) key(CommPtr const& comm) {
        return extCommKey(*comm);
    }
    template <class Values>
    static Kiv::Ptr<List const> internSorted(Tables const& tables, Values const& values) {
        return List::internSorted(tables.lists, tables.values, values);
    }
};
template <>
struct ListInternKind<ExtCommList>
    : ExtListInternKind<ExtCommList, U64, ExtCommDedupTable, ExtCommListDedupTable> {};
template <>
struct ListInternKind<ExtCommIp6List>
    : ExtListInternKind<ExtCommIp6List, ExtCommIp6Content, ExtCommIp6DedupTable,
                        ExtCommIp6ListDedupTable> {};

template <class List>
class ListInternCache {
  public:
    using Kind = ListInternKind<List>;
    using Tables = typename Kind::Tables;
    using PtrConst = Kiv::Ptr<List const>;

    // References taken on a list at once.
    static constexpr U32 batch = 64;
    static constexpr std::size_t defaultCapacity = std::size_t(1) << 16;
    static_assert(batch <= Vok::DedupHandle::referencesBatchLimit);

    explicit ListInternCache(Tables tables, std::size_t capacity = defaultCapacity)
        : tables_(tables), capacity_(capacity) {
        KIV_ASSERT(Kind::listTable(tables) != nullptr && capacity != 0);
    }
    ~ListInternCache() { flush(); }
    ListInternCache(ListInternCache const&) = delete;
    ListInternCache& operator=(ListInternCache const&) = delete;

    // The interned list of the attribute's value octets, as
    // List::internReceived gives it on the cache's tables.
    PtrConst internReceived(U8 const* octets, std::size_t size) {
        ReceivedValues<typename Kind::Value, receivedOnStack> const values(octets, size);
        U32 const placement = values.placement();
        auto const same = [&values](List const* list) {
            return values.sameAs(Kind::members(*list), [](auto const& member) -> decltype(auto) {
                return Kind::key(member);
            });
        };
        U64 const fingerprint = fingerprintOf(placement);
        for (std::size_t i = placement & mask_; slots_[i] != 0; i = (i + 1) & mask_)
            if ((slots_[i] & fingerprintMask) == fingerprint && same(listOf(slots_[i])))
                return handOut(slots_[i]);
        // The kind's own path from the values already decoded: one lookup,
        // and the list built only when the table lacks it.
        PtrConst list = Kind::internSorted(tables_, values);
        remember(list.ptr());
        return list;
    }

    // Another reference on `list`: from credit when the cache holds it.
    PtrConst copy(PtrConst const& list) {
        if (U64* slot = find(list.ptr()))
            return handOut(*slot);
        return list;
    }

    // Takes the caller's reference back into credit when the cache holds the
    // list; releases it the ordinary way otherwise. `list` is null after.
    void giveBack(PtrConst& list) {
        if (U64* slot = find(list.ptr())) {
            U32 const credit = creditOf(*slot);
            if (credit == maxCredit) {
                // Full: half of it goes back to the count (more stays held).
                list->referencesDecBy(maxCredit / 2);
                *slot -= maxCredit / 2;
            }
            if (credit != immortal)
                ++*slot;
            list.release();
            return;
        }
        list = nullptr;
    }

    // Returns every list's credit (one atomic subtract each) and forgets them.
    void flush() {
        for (std::size_t i = 0; used_ != 0 && i <= mask_; ++i) {
            if (slots_[i] != 0 && creditOf(slots_[i]) != immortal)
                listOf(slots_[i])->referencesDecBy(creditOf(slots_[i]));
            slots_[i] = 0;
        }
        used_ = 0;
    }

    // Lists cached now.
    std::size_t size() const { return used_; }

  private:
    // A slot is one word, so that the cache of a whole table's popular lists
    // stays small beside the tables: the list's address (48 bits, what
    // user-space addresses use on the 64-bit targets, as in the tables), 8
    // bits of its placement hash that reject most other lists without
    // reading them, and the references the cache holds on it: 1 to maxCredit,
    // or `immortal` for a list whose count is saturated (it lives for good
    // and counts no more). 0 is an empty slot.
    static constexpr unsigned addressShift = 16;
    static constexpr U64 fingerprintMask = 0xff00;
    static constexpr U32 immortal = 0xff;
    static constexpr U32 maxCredit = immortal - 1;
    static_assert(batch + 1 <= maxCredit);
    static constexpr std::size_t receivedOnStack = 64;
    // An empty table for the first probe, so that probes need no test.
    static inline U64 const noSlots[1] = {0};

    // Bits 24..31: the home slot uses the low bits.
    static U64 fingerprintOf(U32 placement) { return U64(placement >> 24) << 8; }
    static List const* listOf(U64 slot) {
        return reinterpret_cast<List const*>(static_cast<std::uintptr_t>(slot >> addressShift));
    }
    static U32 creditOf(U64 slot) { return static_cast<U32>(slot & 0xff); }

    PtrConst handOut(U64& slot) {
        List const* const list = listOf(slot);
        U32 const credit = creditOf(slot);
        if (credit == 1)
            slot += list->referencesIncBy(batch) ? immortal - 1 : batch;
        if (creditOf(slot) != immortal)
            --slot;
        return PtrConst::adopt(list);
    }

    U64* find(List const* list) {
        if (list == nullptr)
            return nullptr;
        for (std::size_t i = list->placementHash() & mask_; slots_[i] != 0; i = (i + 1) & mask_)
            if (listOf(slots_[i]) == list)
                return &slots_[i];
        return nullptr;
    }

    // Caches `list` (the caller holds a reference on it) with a batch of
    // credit.
    void remember(List const* list) {
        if (used_ >= capacity_)
            flush();
        // At most 3/4 full: a probe for a list not cached ends soon.
        if ((used_ + 1) * 4 > slotCount() * 3)
            grow();
        auto const address = static_cast<U64>(reinterpret_cast<std::uintptr_t>(list));
        KIV_ASSERT(address >> 48 == 0, "list address fits 48 bits");
        U64 const credit = list->referencesIncBy(batch) ? immortal : batch;
        place(address << addressShift | fingerprintOf(list->placementHash()) | credit);
        ++used_;
    }
    std::size_t slotCount() const { return slots_ == noSlots ? 0 : mask_ + 1; }
    void place(U64 slot) {
        std::size_t i = listOf(slot)->placementHash() & mask_;
        while (slots_[i] != 0)
            i = (i + 1) & mask_;
        slots_[i] = slot;
    }
    void grow() {
        std::size_t const count = slotCount() == 0 ? 64 : slotCount() * 2;
        std::unique_ptr<U64[]> old = std::move(owned_);
        U64 const* const oldSlots = slots_;
        std::size_t const oldCount = slotCount();
        owned_ = std::make_unique<U64[]>(count);
        slots_ = owned_.get();
        mask_ = count - 1;
        for (std::size_t i = 0; i < oldCount; ++i)
            if (oldSlots[i] != 0)
                place(oldSlots[i]);
    }

    Tables tables_;
    std::size_t capacity_;
    std::unique_ptr<U64[]> owned_;
    U64* slots_ = const_cast<U64*>(noSlots);
    std::size_t mask_ = 0;
    std::size_t used_ = 0;
};

}  // namespace Routing::Bgp
