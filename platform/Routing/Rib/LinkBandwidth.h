// Routing::Rib::LinkBandwidth: the bandwidth of a link as BGP carries it in the
// link-bandwidth extended community, for unequal-cost multipath (UCMP).
//
// Unit: BYTES per second, as an IEEE 754 single-precision float. That is the
// unit on the wire, and the value is kept exactly as received so that
// comparing, re-advertising and printing never round it. On the wire the float
// is four octets in network order; fromWire/toWire move between those octets
// (read as a big-endian U32) and the float by copying the bit pattern, never
// by numeric conversion.
//
// Valid: finite and not negative (zero and -0 are valid: a link that carries
// nothing). NaN, the infinities and negative values can arrive from a peer;
// they are kept as received, reported by isValid() and printed as "invalid".
//
// Text (toStrep / formatTo):
//   rate form (weighted = false): the bandwidth in BITS per second, scaled to
//     the largest decimal (SI, factor 1000) unit it reaches among "bps",
//     "Kbps", "Mbps", "Gbps" and "Tbps" (above that it stays in Tbps), with at
//     most two decimals, trailing zeros and a trailing point dropped, then a
//     blank and the unit. A value that would round to 1000 of a unit is shown
//     in the next unit. Examples: 0 -> "0 bps", 125 -> "1 Kbps",
//     1.5625e8 -> "1.25 Gbps", 1.25e9 -> "10 Gbps", 0.1 -> "0.8 bps".
//   weighted form (weighted = true): for UCMP the community may carry a
//     relative weight rather than a real bandwidth; traffic is shared in
//     proportion to the raw numbers. So the value is shown as that bare
//     number, with no unit and no scaling: integral values below 1e15 in
//     full ("1250000000", "10"), others in the six-significant-digit form
//     ("2.5", "1.5e+20").
//   Both forms show an invalid value as "invalid".
#pragma once

#include <cstring>
#include <limits>

#include "Kiv/String.h"
#include "Kiv/Types.h"
#include "VoFmt/StackBackedBuffer.h"

namespace Routing::Rib {

class LinkBandwidth {
    static_assert(std::numeric_limits<float>::is_iec559 && sizeof(float) == sizeof(U32),
                  "the wire form is an IEEE 754 single-precision float");

  public:
    constexpr LinkBandwidth() = default;
    constexpr explicit LinkBandwidth(float bytesPerSecond) : bytesPerSecond_(bytesPerSecond) {}

    // The four wire octets, read in network order into `bits`.
    static LinkBandwidth fromWire(U32 bits) {
        float value;
        std::memcpy(&value, &bits, sizeof value);
        return LinkBandwidth(value);
    }
    U32 toWire() const {
        U32 bits;
        std::memcpy(&bits, &bytesPerSecond_, sizeof bits);
        return bits;
    }

    constexpr float bytesPerSecond() const { return bytesPerSecond_; }
    double bitsPerSecond() const { return double(bytesPerSecond_) * 8; }

    bool isValid() const;

    void formatTo(VoFmt::TextBuffer& out, bool weighted) const;
    Kiv::String toStrep(bool weighted) const;

  private:
    float bytesPerSecond_ = 0;
};

}  // namespace Routing::Rib
