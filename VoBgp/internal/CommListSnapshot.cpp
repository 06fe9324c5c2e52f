#include "VoBgp/VoBgpCommunityList.h"

namespace Routing::Bgp {

Kiv::Ptr<CommListSnapshot> CommList::commSnapshot() const {
    CommListSnapshot::Ptr snapshot = commListSnapshotFactory();
    for (U32 comm : *commVectorRawPtr())
        snapshot->commIs(comm, true);
    return snapshot;
}

Kiv::Ptr<RouteMap::CommListSnapshot> LargeCommList::commSnapshot() const {
    RouteMap::CommListSnapshot::Ptr snapshot = RouteMap::commListSnapshotFactory();
    for (Acl::CommunityValue const& comm : *commVectorRawPtr())
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
    for (ExtCommClassificationList::PtrConst const& list : classificationLists_)
        snapshot->classificationListIs(list);
    for (ExtComm::PtrConst const& comm : commVector_)
        snapshot->commIs(comm);
    return snapshot;
}

Kiv::Ptr<ExtCommListSnapshot> ExtCommList::snapshot() const {
    return commSnapshot();
}

}  // namespace Routing::Bgp
