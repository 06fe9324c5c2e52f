// The tunnel encapsulation extended community (type 0x03, subtype 0x0c):
// the encapsulation a route's traffic is to be tunnelled with. Octets 6-7
// carry the tunnel type.
//
// Policy form: "TunnelEncap:" with the classification flag (nothing without),
// then the member name of a known tunnel type or "tunnelTypeUnknown-<n>":
// TunnelEncap:tunnelTypeVxlan, TunnelEncap:tunnelTypeUnknown-3.
// Derived form: <TunnelEncap 8:tunnelTypeVxlan 0x030c000000000008>, an
// unknown type as <TunnelEncap 3:tunnelTypeUnknown ...>.
#pragma once

#include "Kiv/Enum.h"
#include "VoBgp/Parse/ExtCommTypedPlugin.h"
#include "VoBgp/VoBgpCommunity.h"

namespace Routing::Bgp {

#define TunnelType_MEMBERS(X)    \
    X(tunnelTypeL2tpv3OverIp, 1) \
    X(tunnelTypeGre, 2)          \
    X(tunnelTypeIpInIp, 7)       \
    X(tunnelTypeVxlan, 8)        \
    X(tunnelTypeNvgre, 9)        \
    X(tunnelTypeMpls, 10)        \
    X(tunnelTypeMplsInGre, 11)   \
    X(tunnelTypeVxlanGpe, 12)    \
    X(tunnelTypeUnknown, 65536)

KIV_ENUM(TunnelType, U32, "Routing::Bgp::TunnelType", TunnelType_MEMBERS)

// The real tunnel types: a member other than tunnelTypeUnknown (which no
// two-octet wire value can hold).
constexpr bool bgpIsValidEnumMember(TunnelType value) {
    return value != tunnelTypeUnknown && Kiv::enumMemberByValue(value) != nullptr;
}

class ExtCommTunnelEncap final : public ExtCommSubtyped {
  public:
    using Ptr = Kiv::Ptr<ExtCommTunnelEncap>;
    using PtrConst = Kiv::Ptr<ExtCommTunnelEncap const>;

    static Ptr ExtCommTunnelEncapIs(ExtCommContent const& content);

    // Octets 6-7 as received (a value that is not a member is kept).
    TunnelType tunnelType() const { return static_cast<TunnelType>(U16(community())); }

    void formatPolicy(VoFmt::TextBuffer& out, StrepFormat format) const override;
    void formatDerivedType(std::ostream& os) const override;

  private:
    explicit ExtCommTunnelEncap(ExtCommContent const& content)
        : ExtCommSubtyped(extCommClassificationTunnelEncap, content) {}
    template <class T, class... Args>
    friend Kiv::Ptr<T> makeExtComm(Args&&... args);
};

// A typed content adds behaviour, never storage.
static_assert(sizeof(ExtCommTunnelEncap) == sizeof(ExtComm));

inline ExtCommTunnelEncap::Ptr extCommTunnelEncapFactory(ExtCommContent const& content) {
    return ExtCommTunnelEncap::ExtCommTunnelEncapIs(content);
}

// ---- Parse rule and parser plug-in ----
VOBGP_PARSE_TYPED_SUB_RULE(BgpParseExtComSubTypeTransOpaqueTunnelEncapRule,
                           BgpParseExtComSubTypeTransOpaqueRuleBase,
                           extCommPktSubtypeTransOpaqueEncapsulationExtendedCommunity,
                           extCommTunnelEncapFactory);
VOBGP_PARSE_TYPED_PLUGIN(BgpParseExtCommTunnelEncapSm, bgpParseExtCommTunnelEncapSmFactory,
                         BgpParseExtComSubTypeTransOpaqueTunnelEncapRule)

}  // namespace Routing::Bgp
