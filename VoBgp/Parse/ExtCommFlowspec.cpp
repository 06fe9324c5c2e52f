#include "VoBgp/Parse/ExtCommFlowspec.h"

namespace Routing::Bgp {

namespace {

using F = ExtCommFieldFormat;

constexpr U64 octets2to3 = 0xffff'0000'0000;
constexpr U64 octets2to5 = 0xffff'ffff'0000;
constexpr U64 octets2to6 = 0xffff'ffff'ff00;
constexpr U64 octets4to7 = 0x0000'ffff'ffff;
constexpr U64 octets6to7 = 0x0000'0000'ffff;
constexpr U64 octet7 = 0xff;

// RFC 8955 section 7.3: a 2-octet ID (an AS number) and a float.
constexpr ExtCommField rateBytesFields[] = {
    {F::asNumber, octets2to3},
    {F::rateBytes, octets4to7},
};
constexpr ExtCommField ratePacketsFields[] = {
    {F::asNumber, octets2to3},
    {F::ratePackets, octets4to7},
};

// RFC 8955 section 7.3, IANA "Traffic Action Fields": bit 47 terminal
// action, bit 46 sample, bit 0 the most significant of the 48.
constexpr ExtCommFieldName trafficActions[] = {
    {0x01, "T", "terminal"},
    {0x02, "S", "sample"},
};
constexpr ExtCommField trafficActionFields[] = {
    {F::flags, octet7, trafficActions, {0, "none", "none"}},
    {F::reserved, octets2to6},
};

// RFC 8955 section 7.4: the route target layouts of RFC 4360.
constexpr ExtCommField redirectAsFields[] = {
    {F::asNumber, octets2to3},
    {F::decimal, octets4to7},
};
constexpr ExtCommField redirectIpv4Fields[] = {
    {F::ipv4Address, octets2to5},
    {F::decimal, octets6to7},
};
constexpr ExtCommField redirectAs4Fields[] = {
    {F::asNumber, octets2to5},
    {F::decimal, octets6to7},
};

// RFC 8955 section 7.5: the DSCP in the low six bits of the last octet.
constexpr ExtCommField trafficMarkingFields[] = {
    {F::decimal, 0x3f},
    {F::reserved, octets2to6 | 0xc0},
};

// draft-simpson-idr-flowspec-redirect: the copy flag, the low bit of the last
// octet; the target is the route's next hop.
constexpr ExtCommFieldName redirectNextHopFlags[] = {{0x01, "copy", "copy"}};
constexpr ExtCommField redirectNextHopFields[] = {
    {F::flags, octet7, redirectNextHopFlags},
    {F::reserved, octets2to6},
};

constexpr auto flowspec = extCommClassificationFlowspec;

}  // namespace

ExtCommLayout const ExtCommFlowspecTrafficRate::layout = {
    flowspec, "FlowspecTrafficRate", "FS-rate", "Flowspec-Traffic-Rate", rateBytesFields};
ExtCommLayout const ExtCommFlowspecTrafficRatePackets::layout = {
    flowspec, "FlowspecTrafficRatePackets", "FS-rate-pps", "Flowspec-Traffic-Rate-Packets",
    ratePacketsFields};
ExtCommLayout const ExtCommFlowspecTrafficAction::layout = {
    flowspec, "FlowspecTrafficAction", "FS-action", "Flowspec-Traffic-Action", trafficActionFields};
ExtCommLayout const ExtCommFlowspecRedirectAs::layout = {
    flowspec, "FlowspecRedirectAs", "FS-redirect", "Flowspec-Redirect-AS", redirectAsFields};
ExtCommLayout const ExtCommFlowspecTrafficMarking::layout = {flowspec, "FlowspecTrafficMarking",
                                                             "FS-mark", "Flowspec-Traffic-Marking",
                                                             trafficMarkingFields};
ExtCommLayout const ExtCommFlowspecRedirectIpv4::layout = {
    flowspec, "FlowspecRedirectIp", "FS-redirect", "Flowspec-Redirect-IP", redirectIpv4Fields};
ExtCommLayout const ExtCommFlowspecRedirectAs4::layout = {
    flowspec, "FlowspecRedirectAs4", "FS-redirect", "Flowspec-Redirect-AS4", redirectAs4Fields};
ExtCommLayout const ExtCommFlowspecRedirectNextHop::layout = {
    flowspec, "FlowspecRedirectNextHop", "FS-redirect-nh", "Flowspec-Redirect-Next-Hop",
    redirectNextHopFields};

}  // namespace Routing::Bgp
