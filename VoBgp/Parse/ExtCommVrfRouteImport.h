// The VRF route import extended community in its IPv4-address form (type
// 0x01, subtype 0x0b): the address of the PE and the local administrator
// that identifies the VRF a multicast VPN route is to be imported into.
// Built only while multicast VPN support is on; without it the community
// stays a generic ExtCommIpv4Address.
//
// Policy form, by format flags (asdot, JSON and weighted change nothing):
//   classification + UI   VRF-Route-Import:10.1.2.3:7
//   classification only   VRI:10.1.2.3:7
//   otherwise             10.1.2.3:7
// Derived form: <VrfRouteImport 10.1.2.3:7 0x010b0a0102030007>.
#pragma once

#include "VoBgp/Parse/ExtCommTypedPlugin.h"
#include "VoBgp/VoBgpCommunity.h"

namespace Routing::Bgp {

class ExtCommVrfRouteImportIpv4Address final : public ExtCommIpv4Address {
  public:
    using Ptr = Kiv::Ptr<ExtCommVrfRouteImportIpv4Address>;
    using PtrConst = Kiv::Ptr<ExtCommVrfRouteImportIpv4Address const>;

    static Ptr ExtCommVrfRouteImportIpv4AddressIs(ExtCommContent const& content);

    void formatPolicy(VoFmt::TextBuffer& out, StrepFormat format) const override;
    void formatDerivedType(std::ostream& os) const override;

  private:
    explicit ExtCommVrfRouteImportIpv4Address(ExtCommContent const& content)
        : ExtCommIpv4Address(extCommClassificationVrfRouteImport, content) {}
    template <class T, class... Args>
    friend Kiv::Ptr<T> makeExtComm(Args&&... args);
};

// A typed content adds behaviour, never storage.
static_assert(sizeof(ExtCommVrfRouteImportIpv4Address) == sizeof(ExtComm));

inline ExtCommVrfRouteImportIpv4Address::Ptr extCommVrfRouteImportIpv4AddressFactory(
    ExtCommContent const& content) {
    return ExtCommVrfRouteImportIpv4Address::ExtCommVrfRouteImportIpv4AddressIs(content);
}

// ---- Parse rule and parser plug-in ----
// The container starts this plug-in only when the "Mvpn" feature toggle is
// on (see ExtCommPlugins.h).
VOBGP_PARSE_TYPED_SUB_RULE(BgpParseExtComSubTypeTransIpv4AddressVrfRouteImportRule,
                           BgpParseExtComSubTypeTransIpv4AddressRuleBase,
                           extCommPktSubtypeTransIpv4AddressVrfRouteImport,
                           extCommVrfRouteImportIpv4AddressFactory);
VOBGP_PARSE_TYPED_PLUGIN(BgpParseExtCommVrfRouteImportSm, bgpParseExtCommVrfRouteImportSmFactory,
                         BgpParseExtComSubTypeTransIpv4AddressVrfRouteImportRule)

}  // namespace Routing::Bgp
