// Interned lists of standard (CommList) and large (LargeCommList) communities:
// the COMMUNITIES and LARGE_COMMUNITY path attributes of a route.
//
// Lifecycle: a list is private and appendable (commIs, in any order, with
// duplicates) from its factory until dedup(table), which sorts it, drops the
// duplicates, caches what later readers ask for and returns the one shared
// instance with that content. Shared lists never change and are compared by
// identity everywhere else.
//
// The two kinds are one design over two element types: CommListBase holds the
// vector and everything that does not depend on the element, CommListTraits
// says how an element is spelled as 32-bit words (the order in which it is
// hashed, written to the wire and to a stash image) and printed.
//
// Storage: a list is the handle alone, with its members in the block
// behind it. A list interned from received values (intern, internReceived)
// of up to 4,094 values is one block, the values right after the handle's
// fields (from octet 20 on 64-bit hosts, the handle's tail padding), their
// count + 1 in bits 4..15 of the handle's user data; blocks up to 512
// octets come from Vok::SizeClassArena (no allocator header, 8-octet steps:
// a 5-value standard list takes 40 octets, 48 from malloc). A list built
// value by value, or a longer one, has 0 there, and behind the object a
// TailVector of heap storage. Either way commVectorRawPtr() shows the
// members in order.
//
// Cached state lives in bits 0..3 of the handle's user data, not in fields
// of its own: whether the vector is sorted and, for CommList, whether it holds
// no-export, no-advertise and no-export-subconfed (local-as).
//
// The standard and large lists' tables, the extended community lists
// (ExtCommList, its classification lists, their tables and lifetime
// notification), the snapshots and the matching and printed forms of all
// list kinds are declared in the headers of VoBgp/internal/ that this one
// includes at its end: include this header.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iosfwd>
#include <new>
#include <span>
#include <string>
#include <vector>

#include "Acl/CommunityValue.h"
#include "Kiv/Assert.h"
#include "Kiv/Errors.h"
#include "Kiv/Ptr.h"
#include "Kiv/String.h"
#include "Kiv/Types.h"
#include "KivStash/DedupHandle.h"
#include "KivStash/StashAllocator.h"
#include "KivStash/StoreManager.h"
#include "VoBgp/BgpPathAttributeEnums.h"
#include "VoBgp/VoBgpCommunityListImpl.h"
#include "VoBgp/VoBgpCommunityPacketTypes.h"
#include "VoBgp/VoBgpSerialize.h"
#include "VoBgp/internal/CommListDedupTableBase.h"
#include "VoBgp/internal/CommListStash.h"
#include "VoBgp/internal/CommListTraits.h"
#include "VoBgp/internal/ListStorage.h"
#include "VoFmt/StackBackedBuffer.h"
#include "Vok/DedupHashTable.h"
#include "Vok/DumpContext.h"
#include "Vok/HashMix.h"
#include "Vok/SizeClassArena.h"

namespace Routing::RouteMap {
class PosixRegex;
template <class Comm>
class CommSnapshot;
using CommListSnapshot = CommSnapshot<Acl::CommunityValue>;
}  // namespace Routing::RouteMap

namespace Routing::Bgp {

class CommList;
class LargeCommList;
using CommListSnapshot = RouteMap::CommSnapshot<U32>;
class CommListDedupTable;
class LargeCommListDedupTable;

template <class List, class Value>
Kiv::Ptr<List> destashCommList(void const* image, KivStash::StoreManager* storeManager);

// The per-thread interning cache's view of a list kind (ListInternCache.h).
template <class List, class Value>
struct PlainListInternKind;

template <class Derived, class Value>
class CommListBase : public KivStash::DedupHandle {
  public:
    using Traits = CommListTraits<Value>;
    using CommVector = TailVector<Value>;

