// Part of VoBgp/VoBgpCommunityList.h; include that header, not this one.
//
// ExtCommList: the interned list of the extended communities of one route's
// EXTENDED COMMUNITIES path attribute (RFC 4360, attribute type 16).
//
// It holds the flat vector of its communities (ascending by value once
// sorted); its identity, equality and placement are those of the values
// (interned communities: equal values are the same objects).
//
// The same communities split by classification into interned
// ExtCommClassificationLists (so that routes sharing, say, only their route
// targets share the route-target list) are built when something first asks
// for them: classificationList(s), hash() (defined over their identities),
// prune, snapshots and the forms that print them. An interned list builds
// them once, on whichever thread asks first, and publishes the array
// atomically (a thread that loses the race drops its own build, which holds
// the same interned lists); readers always see the complete set. Most
// received lists are never asked, and then cost their one block alone, and
// their last release frees just that block. Once anyone watches the
// route-target lists' collection (ExtCommListDedupTable), every list of that
// table set is split at once and every later one as it is interned, so the
// collection holds exactly what it would if lists were always split.
//
// Lifecycle: private and appendable (commIs, append...) from its factory
// until dedup(table), which sorts it, computes the cached bits from the
// values and returns the one shared list with that content.
// createClassificationListVector(false) splits a private list for display
// (its classification lists never interned); such a list is not to be
// interned. A private list's hash() mixes the lists it was split into.
//
// Cached bits (CommVectorAttrs) live in the low octet of the handle's
// user data; they answer what best-path and export code ask often. The
// count of transitive communities has a field of its own (ExtCommListHandle).
#pragma once

#include <atomic>
#include <span>

#include "KivStash/DedupHandle.h"
#include "KivStash/StoreManager.h"
#include "VoBgp/VoBgpSerialize.h"
#include "VoBgp/internal/ClassificationListsOnDemand.h"
#include "VoBgp/internal/ExtCommClassificationList.h"

namespace Routing::RouteMap {
class PosixRegex;
}

namespace Routing::Bgp {

class ExtCommListSnapshot;

#define VOBGP_EXT_COMM_LIST_ATTRS(X)           \
    X(sorted)                                  \
    X(hasLinkBandwidth)                        \
    X(hasLinkBandwidthWithUnspecifiedAsNumber) \
    X(hasOriginValidationState)                \
    X(hasPolicyMatchStrepUICommunities)        \
    X(hasPrunableValues)

// The flags a Serialization selects by; `all` overrides the others.
#define VOBGP_EXT_COMM_LIST_SERIALIZATION(X) \
    X(all)                                   \
    X(transitive)                            \
    X(linkBandwidth)                         \
    X(originAsValidity)

// The cached bits other than `sorted`, which the list spells commVectorSorted.
#define VOBGP_EXT_COMM_LIST_CACHED_BITS(X)     \
    X(hasLinkBandwidth)                        \
    X(hasLinkBandwidthWithUnspecifiedAsNumber) \
    X(hasOriginValidationState)                \
    X(hasPolicyMatchStrepUICommunities)        \
    X(hasPrunableValues)

class ExtCommList final : public ExtCommListHandle,
                          public ExtCommVectorMembers<ExtCommList, ExtComm> {
  public:
    using Ptr = Kiv::Ptr<ExtCommList>;
    using PtrConst = Kiv::Ptr<ExtCommList const>;
    using RawPtrConst = ExtCommList const*;

    KIV_DENSE_BOOL_SET(CommVectorAttrs, "Routing::Bgp::ExtCommList::CommVectorAttrs",
                       VOBGP_EXT_COMM_LIST_ATTRS)
    KIV_DENSE_BOOL_SET(Serialization, "Routing::Bgp::ExtCommList::Serialization",
                       VOBGP_EXT_COMM_LIST_SERIALIZATION)

    // A new private, empty list.
    static Ptr ExtCommListIs();

    // commIs, expectedCommunityCountIs, appendVector, comm(U64),
    // lookupExtComm, comms, empty, commVectorRawPtr: ExtCommVectorMembers.

    // Append every community of the other list (nothing for null), unsorted.
    void append(PtrConst const& otherExtCommList) { appendMembersOf(otherExtCommList.ptr()); }
    void appendClassificationList(
        ExtCommClassificationList::PtrConst const& otherClassificationList) {
        appendMembersOf(otherClassificationList.ptr());
    }

    U32 totalCommunities() const;
    // totalTransitiveCommunities: ExtCommListHandle.
    // Built on first demand (see above); empty for a private list that was
    // not split for display.
    ExtCommClassificationLists const& classificationLists() const {
        if (ExtCommClassificationLists const* built = built_.load(std::memory_order_acquire))
            return *built;
        return classificationListsFirst();
    }
    // Whether they are built already (asking builds nothing).
    bool classificationListsSplit() const {
        return built_.load(std::memory_order_acquire) != nullptr;
    }
    // The list of that classification, or null.
    ExtCommClassificationList const* classificationList(
        ExtCommClassification classification) const {
        return classificationLists().lookup(classification);
    }

    // The cached bits. An octet above 63 in the word is fatal.
    CommVectorAttrs commVectorAttrs() const;
    void commVectorAttrsIs(CommVectorAttrs attrs) {
        userDataIs((userData() & ~U32(0xFF)) | attrs.value());
    }
    bool commVectorSorted() const { return commVectorAttrs().sorted(); }
    void commVectorSortedIs(bool on) {
        CommVectorAttrs attrs = commVectorAttrs();
        attrs.sortedIs(on);
        commVectorAttrsIs(attrs);
    }
#define VOBGP_EXT_COMM_LIST_BIT_ACCESSORS_(bit)    \
    bool bit() const {                             \
        return commVectorAttrs().bit();            \
    }                                              \
    void bit##Is(bool on) {                        \
        CommVectorAttrs attrs = commVectorAttrs(); \
        attrs.bit##Is(on);                         \
        commVectorAttrsIs(attrs);                  \
    }
    VOBGP_EXT_COMM_LIST_CACHED_BITS(VOBGP_EXT_COMM_LIST_BIT_ACCESSORS_)
#undef VOBGP_EXT_COMM_LIST_BIT_ACCESSORS_

