// Route origins (site of origin): the extended communities that stop routes
// from looping back into the site they came from.
//
//   ExtCommRouteOriginAs           types 0x00 and 0x02, subtype 0x03 (SoO:<AS>:<admin>)
//   ExtCommRouteOriginIpv4Address  type 0x01, subtype 0x03 (SoO:<a.b.c.d>:<admin>)
//
// Both carry extCommClassificationRouteOrigin; their text forms are
// described in ExtCommRouteTargetOriginBase.h.
#pragma once

#include "VoBgp/Parse/ExtCommRouteTargetOriginBase.h"
#include "VoBgp/Parse/ExtCommTypedPlugin.h"

namespace Routing::Bgp {

struct ExtCommRouteOriginWords {
    static constexpr ExtCommRouteWords words{
        extCommClassificationRouteOrigin,
        "SoO:",
        "Route-Origin-AS",
        "Route-Origin-IP:",
        "RouteOrigin2ByteASN ",
        "RouteOrigin4ByteASN ",
        "RouteOrigin ",
    };
};

class ExtCommRouteOriginAs final : public ExtCommRouteAs<ExtCommRouteOriginWords> {
  public:
    using Ptr = Kiv::Ptr<ExtCommRouteOriginAs>;
    using PtrConst = Kiv::Ptr<ExtCommRouteOriginAs const>;

    // fourOctetAs: false for type 0x00, true for type 0x02.
    static Ptr ExtCommRouteOriginAsIs(ExtCommContent const& content, bool fourOctetAs);

  private:
    using ExtCommRouteAs::ExtCommRouteAs;
    template <class T, class... Args>
    friend Kiv::Ptr<T> makeExtComm(Args&&... args);
};

class ExtCommRouteOriginIpv4Address final
    : public ExtCommRouteIpv4Address<ExtCommRouteOriginWords> {
  public:
    using Ptr = Kiv::Ptr<ExtCommRouteOriginIpv4Address>;
    using PtrConst = Kiv::Ptr<ExtCommRouteOriginIpv4Address const>;

    static Ptr ExtCommRouteOriginIpv4AddressIs(ExtCommContent const& content);

  private:
    using ExtCommRouteIpv4Address::ExtCommRouteIpv4Address;
    template <class T, class... Args>
    friend Kiv::Ptr<T> makeExtComm(Args&&... args);
};

// A typed content adds behaviour, never storage.
static_assert(sizeof(ExtCommRouteOriginAs) == sizeof(ExtComm));
static_assert(sizeof(ExtCommRouteOriginIpv4Address) == sizeof(ExtComm));

inline ExtCommRouteOriginAs::Ptr extCommRouteOriginAsFactory(ExtCommContent const& content,
                                                             bool fourOctetAs) {
    return ExtCommRouteOriginAs::ExtCommRouteOriginAsIs(content, fourOctetAs);
}
inline ExtCommRouteOriginIpv4Address::Ptr extCommRouteOriginIpv4AddressFactory(
    ExtCommContent const& content) {
    return ExtCommRouteOriginIpv4Address::ExtCommRouteOriginIpv4AddressIs(content);
}

// ---- Parse rules and parser plug-in ----
// The AS-number rules tell the factory which AS layout their type has.
VOBGP_PARSE_TYPED_SUB_RULE(BgpParseExtComSubTypeTransTwoOctetAsRouteOriginRule,
                           BgpParseExtComSubTypeTransTwoOctetAsRuleBase,
                           extCommPktSubtypeTransTwoOctetAsRouteOrigin, extCommRouteOriginAsFactory,
                           false);
VOBGP_PARSE_TYPED_SUB_RULE(BgpParseExtComSubTypeTransFourOctetAsRouteOriginRule,
                           BgpParseExtComSubTypeTransFourOctetAsRuleBase,
                           extCommPktSubtypeTransFourOctetAsRouteOrigin,
                           extCommRouteOriginAsFactory, true);
VOBGP_PARSE_TYPED_SUB_RULE(BgpParseExtComSubTypeTransIpv4AddressRouteOriginRule,
                           BgpParseExtComSubTypeTransIpv4AddressRuleBase,
                           extCommPktSubtypeTransIpv4AddressRouteOrigin,
                           extCommRouteOriginIpv4AddressFactory);
VOBGP_PARSE_TYPED_PLUGIN(BgpParseExtCommRouteOriginSm, bgpParseExtCommRouteOriginSmFactory,
                         BgpParseExtComSubTypeTransTwoOctetAsRouteOriginRule,
                         BgpParseExtComSubTypeTransFourOctetAsRouteOriginRule,
                         BgpParseExtComSubTypeTransIpv4AddressRouteOriginRule)

}  // namespace Routing::Bgp
