// The flowspec action extended communities (RFC 8955 section 7; IANA
// "Generic Transitive Extended Community Sub-Types", Part 2 and Part 3) and
// the redirect to IP next hop (type 0x08) as typed contents, and the opt-in
// parser plug-in that builds them. The default container does not start it:
// a user appends it with extCommParserSmsEnq before the first value is parsed
// (see ExtCommEvpn.h).
//
// The plug-in adds sub-type rules to the type rules of 0x80, 0x81 and 0x82
// through their hooks, and through the type-level hook a rule for type 0x08,
// which the root has none for, and an overlay over the 0x80 rule for the
// traffic rate in packets (subtype 0x0c, which the fixed subtype enumeration
// of 0x80 does not know, so that rule never dispatches it). Without the
// plug-in all of these stay the default fallback objects.
//
// All are classification extCommClassificationFlowspec; their text forms
// follow ExtCommLaidOut.h. Fields (octets of the 8-octet community):
//
//   traffic rate, bytes (0x80 0x06)    octets 2-3 an AS number (the ID),
//                                      octets 4-7 the rate, an IEEE float of
//                                      bytes per second (0 discards)
//     Flowspec-Traffic-Rate:65000:8 Mbps   FS-rate:65000:1e+06
//   traffic rate, packets (0x80 0x0c)  the same, in packets per second
//     Flowspec-Traffic-Rate-Packets:65000:1000 pps   FS-rate-pps:65000:1000
//   traffic action (0x80 0x07)         octet 7 flags (0x01 terminal action,
//                                      0x02 sample; the others must be zero
//                                      and show in hex), octets 2-6 reserved
//     Flowspec-Traffic-Action:terminal,sample   FS-action:T,S
//   redirect, AS (0x80 0x08)           octets 2-3 AS, octets 4-7 local
//                                      administrator: a route target
//     Flowspec-Redirect-AS:65000:100   FS-redirect:65000:100
//   traffic marking (0x80 0x09)        octet 7 the DSCP in its low six bits;
//                                      the rest reserved
//     Flowspec-Traffic-Marking:46   FS-mark:46
//   redirect, IPv4 (0x81 0x08)         octets 2-5 address, 6-7 administrator
//     Flowspec-Redirect-IP:192.0.2.1:100   FS-redirect:192.0.2.1:100
//   redirect, 4-octet AS (0x82 0x08)   octets 2-5 AS, 6-7 administrator
//     Flowspec-Redirect-AS4:65536:100 (asdot 1.0:100)   FS-redirect:65536:100
//   redirect to IP next hop (0x08 0x00)  octet 7 bit 0x01 copy, the rest
//                                      reserved; the address is the route's
//                                      next hop, not in the community
//     Flowspec-Redirect-Next-Hop:copy   FS-redirect-nh (copy clear)
#pragma once

#include "VoBgp/Parse/ExtCommLaidOut.h"
#include "VoBgp/Parse/ExtCommPluginTypeRules.h"

