#include "Routing/Bgp/RouteTarget.h"

#include <charconv>
#include <ostream>
#include <string_view>

#include "Kiv/Errors.h"
#include "Kiv/ValueText.h"
#include "VoFmt/Numbers.h"

namespace Routing::Bgp {

namespace {

constexpr std::string_view kValueOpening = "Value('Routing::Bgp::RouteTarget', ** {'value': 0x";
constexpr std::string_view kValueClosing = "})";
constexpr std::size_t kHexDigits = 16;

char* putDecimal(char* out, U64 value) {
    return out + VoFmt::writeDecimal(out, value);
}

char* putText(char* out, std::string_view text) {
    for (char c : text)
        *out++ = c;
    return out;
}

char* putHex16(char* out, U64 value) {
    return out + VoFmt::writeHex(out, value, kHexDigits);
}

}  // namespace

std::size_t RouteTarget::toStrep(char* out, bool asDot) const {
    char* p = out;
    U32 const high32 = static_cast<U32>(value_ >> 16);  // octets 2-5
    U16 const low16 = static_cast<U16>(value_);         // octets 6-7
    switch (type()) {
        case 0x00:
            p = putDecimal(p, static_cast<U16>(value_ >> 32));
            *p++ = ':';
            p = putDecimal(p, static_cast<U32>(value_));
            break;
        case 0x01:
            p += VoFmt::writeIpv4Address(p, high32);
            *p++ = ':';
            p = putDecimal(p, low16);
            break;
        case 0x02:
            p += VoFmt::writeAsNumber(p, high32, asDot);
            *p++ = ':';
            p = putDecimal(p, low16);
            break;
        default:
            *p++ = '0';
            *p++ = 'x';
            p = putHex16(p, value_);
            break;
    }
    *p = '\0';
    return static_cast<std::size_t>(p - out);
}

Kiv::String RouteTarget::toStrep(bool asDot) const {
    char text[strepSizeMax + 1];
    return Kiv::String(text, toStrep(text, asDot));
}

Kiv::String RouteTarget::valueToStrep() const {
    char text[kValueOpening.size() + kHexDigits + kValueClosing.size()];
    char* p = text;
    p = putText(p, kValueOpening);
    p = putHex16(p, value_);
    p = putText(p, kValueClosing);
    return Kiv::String(text, static_cast<std::size_t>(p - text));
}

RouteTarget::RouteTarget(Kiv::String::IteratorConst& it, Kiv::String::IteratorConst end) {
    Kiv::parseLiteral(it, end, kValueOpening);
    auto [next, ec] = std::from_chars(it, end, value_, 16);
    if (ec == std::errc::invalid_argument)
        throw Kiv::RangeError("expected the hex digits of a route target");
    if (ec != std::errc())
        throw Kiv::RangeError("route target value out of range");
    it = next;
    Kiv::parseLiteral(it, end, kValueClosing);
}

RouteTarget RouteTarget::strepToValue(Kiv::String const& text) {
    Kiv::String::IteratorConst it = text.begin();
    RouteTarget rt(it, text.end());
    if (it != text.end())
        throw Kiv::ParseError("unexpected text after " + std::string(typeName) + ": \"" +
                              std::string(it, text.end()) + "\"");
    return rt;
}

std::ostream& operator<<(std::ostream& os, RouteTarget rt) {
    return os << rt.valueToStrep();
}

}  // namespace Routing::Bgp
