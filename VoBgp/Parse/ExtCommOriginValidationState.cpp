#include "VoBgp/Parse/ExtCommOriginValidationState.h"

#include "VoBgp/Parse/ExtCommDerivedForm.h"

namespace Routing::Bgp {

ExtCommOriginValidationState::Ptr ExtCommOriginValidationState::ExtCommOriginValidationStateIs(
    ExtCommContent const& content) {
    return makeExtComm<ExtCommOriginValidationState>(content);
}

std::string_view ExtCommOriginValidationState::stateName() const {
    switch (state()) {
        case stateValid:
            return "valid";
        case stateNotFound:
            return "not-found";
        case stateInvalid:
            return "invalid";
        default:
            return "unknown";
    }
}

void ExtCommOriginValidationState::formatPolicy(VoFmt::TextBuffer& out, StrepFormat format) const {
    if (!format.strepFormatClassification() || !format.strepFormatUI())
        return;
    out.append("Origin-Validation-State:");
    out.append(stateName());
}

void ExtCommOriginValidationState::formatDerivedType(std::ostream& os) const {
    ExtCommDerivedBuffer text;
    text.append("<OriginValidationState ");
    text.append(stateName());
    if (state() > stateInvalid) {
        text.append('(');
        text.appendDecimal(state());
        text.append(')');
    }
    text.append(' ');
    finishExtCommDerived(os, text, getContent());
}

}  // namespace Routing::Bgp
