#include "VoBgp/Parse/ExtCommColor.h"

#include "VoBgp/Parse/ExtCommDerivedForm.h"

namespace Routing::Bgp {

ExtCommColor::Ptr ExtCommColor::ExtCommColorIs(ExtCommContent const& content) {
    return makeExtComm<ExtCommColor>(content);
}

void ExtCommColor::appendColorOnlyBits(VoFmt::TextBuffer& out) const {
    U8 bits = colorOnlyBits();
    out.append((bits & 2) ? '1' : '0');
    out.append((bits & 1) ? '1' : '0');
}

void ExtCommColor::formatPolicy(VoFmt::TextBuffer& out, StrepFormat) const {
    out.append("Color:CO(");
    appendColorOnlyBits(out);
    out.append("):");
    out.appendDecimal(color());
}

void ExtCommColor::formatDerivedType(std::ostream& os) const {
    ExtCommDerivedBuffer text;
    text.append("<Color: ");
    text.appendDecimal(color());
    text.append('(');
    appendColorOnlyBits(text);
    text.append(") ");
    finishExtCommDerived(os, text, getContent());
}

}  // namespace Routing::Bgp
