#include "VoBgp/Parse/ExtCommVrfRouteImport.h"

#include "VoBgp/Parse/ExtCommDerivedForm.h"

namespace Routing::Bgp {

ExtCommVrfRouteImportIpv4Address::Ptr
ExtCommVrfRouteImportIpv4Address::ExtCommVrfRouteImportIpv4AddressIs(
    ExtCommContent const& content) {
    return makeExtComm<ExtCommVrfRouteImportIpv4Address>(content);
}

void ExtCommVrfRouteImportIpv4Address::formatPolicy(VoFmt::TextBuffer& out,
                                                    StrepFormat format) const {
    if (format.strepFormatClassification())
        out.append(format.strepFormatUI() ? "VRF-Route-Import:" : "VRI:");
    formatAddressAndAdmin(out);
}

void ExtCommVrfRouteImportIpv4Address::formatDerivedType(std::ostream& os) const {
    ExtCommDerivedBuffer text;
    text.append("<VrfRouteImport ");
    formatAddressAndAdmin(text);
    text.append(' ');
    finishExtCommDerived(os, text, getContent());
}

}  // namespace Routing::Bgp
