// Part of VoBgp/VoBgpCommunityList.h; include that header, not this one.
//
// (Headers in VoBgp/internal/ are pieces of the public header that includes
// them, kept apart so that no file grows past what one can read. Each names
// the header it belongs to on its first line; their .cpp files beside them
// hold the matching definitions.)
//
// The helpers every list of interned extended communities shares, written
// once for the 8-octet ExtComm and the 20-octet ExtCommIp6: a list is a
// vector of counted constant references (ExtCommVectorOf<Comm>), ordered by
// the community's key, extCommKey(comm): the 64-bit value of an ExtComm
// (type octet most significant), the content of an ExtCommIp6 (type,
// subtype, address, local administrator). Since communities are interned,
// equal keys mean the same object.
//
// ExtCommVectorMembers is that vector inside a list, with what every list
// kind does with it alike.
//
// BgpHashMix feeds the identity of one interned handle to a Jenkins
// one-at-a-time hash: lists of interned members hash their members'
// addresses, never their contents again.
#pragma once

#include <algorithm>
#include <cstddef>
#include <iosfwd>
#include <memory>
#include <span>
#include <type_traits>
#include <utility>
#include "Kiv/Assert.h"
#include "Kiv/Ptr.h"
#include "KivStash/DedupHandle.h"
#include "KivStash/StashAllocator.h"
#include "VoBgp/ExtCommIp6.h"
#include "VoBgp/VoBgpCommunity.h"
#include "VoBgp/internal/CommListDedupTableBase.h"
#include "VoBgp/internal/ListStorage.h"
#include "Vok/DedupHandle.h"
#include "Vok/DedupHashTable.h"
#include "Vok/HashMix.h"

namespace Routing::Bgp {

inline U64 extCommKey(ExtComm const& comm) {
    return comm.community();
}
inline ExtCommIp6Content const& extCommKey(ExtCommIp6 const& comm) {
    return comm.getContent();
}

template <class Comm>
using ExtCommVectorOf = TailVector<Kiv::Ptr<Comm const>>;

// Ascending by key.
template <class CommPtr>
bool ExtCommSortFn(CommPtr const& a, CommPtr const& b) {
    return extCommKey(*a) < extCommKey(*b);
}
// A member against a key, for binary searches.
template <class CommPtr, class Key>
bool ExtCommSortFnValue(CommPtr const& comm, Key const& key) {
    return extCommKey(*comm) < key;
}
template <class CommPtr>
bool ExtCommCompareFn(CommPtr const& a, CommPtr const& b) {
    return extCommKey(*a) == extCommKey(*b);
}

// Appends an interned community at the end (no search: lists are sorted once,
// when they are interned).
template <class Vector>
void ExtCommVectorAdd(Vector& vector, typename Vector::value_type const& comm) {
    KIV_ASSERT(comm != nullptr, "__null != comm");
    VOK_ASSERT_IS_DEDUPED(comm);
    vector.push_back(comm);
}

// Sorts ascending and drops adjacent equal members (keeping the first).
template <class Vector>
void ExtCommVectorSort(Vector& vector) {
    using CommPtr = typename Vector::value_type;
    CommPtr* const first = vector.data();
    CommPtr* const last = first + vector.size();
    std::sort(first, last, &ExtCommSortFn<CommPtr>);
    vector.erase(std::unique(first, last, &ExtCommCompareFn<CommPtr>), last);
}

// The member with key `community`, or null; binary search, so the vector
// must be sorted (the caller passes whether it is).
template <class Vector, class Key>
typename Vector::value_type ExtCommVectorLookup(bool commVectorSorted, Vector const& vector,
                                                Key const& community) {
    using CommPtr = typename Vector::value_type;
    KIV_ASSERT(commVectorSorted);
    auto it = std::lower_bound(vector.begin(), vector.end(), community,
                               &ExtCommSortFnValue<CommPtr, Key>);
    if (it == vector.end())
        return nullptr;
    CommPtr const& extComm = *it;
    if (extCommKey(*extComm) == community)
        return extComm;
    KIV_ASSERT(community < extCommKey(*extComm), "extComm->community() > community");
    return nullptr;
}

// The handle of ExtCommList and ExtCommIp6List: the count of their
// transitive communities is a field of its own (the handle's user data has
// 16 bits, for the lists' flags), in the handle's tail padding on 64-bit
// hosts, so it costs no octet there.
class ExtCommListHandle : public KivStash::DedupHandle {
  public:
    // Counted by dedup: communities whose type octet has bit 0x40 clear.
    U32 totalTransitiveCommunities() const { return transitive_; }

