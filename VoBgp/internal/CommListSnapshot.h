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

class ExtCommClassificationListSnapshot final : public ExtCommSnapshotComms<ExtComm> {
  public:
    using Ptr = Kiv::Ptr<ExtCommClassificationListSnapshot>;
    using PtrConst = Kiv::Ptr<ExtCommClassificationListSnapshot const>;

    static Ptr ExtCommClassificationListSnapshotIs(ExtCommClassification classification) {
        return Kiv::makeActive<ExtCommClassificationListSnapshot>(classification);
    }

    ExtCommClassification classification() const { return classification_; }

  private:
    template <class T, class... Args>
    friend Kiv::Ptr<T> Kiv::makeActive(Args&&... args);
    explicit ExtCommClassificationListSnapshot(ExtCommClassification classification)
        : classification_(classification) {}

    ExtCommClassification const classification_;
};

inline ExtCommClassificationListSnapshot::Ptr extCommClassificationListSnapshotFactory(
    ExtCommClassification classification) {
    return ExtCommClassificationListSnapshot::ExtCommClassificationListSnapshotIs(classification);
}

class ExtCommListSnapshot final : public ExtCommSnapshotComms<ExtComm> {
  public:
    using Ptr = Kiv::Ptr<ExtCommListSnapshot>;
    using PtrConst = Kiv::Ptr<ExtCommListSnapshot const>;

    KIV_ORDERED_MAP_ATTRIBUTE(classificationList, ExtCommClassification,
                              ExtCommClassificationList::PtrConst, 1)

  public:
    // Empty, with notification switched on.
    ExtCommListSnapshot() { hasNotificationActiveIs(true); }

    void classificationListIs(ExtCommClassificationList::PtrConst const& list) {
        KIV_ASSERT(list != nullptr, "__null != list");
        classificationList_.set(list->classification(), list);
    }
};

}  // namespace Routing::Bgp