namespace Routing::Bgp {

// RFC 8955 section 7.3, IANA "Generic Transitive Extended Community
// Sub-Types" 0x0c: not a member of the subtype enumeration of 0x80.
inline constexpr auto extCommPktSubtypeTransGenericFlowspecTrafficRatePackets =
    static_cast<BgpExtCommPktSubtypeTransGeneric>(0x0c);

// X(Class, factory, Rule, SubRuleBase, subtype) per content, in plug-in order.
#define VOBGP_EXT_COMM_FLOWSPEC_KINDS(X)                                                           \
    /* RFC 8955 section 7.3 */                                                                     \
    X(ExtCommFlowspecTrafficRate, extCommFlowspecTrafficRateFactory,                               \
      BgpParseExtComSubTypeTransGenericFlowspecTrafficRateRule,                                    \
      BgpParseExtComSubTypeTransGenericRuleBase, extCommPktSubtypeTransGenericFlowspecTrafficRate) \
    /* RFC 8955 section 7.3 */                                                                     \
    X(ExtCommFlowspecTrafficAction, extCommFlowspecTrafficActionFactory,                           \
      BgpParseExtComSubTypeTransGenericFlowspecTrafficActionRule,                                  \
      BgpParseExtComSubTypeTransGenericRuleBase,                                                   \
      extCommPktSubtypeTransGenericFlowspecTrafficAction)                                          \
    /* RFC 8955 section 7.4 */                                                                     \
    X(ExtCommFlowspecRedirectAs, extCommFlowspecRedirectAsFactory,                                 \
      BgpParseExtComSubTypeTransGenericFlowspecRedirectAsRule,                                     \
      BgpParseExtComSubTypeTransGenericRuleBase,                                                   \
      extCommPktSubtypeTransGenericFlowspecRedirectAs2Byte)                                        \
    /* RFC 8955 section 7.5 */                                                                     \
    X(ExtCommFlowspecTrafficMarking, extCommFlowspecTrafficMarkingFactory,                         \
      BgpParseExtComSubTypeTransGenericFlowspecTrafficMarkingRule,                                 \
      BgpParseExtComSubTypeTransGenericRuleBase,                                                   \
      extCommPktSubtypeTransGenericFlowspecTrafficRemarking)                                       \
    /* RFC 8955 section 7.4 */                                                                     \
    X(ExtCommFlowspecRedirectIpv4, extCommFlowspecRedirectIpv4Factory,                             \
      BgpParseExtComSubTypeTransGenericPart2FlowspecRedirectIpv4Rule,                              \
      BgpParseExtComSubTypeTransGenericPart2RuleBase,                                              \
      extCommPktSubtypeTransGenericPart2FlowspecRedirectIpv4)                                      \
    /* RFC 8955 section 7.4 */                                                                     \
    X(ExtCommFlowspecRedirectAs4, extCommFlowspecRedirectAs4Factory,                               \
      BgpParseExtComSubTypeTransGenericPart3FlowspecRedirectAs4Rule,                               \
      BgpParseExtComSubTypeTransGenericPart3RuleBase,                                              \
      extCommPktSubtypeTransGenericPart3FlowspecRedirectAs4Byte)                                   \
    /* draft-simpson-idr-flowspec-redirect, IANA transitive type 0x08 */                           \
    X(ExtCommFlowspecRedirectNextHop, extCommFlowspecRedirectNextHopFactory,                       \
      BgpParseExtComSubTypeFlowspecRedirectNextHopRule,                                            \
      BgpParseExtComSubTypeFlowspecRedirectNexthopRuleBase,                                        \
      extCommPktSubtypeFlowspecRedirectNexthop)                                                    \
    /* RFC 8955 section 7.3 */                                                                     \
    X(ExtCommFlowspecTrafficRatePackets, extCommFlowspecTrafficRatePacketsFactory,                 \
      BgpParseExtComSubTypeTransGenericFlowspecTrafficRatePacketsRule,                             \
      BgpParseExtComSubTypeTransGenericRuleBase,                                                   \
      extCommPktSubtypeTransGenericFlowspecTrafficRatePackets)

#define VOBGP_EXT_COMM_FLOWSPEC_KIND_(Class, factory, Rule, SubRuleBase, subtype) \
    VOBGP_EXT_COMM_LAID_OUT_KIND(Class, factory, Rule, SubRuleBase, subtype);
VOBGP_EXT_COMM_FLOWSPEC_KINDS(VOBGP_EXT_COMM_FLOWSPEC_KIND_)
#undef VOBGP_EXT_COMM_FLOWSPEC_KIND_

// ---- Parse rules and parser plug-in ----
// Type 0x08, IANA "BGP Transitive Extended Community Types".
using BgpParseExtCommFlowspecRedirectNextHopRule =
    BgpParseExtCommPluginTypeRuleT<extCommPktTypeTransFlowspecRedirectNexthop,
                                   BgpParseExtComSubTypeFlowspecRedirectNexthopRuleBase,
                                   BgpParseExtCommDefaultSubtyped,
                                   BgpParseExtComSubTypeFlowspecRedirectNextHopRule>;
// Over type 0x80 (RFC 7153, RFC 9184).
using BgpParseExtCommFlowspecTransGenericOverlayRule = BgpParseExtCommOverlayTypeRuleT<
    extCommPktTypeTransGeneric, BgpParseExtComSubTypeTransGenericRuleBase,
    BgpParseExtComSubTypeTransGenericFlowspecTrafficRatePacketsRule>;
VOBGP_PARSE_TYPED_PLUGIN(BgpParseExtCommFlowspecSm, bgpParseExtCommFlowspecSmFactory,
                         BgpParseExtComSubTypeTransGenericFlowspecTrafficRateRule,
                         BgpParseExtComSubTypeTransGenericFlowspecTrafficActionRule,
                         BgpParseExtComSubTypeTransGenericFlowspecRedirectAsRule,
                         BgpParseExtComSubTypeTransGenericFlowspecTrafficMarkingRule,
                         BgpParseExtComSubTypeTransGenericPart2FlowspecRedirectIpv4Rule,
                         BgpParseExtComSubTypeTransGenericPart3FlowspecRedirectAs4Rule,
                         BgpParseExtCommFlowspecRedirectNextHopRule,
                         BgpParseExtCommFlowspecTransGenericOverlayRule)

}  // namespace Routing::Bgp
