// The color extended community (type 0x03, subtype 0x0b), which steers a
// route onto the traffic-engineering policy of that color.
//
//   octet 2     color-only bits in its top two bits (bit 7, then bit 6)
//   octets 4-7  the color, 32 bits
//
// Policy form, the same under every format: Color:CO(<b7><b6>):<color>,
// e.g. Color:CO(00):100. Derived form: <Color: 100(00) 0x030b000000000064>.
#pragma once

#include "VoBgp/Parse/ExtCommTypedPlugin.h"
#include "VoBgp/VoBgpCommunity.h"

namespace Routing::Bgp {

class ExtCommColor final : public ExtCommSubtyped {
  public:
    using Ptr = Kiv::Ptr<ExtCommColor>;
    using PtrConst = Kiv::Ptr<ExtCommColor const>;

    static Ptr ExtCommColorIs(ExtCommContent const& content);

    U32 color() const { return static_cast<U32>(community()); }
    // The two bits as a number: bit 7 of octet 2 is worth 2, bit 6 is worth 1.
    U8 colorOnlyBits() const { return getContent().octet(2) >> 6; }

    void formatPolicy(VoFmt::TextBuffer& out, StrepFormat format) const override;
    void formatDerivedType(std::ostream& os) const override;

  private:
    explicit ExtCommColor(ExtCommContent const& content)
        : ExtCommSubtyped(extCommClassificationColor, content) {}
    template <class T, class... Args>
    friend Kiv::Ptr<T> makeExtComm(Args&&... args);
    void appendColorOnlyBits(VoFmt::TextBuffer& out) const;
};

// A typed content adds behaviour, never storage.
static_assert(sizeof(ExtCommColor) == sizeof(ExtComm));

inline ExtCommColor::Ptr extCommColorFactory(ExtCommContent const& content) {
    return ExtCommColor::ExtCommColorIs(content);
}

// ---- Parse rule and parser plug-in ----
VOBGP_PARSE_TYPED_SUB_RULE(BgpParseExtComSubTypeTransOpaqueColorRule,
                           BgpParseExtComSubTypeTransOpaqueRuleBase,
                           extCommPktSubtypeTransOpaqueColorExtendedCommunity, extCommColorFactory);
VOBGP_PARSE_TYPED_PLUGIN(BgpParseExtCommColorSm, bgpParseExtCommColorSmFactory,
                         BgpParseExtComSubTypeTransOpaqueColorRule)

}  // namespace Routing::Bgp
