#include "VoBgp/ExtCommIp6ClassificationList.h"

#include <ostream>
#include <sstream>

#include "VoBgp/ExtCommIp6ListDedupTable.h"

namespace Routing::Bgp {

ExtCommIp6ClassificationList::PtrConst ExtCommIp6ClassificationList::dedup(
    ExtCommIp6ListDedupTable const* table) {
    KIV_ASSERT(table != nullptr, "table != __null");
    ExtCommVectorSort(commVector_);
    commVectorSortedIs(true);
    return insertInto(table->classificationTable());
}

U32 ExtCommIp6ClassificationList::hash() const {
    KIV_ASSERT(commVectorSorted());
    return hashIdentities(commVector_);
}

bool ExtCommIp6ClassificationList::compare(Vok::DedupHandle::RawPtrConst other) const {
    KIV_ASSERT(commVectorSorted());
    return static_cast<ExtCommIp6ClassificationList const*>(other)->commVector_ == commVector_;
}

Kiv::Ptr<ExtCommIp6ClassificationListSnapshot> ExtCommIp6ClassificationList::commSnapshot() const {
    auto snapshot = extCommIp6ClassificationListSnapshotFactory(classification());
    for (ExtCommIp6::PtrConst const& comm : commVector_)
        snapshot->commIs(comm);
    return snapshot;
}

Kiv::String ExtCommIp6ClassificationList::toStrep() const {
    std::ostringstream os;
    os << this;
    return Kiv::String(os.str());
}

std::ostream& operator<<(std::ostream& os, ExtCommIp6ClassificationList const* list) {
    return formatClassificationList(os, list);
}

}  // namespace Routing::Bgp
