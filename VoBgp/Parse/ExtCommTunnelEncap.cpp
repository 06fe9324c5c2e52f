#include "VoBgp/Parse/ExtCommTunnelEncap.h"

#include "VoBgp/Parse/ExtCommDerivedForm.h"

namespace Routing::Bgp {

ExtCommTunnelEncap::Ptr ExtCommTunnelEncap::ExtCommTunnelEncapIs(ExtCommContent const& content) {
    return makeExtComm<ExtCommTunnelEncap>(content);
}

void ExtCommTunnelEncap::formatPolicy(VoFmt::TextBuffer& out, StrepFormat format) const {
    if (format.strepFormatClassification())
        out.append("TunnelEncap:");
    TunnelType type = tunnelType();
    if (bgpIsValidEnumMember(type)) {
        out.append(Kiv::enumMemberByValue(type)->name);
    } else {
        out.append("tunnelTypeUnknown-");
        out.appendDecimal(type);
    }
}

void ExtCommTunnelEncap::formatDerivedType(std::ostream& os) const {
    TunnelType type = tunnelType();
    ExtCommDerivedBuffer text;
    text.append("<TunnelEncap ");
    text.appendDecimal(type);
    text.append(':');
    text.append(bgpIsValidEnumMember(type) ? Kiv::enumMemberByValue(type)->name
                                           : "tunnelTypeUnknown");
    text.append(' ');
    finishExtCommDerived(os, text, getContent());
}

}  // namespace Routing::Bgp
