// Vok::MaybeU63: an optional unsigned integer of up to 63 bits in one word.
//
// "Unspecified" is a state of the word itself rather than a separate flag, so
// an optional value costs no more than the number and copies as one word:
// bit 63 set means unspecified (the canonical word is 0x8000000000000000, but
// any word with bit 63 set counts), bit 63 clear means the value is the word.
//
// Text form, shared by every optional type built on this one:
//   "-"        unspecified
//   "<digits>" the value in decimal, e.g. "0", "255"
// Parsing accepts exactly these; a number of 2^63 or more cannot be a value
// and raises Kiv::RangeError, text that is neither raises Kiv::ParseError.
#pragma once

#include <iosfwd>

#include "Kiv/Errors.h"
#include "Kiv/String.h"
#include "Kiv/Types.h"

namespace Vok {

struct MaybeU63 {
    static constexpr U64 unspecifiedBit = U64(1) << 63;
    static constexpr U64 unspecifiedWord = unspecifiedBit;

    constexpr MaybeU63() noexcept = default;
    constexpr explicit MaybeU63(U64 word) noexcept : value(word) {}

    constexpr bool isUnspecified() const noexcept { return (value & unspecifiedBit) != 0; }

    U64 value = unspecifiedWord;
};

Kiv::String valueToStrep(MaybeU63 const& v);
std::ostream& operator<<(std::ostream& os, MaybeU63 const& v);
// Reads "-" or a decimal number at `it` and advances past it.
void sequenceToValue(Kiv::String::IteratorConst& it, Kiv::String::IteratorConst const& end,
                     MaybeU63* out);

namespace MaybeU63Detail {
[[noreturn]] void throwTrailingText(Kiv::String::IteratorConst it, Kiv::String::IteratorConst end);
}

// Parses a whole string. T is MaybeU63 or any value type with a
// sequenceToValue of its own (found by argument-dependent lookup), so that
// derived optional types apply their range checks; text left over after the
// value raises Kiv::ParseError.
template <class T = MaybeU63>
T strepToValue(Kiv::String const& text) {
    T out;
    Kiv::String::IteratorConst it = text.begin();
    sequenceToValue(it, text.end(), &out);
    if (it != text.end())
        MaybeU63Detail::throwTrailingText(it, text.end());
    return out;
}

}  // namespace Vok
