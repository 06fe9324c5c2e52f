// Routing::RouteMap::CommListSnapshot: the large communities of one route as
// the route-map code observes them, in ascending order, each with a bool.
//
// CommSnapshot<Comm> is that shape over any plain community value; the
// standard community snapshot of the BGP library is the same template over
// U32. Attribute `comm`, a notifying ordered map from the community to a
// bool: observers hear each insert, update and delete (see Kiv/OrderedMap.h).
#pragma once

#include "Acl/CommunityValue.h"
#include "Kiv/OrderedMap.h"

namespace Routing::RouteMap {

template <class Comm>
class CommSnapshot final : public Kiv::CollectionNotifier {
    KIV_ORDERED_MAP_ATTRIBUTE(comm, Comm, bool, 0)

  public:
    using Ptr = Kiv::Ptr<CommSnapshot>;
    using PtrConst = Kiv::Ptr<CommSnapshot const>;

    // Empty, with notification switched on.
    static Ptr CommListSnapshotIs() { return Kiv::makeActive<CommSnapshot>(); }

    // Sets the value of `comm`, inserting it in order when it is new.
    void commIs(Comm const& comm, bool value) { comm_.set(comm, value); }

  private:
    template <class T, class... Args>
    friend Kiv::Ptr<T> Kiv::makeActive(Args&&... args);
    CommSnapshot() = default;
};

using CommListSnapshot = CommSnapshot<Acl::CommunityValue>;

inline CommListSnapshot::Ptr commListSnapshotFactory() {
    return CommListSnapshot::CommListSnapshotIs();
}

}  // namespace Routing::RouteMap
