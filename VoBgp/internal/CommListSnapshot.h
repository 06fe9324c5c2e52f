// Part of VoBgp/VoBgpCommunityList.h; include that header, not this one.
//
// Snapshots: mutable, observable copies of a community list's members in
// ordered keyed collections, for route-map evaluation, state export and show
// commands. A snapshot is built from a list in one pass (the lists'
// commSnapshot()) and keeps no link to it; it holds references to the
// interned communities and classification lists it shows. Observers hear
// every insert, update and delete (Kiv/OrderedMap.h).
//
//   CommListSnapshot                   comm: U32 -> bool
//   ExtCommClassificationListSnapshot  classification; comm: U64 -> ExtComm
//   ExtCommListSnapshot                classificationList: classification ->
//                                      list; comm: U64 -> ExtComm
// Large communities use Routing::RouteMap::CommListSnapshot.
#pragma once

#include <type_traits>
#include <utility>

#include "Routing/RouteMap/CommListSnapshot.h"
#include "VoBgp/internal/ExtCommListImpl.h"

namespace Routing::Bgp {

using CommListSnapshot = RouteMap::CommSnapshot<U32>;

inline CommListSnapshot::Ptr commListSnapshotFactory() {
    return CommListSnapshot::CommListSnapshotIs();
}

// The `comm` collection of the extended community snapshots, keyed by the
// community's key (its 64-bit value; the content for 20-octet communities).
template <class Comm>
class ExtCommSnapshotComms : public Kiv::CollectionNotifier {
  public:
    using CommPtr = Kiv::Ptr<Comm const>;
    using Key = std::decay_t<decltype(extCommKey(std::declval<Comm const&>()))>;

    KIV_ORDERED_MAP_ATTRIBUTE(comm, Key, CommPtr, 0)

  public:
    void commIs(CommPtr const& comm) {
        KIV_ASSERT(comm != nullptr, "__null != comm");
        comm_.set(extCommKey(*comm), comm);
    }
};

// The snapshot of one classification list: its classification and members.
template <class Comm>
class ExtCommClassificationListSnapshotOf : public ExtCommSnapshotComms<Comm> {
  public:
    ExtCommClassification classification() const { return classification_; }

  protected:
    explicit ExtCommClassificationListSnapshotOf(ExtCommClassification classification)
        : classification_(classification) {}

  private:
    ExtCommClassification const classification_;
};

// The snapshot of a list: its classification lists by classification and
// its members by key.
template <class Comm, class ClassificationList>
class ExtCommListSnapshotOf : public ExtCommSnapshotComms<Comm> {
  public:
    using ClassificationListPtrConst = typename ClassificationList::PtrConst;

    KIV_ORDERED_MAP_ATTRIBUTE(classificationList, ExtCommClassification, ClassificationListPtrConst,
                              1)

  public:
    void classificationListIs(ClassificationListPtrConst const& list) {
        KIV_ASSERT(list != nullptr, "__null != list");
        classificationList_.set(list->classification(), list);
    }

  protected:
    // Empty, with notification switched on.
    ExtCommListSnapshotOf() { this->hasNotificationActiveIs(true); }

    // Fills the snapshot from a list's classification lists (null slots
    // skipped) and members, in that order.
    template <class Lists, class Members>
    void fill(Lists const& lists, Members const& members) {
        for (ClassificationListPtrConst const& list : lists)
            if (list != nullptr)
                classificationListIs(list);
        for (auto const& comm : members)
            this->commIs(comm);
    }
};

class ExtCommClassificationListSnapshot final
    : public ExtCommClassificationListSnapshotOf<ExtComm> {
  public:
    using Ptr = Kiv::Ptr<ExtCommClassificationListSnapshot>;
    using PtrConst = Kiv::Ptr<ExtCommClassificationListSnapshot const>;

    static Ptr ExtCommClassificationListSnapshotIs(ExtCommClassification classification) {
        return Kiv::makeActive<ExtCommClassificationListSnapshot>(classification);
    }

  private:
    template <class T, class... Args>
    friend Kiv::Ptr<T> Kiv::makeActive(Args&&... args);
    using ExtCommClassificationListSnapshotOf::ExtCommClassificationListSnapshotOf;
};

inline ExtCommClassificationListSnapshot::Ptr extCommClassificationListSnapshotFactory(
    ExtCommClassification classification) {
    return ExtCommClassificationListSnapshot::ExtCommClassificationListSnapshotIs(classification);
}

class ExtCommListSnapshot final : public ExtCommListSnapshotOf<ExtComm, ExtCommClassificationList> {
  public:
    using Ptr = Kiv::Ptr<ExtCommListSnapshot>;
    using PtrConst = Kiv::Ptr<ExtCommListSnapshot const>;

    ExtCommListSnapshot() = default;

  private:
    friend class ExtCommList;
};

}  // namespace Routing::Bgp
