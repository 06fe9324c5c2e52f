// The link-bandwidth extended community (type 0x40, subtype 0x04): the
// bandwidth of the link towards the advertising router, for unequal-cost
// multipath.
//
//   octets 2-3  AS number, 16 bits (0: no AS given)
//   octets 4-7  bandwidth, IEEE 754 single-precision float in network order,
//               bytes per second (see Routing::Rib::LinkBandwidth)
//
// Policy form, by format flags (the AS in asdot when asked, which never
// changes a two-octet AS):
//   classification + UI   Link-Bandwidth-AS:<AS>:<rate>   the rate as
//                         LinkBandwidth::toStrep writes it, weighted when
//                         strepFormatLinkBwWeighted is set
//   classification only   lbw <AS>:<float>                lbw 65000:1.25e+09
//   otherwise             <AS>:<float>                    65000:1.25e+09
// <float> is the raw value in the default stream form of a double (six
// significant digits, exponent where shorter): 0, 1e+09, nan, inf.
// Derived form: <LinkBandwidth 65000:1.25e+09 0x4004fde84e9502f9>.
//
// The same layout under the transitive type 0x00 (typed only by the opt-in
// plug-in of ExtCommTransLinkBandwidth.h) says so in its names, so that
// neither a reader nor a policy pattern takes one for the other:
// Link-Bandwidth-Trans-AS:<AS>:<rate>, lbw-trans <AS>:<float>,
// <TransLinkBandwidth ...>; the plain form is the same. It is not of
// classification link bandwidth (see ExtCommTransLinkBandwidth.h).
#pragma once

#include "Routing/Rib/LinkBandwidth.h"
#include "VoBgp/Parse/ExtCommTypedPlugin.h"
#include "VoBgp/VoBgpCommunity.h"

namespace Routing::Bgp {

class ExtCommLinkBandwidth final : public ExtCommAsNumber {
  public:
    using Ptr = Kiv::Ptr<ExtCommLinkBandwidth>;
    using PtrConst = Kiv::Ptr<ExtCommLinkBandwidth const>;

    static Ptr ExtCommLinkBandwidthIs(ExtCommContent const& content);

    // The bandwidth of any link-bandwidth content, as received.
    static Rib::LinkBandwidth linkBandwidthOf(ExtCommContent const& content) {
        return Rib::LinkBandwidth::fromWire(static_cast<U32>(content.value()));
    }
    Rib::LinkBandwidth linkBandwidth() const { return linkBandwidthOf(getContent()); }

    void formatPolicy(VoFmt::TextBuffer& out, StrepFormat format) const override;
    void formatDerivedType(std::ostream& os) const override;

    // Valid when the bandwidth is finite and not negative.
    bool isValid() const override;
    // The smaller bandwidth is the better one; never true against an equal
    // bandwidth or with a NaN on either side. `other` must not be null.
    bool isBetterThan(ExtComm::PtrConst const& other) const override;
    // AS 0 in the link bandwidth of its classification, the non-transitive
    // one. (Link bandwidth only has the two-octet-AS layout.)
    bool isLinkBandwidthWithUnspecifiedAsNumber() const override {
        return asNumber() == 0 && !isTransitive();
    }

  private:
    explicit ExtCommLinkBandwidth(ExtCommContent const& content);
    template <class T, class... Args>
    friend Kiv::Ptr<T> makeExtComm(Args&&... args);
};

// A typed content adds behaviour, never storage.
static_assert(sizeof(ExtCommLinkBandwidth) == sizeof(ExtComm));

inline ExtCommLinkBandwidth::Ptr extCommLinkBandwidthFactory(ExtCommContent const& content) {
    return ExtCommLinkBandwidth::ExtCommLinkBandwidthIs(content);
}

// ---- Parse rule and parser plug-in ----
VOBGP_PARSE_TYPED_SUB_RULE(BgpParseExtComSubTypeNonTransTwoOctetAsLinkBandwidthRule,
                           BgpParseExtComSubTypeNonTransTwoOctetAsRuleBase,
                           extCommPktSubtypeNonTransTwoOctetAsLinkBandwidth,
                           extCommLinkBandwidthFactory);
VOBGP_PARSE_TYPED_PLUGIN(BgpParseExtCommLinkBandwidthSm, bgpParseExtCommLinkBandwidthSmFactory,
                         BgpParseExtComSubTypeNonTransTwoOctetAsLinkBandwidthRule)

}  // namespace Routing::Bgp
