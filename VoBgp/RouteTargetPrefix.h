// Routing::Bgp::RouteTargetPrefix: a set of route targets named by a prefix of
// their 64-bit value (route-target constraint style matching, RFC 4684, and
// longest-prefix lookups over route targets).
//
// Contract:
// - `prefix` is a Routing::Bgp::RouteTarget (the eight octets of a
//   route-target extended community as one number, type octet on top) and
//   `length` the prefix length in bits, 0 to 64.
// - Bits count from the top: bit 0 is the most significant bit.
// - bitlenIs keeps the bits of the prefix below the length zero. It stores
//   the new length BEFORE checking its range, so after the range error the
//   object holds the rejected length and the unmasked prefix; callers that
//   catch the error must not rely on the old length. Lengths that do not fit
//   an octet are programming errors and abort.
// - The parsing constructor does not re-mask: a parsed value is exactly what
//   the text says.
// - Order: by prefix as an unsigned number, then by length.
//
// Texts:
//   display      "<route target>/<length>", "0/0" for the default value
//   framework    Value('Routing::Bgp::RouteTargetPrefix', ** {'prefix': <RouteTarget form>,
//                'length': <n>})
#pragma once

#include <compare>
#include <cstddef>
#include <iosfwd>

#include "Kiv/Hash.h"
#include "Kiv/String.h"
#include "Kiv/Types.h"
#include "Routing/Bgp/RouteTarget.h"

namespace Routing::Bgp {

class RouteTargetPrefix {
  public:
    static constexpr char const* typeName = "Routing::Bgp::RouteTargetPrefix";
    static constexpr U8 bitlenMax = 64;

    constexpr RouteTargetPrefix() = default;
    // Masks `prefix` to `bitlen` bits (bitlenIs).
    RouteTargetPrefix(RouteTarget prefix, size_t bitlen);
    // Parses the framework text form at `it`, advancing it past the value.
    RouteTargetPrefix(Kiv::String::IteratorConst& it, Kiv::String::IteratorConst end);

    constexpr RouteTarget prefix() const { return prefix_; }
    constexpr U64 prefixBits() const { return prefix_.value(); }
    constexpr U8 bitlen() const { return length_; }
    void bitlenIs(size_t bitlen);

    // The top `bitlen()` bits set: 0 for length 0, all ones for 64.
    constexpr U64 mask() const {
        return length_ == 0 ? 0 : length_ >= 64 ? ~U64(0) : ~U64(0) << (64 - length_);
    }
    // Bit i of the prefix, i = 0 being the most significant.
    constexpr bool extractBit(U32 i) const { return ((prefixBits() >> (63 - (i & 63))) & 1) != 0; }
    // Leading bits in which both prefixes agree, at most the shorter length.
    U8 commonPrefixLen(RouteTargetPrefix const& other) const;

    friend constexpr bool operator==(RouteTargetPrefix const&, RouteTargetPrefix const&) = default;
    friend constexpr std::strong_ordering operator<=>(RouteTargetPrefix const& a,
                                                      RouteTargetPrefix const& b) {
        if (auto c = a.prefixBits() <=> b.prefixBits(); c != 0)
            return c;
        return a.length_ <=> b.length_;
    }

    U32 hash(U32 seed = Kiv::hashSeed) const {
        return Kiv::hashCombine(Kiv::hashCombine(seed, Kiv::hashU64(prefixBits())), length_);
    }

    // Display text; asDot prints a four-octet AS above 65535 as "<high>.<low>".
    Kiv::String toStrep(bool asDot) const;

    Kiv::String valueToStrep() const;
    // The whole text must be one value; Kiv::ParseError for anything left over.
    static RouteTargetPrefix strepToValue(Kiv::String const& text);

  private:
    RouteTarget prefix_;
    U8 length_ = 0;
};

// 16 octets on x86-64, 12 on 32-bit x86, where a U64 aligns to 4.
static_assert(sizeof(RouteTargetPrefix) == sizeof(RouteTarget) + alignof(RouteTarget),
              "a prefix is a route target and its length");

inline Kiv::String valueToStrep(RouteTargetPrefix const& p) {
    return p.valueToStrep();
}
std::ostream& operator<<(std::ostream& os, RouteTargetPrefix const& p);

}  // namespace Routing::Bgp
