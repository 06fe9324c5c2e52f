// Part of VoBgp/VoBgpCommunityList.h; include that header, not this one.
//
// ExtCommClassificationList: the extended communities of one ExtCommList that
// share one classification (all its route targets, all its link bandwidths,
// ...), interned on their own so that routes whose communities differ in one
// classification share the lists of the others. Route-target lists
// (RtExtCommClassificationList) are interned in a table of their own and
// carry a lifetime notifier; link-bandwidth lists
// (LinkBandwidthExtCommClassificationList) remember their best value, since
// only one link bandwidth survives pruning.
//
// The classification and the attribute bits share the handle's user-data
// word: classification in the low octet, CommVectorAttrs in the octet above.
//
// ExtCommClassificationLists is the container an ExtCommList builds when it
// is first asked for its classification lists: an exactly sized array,
// unique by classification and ascending by it (there are eleven
// classifications, lookups scan a handful of elements), one block with its
// array behind it (created).
#pragma once

#include "Kiv/DenseBoolSet.h"
#include "Kiv/String.h"
#include "VoBgp/internal/ExtCommVector.h"

namespace Routing::Bgp {

class ExtCommListDedupTable;
class ExtCommClassificationListSnapshot;
class RtExtCommListLifeTimeNotifier;

#define VOBGP_EXT_COMM_CLASSIFICATION_LIST_ATTRS(X) \
    X(sorted)                                       \
    X(hasPrunableValues)

class ExtCommClassificationList : public Vok::DedupHandle,
                                  public ExtCommVectorMembers<ExtCommClassificationList, ExtComm> {
  public:
    using Ptr = Kiv::Ptr<ExtCommClassificationList>;
    using PtrConst = Kiv::Ptr<ExtCommClassificationList const>;
    using RawPtrConst = ExtCommClassificationList const*;

    KIV_DENSE_BOOL_SET(CommVectorAttrs, "Routing::Bgp::ExtCommClassificationList::CommVectorAttrs",
                       VOBGP_EXT_COMM_CLASSIFICATION_LIST_ATTRS)

    static constexpr U32 classificationShift = 0;
    static constexpr U32 classificationMask = 0xFFu << classificationShift;
    static constexpr U32 commVectorAttrsShift = 8;
    static constexpr U32 commVectorAttrsMask = 0xFFu << commVectorAttrsShift;

    // A new private list of `classification`, of the subclass that
    // classification has (route target, link bandwidth) if any; room for
    // `capacity` members in its own block, more go to the heap.
    static Ptr ExtCommClassificationListIs(ExtCommClassification classification,
                                           std::size_t capacity = 0);

    ExtCommClassification classification() const {
        return static_cast<ExtCommClassification>((userData() & classificationMask) >>
                                                  classificationShift);
    }
    // An octet above 3 in the word is fatal.
    CommVectorAttrs commVectorAttrs() const;
    bool commVectorSorted() const { return commVectorAttrs().sorted(); }
    void commVectorSortedIs(bool sorted);
    bool hasPrunableValues() const { return commVectorAttrs().hasPrunableValues(); }

    // commIs, comm(U64), comms, commVectorRawPtr: ExtCommVectorMembers.

    // Sorts the list and returns the interned one equal to it, from the
    // route-target table of `table` for route targets, else from its
    // classification table.
    PtrConst dedup(ExtCommListDedupTable const* table);

    // Jenkins one-at-a-time over the members' identities; 0 when empty.
    U32 hash() const override;
    // Same members (identities) in the same order. The classification is not
    // compared: it follows from the members.
    bool compare(Vok::DedupHandle const* other) const override;
    // Told of each member as an ExtCommList distributes it here; sets
    // hasPrunableValues for an invalid member.
    virtual void checkPrunable(ExtComm::PtrConst const& comm);
    // The members that survive pruning: the valid ones, in order.
    virtual CommVector prune() const;

    Kiv::Ptr<ExtCommClassificationListSnapshot> commSnapshot() const;
    // "<classification member name> : <members' derived forms>".
    Kiv::String toStrep() const;

  protected:
    friend class ExtCommVectorMembers<ExtCommClassificationList, ExtComm>;
    explicit ExtCommClassificationList(ExtCommClassification classification) {
        handleInit(classification);
    }
    void handleInit(ExtCommClassification classification);
    void commVectorAttrsIs(CommVectorAttrs attrs) {
        userDataIs((userData() & ~commVectorAttrsMask) | U32(attrs.value())
                                                             << commVectorAttrsShift);
    }
    void hasPrunableValuesIs(bool prunable);
};

class RtExtCommClassificationList final : public ExtCommClassificationList {
  public:
    using Ptr = Kiv::Ptr<RtExtCommClassificationList>;
    using PtrConst = Kiv::Ptr<RtExtCommClassificationList const>;
    using NotifierPtr = Kiv::Ptr<RtExtCommListLifeTimeNotifier>;

    static Ptr RtExtCommClassificationListIs(
        ExtCommClassification classification = extCommClassificationRouteTarget);
    ~RtExtCommClassificationList() override;

