// Routing::RouteMap::CommListSnapshot: the large communities of one route as
// the route-map code observes them, in ascending order, each with a bool.
//
// CommSnapshot<Comm> is the shape every community snapshot of one plain
// value kind shares (the standard community snapshot of the BGP library is
// the same over U32): a notifying ordered map from the community to a bool,
// attribute `comm`. Observers hear each insert, update and delete (see
// Kiv/OrderedMap.h).
#pragma once

#include "Acl/CommunityValue.h"
#include "Kiv/OrderedMap.h"

namespace Routing::RouteMap {

template <class Comm>
class CommSnapshot : public Kiv::CollectionNotifier {
    KIV_ORDERED_MAP_ATTRIBUTE(comm, Comm, bool, 0)

  public:
    // Sets the value of `comm`, inserting it in order when it is new.
    void commIs(Comm const& comm, bool value) { comm_.set(comm, value); }
};

class CommListSnapshot final : public CommSnapshot<Acl::CommunityValue> {
  public:
    using Ptr = Kiv::Ptr<CommListSnapshot>;
    using PtrConst = Kiv::Ptr<CommListSnapshot const>;

    // Empty, with notification switched on.
    static Ptr CommListSnapshotIs() { return Kiv::makeActive<CommListSnapshot>(); }

  private:
    template <class T, class... Args>
    friend Kiv::Ptr<T> Kiv::makeActive(Args&&... args);
    CommListSnapshot() = default;
};

inline CommListSnapshot::Ptr commListSnapshotFactory() {
    return CommListSnapshot::CommListSnapshotIs();
}

}  // namespace Routing::RouteMap
