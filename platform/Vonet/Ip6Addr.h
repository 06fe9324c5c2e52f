// Vonet::Ip6Addr: a 16-octet IPv6 address.
//
// The octets are kept in network order, so the address orders as the
// unsigned 128-bit number it is, octet 0 most significant.
//
// Text output is the canonical form of RFC 5952: lower-case hex groups
// without leading zeros, the longest run of two or more zero groups (the
// first of equal runs) shortened to "::", and an IPv4-mapped address
// (::ffff:0:0/96) with its last 32 bits in dotted decimal ("::ffff:192.0.2.1").
// Parsing accepts any RFC 4291 text: full, compressed, upper or lower case,
// with a dotted IPv4 tail.
#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <iosfwd>
#include <string_view>

#include "Kiv/String.h"
#include "Kiv/Types.h"
#include "VoFmt/StackBackedBuffer.h"

namespace Vonet {

class Ip6Addr {
  public:
    using Octets = std::array<U8, 16>;

    // Longest text: "ffff:ffff:ffff:ffff:ffff:ffff:255.255.255.255".
    static constexpr std::size_t strepSizeMax = 45;

    // The unspecified address "::".
    constexpr Ip6Addr() = default;
    constexpr explicit Ip6Addr(Octets const& octets) : octets_(octets) {}
    // From the eight 16-bit groups, first group first.
    static constexpr Ip6Addr fromGroups(std::array<U16, 8> const& groups) {
        Octets octets{};
        for (std::size_t i = 0; i < 8; ++i) {
            octets[2 * i] = static_cast<U8>(groups[i] >> 8);
            octets[2 * i + 1] = static_cast<U8>(groups[i]);
        }
        return Ip6Addr(octets);
    }

    constexpr Octets const& octets() const { return octets_; }
    constexpr U8 octet(std::size_t i) const { return octets_[i]; }
    constexpr U16 group(std::size_t i) const {
        return static_cast<U16>(octets_[2 * i] << 8 | octets_[2 * i + 1]);
    }
    constexpr bool isUnspecified() const { return *this == Ip6Addr(); }

    friend constexpr bool operator==(Ip6Addr const&, Ip6Addr const&) = default;
    friend constexpr std::strong_ordering operator<=>(Ip6Addr const&, Ip6Addr const&) = default;

    // Writes the canonical text to `out` (room for strepSizeMax characters
    // plus the NUL it appends) and returns its length; allocates nothing.
    std::size_t printToBuffer(char* out) const;
    void format(VoFmt::TextBuffer& out) const;
    Kiv::String toStrep() const;

    // Parses exactly `text`; false (and `out` untouched) when it is not an
    // IPv6 address.
    static bool parse(std::string_view text, Ip6Addr* out);

  private:
    Octets octets_{};
};

std::ostream& operator<<(std::ostream& os, Ip6Addr const& addr);
inline Kiv::String valueToStrep(Ip6Addr const& addr) {
    return addr.toStrep();
}
// Reads an address at `it` (the longest run of hex digits, ':' and '.'),
// advancing past it; Kiv::ParseError when that run is not an address.
void sequenceToValue(Kiv::String::IteratorConst& it, Kiv::String::IteratorConst const& end,
                     Ip6Addr* out);

}  // namespace Vonet