  protected:
    ExtCommListHandle() = default;
    void totalTransitiveCommunitiesIs(U32 count) { transitive_ = count; }

  private:
    U32 transitive_ = 0;
};
static_assert(sizeof(void*) != 8 || sizeof(ExtCommListHandle) == sizeof(KivStash::DedupHandle));

// Mixes the identity of one interned handle (a null one counts as zero).
class BgpHashMix {
  public:
    BgpHashMix(Vok::HashMix& mix, Vok::DedupHandle const* p) {
        VOK_ASSERT_IS_DEDUPED(p);
        mix.mixIdentity(p);
    }
};

// The hash of a sequence of interned handles, null ones skipped (the empty
// slots of a slot vector): 0 when nothing is left.
template <class Range>
U32 hashIdentities(Range const& range) {
    Vok::HashMix mix;
    for (auto const& member : range)
        if (member != nullptr)
            BgpHashMix(mix, member.ptr());
    return mix.result();
}

// Interned members gathered before their list's block is sized, on the
// stack up to stackCapacity of them.
template <class Ptr, std::size_t stackCapacity>
class PendingMembers {
  public:
    explicit PendingMembers(std::size_t capacity) {
        if (capacity > stackCapacity) {
            heap_ = std::make_unique<Ptr[]>(capacity);
            data_ = heap_.get();
        }
    }
    void push_back(Ptr&& member) { data_[size_++] = std::move(member); }
    Ptr* begin() { return data_; }
    Ptr* end() { return data_ + size_; }
    std::size_t size() const { return size_; }

  private:
    Ptr stack_[stackCapacity];
    std::unique_ptr<Ptr[]> heap_;
    Ptr* data_ = stack_;
    std::size_t size_ = 0;
};

// The per-thread interning cache's view of a list kind (ListInternCache.h).
template <class List, class Value, class ValueTable, class ListTable>
struct ExtListInternKind;

// The member vector of a list of interned communities (ExtCommList,
// ExtCommClassificationList and their IPv6 twins) and what each of them does
// with it the same way. Derived is the list, a Vok::DedupHandle that says
// whether it is sorted (commVectorSorted()).
template <class Derived, class Comm>
class ExtCommVectorMembers {
  public:
    using CommPtrConst = Kiv::Ptr<Comm const>;
    using CommVector = ExtCommVectorOf<Comm>;
    using Key = std::decay_t<decltype(extCommKey(std::declval<Comm const&>()))>;

    VOBGP_LIST_TAIL_DELETE

    // Appends an interned community at the end (private lists only).
    void commIs(CommPtrConst const& comm) { ExtCommVectorAdd(commVector_, comm); }
    void expectedCommunityCountIs(U32 communityCount) { commVector_.reserve(communityCount); }
    // Appends every member of `vector`, unsorted.
    void appendVector(CommVector const& vector) {
        commVector_.reserve(commVector_.size() + vector.size());
        for (CommPtrConst const& comm : vector)
            ExtCommVectorAdd(commVector_, comm);
    }

    // The member with that key, or null; sorted lists only.
    CommPtrConst comm(Key const& community) const { return lookupExtComm(community); }
    CommPtrConst lookupExtComm(Key const& community) const {
        return ExtCommVectorLookup(static_cast<Derived const&>(*this).commVectorSorted(),
                                   commVector_, community);
    }
    U32 comms() const { return static_cast<U32>(commVector_.size()); }
    bool empty() const { return commVector_.empty(); }
    CommVector const* commVectorRawPtr() const { return &commVector_; }

