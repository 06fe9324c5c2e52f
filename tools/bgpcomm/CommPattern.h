// Community values as keys, and patterns over them: the one vocabulary of the
// community dictionaries (what a community means) and of the --has filters.
//
// A pattern is written as a dictionary line writes its community:
//   a:b           standard            a:b:c     large
//   rt a:b        route target        soo a:b   route origin (site of origin)
// and each field is one of
//   123           that value
//   100-199       a range, both ends included
//   12x, 1x3x     a decimal glob: 'x' is exactly one digit
//   5nnn, nnn     'nnn' is one or more digits
//   *             any value (the same as nnn)
// A glob matches the value's decimal text without leading zeros, so "x0"
// matches 10 to 90 but not 0 or 100. Wildcards are numbered from 0 in the
// order they appear; their digits are the captures a description refers to
// as $0, $1, ...
//
// Contract: extended communities have a key only as route targets or route
// origins of the two-octet AS, IPv4 address and four-octet AS types (the ones
// operators publish meanings for); an IPv4 administrator is its 32-bit
// number.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "bgpcomm/Wire.h"

namespace Bgpcomm {

// `text` without the white space before and after it.
std::string_view trim(std::string_view text);

enum class KeyKind : U8 { standard, large, routeTarget, routeOrigin };

struct CommKey {
    KeyKind kind = KeyKind::standard;
    U8 fieldCount = 2;
    U32 field[3] = {0, 0, 0};
    bool operator==(CommKey const&) const = default;
};
struct CommKeyHash {
    std::size_t operator()(CommKey const& key) const;
};

CommKey standardKey(U32 value);
CommKey largeKey(U32 global, U32 local1, U32 local2);
// The extended community `value` (type octet first) as a route target or
// route origin key; false for every other extended community.
bool extendedKey(U64 value, CommKey* out);

// Dictionary precedence classes, best first: an exact entry, then a range,
// then an entry with any wildcard.
enum class Precedence : U8 { exact, range, wildcard };

struct FieldPattern {
    bool glob = false;
    U32 low = 0;
    U32 high = 0;
    std::string digits;  // glob: digits, 'x' (one digit), 'n' (one or more)
};

struct CommPattern {
    KeyKind kind = KeyKind::standard;
    U8 fieldCount = 2;
    FieldPattern field[3];

    Precedence precedence() const;
    // How many values it covers, roughly: breaks ties within one precedence
    // in favour of the narrower entry.
    U64 breadth() const;
    // Whether `key` matches; the wildcard captures go to `captures` when it
    // is given (digits, in wildcard order).
    bool matches(CommKey const& key, std::vector<std::string>* captures = nullptr) const;
    // The least and greatest value field `i` can match (a glob without nnn
    // is bounded by its digits with x as 0 and as 9).
    void bounds(unsigned i, U32* low, U32* high) const;
    // The key of an exact pattern.
    CommKey exactKey() const;
};

// Most wildcards one pattern may have.
inline constexpr unsigned maxCaptures = 16;

// Parses one pattern (syntax above); the problem on failure.
std::optional<std::string> parseCommPattern(std::string_view text, CommPattern* out);

}  // namespace Bgpcomm
