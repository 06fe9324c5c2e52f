#include "VoBgp/RouteTargetPrefix.h"

#include <algorithm>
#include <bit>
#include <ostream>
#include <string>

#include "Kiv/Assert.h"
#include "Kiv/Errors.h"
#include "Kiv/ValueText.h"

namespace Routing::Bgp {

namespace {

constexpr char const* kLengthRangeText =
    "Routing::Bgp::RouteTargetPrefix::length < 0 or > 64 not allowed";

}  // namespace

RouteTargetPrefix::RouteTargetPrefix(RouteTarget prefix, size_t bitlen) : prefix_(prefix) {
    bitlenIs(bitlen);
}

void RouteTargetPrefix::bitlenIs(size_t bitlen) {
    KIV_ASSERT(0 == (bitlen >> 8), "0 == ( bitlen >> 8 )");
    if (bitlen != length_) {
        // Stored before the check on purpose: callers see the rejected length.
        length_ = static_cast<U8>(bitlen);
        if (bitlen > bitlenMax)
            throw Kiv::RangeError(kLengthRangeText);
    }
    prefix_.valueIs(prefixBits() & mask());
}

U8 RouteTargetPrefix::commonPrefixLen(RouteTargetPrefix const& other) const {
    U64 const differing = prefixBits() ^ other.prefixBits();
    U8 const shorter = std::min(length_, other.length_);
    if (differing == 0)
        return shorter;
    return std::min<U8>(shorter, static_cast<U8>(std::countl_zero(differing)));
}

Kiv::String RouteTargetPrefix::toStrep(bool asDot) const {
    if (length_ == 0 && prefixBits() == 0)
        return Kiv::String("0/0");
    char text[RouteTarget::strepSizeMax + 1 + 3 + 1];
    std::size_t n = prefix_.toStrep(text, asDot);
    text[n++] = '/';
    std::string const digits = std::to_string(length_);
    std::copy(digits.begin(), digits.end(), text + n);
    return Kiv::String(text, n + digits.size());
}

Kiv::String RouteTargetPrefix::valueToStrep() const {
    Kiv::ValueFormatter f(typeName);
    f.attr("prefix", std::string(prefix_.valueToStrep())).attr("length", std::to_string(length_));
    return Kiv::String(f.str());
}

RouteTargetPrefix::RouteTargetPrefix(Kiv::String::IteratorConst& it,
                                     Kiv::String::IteratorConst end) {
    Kiv::ValueParser parser(it, end, typeName);
    parser.attr("prefix");
    try {
        prefix_ = RouteTarget(parser.position(), end);
    } catch (Kiv::RangeError const& e) {
        Kiv::rethrowWithAttribute(e, "prefix");
    }
    parser.attr("length");
    U64 const length = parser.readUnsigned();
    if (length > bitlenMax)
        throw Kiv::RangeError(kLengthRangeText);
    length_ = static_cast<U8>(length);
    parser.close();
}

RouteTargetPrefix RouteTargetPrefix::strepToValue(Kiv::String const& text) {
    Kiv::String::IteratorConst it = text.begin();
    RouteTargetPrefix const value(it, text.end());
    if (it != text.end())
        throw Kiv::ParseError("unexpected text after " + std::string(typeName) + ": \"" +
                              std::string(it, text.end()) + "\"");
    return value;
}

std::ostream& operator<<(std::ostream& os, RouteTargetPrefix const& p) {
    return os << p.valueToStrep();
}

}  // namespace Routing::Bgp
