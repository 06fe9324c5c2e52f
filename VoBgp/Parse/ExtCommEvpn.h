// The EVPN extended communities (type 0x06; IANA "EVPN Extended Community
// Sub-Types") as typed contents, and the opt-in parser plug-in that builds
// them. The default container does not start it: a user appends it,
//
//   container->extCommParserSmsEnq(BgpParseExtCommEvpnSm::BgpParseExtCommEvpnSmIs(
//       container->parseExtCommRuleCollections()));
//
// before the first value is parsed (communities interned before keep the
// object they were built as). The root builds no rule for type 0x06, so the
// plug-in adds one through the type-level hook, BgpParseExtCommEvpnRule, with
// one sub-type rule per content below; other EVPN subtypes take that rule's
// fallback, an ExtCommSubtyped of classification unspecified (which names
// its subtype in the derived form). Without the plug-in every type 0x06
// value stays the root's plain fallback ExtComm.
//
// All are classification extCommClassificationEvpn; their text forms follow
// ExtCommLaidOut.h. Fields (octets of the 8-octet community):
//
//   MAC mobility (0x00)    octet 2 flags (0x01 sticky/static), octet 3
//                          reserved, octets 4-7 sequence number
//     EVPN-MAC-Mobility:5:sticky   MM:5:sticky   <EvpnMacMobility 5:sticky ...>
//   ESI label (0x01)       octet 2 flags (0x01 single-active, else
//                          all-active), octets 3-4 reserved, octets 5-7 the
//                          label field, shown whole as peers print it (an
//                          MPLS label in its high 20 bits, a VXLAN VNI in
//                          all 24)
//     EVPN-ESI-Label:single-active:100   ESI-label:SA:100
//   ES-import route target (0x02)  octets 2-7 a MAC address
//     EVPN-ES-Import-RT:00:11:22:33:44:55   ES-import:00:11:22:33:44:55
//   router's MAC (0x03)    octets 2-7 a MAC address
//     EVPN-Router-MAC:00:11:22:33:44:55   rmac:00:11:22:33:44:55
//   layer-2 attributes (0x04)  octets 2-3 control flags (0x0002 primary,
//                          0x0001 backup, 0x0004 control word; the others
//                          must be zero and show in hex), octets 4-5 the L2
//                          MTU, octets 6-7 reserved
//     EVPN-L2-Attributes:primary,control-word:1500   L2attr:P,C:1500
//   DF election (0x06)     octet 2 three reserved bits and the DF algorithm
//                          in the low five (0 default, 1 highest random
//                          weight, 2 preference), octets 3-4 the capability
//                          bitmap (0x4000 AC-DF, 0x8000 don't preempt),
//                          octets 5-7 reserved
//     EVPN-DF-Election:highest-random-weight:AC-DF   DF:HRW:AC
//   ARP/ND flags (0x08)    octet 2 flags (0x01 router, 0x02 override, 0x10
//                          immutable binding), octets 3-7 reserved
//     EVPN-ND-Flags:router,override   ND:R,O
#pragma once

#include "VoBgp/Parse/ExtCommLaidOut.h"
#include "VoBgp/Parse/ExtCommPluginTypeRules.h"

namespace Routing::Bgp {

// X(Class, factory, Rule, subtype) per content, in plug-in order.
#define VOBGP_EXT_COMM_EVPN_KINDS(X)                                                             \
    /* RFC 7432 section 7.7 */                                                                   \
    X(ExtCommEvpnMacMobility, extCommEvpnMacMobilityFactory,                                     \
      BgpParseExtComSubTypeEvpnMacMobilityRule, extCommPktSubtypeEvpnMacMobility)                \
    /* RFC 7432 section 7.5 */                                                                   \
    X(ExtCommEvpnEsiLabel, extCommEvpnEsiLabelFactory, BgpParseExtComSubTypeEvpnEsiLabelRule,    \
      extCommPktSubtypeEvpnEsiMplsLabel)                                                         \
    /* RFC 7432 section 7.6 */                                                                   \
    X(ExtCommEvpnEsImportRouteTarget, extCommEvpnEsImportRouteTargetFactory,                     \
      BgpParseExtComSubTypeEvpnEsImportRule, extCommPktSubtypeEvpnEsImport)                      \
    /* RFC 9135 section 8.1 */                                                                   \
    X(ExtCommEvpnRouterMac, extCommEvpnRouterMacFactory, BgpParseExtComSubTypeEvpnRouterMacRule, \
      extCommPktSubtypeEvpnRouterMac)                                                            \
    /* RFC 8214 section 3.1 */                                                                   \
    X(ExtCommEvpnLayer2Attributes, extCommEvpnLayer2AttributesFactory,                           \
      BgpParseExtComSubTypeEvpnLayer2AttributesRule, extCommPktSubtypeEvpnLayer2Attributes)      \
    /* RFC 8584 section 2.2, RFC 9785 */                                                         \
    X(ExtCommEvpnDfElection, extCommEvpnDfElectionFactory,                                       \
      BgpParseExtComSubTypeEvpnDfElectionRule, extCommPktSubtypeEvpnDFElection)                  \
    /* RFC 9047 section 3.1 */                                                                   \
    X(ExtCommEvpnNdFlags, extCommEvpnNdFlagsFactory, BgpParseExtComSubTypeEvpnNdFlagsRule,       \
      extCommPktSubtypeEvpnNdFlags)

#define VOBGP_EXT_COMM_EVPN_KIND_(Class, factory, Rule, subtype) \
    VOBGP_EXT_COMM_LAID_OUT_KIND(Class, factory, Rule, BgpParseExtComSubTypeEvpnRuleBase, subtype);
VOBGP_EXT_COMM_EVPN_KINDS(VOBGP_EXT_COMM_EVPN_KIND_)
#undef VOBGP_EXT_COMM_EVPN_KIND_

// ---- Parse rule and parser plug-in ----
#define VOBGP_EXT_COMM_EVPN_RULE_(Class, factory, Rule, subtype) , Rule
// Type 0x06, IANA "BGP Transitive Extended Community Types" (RFC 7153).
using BgpParseExtCommEvpnRule =
    BgpParseExtCommPluginTypeRuleT<extCommPktTypeTransEvpn, BgpParseExtComSubTypeEvpnRuleBase,
                                   BgpParseExtCommDefaultSubtyped VOBGP_EXT_COMM_EVPN_KINDS(
                                       VOBGP_EXT_COMM_EVPN_RULE_)>;
#undef VOBGP_EXT_COMM_EVPN_RULE_
VOBGP_PARSE_TYPED_PLUGIN(BgpParseExtCommEvpnSm, bgpParseExtCommEvpnSmFactory,
                         BgpParseExtCommEvpnRule)

}  // namespace Routing::Bgp
