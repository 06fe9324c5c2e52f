// Helpers for the derived (dump) forms of extended communities, generic and
// typed, 8-octet and IPv6.
//
// A form is built in a stack buffer and written to the stream at once:
// nothing is allocated, and the caller's stream flags (hex, showbase,
// uppercase, precision) cannot change the numbers in it.
#pragma once

#include <cstdio>
#include <ostream>
#include <string_view>

#include "Kiv/Enum.h"
#include "VoBgp/VoBgpCommunity.h"
#include "VoFmt/StackBackedBuffer.h"

namespace Routing::Bgp {

// Long enough for every form, also a generic one that spells out its type
// and subtype names; a longer one moves to the heap.
using ExtCommDerivedBuffer = VoFmt::StackBackedBuffer<128>;

// An enumeration member's name, or its decimal number for a value that names
// no member: the enumeration's text form, without building a string.
template <class E>
void appendEnumText(VoFmt::TextBuffer& out, E value) {
    if (auto const* member = Kiv::enumMemberByValue(value))
        out.append(member->name);
    else
        out.appendDecimal(static_cast<U64>(value));
}

// The opening of a generic form: "<", the type name and, when the community
// has a subtype octet, a blank and the subtype text.
template <class Comm>
void appendExtCommDerivedOpening(VoFmt::TextBuffer& out, Comm const& comm) {
    out.append('<');
    appendEnumText(out, comm.pktType());
    if (!comm.pktSubtype().isUnspecified()) {
        out.append(' ');
        comm.formatSubtypeToBuffer(out);
    }
}

// A float as a stream prints a double by default ("%g"): 1.25e+09, 0, nan.
inline void appendDefaultFloat(VoFmt::TextBuffer& out, float value) {
    char scratch[32];
    int n = std::snprintf(scratch, sizeof scratch, "%g", double(value));
    out.append(std::string_view(scratch, n > 0 ? static_cast<std::size_t>(n) : 0));
}

// Appends the hexadecimal content and ">" and writes the whole form.
inline void finishExtCommDerived(std::ostream& os, ExtCommDerivedBuffer& text,
                                 ExtCommContent content) {
    formatExtCommContent(text, content);
    text.append('>');
    os << text.view();
}

}  // namespace Routing::Bgp