    // The list's internReceived for a holder replacing what it holds (a
    // route whose attribute arrives again): `held` becomes the interned list
    // of `listTable` holding the communities of the attribute's value octets
    // as interned in `valueTable`. When the list it holds (interned there)
    // has exactly these values, it stays: no table lookup, and neither count
    // is written.
    template <class ValueTable, class ListTable>
    static void internReceivedInto(Kiv::Ptr<Derived const>& held, ValueTable const* valueTable,
                                   ListTable const* listTable, U8 const* octets, std::size_t size) {
        ReceivedValues<Key, Derived::receivedOnStack> const values(octets, size);
        if (!holdsExactly(held.ptr(), listTable, valueTable, values))
            held = internSorted(listTable, valueTable, values);
    }

  protected:
    // A cache that decoded the values already goes straight to the lookup.
    template <class List, class Value, class ValueTable, class ListTable>
    friend struct ExtListInternKind;

    ExtCommVectorMembers() = default;

    // Appends the members of another list (nothing for null).
    template <class Other>
    void appendMembersOf(Other const* other) {
        if (other != nullptr)
            appendVector(*other->commVectorRawPtr());
    }
    // Hands this (sorted) list to `table`'s pre-insert path and returns the
    // interned list equal to it; an interned list keeps no spare capacity.
    Kiv::Ptr<Derived const> insertInto(Vok::DedupHashTable const* table) {
        Vok::DedupHandle::PtrConst interned =
            table->dedupPreInsertCallback(static_cast<Derived*>(this), &dropSpareCapacity);
        // Hand the table's reference on without counting it again.
        return Kiv::Ptr<Derived const>::adopt(static_cast<Derived const*>(interned.release()));
    }

    // The placement of a sorted list: its members' keys, word by word
    // (ListPlacement), so that internSorted finds it from received values.
    U32 membersPlacement() const {
        return ListPlacement::of<Key>(commVector_, [](CommPtrConst const& comm) -> decltype(auto) {
            return extCommKey(*comm);
        });
    }

    // The interned classification list of `table` holding exactly this
    // sorted list's `count` members of `classification`, found by one lookup
    // (by the hash an interned one of these members has), or null: most
    // classification lists are shared, so a split builds only what is new.
    template <class ClassificationList>
    Kiv::Ptr<ClassificationList const> findClassificationList(Vok::DedupHashTable const* table,
                                                              ExtCommClassification classification,
                                                              U32 count) const {
        Vok::HashMix mix;
        for (CommPtrConst const& comm : commVector_)
            if (comm->classification() == classification)
                BgpHashMix(mix, comm.ptr());
        return table->template lookup<ClassificationList>(
            Vok::placementHashOf(mix.result()), [&](ClassificationList const* candidate) {
                if (candidate->classification() != classification || candidate->comms() != count)
                    return false;
                auto theirs = candidate->commVectorRawPtr()->begin();
                for (CommPtrConst const& comm : commVector_)
                    if (comm->classification() == classification && comm != *theirs++)
                        return false;
                return true;
            });
    }

    // A new private List (Derived or a subclass; its constructor must be
    // open to this class) whose members live in the tail of its block, room
    // for `capacity` of them.
    template <class List, class... Args>
    static Kiv::Ptr<List> createWithTail(std::size_t capacity, Args&&... args) {
        auto* const raw =
            ::new (tailBlock<List, CommPtrConst>(capacity)) List(std::forward<Args>(args)...);
        Kiv::Ptr<List> list(raw);
        raw->commVector_.tailIs(tailOf<CommPtrConst>(raw), capacity);
        return list;
    }