    // A list's block: from the size-class arena for a list interned from
    // received values whose block fits one (no allocator header, 8-octet
    // steps), else from the heap. The destroying delete reads which from the
    // list's count before the list is destroyed.
    static void* operator new(std::size_t size) { return ::operator new(size); }
    static void operator delete(CommListBase* list, std::destroying_delete_t) {
        std::size_t const octets = list->arenaOctets();
        static_cast<Derived*>(list)->~Derived();
        if (octets != 0)
            Vok::SizeClassArena::global().deallocate(list, octets);
        else
            ::operator delete(list);
    }

    // True once dedup (or destash) has sorted the vector and dropped duplicates.
    bool commVectorSorted() const { return (userData() & commVectorSortedBit) != 0; }
    U32 comms() const { return static_cast<U32>(members().size()); }
    bool empty() const { return members().empty(); }
    // The members in vector order, wherever they are kept.
    std::span<Value const> commVectorRawPtr() const { return members(); }
    // Only for a private list: an interned one is shared and never changes.
    CommVector* commVectorRawPtrNonConst() {
        KIV_ASSERT(!inTail());
        return heapVector();
    }

    // Sorts and deduplicates the list if that is not done yet, then returns
    // the interned list equal to it: this one, or the one already in `table`
    // (this one then dies with its last holder). Nothing beyond this list is
    // allocated when an equal list is already interned.
    Kiv::Ptr<Derived const> dedup(typename Traits::Table const* table);

    // The interned list holding exactly `values` (any order, duplicates
    // allowed): when it exists, found by a lookup that builds nothing; else
    // built and interned. internReceived reads the values from an
    // attribute's value octets (Traits::wireOctets each, network order).
    static Kiv::Ptr<Derived const> intern(typename Traits::Table const* table,
                                          std::span<Value const> values) {
        return internSorted(table, ReceivedValues<Value, receivedOnStack>(values));
    }
    static Kiv::Ptr<Derived const> internReceived(typename Traits::Table const* table,
                                                  U8 const* octets, std::size_t size) {
        return internSorted(table, ReceivedValues<Value, receivedOnStack>(octets, size));
    }
    // internReceived for a holder replacing what it holds (a route whose
    // attribute arrives again): `held` becomes that list. When the list it
    // holds (interned in `table`) has exactly these values, it stays: no
    // table lookup, and neither count is written.
    static void internReceivedInto(Kiv::Ptr<Derived const>& held,
                                   typename Traits::Table const* table, U8 const* octets,
                                   std::size_t size) {
        ReceivedValues<Value, receivedOnStack> const values(octets, size);
        if (!holdsExactly(held.ptr(), table, values))
            held = internSorted(table, values);
    }

    // The path attribute: flags 0xC0, the kind's type, the elements in vector
    // order in network byte order. The serializer picks the length form. A
    // list that does not fit one attribute (over 16,383 standard or 5,461
    // large communities) stops the process: one merged from several peers'
    // values (aggregation) is checked with fitsOneAttribute() first.
    Kiv::String serialize() const;
    // serialize()'s octets, header included; asking never stops the process.
    std::size_t serializedSize() const { return pathAttributeSize(valueOctets()); }
    bool fitsOneAttribute() const { return pathAttributeValueFits(valueOctets()); }

    // Writes the list into `storeManager`'s image; returns the record index.
    U32 stash(KivStash::StoreManager* storeManager) const;
    // A sorted, not yet interned list equal to the one stashed at `image` (a
    // record of `storeManager`'s attached image). Kiv::ParseError when the
    // record is of another kind or not in ascending order.
    static Kiv::Ptr<Derived> destash(void const* image, KivStash::StoreManager* storeManager) {
        return destashCommList<Derived, Value>(image, storeManager);
    }

    // The elements separated by single blanks (standard communities by their
    // well-known names where they have one, large ones in plain decimal).
    Kiv::String toStrep() const;
    template <class Buffer>
    void formatComms(Buffer& buffer) const {
        std::span<Value const> const values = members();
        for (std::size_t i = 0; i < values.size(); ++i) {
            if (i != 0)
                buffer.append(' ');
            Traits::format(buffer, values[i]);
        }
    }

