#include "Kiv/ValueText.h"

#include <charconv>
#include <cstdint>

#include "Kiv/Errors.h"

namespace Kiv {

std::string pointerText(void const* p) {
    char buf[2 + 16];
    buf[0] = '0';
    buf[1] = 'x';
    auto [end, ec] =
        std::to_chars(buf + 2, buf + sizeof buf, reinterpret_cast<std::uintptr_t>(p), 16);
    (void)ec;
    return std::string(buf, end);
}

ValueFormatter::ValueFormatter(std::string_view typeName) {
    text_.reserve(64);
    text_ += "Value('";
    text_ += typeName;
    text_ += "', ** {";
}

ValueFormatter& ValueFormatter::attr(std::string_view name, std::string_view valueText) {
    if (!first_)
        text_ += ", ";
    first_ = false;
    text_ += '\'';
    text_ += name;
    text_ += "': ";
    text_ += valueText;
    return *this;
}

void parseLiteral(String::IteratorConst& it, String::IteratorConst end, std::string_view text) {
    std::string_view rest(it, static_cast<std::size_t>(end - it));
    if (rest.substr(0, text.size()) != text) {
        std::string seen(rest.substr(0, text.size() + 8));
        throw ParseError("expected \"" + std::string(text) + "\" but found \"" + seen + "\"");
    }
    it += text.size();
}

U64 parseUnsigned(String::IteratorConst& it, String::IteratorConst end) {
    U64 value = 0;
    auto [ptr, ec] = std::from_chars(it, end, value);
    if (ec == std::errc::invalid_argument)
        throw ParseError("expected an unsigned number");
    if (ec != std::errc())
        throw RangeError("number out of range");
    it = ptr;
    return value;
}

std::int64_t parseSigned(String::IteratorConst& it, String::IteratorConst end) {
    std::int64_t value = 0;
    auto [ptr, ec] = std::from_chars(it, end, value);
    if (ec == std::errc::invalid_argument)
        throw ParseError("expected a number");
    if (ec != std::errc())
        throw RangeError("number out of range");
    it = ptr;
    return value;
}

void const* parsePointer(String::IteratorConst& it, String::IteratorConst end) {
    if (end - it < 3 || it[0] != '0' || it[1] != 'x')
        throw RangeError("expected a pointer 0x...");
    std::uintptr_t value = 0;
    auto [ptr, ec] = std::from_chars(it + 2, end, value, 16);
    if (ec != std::errc())
        throw RangeError("pointer value out of range");
    it = ptr;
    return reinterpret_cast<void const*>(value);
}

ValueParser::ValueParser(IteratorConst& it, IteratorConst end, std::string_view typeName)
    : it_(it), end_(end) {
    literal("Value('");
    literal(typeName);
    literal("', ** {");
}

void ValueParser::literal(std::string_view text) {
    parseLiteral(it_, end_, text);
}

void ValueParser::attr(std::string_view name) {
    if (!first_)
        literal(", ");
    first_ = false;
    literal("'");
    literal(name);
    literal("': ");
}

void ValueParser::close() {
    literal("})");
}

bool ValueParser::readBool() {
    std::string_view rest(it_, static_cast<std::size_t>(end_ - it_));
    if (rest.starts_with("True")) {
        it_ += 4;
        return true;
    }
    if (rest.starts_with("False")) {
        it_ += 5;
        return false;
    }
    throw ParseError("expected True or False but found \"" + std::string(rest.substr(0, 8)) + "\"");
}

U64 ValueParser::readUnsigned() {
    return parseUnsigned(it_, end_);
}
std::int64_t ValueParser::readSigned() {
    return parseSigned(it_, end_);
}
void const* ValueParser::readPointer() {
    return parsePointer(it_, end_);
}

}  // namespace Kiv
