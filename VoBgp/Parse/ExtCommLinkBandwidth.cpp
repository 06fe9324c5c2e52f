#include "VoBgp/Parse/ExtCommLinkBandwidth.h"

#include "Kiv/Assert.h"
#include "VoBgp/Parse/ExtCommDerivedForm.h"

namespace Routing::Bgp {

// The transitive one stays out of the link-bandwidth classification: see
// ExtCommTransLinkBandwidth.h.
ExtCommLinkBandwidth::ExtCommLinkBandwidth(ExtCommContent const& content)
    : ExtCommAsNumber(content.isTransitive() ? extCommClassificationUnSpecified
                                             : extCommClassificationLinkBandwidth,
                      content, false) {}

ExtCommLinkBandwidth::Ptr ExtCommLinkBandwidth::ExtCommLinkBandwidthIs(
    ExtCommContent const& content) {
    return makeExtComm<ExtCommLinkBandwidth>(content);
}

void ExtCommLinkBandwidth::formatPolicy(VoFmt::TextBuffer& out, StrepFormat format) const {
    bool asdot = format.strepFormatAsdot();
    if (format.strepFormatClassification() && format.strepFormatUI()) {
        out.append(isTransitive() ? "Link-Bandwidth-Trans-AS:" : "Link-Bandwidth-AS:");
        formatAsNumberToBuffer(out, asdot);
        out.append(':');
        linkBandwidth().formatTo(out, format.strepFormatLinkBwWeighted());
        return;
    }
    if (format.strepFormatClassification())
        out.append(isTransitive() ? "lbw-trans " : "lbw ");
    formatAsNumberToBuffer(out, asdot);
    out.append(':');
    appendDefaultFloat(out, linkBandwidth().bytesPerSecond());
}

void ExtCommLinkBandwidth::formatDerivedType(std::ostream& os) const {
    ExtCommDerivedBuffer text;
    text.append(isTransitive() ? "<TransLinkBandwidth " : "<LinkBandwidth ");
    formatAsNumberToBuffer(text, false);
    text.append(':');
    appendDefaultFloat(text, linkBandwidth().bytesPerSecond());
    text.append(' ');
    finishExtCommDerived(os, text, getContent());
}

bool ExtCommLinkBandwidth::isValid() const {
    return linkBandwidth().isValid();
}

bool ExtCommLinkBandwidth::isBetterThan(ExtComm::PtrConst const& other) const {
    KIV_ASSERT(other != nullptr);
    // Read the other's bandwidth straight from its content: the same octets
    // whatever class it was built as.
    return linkBandwidthOf(other->getContent()).bytesPerSecond() > linkBandwidth().bytesPerSecond();
}

}  // namespace Routing::Bgp
