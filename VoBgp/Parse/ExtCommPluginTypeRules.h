// Type rules that plug-ins add through the type-level hook
// (instantiateExtendedCommunityTypeSubRule on the root's key), for what the
// rows of ExtCommRuleKinds.def cannot serve:
//
//   BgpParseExtCommPluginTypeRuleT   a type rule for a type octet the root
//                                    builds none for (EVPN 0x06, flowspec
//                                    redirect to IP next hop 0x08), built
//                                    with its sub-type rules
//   BgpParseExtCommOverlayTypeRuleT  a rule laid over the one already under
//                                    its type octet: it answers a few subtype
//                                    octets first and passes everything else
//                                    to the rule below. For subtypes that are
//                                    not members of the kind's subtype
//                                    enumeration, which the rule below never
//                                    passes to a sub-type rule (the transitive
//                                    link bandwidth, 0x00 0x04)
//
// Neither registers a key: the collections have one set per row of
// ExtCommRuleKinds.def, and these rules are no row. So no other plug-in
// hears of them; their sub-type rules come with the plug-in that adds them.
// The rule below an overlay stays registered and keeps being served.
//
// A plug-in lists such a rule in VOBGP_PARSE_TYPED_PLUGIN beside its
// sub-type rules; its type-level hook adds Rule::typeRuleFor(root, control)
// to the root (ExtCommTypedPlugin.h). Adding again replaces: a new plug-in
// type rule replaces the old one, a new overlay takes the place of an
// overlay of the same class and wraps what that one wrapped.
#pragma once

#include <utility>

#include "Kiv/Ptr.h"
#include "VoBgp/Parse/ExtCommRules.h"

namespace Routing::Bgp {

// Sub-type rule bases of the type octets that only plug-ins serve.
VOBGP_PARSE_SUB_RULE_BASE(BgpParseExtComSubTypeEvpnRuleBase, BgpExtCommPktSubtypeEvpn,
                          BgpExtCommPktType);
VOBGP_PARSE_SUB_RULE_BASE(BgpParseExtComSubTypeFlowspecRedirectNexthopRuleBase,
                          BgpExtCommPktSubtypeTransFlowspecRedirectNexthop, BgpExtCommPktType);

// What both kinds are made of: a type rule for `pktType` that builds its
// SubRules (all over SubRuleBase) with itself, Fallback for the subtypes they
// do not serve.
template <auto pktType, class SubRuleBase, class Fallback, class... SubRules>
class BgpParseExtCommBuiltTypeRuleT
    : public BgpParseExtCommSubTypeDispatchT<BgpParseExtendedCommunityTypeRuleBase, SubRuleBase,
                                             Fallback> {
    using Base = BgpParseExtCommSubTypeDispatchT<BgpParseExtendedCommunityTypeRuleBase, SubRuleBase,
                                                 Fallback>;

  public:
    ~BgpParseExtCommBuiltTypeRuleT() override { this->subTypeRuleDelAll(); }

  protected:
    explicit BgpParseExtCommBuiltTypeRuleT(BgpParseExtCommControl const& control)
        : Base(control, pktType) {
        (this->subTypeRuleIs(Kiv::makeActive<SubRules>(control)), ...);
    }
};

template <auto pktType, class SubRuleBase, class Fallback, class... SubRules>
class BgpParseExtCommPluginTypeRuleT final
    : public BgpParseExtCommBuiltTypeRuleT<pktType, SubRuleBase, Fallback, SubRules...> {
  public:
    using Ptr = Kiv::Ptr<BgpParseExtCommPluginTypeRuleT>;
    using PtrConst = Kiv::Ptr<BgpParseExtCommPluginTypeRuleT const>;

    explicit BgpParseExtCommPluginTypeRuleT(BgpParseExtCommControl const& control)
        : BgpParseExtCommBuiltTypeRuleT<pktType, SubRuleBase, Fallback, SubRules...>(control) {}

    static BgpParseExtendedCommunityTypeRuleBase::PtrConst typeRuleFor(
        BgpParseExtendedCommunityRule const&, BgpParseExtCommControl const& control) {
        return Kiv::makeActive<BgpParseExtCommPluginTypeRuleT>(control);
    }
};

// The overlay's own dispatch never falls back: what its sub-type rules do
// not answer goes to the rule below.
struct BgpParseExtCommNoFallback {
    static ExtComm::PtrConst make(ExtCommContent const&) { return nullptr; }
};

// A type rule for `pktType` over `below` (the root's rule for that octet
// when the overlay was built; may be null). Its SubRules are looked up by
// the raw subtype octet, members of the enumeration or not.
template <auto pktType, class SubRuleBase, class... SubRules>
class BgpParseExtCommOverlayTypeRuleT final
    : public BgpParseExtCommBuiltTypeRuleT<pktType, SubRuleBase, BgpParseExtCommNoFallback,
                                           SubRules...> {
    using Base =
        BgpParseExtCommBuiltTypeRuleT<pktType, SubRuleBase, BgpParseExtCommNoFallback, SubRules...>;

  public:
    using Ptr = Kiv::Ptr<BgpParseExtCommOverlayTypeRuleT>;
    using PtrConst = Kiv::Ptr<BgpParseExtCommOverlayTypeRuleT const>;
    using typename Base::Comm;
    using typename Base::Content;
    using typename Base::Subtype;

    BgpParseExtCommOverlayTypeRuleT(BgpParseExtCommControl const& control,
                                    BgpParseExtendedCommunityTypeRuleBase::PtrConst below)
        : Base(control), below_(std::move(below)) {}

    BgpParseExtendedCommunityTypeRuleBase::PtrConst const& below() const { return below_; }

    typename Comm::PtrConst inhale(Content const& content) const override {
        if (auto comm = this->inhaleSubType(static_cast<Subtype>(content.subtypeOctet()), content))
            return comm;
        // Null without a rule below: the root falls back as it would have.
        return below_ ? below_->inhale(content) : nullptr;
    }

    static BgpParseExtendedCommunityTypeRuleBase::PtrConst typeRuleFor(
        BgpParseExtendedCommunityRule const& root, BgpParseExtCommControl const& control) {
        auto below = root.typeRule(pktType);
        if (auto const* same = dynamic_cast<BgpParseExtCommOverlayTypeRuleT const*>(below.ptr()))
            below = same->below();
        return Kiv::makeActive<BgpParseExtCommOverlayTypeRuleT>(control, std::move(below));
    }

  private:
    BgpParseExtendedCommunityTypeRuleBase::PtrConst below_;
};

}  // namespace Routing::Bgp
