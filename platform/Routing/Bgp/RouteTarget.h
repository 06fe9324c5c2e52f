// Routing::Bgp::RouteTarget: a route target as one 64-bit number.
//
// The value is the eight octets of a route-target extended community with the
// first (type) octet most significant, so ordering and prefix masks work on
// plain integers. The subtype octet is part of the value but plays no part in
// the display text, which depends only on the type octet:
//
//   type 0x00  "<AS2>:<U32>"        octets 2-3 and 4-7
//   type 0x01  "<a.b.c.d>:<U16>"    octets 2-5 and 6-7
//   type 0x02  "<AS4>:<U16>"        octets 2-5 and 6-7; with asDot an AS
//                                   above 65535 prints as "<high>.<low>"
//   any other  "0x" and the 16 hex digits of the value (lower case), so a
//              value that is not a route target still prints losslessly
//
// Framework text form, the value in 16 hex digits:
//   Value('Routing::Bgp::RouteTarget', ** {'value': 0x0002fde800000064})
// The parser also accepts fewer hex digits; a missing literal (including the
// "0x") raises Kiv::ParseError, digits that are not hex or do not fit in 64
// bits raise Kiv::RangeError.
#pragma once

#include <compare>
#include <cstddef>
#include <iosfwd>

#include "Kiv/Hash.h"
#include "Kiv/String.h"
#include "Kiv/Types.h"

namespace Routing::Bgp {

class RouteTarget {
  public:
    static constexpr char const* typeName = "Routing::Bgp::RouteTarget";
    // Longest display text: "255.255.255.255:65535".
    static constexpr std::size_t strepSizeMax = 21;

    constexpr RouteTarget() = default;
    explicit constexpr RouteTarget(U64 value) : value_(value) {}
    // Parses the framework text form at `it`, advancing it past the value.
    RouteTarget(Kiv::String::IteratorConst& it, Kiv::String::IteratorConst end);

    constexpr U64 value() const { return value_; }
    void valueIs(U64 value) { value_ = value; }
    constexpr U8 type() const { return static_cast<U8>(value_ >> 56); }

    friend constexpr bool operator==(RouteTarget const&, RouteTarget const&) = default;
    friend constexpr std::strong_ordering operator<=>(RouteTarget const&,
                                                      RouteTarget const&) = default;

    constexpr U32 hash(U32 seed = Kiv::hashSeed) const { return Kiv::hashU64(value_, seed); }

    // Display text (see above).
    Kiv::String toStrep(bool asDot) const;
    // Writes the display text to `out` (room for strepSizeMax characters plus
    // the NUL it appends) and returns its length: for dumps and formatters
    // that must not allocate.
    std::size_t toStrep(char* out, bool asDot) const;

    // Framework text form and its parser (the whole text must be one value).
    Kiv::String valueToStrep() const;
    static RouteTarget strepToValue(Kiv::String const& text);

  private:
    U64 value_ = 0;
};

inline Kiv::String valueToStrep(RouteTarget rt) {
    return rt.valueToStrep();
}
std::ostream& operator<<(std::ostream& os, RouteTarget rt);

}  // namespace Routing::Bgp
