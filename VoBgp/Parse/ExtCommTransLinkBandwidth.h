// The transitive link-bandwidth extended community (type 0x00, subtype 0x04;
// IANA "Transitive Two-Octet AS-Specific Extended Community Sub-Types",
// draft-ietf-idr-link-bandwidth), which some speakers send in place of the
// non-transitive one (0x40 0x04), and the opt-in parser plug-in that types
// it. The default container does not start it: a user appends it with
// extCommParserSmsEnq before the first value is parsed (see ExtCommEvpn.h).
// Without it the value stays the default ExtCommAsNumber, which shows the
// float's bit pattern as a local administrator (0004-AS:65003:1290693416).
//
// The layout is the non-transitive one, so the value becomes an
// ExtCommLinkBandwidth (ExtCommLinkBandwidth.h) with the same validity and
// order, and texts of its own (Link-Bandwidth-Trans-AS:65003:1 Gbps,
// lbw-trans 65003:1.25e+08, <TransLinkBandwidth ...>).
//
// Its classification stays unspecified, as without the plug-in: the link
// bandwidth classification holds the non-transitive value only. A list's
// link-bandwidth bits, the linkBandwidth serialization selection and the
// pruning to one best link bandwidth are about that one; the transitive
// value travels with the transitive communities anyway. Filed under link
// bandwidth it would be counted twice by serializableCommunities under
// {transitive, linkBandwidth} (once as transitive, once as the link
// bandwidth), and pruning could drop the one a peer must see.
//
// Subtype 0x04 is not a member of the fixed subtype enumeration of type 0x00,
// so the 0x00 type rule never passes it to a sub-type rule. The plug-in lays
// an overlay over that rule instead (ExtCommPluginTypeRules.h): the overlay
// answers 0x04 and hands every other value to the rule below, route targets
// and origins included.
#pragma once

#include "VoBgp/Parse/ExtCommLinkBandwidth.h"
#include "VoBgp/Parse/ExtCommPluginTypeRules.h"

namespace Routing::Bgp {

// IANA "Transitive Two-Octet AS-Specific Extended Community Sub-Types" 0x04:
// not a member of the subtype enumeration of 0x00.
inline constexpr auto extCommPktSubtypeTransTwoOctetAsLinkBandwidth =
    static_cast<BgpExtCommPktSubtypeTransTwoOctetAs>(0x04);

// ---- Parse rules and parser plug-in ----
VOBGP_PARSE_TYPED_SUB_RULE(BgpParseExtComSubTypeTransTwoOctetAsLinkBandwidthRule,
                           BgpParseExtComSubTypeTransTwoOctetAsRuleBase,
                           extCommPktSubtypeTransTwoOctetAsLinkBandwidth,
                           extCommLinkBandwidthFactory);
// Over type 0x00, IANA "BGP Transitive Extended Community Types".
using BgpParseExtCommTransTwoOctetAsLinkBandwidthOverlayRule =
    BgpParseExtCommOverlayTypeRuleT<extCommPktTypeTransTwoOctetAs,
                                    BgpParseExtComSubTypeTransTwoOctetAsRuleBase,
                                    BgpParseExtComSubTypeTransTwoOctetAsLinkBandwidthRule>;
VOBGP_PARSE_TYPED_PLUGIN(BgpParseExtCommTransLinkBandwidthSm,
                         bgpParseExtCommTransLinkBandwidthSmFactory,
                         BgpParseExtCommTransTwoOctetAsLinkBandwidthOverlayRule)

}  // namespace Routing::Bgp
