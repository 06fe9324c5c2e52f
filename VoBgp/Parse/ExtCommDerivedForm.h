// Helper for the derived (dump) forms of typed extended communities.
//
// A form is built in a stack buffer and written to the stream at once:
// nothing is allocated, and the caller's stream flags (hex, width, precision)
// cannot change the numbers in it.
#pragma once

#include <ostream>

#include "VoBgp/VoBgpCommunity.h"
#include "VoFmt/StackBackedBuffer.h"

namespace Routing::Bgp {

// Long enough for every typed form; a longer one moves to the heap.
using ExtCommDerivedBuffer = VoFmt::StackBackedBuffer<64>;

// Appends the hexadecimal content and ">" and writes the whole form.
inline void finishExtCommDerived(std::ostream& os, ExtCommDerivedBuffer& text,
                                 ExtCommContent content) {
    formatExtCommContent(text, content);
    text.append('>');
    os << text.view();
}

}  // namespace Routing::Bgp
