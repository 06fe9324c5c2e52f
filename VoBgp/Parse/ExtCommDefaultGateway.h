// The default gateway extended community (type 0x03, subtype 0x0d), which
// marks an EVPN route as the default gateway. It has no fields beyond type
// and subtype.
//
// Policy form, the same under every format: DefaultGateway.
// Derived form: <DefaultGateway 0x030d000000000000>.
#pragma once

#include "VoBgp/Parse/ExtCommTypedPlugin.h"
#include "VoBgp/VoBgpCommunity.h"

namespace Routing::Bgp {

class ExtCommDefaultGateway final : public ExtCommSubtyped {
  public:
    using Ptr = Kiv::Ptr<ExtCommDefaultGateway>;
    using PtrConst = Kiv::Ptr<ExtCommDefaultGateway const>;

    static Ptr ExtCommDefaultGatewayIs(ExtCommContent const& content);

    void formatPolicy(VoFmt::TextBuffer& out, StrepFormat format) const override;
    void formatDerivedType(std::ostream& os) const override;

  private:
    explicit ExtCommDefaultGateway(ExtCommContent const& content)
        : ExtCommSubtyped(extCommClassificationDefaultGateway, content) {}
    template <class T, class... Args>
    friend Kiv::Ptr<T> makeExtComm(Args&&... args);
};

// A typed content adds behaviour, never storage.
static_assert(sizeof(ExtCommDefaultGateway) == sizeof(ExtComm));

inline ExtCommDefaultGateway::Ptr extCommDefaultGatewayFactory(ExtCommContent const& content) {
    return ExtCommDefaultGateway::ExtCommDefaultGatewayIs(content);
}

// ---- Parse rule and parser plug-in ----
VOBGP_PARSE_TYPED_SUB_RULE(BgpParseExtComSubTypeTransOpaqueDefaultGatewayRule,
                           BgpParseExtComSubTypeTransOpaqueRuleBase,
                           extCommPktSubtypeTransOpaqueDefaultGateway,
                           extCommDefaultGatewayFactory);
VOBGP_PARSE_TYPED_PLUGIN(BgpParseExtCommDefaultGatewaySm, bgpParseExtCommDefaultGatewaySmFactory,
                         BgpParseExtComSubTypeTransOpaqueDefaultGatewayRule)

}  // namespace Routing::Bgp
