// Route targets: the extended communities that VPN import and export key on.
//
//   ExtCommRouteTargetAs           types 0x00 and 0x02, subtype 0x02 (RT:<AS>:<admin>)
//   ExtCommRouteTargetIpv4Address  type 0x01, subtype 0x02 (RT:<a.b.c.d>:<admin>)
//
// Both carry extCommClassificationRouteTarget; their text forms are
// described in ExtCommRouteTargetOriginBase.h.
#pragma once

#include "VoBgp/Parse/ExtCommRouteTargetOriginBase.h"
#include "VoBgp/Parse/ExtCommTypedPlugin.h"

namespace Routing::Bgp {

struct ExtCommRouteTargetWords {
    static constexpr ExtCommRouteWords words{
        extCommClassificationRouteTarget,
        "RT:",
        "Route-Target-AS",
        "Route-Target-IP:",
        "RouteTarget2ByteASN ",
        "RouteTarget4ByteASN ",
        "RouteTarget ",
    };
};

class ExtCommRouteTargetAs final : public ExtCommRouteAs<ExtCommRouteTargetWords> {
  public:
    using Ptr = Kiv::Ptr<ExtCommRouteTargetAs>;
    using PtrConst = Kiv::Ptr<ExtCommRouteTargetAs const>;

    // fourOctetAs: false for type 0x00, true for type 0x02.
    static Ptr ExtCommRouteTargetAsIs(ExtCommContent const& content, bool fourOctetAs);

  private:
    using ExtCommRouteAs::ExtCommRouteAs;
    template <class T, class... Args>
    friend Kiv::Ptr<T> makeExtComm(Args&&... args);
};

class ExtCommRouteTargetIpv4Address final
    : public ExtCommRouteIpv4Address<ExtCommRouteTargetWords> {
  public:
    using Ptr = Kiv::Ptr<ExtCommRouteTargetIpv4Address>;
    using PtrConst = Kiv::Ptr<ExtCommRouteTargetIpv4Address const>;

    static Ptr ExtCommRouteTargetIpv4AddressIs(ExtCommContent const& content);

  private:
    using ExtCommRouteIpv4Address::ExtCommRouteIpv4Address;
    template <class T, class... Args>
    friend Kiv::Ptr<T> makeExtComm(Args&&... args);
};

// A typed content adds behaviour, never storage.
static_assert(sizeof(ExtCommRouteTargetAs) == sizeof(ExtComm));
static_assert(sizeof(ExtCommRouteTargetIpv4Address) == sizeof(ExtComm));

inline ExtCommRouteTargetAs::Ptr extCommRouteTargetAsFactory(ExtCommContent const& content,
                                                             bool fourOctetAs) {
    return ExtCommRouteTargetAs::ExtCommRouteTargetAsIs(content, fourOctetAs);
}
inline ExtCommRouteTargetIpv4Address::Ptr extCommRouteTargetIpv4AddressFactory(
    ExtCommContent const& content) {
    return ExtCommRouteTargetIpv4Address::ExtCommRouteTargetIpv4AddressIs(content);
}

// ---- Parse rules and parser plug-in ----
// The AS-number rules tell the factory which AS layout their type has.
VOBGP_PARSE_TYPED_SUB_RULE(BgpParseExtComSubTypeTransTwoOctetAsRouteTargetRule,
                           BgpParseExtComSubTypeTransTwoOctetAsRuleBase,
                           extCommPktSubtypeTransTwoOctetAsRouteTarget, extCommRouteTargetAsFactory,
                           false);
VOBGP_PARSE_TYPED_SUB_RULE(BgpParseExtComSubTypeTransFourOctetAsRouteTargetRule,
                           BgpParseExtComSubTypeTransFourOctetAsRuleBase,
                           extCommPktSubtypeTransFourOctetAsRouteTarget,
                           extCommRouteTargetAsFactory, true);
VOBGP_PARSE_TYPED_SUB_RULE(BgpParseExtComSubTypeTransIpv4AddressRouteTargetRule,
                           BgpParseExtComSubTypeTransIpv4AddressRuleBase,
                           extCommPktSubtypeTransIpv4AddressRouteTarget,
                           extCommRouteTargetIpv4AddressFactory);
VOBGP_PARSE_TYPED_PLUGIN(BgpParseExtCommRouteTargetSm, bgpParseExtCommRouteTargetSmFactory,
                         BgpParseExtComSubTypeTransTwoOctetAsRouteTargetRule,
                         BgpParseExtComSubTypeTransFourOctetAsRouteTargetRule,
                         BgpParseExtComSubTypeTransIpv4AddressRouteTargetRule)

}  // namespace Routing::Bgp