  protected:
    static constexpr U32 commVectorSortedBit = 1;

    CommListBase() = default;
    ~CommListBase() {
        if (!inTail())
            heapVector()->~CommVector();
    }
    // A list with a heap vector behind it.
    static Kiv::Ptr<Derived> create() {
        auto* const raw =
            ::new (Derived::operator new(vectorOffset() + sizeof(CommVector))) Derived;
        ::new (static_cast<void*>(raw->block() + vectorOffset())) CommVector;
        return Kiv::Ptr<Derived>(raw);
    }

    // The unchecked halves of the entry points each list kind spells itself.
    void appendComm(Value const& value) { heapVector()->push_back(value); }
    bool holdsComm(Value const& value) const {
        std::span<Value const> const values = members();
        auto it = std::lower_bound(values.begin(), values.end(), value);
        return it != values.end() && *it == value;
    }
    U32 hashComms() const {
        Vok::HashMix mix;
        for (Value const& value : members())
            for (U32 i = 0; i < Traits::words; ++i)
                mix.mixU32(Traits::word(value, i));
        return mix.result();
    }
    U32 placementComms() const {
        return ListPlacement::of<Value>(members(),
                                        [](Value const& value) -> Value const& { return value; });
    }
    bool equalComms(Vok::DedupHandle const* other) const {
        std::span<Value const> const mine = members();
        std::span<Value const> const theirs = static_cast<CommListBase const*>(other)->members();
        return theirs.size() == mine.size() &&
               Traits::equal(mine.data(), theirs.data(), mine.size());
    }
    // Runs between sorting and inserting; CommList caches its flags here.
    void cacheFlags() {}

  private:
    // Values a lookup sorts on the stack; longer lists use the heap.
    static constexpr std::size_t receivedOnStack = 64;
    // User-data bits 4..15 (above the flags): a tail list's count + 1, 0
    // for a heap vector. A received attribute holds up to 16,383 values, but
    // routes carry a few; a list of tailCountLimit values or more takes the
    // heap vector.
    static constexpr unsigned tailCountShift = 4;
    static constexpr std::size_t tailCountLimit = (std::size_t(1) << 12) - 1;
    // A tail list's values start right after the handle's fields.
    static constexpr std::size_t valuesOffset = Vok::DedupHandle::fieldsOctets;

    bool inTail() const { return (userData() >> tailCountShift) != 0; }
    // The octets of a tail list's block of `count` values (an empty list
    // still takes its whole object).
    static constexpr std::size_t tailOctets(std::size_t count) {
        return std::max(sizeof(Derived), valuesOffset + count * sizeof(Value));
    }
    Value* tailValues() { return reinterpret_cast<Value*>(block() + valuesOffset); }
    // The arena block size of this list, 0 when its block is the heap's.
    std::size_t arenaOctets() const {
        U32 const tail = userData() >> tailCountShift;
        if (tail == 0 || !Vok::SizeClassArena::fits(tailOctets(tail - 1)))
            return 0;
        return tailOctets(tail - 1);
    }
    std::size_t valueOctets() const { return members().size() * Traits::wireOctets; }
    // The list's block starts at this base (the list kinds add no members).
    // No cast to Derived, which the destructor has already left.
    char* block() const { return const_cast<char*>(reinterpret_cast<char const*>(this)); }
    static constexpr std::size_t vectorOffset() {
        return (sizeof(Derived) + alignof(CommVector) - 1) / alignof(CommVector) *
               alignof(CommVector);
    }
    // Only for a list not in tail mode: in a tail list the values are there.
    CommVector* heapVector() const {
        return std::launder(reinterpret_cast<CommVector*>(block() + vectorOffset()));
    }
    std::span<Value const> members() const {
        U32 const tail = userData() >> tailCountShift;
        if (tail != 0)
            return {reinterpret_cast<Value const*>(block() + valuesOffset), tail - 1};
        return heapVector()->span();
    }

