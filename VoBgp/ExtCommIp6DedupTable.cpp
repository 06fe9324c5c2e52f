#include "VoBgp/ExtCommIp6DedupTable.h"

namespace Routing::Bgp {

ExtCommIp6DedupTable::Ptr ExtCommIp6DedupTable::ExtCommIp6DedupTableIs(
    ParseRulePtrConst const& parseExtCommRule) {
    return Kiv::makeActive<ExtCommIp6DedupTable>(parseExtCommRule);
}

ExtCommIp6::PtrConst ExtCommIp6::dedupContent(ExtCommIp6DedupTable const* table,
                                              ExtCommIp6Content const& content) {
    return table->intern(content);
}

}  // namespace Routing::Bgp