    // The interned list of `listTable` whose members have exactly the keys
    // `values` (sorted, unique) and were interned in `valueTable`: found by
    // a lookup that builds nothing, else built from `valueTable`'s
    // communities and interned by dedup.
    //
    // A list built here is one block: the object, then its members.
    template <class ListTable, class ValueTable, class Values>
    static Kiv::Ptr<Derived const> internSorted(ListTable const* listTable,
                                                ValueTable const* valueTable,
                                                Values const& values) {
        KIV_ASSERT(listTable != nullptr && valueTable != nullptr);
        Vok::DedupHashTable const* const members = valueTable->dedupTable().ptr();
        auto const same = [&](Derived const* candidate) {
            return hasKeys(candidate, members, values);
        };
        CommListDedupTableBase const* const base = listTable;
        if (auto hit = base->dedupTable()->template lookup<Derived>(values.placement(), same))
            return hit;
        PendingMembers<CommPtrConst, Derived::receivedOnStack> pending(values.size());
        for (Key const& key : values)
            pending.push_back(valueTable->intern(typename ValueTable::Content(key)));

        // No room for classification lists: they come on demand.
        auto* const raw = ::new (tailBlock<Derived, CommPtrConst>(pending.size())) Derived;
        raw->commVector_.tailIs(tailOf<CommPtrConst>(raw), pending.size());
        Kiv::Ptr<Derived> list(raw);
        for (CommPtrConst& member : pending)
            raw->commVector_.push_back(std::move(member));
        return list->dedup(listTable);
    }

    // Whether `list` (held, or null) is `listTable`'s list of exactly the
    // keys `values` (sorted, unique) as interned in `valueTable`.
    template <class ListTable, class ValueTable, class Values>
    static bool holdsExactly(Derived const* list, ListTable const* listTable,
                             ValueTable const* valueTable, Values const& values) {
        CommListDedupTableBase const* const base = listTable;
        return base->dedupTable()->holds(list) &&
               hasKeys(list, valueTable->dedupTable().ptr(), values);
    }

    CommVector commVector_;

  private:
    template <class Values>
    static bool hasKeys(Derived const* list, Vok::DedupHashTable const* members,
                        Values const& values) {
        std::span<CommPtrConst const> const theirs = list->commVector_.span();
        // Equal keys from another value table are other objects.
        return values.sameAs(theirs, [](CommPtrConst const& comm) -> decltype(auto) {
            return extCommKey(*comm);
        }) && (theirs.empty() || theirs.front()->dedupTable() == members);
    }

    static void dropSpareCapacity(Vok::DedupHandle* candidate) {
        static_cast<ExtCommVectorMembers&>(*static_cast<Derived*>(candidate))
            .commVector_.shrink_to_fit();
    }
};

// The framework text functions of a dense bool set nested in a list class
// (stream output, valueToStrep, sequenceToValue), declared and defined once
// for every such set.
#define VOBGP_DENSE_SET_TEXT_DECLARATIONS(Set)                                                  \
    std::ostream& operator<<(std::ostream& os, Set value);                                      \
    Kiv::String valueToStrep(Set value);                                                        \
    void sequenceToValue(Kiv::String::IteratorConst& it, Kiv::String::IteratorConst const& end, \
                         Set* out);
#define VOBGP_DENSE_SET_TEXT_DEFINITIONS(Set)                                                   \
    std::ostream& operator<<(std::ostream& os, Set value) {                                     \
        return os << value.toStrep();                                                           \
    }                                                                                           \
    Kiv::String valueToStrep(Set value) {                                                       \
        return Kiv::String(value.toStrep());                                                    \
    }                                                                                           \
    void sequenceToValue(Kiv::String::IteratorConst& it, Kiv::String::IteratorConst const& end, \
                         Set* out) {                                                            \
        *out = Set::parse(it, end);                                                             \
    }

// An attribute octet read back from a user-data word; bits beyond the set's
// flags mean the word was corrupted, which is fatal.
template <class Set>
Set denseSetFromOctet(U32 octet) {
    KIV_ASSERT(octet < Set::limit);
    return Set(octet);
}

}  // namespace Routing::Bgp
