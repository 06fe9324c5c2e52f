#include "VoBgp/Parse/ExtCommEvpn.h"

namespace Routing::Bgp {

namespace {

using F = ExtCommFieldFormat;

// Octet n (2-7) of the community, or some bits of it, as a field mask.
constexpr U64 octet(unsigned n, U64 bits = 0xff) {
    return bits << (8 * (7 - n));
}
constexpr U64 macAddress = 0xffff'ffff'ffff;

// RFC 7432 section 7.7: the low-order flag bit.
constexpr ExtCommFieldName macMobilityFlags[] = {{0x01, "sticky", "sticky"}};
constexpr ExtCommField macMobilityFields[] = {
    {F::decimal, octet(4) | octet(5) | octet(6) | octet(7)},
    {F::flags, octet(2), macMobilityFlags},
    {F::reserved, octet(3)},
};

// RFC 7432 section 7.5: the low-order flag bit; the label field shown whole,
// as speakers configure and print it: an MPLS label sits in its high 20 bits
// (RFC 7432 section 7), a VXLAN VNI fills all 24 (RFC 8365 section 5.1.3).
constexpr ExtCommFieldName esiLabelFlags[] = {{0x01, "SA", "single-active"}};
constexpr ExtCommField esiLabelFields[] = {
    {F::flags, octet(2), esiLabelFlags, {0, "AA", "all-active"}},
    {F::decimal, octet(5) | octet(6) | octet(7)},
    {F::reserved, octet(3) | octet(4)},
};

constexpr ExtCommField macAddressFields[] = {{F::macAddress, macAddress}};

// RFC 8214 section 3.1, IANA "EVPN Layer 2 Attributes Control Flags": the
// low-order bits of the 16-bit control flags.
constexpr ExtCommFieldName layer2Flags[] = {
    {0x0002, "P", "primary"},
    {0x0001, "B", "backup"},
    {0x0004, "C", "control-word"},
};
constexpr ExtCommField layer2Fields[] = {
    {F::flags, octet(2) | octet(3), layer2Flags, {0, "none", "none"}},
    {F::decimal, octet(4) | octet(5)},
    {F::reserved, octet(6) | octet(7)},
};

// RFC 8584 section 2.2, IANA "DF Alg" (0-1 RFC 8584, 2 RFC 9785) and "DF
// Election Capabilities" (bit 0 RFC 9785, bit 1 RFC 8584, bit 0 the most
// significant of the bitmap).
constexpr ExtCommFieldName dfAlgorithms[] = {
    {0, "default", "default"},
    {1, "HRW", "highest-random-weight"},
    {2, "pref", "preference"},
};
constexpr ExtCommFieldName dfCapabilities[] = {
    {0x4000, "AC", "AC-DF"},
    {0x8000, "DP", "dont-preempt"},
};
constexpr ExtCommField dfElectionFields[] = {
    {F::choice, octet(2, 0x1f), dfAlgorithms},
    {F::flags, octet(3) | octet(4), dfCapabilities, {0, "none", "none"}},
    {F::reserved, octet(2, 0xe0) | octet(5) | octet(6) | octet(7)},
};

// RFC 9047 section 3.1, IANA "ARP/ND Extended Community Flags" (bit 3 I,
// bit 6 O, bit 7 R; bit 0 the most significant).
constexpr ExtCommFieldName ndFlags[] = {
    {0x01, "R", "router"},
    {0x02, "O", "override"},
    {0x10, "I", "immutable"},
};
constexpr ExtCommField ndFlagsFields[] = {
    {F::flags, octet(2), ndFlags, {0, "none", "none"}},
    {F::reserved, octet(3) | octet(4) | octet(5) | octet(6) | octet(7)},
};

}  // namespace

ExtCommLayout const ExtCommEvpnMacMobility::layout = {extCommClassificationEvpn, "EvpnMacMobility",
                                                      "MM", "EVPN-MAC-Mobility", macMobilityFields};
ExtCommLayout const ExtCommEvpnEsiLabel::layout = {extCommClassificationEvpn, "EvpnEsiLabel",
                                                   "ESI-label", "EVPN-ESI-Label", esiLabelFields};
ExtCommLayout const ExtCommEvpnEsImportRouteTarget::layout = {
    extCommClassificationEvpn, "EvpnEsImportRouteTarget", "ES-import", "EVPN-ES-Import-RT",
    macAddressFields};
ExtCommLayout const ExtCommEvpnRouterMac::layout = {extCommClassificationEvpn, "EvpnRouterMac",
                                                    "rmac", "EVPN-Router-MAC", macAddressFields};
ExtCommLayout const ExtCommEvpnLayer2Attributes::layout = {extCommClassificationEvpn,
                                                           "EvpnLayer2Attributes", "L2attr",
                                                           "EVPN-L2-Attributes", layer2Fields};
ExtCommLayout const ExtCommEvpnDfElection::layout = {extCommClassificationEvpn, "EvpnDfElection",
                                                     "DF", "EVPN-DF-Election", dfElectionFields};
ExtCommLayout const ExtCommEvpnNdFlags::layout = {extCommClassificationEvpn, "EvpnNdFlags", "ND",
                                                  "EVPN-ND-Flags", ndFlagsFields};

}  // namespace Routing::Bgp