    template <class List, class V>
    friend Kiv::Ptr<List> destashCommList(void const* image, KivStash::StoreManager* storeManager);

    // Only lists built value by value are unsorted; they have a heap vector.
    void sortAndUnique() {
        CommVector& vector = *heapVector();
        std::sort(vector.begin(), vector.end());
        vector.erase(std::unique(vector.begin(), vector.end()), vector.end());
        userDataIs(userData() | commVectorSortedBit);
    }
    // The pre-insert action: an interned list keeps no spare capacity.
    static void dropSpareCapacity(Vok::DedupHandle* candidate) {
        auto const* const list = static_cast<CommListBase*>(static_cast<Derived*>(candidate));
        if (!list->inTail())
            list->heapVector()->shrink_to_fit();
    }

    template <std::size_t N>
    static Kiv::Ptr<Derived const> internSorted(typename Traits::Table const* table,
                                                ReceivedValues<Value, N> const& values);
    // Whether `list` (held, or null) is `table`'s list of exactly `values`.
    template <std::size_t N>
    static bool holdsExactly(Derived const* list, typename Traits::Table const* table,
                             ReceivedValues<Value, N> const& values) {
        CommListDedupTableBase const* const base = table;
        return base->dedupTable()->holds(list) &&
               values.sameAs(static_cast<CommListBase const*>(list)->members(),
                             [](Value const& value) -> Value const& { return value; });
    }
    // A cache that decoded the values already goes straight to the lookup.
    friend struct PlainListInternKind<Derived, Value>;

    // Where a tail list's values start (valuesOffset: the handle's tail
    // padding on 64-bit hosts), so that they lie within the object's own
    // octets from their first one; never read as a field.
    U32 tailHead_;
};

// The entry points that check a list's state, spelled in each list class so
// that an abort names the list kind and the call that broke the contract.
#define VOBGP_COMM_LIST_CHECKED_ENTRY_POINTS(ValueParam)              \
    /* Appends at the end, duplicates allowed; private lists only. */ \
    void commIs(ValueParam value) {                                   \
        KIV_ASSERT(!commVectorSorted());                              \
        appendComm(value);                                            \
    }                                                                 \
    /* Binary search; sorted lists only. */                           \
    bool comm(ValueParam value) const {                               \
        KIV_ASSERT(commVectorSorted());                               \
        return holdsComm(value);                                      \
    }                                                                 \
    /* Jenkins one-at-a-time over the elements' words, each word   */ \
    /* least significant octet first; 0 for an empty list.         */ \
    U32 hash() const override {                                       \
        KIV_ASSERT(commVectorSorted());                               \
        return hashComms();                                           \
    }                                                                 \
    bool compare(Vok::DedupHandle const* other) const override {      \
        KIV_ASSERT(commVectorSorted());                               \
        return equalComms(other);                                     \
    }                                                                 \
    /* Placed by a seeded word-wise hash, not hash(): crafted */      \
    /* hash() collisions must not share one probe chain.     */       \
    U32 placementHashCompute() const override {                       \
        KIV_ASSERT(commVectorSorted());                               \
        return placementComms();                                      \
    }

// The well-known communities whose presence CommList caches, with their bit
// in the user-data word.
#define VOBGP_COMM_LIST_FLAGS(X)            \
    X(noExport, communityNoExport, 2)       \
    X(noAdvertise, communityNoAdvertise, 4) \
    X(noExportSubconfed, communityNoExportSubconfed, 8)

class CommList final : public CommListBase<CommList, U32> {
  public:
    using Ptr = Kiv::Ptr<CommList>;
    using PtrConst = Kiv::Ptr<CommList const>;
    using RawPtrConst = CommList const*;

