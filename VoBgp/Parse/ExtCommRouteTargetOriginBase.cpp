#include "VoBgp/Parse/ExtCommRouteTargetOriginBase.h"

#include "Kiv/Assert.h"
#include "VoBgp/Parse/ExtCommDerivedForm.h"

namespace Routing::Bgp::ExtCommRouteForms {

void asPolicy(VoFmt::TextBuffer& out, ExtCommAsNumber const& comm, ExtComm::StrepFormat format,
              ExtCommRouteWords const& words) {
    if (format.strepFormatClassification()) {
        if (format.strepFormatUI()) {
            out.append(words.uiAsPrefix);
            if (comm.fourOctetAs())
                out.append('4');
            out.append(':');
        } else {
            out.append(words.policyPrefix);
        }
    }
    comm.formatAsNumberToBuffer(out, format.strepFormatAsdot());
    out.append(':');
    out.appendDecimal(comm.localAdmin());
}

void asDerived(std::ostream& os, ExtCommAsNumber const& comm, ExtCommRouteWords const& words) {
    std::string_view word;
    switch (comm.getContent().typeOctet()) {
        case extCommPktTypeTransTwoOctetAs:
            word = words.derivedTwoOctetAs;
            break;
        case extCommPktTypeTransFourOctetAs:
            word = words.derivedFourOctetAs;
            break;
        default:
            KIV_ASSERT(false, "unexpected type");
    }
    ExtCommDerivedBuffer text;
    text.append('<');
    text.append(word);
    comm.formatAsNumberToBuffer(text, false);
    text.append(':');
    text.appendDecimal(comm.localAdmin());
    text.append(' ');
    finishExtCommDerived(os, text, comm.getContent());
}

void ipv4Policy(VoFmt::TextBuffer& out, ExtCommIpv4Address const& comm, ExtComm::StrepFormat format,
                ExtCommRouteWords const& words) {
    if (format.strepFormatClassification())
        out.append(format.strepFormatUI() ? words.uiIpv4Prefix : words.policyPrefix);
    formatIpv4Address(out, comm.ipv4Address());
    out.append(':');
    out.appendDecimal(comm.localAdmin());
}

void ipv4Derived(std::ostream& os, ExtCommIpv4Address const& comm, ExtCommRouteWords const& words) {
    ExtCommDerivedBuffer text;
    text.append('<');
    text.append(words.derivedIpv4);
    formatIpv4Address(text, comm.ipv4Address());
    text.append(':');
    text.appendDecimal(comm.localAdmin());
    text.append(' ');
    finishExtCommDerived(os, text, comm.getContent());
}

}  // namespace Routing::Bgp::ExtCommRouteForms
