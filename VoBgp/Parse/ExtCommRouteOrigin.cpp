#include "VoBgp/Parse/ExtCommRouteOrigin.h"

namespace Routing::Bgp {

ExtCommRouteOriginAs::Ptr ExtCommRouteOriginAs::ExtCommRouteOriginAsIs(
    ExtCommContent const& content, bool fourOctetAs) {
    return makeExtComm<ExtCommRouteOriginAs>(content, fourOctetAs);
}

ExtCommRouteOriginIpv4Address::Ptr ExtCommRouteOriginIpv4Address::ExtCommRouteOriginIpv4AddressIs(
    ExtCommContent const& content) {
    return makeExtComm<ExtCommRouteOriginIpv4Address>(content);
}

// ---- Parse rules and parser plug-in (to come with the rule framework) ----

}  // namespace Routing::Bgp
