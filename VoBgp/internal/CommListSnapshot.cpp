#include "VoBgp/VoBgpCommunityList.h"

namespace Routing::Bgp {

Kiv::Ptr<CommListSnapshot> CommList::commSnapshot() const {
    CommListSnapshot::Ptr snapshot = commListSnapshotFactory();
    for (U32 comm : commVectorRawPtr())
        snapshot->commIs(comm, true);
    return snapshot;
}

Kiv::Ptr<RouteMap::CommListSnapshot> LargeCommList::commSnapshot() const {
    RouteMap::CommListSnapshot::Ptr snapshot = RouteMap::commListSnapshotFactory();
    for (Acl::CommunityValue const& comm : commVectorRawPtr())
        snapshot->commIs(comm, true);
    return snapshot;
}

Kiv::Ptr<ExtCommClassificationListSnapshot> ExtCommClassificationList::commSnapshot() const {
    ExtCommClassificationListSnapshot::Ptr snapshot =
        extCommClassificationListSnapshotFactory(classification());
    for (ExtComm::PtrConst const& comm : commVector_)
        snapshot->commIs(comm);
    return snapshot;
}

Kiv::Ptr<ExtCommListSnapshot> ExtCommList::commSnapshot() const {
    Kiv::Ptr<ExtCommListSnapshot> snapshot(new ExtCommListSnapshot);
    snapshot->fill(classificationLists(), commVector_);
    return snapshot;
}

Kiv::Ptr<ExtCommListSnapshot> ExtCommList::snapshot() const {
    return commSnapshot();
}

}  // namespace Routing::Bgp
