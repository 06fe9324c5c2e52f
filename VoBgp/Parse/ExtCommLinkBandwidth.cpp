#include "VoBgp/Parse/ExtCommLinkBandwidth.h"

#include <cstdio>

#include "Kiv/Assert.h"
#include "VoBgp/Parse/ExtCommDerivedForm.h"

namespace Routing::Bgp {

namespace {

// A float as a stream prints a double by default ("%g").
void appendDefaultDouble(VoFmt::TextBuffer& out, float value) {
    char scratch[32];
    int n = std::snprintf(scratch, sizeof scratch, "%g", double(value));
    out.append(std::string_view(scratch, n > 0 ? static_cast<std::size_t>(n) : 0));
}

}  // namespace

ExtCommLinkBandwidth::ExtCommLinkBandwidth(ExtCommContent const& content)
    : ExtCommAsNumber(extCommClassificationLinkBandwidth, content, false) {}

ExtCommLinkBandwidth::Ptr ExtCommLinkBandwidth::ExtCommLinkBandwidthIs(
    ExtCommContent const& content) {
    return makeExtComm<ExtCommLinkBandwidth>(content);
}

void ExtCommLinkBandwidth::formatPolicy(VoFmt::TextBuffer& out, StrepFormat format) const {
    bool asdot = format.strepFormatAsdot();
    if (format.strepFormatClassification() && format.strepFormatUI()) {
        out.append("Link-Bandwidth-AS:");
        formatAsNumberToBuffer(out, asdot);
        out.append(':');
        linkBandwidth().formatTo(out, format.strepFormatLinkBwWeighted());
        return;
    }
    if (format.strepFormatClassification())
        out.append("lbw ");
    formatAsNumberToBuffer(out, asdot);
    out.append(':');
    appendDefaultDouble(out, linkBandwidth().bytesPerSecond());
}

void ExtCommLinkBandwidth::formatDerivedType(std::ostream& os) const {
    ExtCommDerivedBuffer text;
    text.append("<LinkBandwidth ");
    formatAsNumberToBuffer(text, false);
    text.append(':');
    appendDefaultDouble(text, linkBandwidth().bytesPerSecond());
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
