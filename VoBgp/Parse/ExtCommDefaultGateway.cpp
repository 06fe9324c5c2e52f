#include "VoBgp/Parse/ExtCommDefaultGateway.h"

#include "VoBgp/Parse/ExtCommDerivedForm.h"

namespace Routing::Bgp {

ExtCommDefaultGateway::Ptr ExtCommDefaultGateway::ExtCommDefaultGatewayIs(
    ExtCommContent const& content) {
    return makeExtComm<ExtCommDefaultGateway>(content);
}

void ExtCommDefaultGateway::formatPolicy(VoFmt::TextBuffer& out, StrepFormat) const {
    out.append("DefaultGateway");
}

void ExtCommDefaultGateway::formatDerivedType(std::ostream& os) const {
    ExtCommDerivedBuffer text;
    text.append("<DefaultGateway ");
    finishExtCommDerived(os, text, getContent());
}

}  // namespace Routing::Bgp