    // {all} when non-transitive communities go too, else {transitive} plus
    // the two kinds asked for.
    static Serialization serialization(bool includeNonTransitive, bool includeLinkBandwidth,
                                       bool includeOriginAsValidity);
    static bool serializable(ExtComm::PtrConst const& comm, Serialization serialization);
    // The classic estimate of what the selection writes: the transitive count
    // plus one for a link bandwidth and one for an origin validation state.
    // It assumes at most one of each, both non-transitive. A pruned list keeps
    // one link bandwidth but every valid origin validation state, so with
    // originAsValidity it is short by one for each state beyond the first;
    // unpruned lists may hold more of both. Not what to size anything by.
    U32 serializableCommunities(Serialization serialization) const;
    // Exactly what serialize writes: the communities, and the attribute's
    // octets (header included, 0 when nothing is selected).
    U32 serializedCommunities(Serialization serialization) const;
    std::size_t serializedSize(Serialization serialization) const {
        U32 const count = serializedCommunities(serialization);
        return count == 0 ? 0 : pathAttributeSize(std::size_t(count) * 8);
    }
    // Whether the selection fits one attribute (at most 8,191 communities).
    // Received lists always do; a list merged from several peers' values
    // (aggregation) may not, and serialize stops the process for it: ask this
    // first.
    bool fitsOneAttribute(Serialization serialization) const {
        return pathAttributeValueFits(std::size_t(serializedCommunities(serialization)) * 8);
    }
    // The EXTENDED COMMUNITIES attribute (flags 0xC0) holding exactly the
    // selected communities in list order; the empty string when none is.
    Kiv::String serialize(Serialization serialization) const;

    // Sorts the vector, computes the cached bits and splits it into private
    // classification lists; outside dedup mode (snapshots, displays) those
    // are marked never to be interned. dedup drops such a split (interned
    // lists split on demand) and refuses one made for display.
    void createClassificationListVector(bool dedupMode);
    PtrConst dedup(ExtCommListDedupTable const* table);
    // The interned list of `table` holding exactly the communities `values`
    // (any order, duplicates allowed) as interned in `extTable`: when it
    // exists, found by one lookup that builds nothing (not even the
    // communities); else built and interned by dedup. internReceived reads
    // the values from an attribute's value octets (8 each, network order).
    static PtrConst intern(ExtCommDedupTable const* extTable, ExtCommListDedupTable const* table,
                           std::span<U64 const> values);
    static PtrConst internReceived(ExtCommDedupTable const* extTable,
                                   ExtCommListDedupTable const* table, U8 const* octets,
                                   std::size_t size);
    // internReceivedInto(held, extTable, table, octets, size): see
    // ExtCommVectorMembers.
    // This list without invalid values and with one link bandwidth (the
    // best); this list itself when nothing is prunable, null when nothing is
    // left.
    PtrConst prune(ExtCommListDedupTable const* table) const;