    // Set by the route-target table's lifetime notifiee while the list is
    // interned (hence const: the notifier is not part of the content).
    void lifeTimeNotifierIs(NotifierPtr const& notifier) const;
    // Whoever reaches the notifier can watch the list's lifetime: these two
    // switch the list's table set to eager building first, as its
    // collection's accessor does (ExtCommListDedupTable.h).
    RtExtCommListLifeTimeNotifier const* lifeTimeNotifier() const;
    // A new reference, or null.
    NotifierPtr getLifeTimeNotifier() const;
    // The list's own reference, handed over; the list has none after.
    NotifierPtr lifeTimeNotifierTake() const { return std::move(lifeTimeNotifier_); }

  private:
    friend class ExtCommVectorMembers<ExtCommClassificationList, ExtComm>;
    friend class RtExtCommListLifeTimeNotifiee;
    using ExtCommClassificationList::ExtCommClassificationList;
    // The notifiee's own view, under the table's lock: no switch.
    RtExtCommListLifeTimeNotifier const* notifierRaw() const { return lifeTimeNotifier_.ptr(); }
    void watched() const;
    mutable NotifierPtr lifeTimeNotifier_;
};

class LinkBandwidthExtCommClassificationList final : public ExtCommClassificationList {
  public:
    using Ptr = Kiv::Ptr<LinkBandwidthExtCommClassificationList>;
    using PtrConst = Kiv::Ptr<LinkBandwidthExtCommClassificationList const>;

    static Ptr LinkBandwidthExtCommClassificationListIs();

    // The best valid link bandwidth seen (the first of equals), or null.
    ExtComm::PtrConst const& best() const { return best_; }
    // Tracks the best valid value; two or more members, or an invalid one,
    // make the list prunable (one link bandwidth is to survive).
    void checkPrunable(ExtComm::PtrConst const& comm) override;
    // The best value alone, or nothing.
    CommVector prune() const override;

  private:
    friend class ExtCommVectorMembers<ExtCommClassificationList, ExtComm>;
    LinkBandwidthExtCommClassificationList()
        : ExtCommClassificationList(extCommClassificationLinkBandwidth) {}
    ExtComm::PtrConst best_;
};

// On 64-bit hosts: the handle (24 octets) and the one-word member vector,
// plus the subclasses' one pointer; the members follow in the same block.
static_assert(sizeof(void*) != 8 || (sizeof(ExtCommClassificationList) == 32 &&
                                     sizeof(RtExtCommClassificationList) == 40 &&
                                     sizeof(LinkBandwidthExtCommClassificationList) == 40));

inline ExtCommClassificationList::Ptr extCommClassificationListFactory(
    ExtCommClassification classification) {
    return ExtCommClassificationList::ExtCommClassificationListIs(classification);
}
inline RtExtCommClassificationList::Ptr rtExtCommClassificationListFactory(
    ExtCommClassification classification = extCommClassificationRouteTarget) {
    return RtExtCommClassificationList::RtExtCommClassificationListIs(classification);
}
inline LinkBandwidthExtCommClassificationList::Ptr linkBandwidthExtCommClassificationListFactory() {
    return LinkBandwidthExtCommClassificationList::LinkBandwidthExtCommClassificationListIs();
}

std::ostream& operator<<(std::ostream& os, ExtCommClassificationList const* list);
std::ostream& operator<<(std::ostream& os, ExtCommClassificationList const& list);
VOBGP_DENSE_SET_TEXT_DECLARATIONS(ExtCommClassificationList::CommVectorAttrs)

class ExtCommClassificationLists {
  public:
    using Element = ExtCommClassificationList::PtrConst;
    using value_type = Element;
    using Iterator = Element const*;

    ExtCommClassificationLists() = default;
    ExtCommClassificationLists(ExtCommClassificationLists const&) = delete;
    // A new container of `count` lists already ascending by classification,
    // the array in the container's own block; delete frees both.
    static ExtCommClassificationLists* created(Element const* lists, U32 count);
    VOBGP_LIST_TAIL_DELETE
    ExtCommClassificationLists& operator=(ExtCommClassificationLists const&) = delete;

    U32 size() const { return static_cast<U32>(lists_.size()); }
    bool empty() const { return lists_.empty(); }
    Iterator begin() const { return lists_.begin(); }
    Iterator end() const { return lists_.end(); }
    Iterator cbegin() const { return begin(); }
    Iterator cend() const { return end(); }

    // Inserts before the first list of a greater classification; a list of a
    // classification already present is fatal.
    void insert(Element const& classificationList);
    // Puts `classificationList` (of the same classification) in place of *iter.
    void replace(Iterator const& iter, Element&& classificationList);
    // The list of `classification`, or null.
    ExtCommClassificationList const* lookup(ExtCommClassification classification) const;

    // The same interned lists at every position.
    friend bool operator==(ExtCommClassificationLists const& lhs,
                           ExtCommClassificationLists const& rhs);

  private:
    // Exactly sized when on the heap: no spare capacity is ever reserved.
    TailVector<Element> lists_;
};

}  // namespace Routing::Bgp
