// Link bandwidth extended communities (IANA BGP Extended Communities
// registry: transitive two-octet AS-specific type 0x00 and non-transitive
// 0x40, sub-type 0x04; the last four octets an IEEE 754 single-precision
// bandwidth in bytes per second) at their exact value, beside the show
// text that rounds it ("1 Gbps").
#pragma once

#include "VoFmt/StackBackedBuffer.h"
#include "bgpcomm/Attrs.h"

namespace Bgpcomm {

bool isLinkBandwidth(U64 value);
// The bandwidth in bits per second: an integer when it is one (all real
// ones), else up to nine significant digits; "null" for NaN or infinity.
void appendLinkBandwidthBps(VoFmt::TextBuffer& out, U64 value);

}  // namespace Bgpcomm
