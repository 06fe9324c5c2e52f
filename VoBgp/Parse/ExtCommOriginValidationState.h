// The origin validation state extended community (type 0x43, subtype 0x00):
// the RPKI origin validation result of a route, passed between the routers of
// one AS. Octet 7 is the state: 0 valid, 1 not found, 2 invalid, anything
// else unknown.
//
// Policy form: "Origin-Validation-State:" and valid, not-found, invalid or
// unknown in the show-command form (classification + UI); empty in every
// other format. Policy matching therefore looks at the UI form of this
// community (policyMatchStrepUI is true): the other forms hold nothing to
// match.
// Derived form: <OriginValidationState valid 0x4300000000000000>, an unknown
// state as "unknown(<n>) ".
#pragma once

#include <string_view>

#include "VoBgp/Parse/ExtCommTypedPlugin.h"
#include "VoBgp/VoBgpCommunity.h"

namespace Routing::Bgp {

class ExtCommOriginValidationState final : public ExtCommSubtyped {
  public:
    using Ptr = Kiv::Ptr<ExtCommOriginValidationState>;
    using PtrConst = Kiv::Ptr<ExtCommOriginValidationState const>;

    enum State : U8 { stateValid = 0, stateNotFound = 1, stateInvalid = 2 };

    static Ptr ExtCommOriginValidationStateIs(ExtCommContent const& content);

    // The content that carries `state`: 0x43 0x00 0 0, then the state as a
    // 32-bit value.
    static constexpr ExtCommContent buildExtCommContent(U32 state) {
        return ExtCommContent(U64(extCommPktTypeNonTransOpaque) << 56 |
                              U64(extCommPktSubtypeNonTransOriginValidationState) << 48 | state);
    }

    // Octet 7 as received.
    U8 state() const { return getContent().octet(7); }
    // "valid", "not-found", "invalid", or "unknown" for any other state.
    std::string_view stateName() const;

    void formatPolicy(VoFmt::TextBuffer& out, StrepFormat format) const override;
    void formatDerivedType(std::ostream& os) const override;
    bool policyMatchStrepUI() const override { return true; }

  private:
    explicit ExtCommOriginValidationState(ExtCommContent const& content)
        : ExtCommSubtyped(extCommClassificationOriginValidationState, content) {}
    template <class T, class... Args>
    friend Kiv::Ptr<T> makeExtComm(Args&&... args);
};

// A typed content adds behaviour, never storage.
static_assert(sizeof(ExtCommOriginValidationState) == sizeof(ExtComm));

inline ExtCommOriginValidationState::Ptr extCommOriginValidationStateFactory(
    ExtCommContent const& content) {
    return ExtCommOriginValidationState::ExtCommOriginValidationStateIs(content);
}

// ---- Parse rule and parser plug-in ----
VOBGP_PARSE_TYPED_SUB_RULE(BgpParseExtComSubTypeNonTransOpaqueOriginValidationStateRule,
                           BgpParseExtComSubTypeNonTransOpaqueRuleBase,
                           extCommPktSubtypeNonTransOriginValidationState,
                           extCommOriginValidationStateFactory);
VOBGP_PARSE_TYPED_PLUGIN(BgpParseExtCommOriginValidationStateSm,
                         bgpParseExtCommOriginValidationStateSmFactory,
                         BgpParseExtComSubTypeNonTransOpaqueOriginValidationStateRule)

}  // namespace Routing::Bgp
