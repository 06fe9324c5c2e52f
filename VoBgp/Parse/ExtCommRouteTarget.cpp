#include "VoBgp/Parse/ExtCommRouteTarget.h"

namespace Routing::Bgp {

ExtCommRouteTargetAs::Ptr ExtCommRouteTargetAs::ExtCommRouteTargetAsIs(
    ExtCommContent const& content, bool fourOctetAs) {
    return makeExtComm<ExtCommRouteTargetAs>(content, fourOctetAs);
}

ExtCommRouteTargetIpv4Address::Ptr ExtCommRouteTargetIpv4Address::ExtCommRouteTargetIpv4AddressIs(
    ExtCommContent const& content) {
    return makeExtComm<ExtCommRouteTargetIpv4Address>(content);
}

// ---- Parse rules and parser plug-in (to come with the rule framework) ----

}  // namespace Routing::Bgp
