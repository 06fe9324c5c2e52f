// The tool's heap counter: the executable replaces the global operator
// new/delete with versions that count the bytes currently allocated, so that
// --stats can say how much the interned state takes. Linked into the bgpcomm
// executable only; the unit tests keep the standard operators.
#pragma once

#include "Kiv/Types.h"

namespace Bgpcomm {

// Bytes allocated through operator new and not yet deleted.
U64 liveHeapBytes();

}  // namespace Bgpcomm