    // A new, empty, private list.
    static Ptr CommListIs() { return create(); }

    VOBGP_COMM_LIST_CHECKED_ENTRY_POINTS(U32)

    // The cached flags, valid once the list is interned.
#define VOBGP_COMM_LIST_FLAG_ACCESSOR_(flag, value, bit) \
    bool flag() const {                                  \
        KIV_ASSERT(isDeduped());                         \
        return (userData() & (bit)) != 0;                \
    }
    VOBGP_COMM_LIST_FLAGS(VOBGP_COMM_LIST_FLAG_ACCESSOR_)
#undef VOBGP_COMM_LIST_FLAG_ACCESSOR_

    // The short name of a well-known community, else the empty string.
    static Kiv::String wellKnownName(U32 comm) {
        return communityWellKnownName(comm);
    }
    // Always the numeric form ("65535:65281"), names never.
    static Kiv::String getStringValue(U32 comm) {
        return communityNumericString(comm);
    }

    // Numeric forms first, then well-known names (VoBgp/internal/CommListMatch.h).
    bool matchCommunitiesRegex(RouteMap::PosixRegex const* regex) const;
    Kiv::Ptr<CommListSnapshot> commSnapshot() const;

  private:
    friend class CommListBase<CommList, U32>;
    CommList() = default;
    void cacheFlags();
};

class LargeCommList final : public CommListBase<LargeCommList, Acl::CommunityValue> {
  public:
    using Ptr = Kiv::Ptr<LargeCommList>;
    using PtrConst = Kiv::Ptr<LargeCommList const>;
    using RawPtrConst = LargeCommList const*;

    static Ptr LargeCommListIs() { return create(); }

    VOBGP_COMM_LIST_CHECKED_ENTRY_POINTS(Acl::CommunityValue const&)

    // Plain decimal ("65536:1:2").
    static Kiv::String getStringValue(Acl::CommunityValue const& value) {
        return LargeCommunityFormatter::kivString(value, false);
    }
    // With asdot, a global administrator from 65536 on prints as hi.lo.
    static Kiv::String displayString(Acl::CommunityValue const& value, bool asdot) {
        return LargeCommunityFormatter::kivString(value, asdot);
    }

    // Plain decimal forms, one pass.
    bool matchCommunitiesRegex(RouteMap::PosixRegex const* regex) const;
    Kiv::Ptr<RouteMap::CommListSnapshot> commSnapshot() const;

  private:
    friend class CommListBase<LargeCommList, Acl::CommunityValue>;
    LargeCommList() = default;
};

// A list is its handle and the first octets of its values (24 octets on
// 64-bit hosts): the values start at the handle's fieldsOctets (20 there);
// the rest of them or the heap vector follow in the same block.
static_assert(sizeof(CommList) == Vok::DedupHandle::fieldsOctets + sizeof(U32) &&
              sizeof(LargeCommList) == Vok::DedupHandle::fieldsOctets + sizeof(U32));
static_assert(sizeof(void*) != 8 || (sizeof(CommList) == 24 && sizeof(LargeCommList) == 24));

inline CommList::Ptr commListFactory() {
    return CommList::CommListIs();
}
inline LargeCommList::Ptr largeCommListFactory() {
    return LargeCommList::LargeCommListIs();
}

extern template class CommListBase<CommList, U32>;
extern template class CommListBase<LargeCommList, Acl::CommunityValue>;

std::ostream& operator<<(std::ostream& os, CommList const* list);
std::ostream& operator<<(std::ostream& os, LargeCommList const* list);
// The printed form; empty for a null list.
Kiv::String stringify(CommList const* list);
Kiv::String stringify(LargeCommList const* list);

}  // namespace Routing::Bgp

#include "VoBgp/internal/CommListDedupTables.h"
#include "VoBgp/internal/CommListIntern.h"
#include "VoBgp/internal/CommListMatch.h"
#include "VoBgp/internal/CommListSnapshot.h"