    // Over the classification lists' identities (builds them); interned
    // lists only.
    U32 hash() const override;
    // The same members (identities) in the same order: the same values, and
    // so the same classification lists.
    bool compare(Vok::DedupHandle const* other) const override;
    // By the members' values (ListPlacement), which a lookup from received
    // values computes without interning anything.
    U32 placementHashCompute() const override {
        return membersPlacement();
    }

    Kiv::Ptr<ExtCommListSnapshot> commSnapshot() const;
    Kiv::Ptr<ExtCommListSnapshot> snapshot() const;
    // "[ <derived forms> ]".
    Kiv::String toStrep() const;
    // Tries the default, classification and (when the list has such
    // communities) UI forms in that order.
    bool matchCommunitiesRegex(RouteMap::PosixRegex const* regex) const;

    // Writes the list (sorted) into `storeManager`'s image; the record index.
    U32 stash(KivStash::StoreManager* storeManager) const;
    // A private, sorted list equal to the one stashed at `image`, its
    // communities interned in `extCommTable` (a stash image holds values,
    // not objects). Kiv::ParseError for a record of another kind or order.
    static Ptr destash(void const* image, KivStash::StoreManager* storeManager,
                       ExtCommDedupTable const* extCommTable);

    ~ExtCommList() override;

  private:
    friend class ExtCommVectorMembers<ExtCommList, ExtComm>;
    // Received values sorted on the stack; longer lists use the heap.
    static constexpr std::size_t receivedOnStack = 32;

    ExtCommList() = default;

    // Sorts the members and sets the cached bits and the transitive count
    // from them; outside interning (forInterning false) only what displays
    // read, as the split for display always did.
    void noteMembers(bool forInterning);
    // The first build of an interned list's classification lists, published
    // once; an empty container for a private list.
    ExtCommClassificationLists const& classificationListsFirst() const;
    // A new container of the members' classification lists: found or
    // interned in `table`, or private ones (never to be interned) for null.
    // forDisplay marks private ones never to be interned.
    ExtCommClassificationLists* classificationListsOf(ExtCommListDedupTable const* table,
                                                      bool forDisplay = true) const;
    // keepSplit false: only the sorting and the cached bits (interning).
    void createClassificationListVector(bool dedupMode, bool keepSplit);

    // Null until built; then owned, freed with the list.
    mutable std::atomic<ExtCommClassificationLists*> built_{nullptr};
};

// On 64-bit hosts: the handle (24 octets), the member vector and the
// classification lists' container (a word each, the latter null until
// built); a list interned from received values has its members in its own
// block.
static_assert(sizeof(void*) != 8 || sizeof(ExtCommList) == 40);
// One attribute carries 8,191 extended communities (RFC 4360) at most.
static_assert(pathAttributeValueFits(8191 * 8) && !pathAttributeValueFits(8192 * 8));

inline ExtCommList::Ptr extCommListFactory() {
    return ExtCommList::ExtCommListIs();
}

template <class Value>
struct CommListTraits;

// How an ExtCommList record of a stash image spells its members (record kind
// 5): each 64-bit value as two words, the high word first.
template <>
struct CommListTraits<U64> : CommListValueShape<2, 5> {
    using List = ExtCommList;
    static constexpr char const* listName = "ExtCommList";

    static U32 word(U64 value, U32 index) {
        return index == 0 ? static_cast<U32>(value >> 32) : static_cast<U32>(value);
    }
    static U64 fromWords(U32 const* words) { return U64(words[0]) << 32 | words[1]; }
    // RFC 4360: eight octets, network order.
    static U64 fromWire(U8 const* p) { return U64(wireU32(p)) << 32 | wireU32(p + 4); }
};

VOBGP_DENSE_SET_TEXT_DECLARATIONS(ExtCommList::CommVectorAttrs)
VOBGP_DENSE_SET_TEXT_DECLARATIONS(ExtCommList::Serialization)

}  // namespace Routing::Bgp
