// The number forms every BGP text uses, written straight into a character
// array (the caller reserves the room): decimal, AS numbers with optional
// asdot, dotted-quad IPv4 addresses and fixed-width hex. They never allocate,
// so formatting a community costs only the digits.
#pragma once

#include <cstddef>

#include "Kiv/Types.h"

namespace VoFmt {

// Longest outputs, for reserve().
inline constexpr std::size_t maxAsNumber = 11;  // "65535.65535" or "4294967295"
inline constexpr std::size_t maxIpv4Address = 15;

inline std::size_t decimalDigits(U64 value) {
    std::size_t digits = 1;
    for (; value >= 10; value /= 10)
        ++digits;
    return digits;
}

// Unsigned decimal without padding; returns the number of characters.
inline std::size_t writeDecimal(char* out, U64 value) {
    std::size_t digits = decimalDigits(value);
    for (std::size_t i = digits; i-- > 0; value /= 10)
        out[i] = static_cast<char>('0' + value % 10);
    return digits;
}

// An AS number: decimal, or with asdot and above 65535, its high 16 bits "."
// its low 16 bits (asdot never applies to a two-octet value: 100 stays 100).
inline std::size_t writeAsNumber(char* out, U32 asNumber, bool asdot) {
    if (!asdot || asNumber <= 0xffff)
        return writeDecimal(out, asNumber);
    std::size_t n = writeDecimal(out, asNumber >> 16);
    out[n++] = '.';
    return n + writeDecimal(out + n, asNumber & 0xffff);
}

// Dotted decimal, most significant octet first.
inline std::size_t writeIpv4Address(char* out, U32 address) {
    std::size_t n = 0;
    for (int shift = 24; shift >= 0; shift -= 8) {
        n += writeDecimal(out + n, (address >> shift) & 0xff);
        if (shift)
            out[n++] = '.';
    }
    return n;
}

// `digits` lower-case hex digits of `value`, most significant first.
inline std::size_t writeHex(char* out, U64 value, std::size_t digits) {
    static constexpr char kHex[] = "0123456789abcdef";
    for (std::size_t i = 0; i < digits; ++i)
        out[i] = kHex[(value >> (4 * (digits - 1 - i))) & 0xf];
    return digits;
}

}  // namespace VoFmt
