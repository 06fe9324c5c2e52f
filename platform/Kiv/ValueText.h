// The framework text form of value types:
//
//   Value('<full type name>', ** {'<attr>': <value>, '<attr>': <value>})
//
// One printer and one parser serve every value type, so the punctuation is
// written in one place. Booleans are True/False, pointers 0x<hex>.
//
//   ValueFormatter f("Routing::Bgp::X");
//   f.attr("flag", boolText(b)).attr("count", std::to_string(n));
//   std::string text = f.str();
//
//   ValueParser p(it, end, "Routing::Bgp::X");   // reads the opening
//   p.attr("flag");  bool b = p.readBool();
//   p.attr("count"); U64 n = p.readUnsigned();
//   p.close();                                   // reads "})"
//
// A missing literal raises Kiv::ParseError naming what was expected and where;
// a number or pointer that cannot be read raises Kiv::RangeError.
#pragma once

#include <string>
#include <string_view>

#include "Kiv/String.h"
#include "Kiv/Types.h"

namespace Kiv {

inline char const* boolText(bool value) {
    return value ? "True" : "False";
}

// The value of one hexadecimal digit (either case), -1 for any other character.
constexpr int hexDigitValue(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// Text form of a raw object pointer: "0x" and lower-case hex digits.
std::string pointerText(void const* p);

class ValueFormatter {
  public:
    explicit ValueFormatter(std::string_view typeName);
    ValueFormatter& attr(std::string_view name, std::string_view valueText);
    std::string str() const { return text_ + "})"; }

  private:
    std::string text_;
    bool first_ = true;
};

class ValueParser {
  public:
    using IteratorConst = String::IteratorConst;

    // Reads "Value('<typeName>', ** {" at `it`.
    ValueParser(IteratorConst& it, IteratorConst end, std::string_view typeName);

    // Reads "'<name>': " (preceded by ", " for all but the first attribute).
    void attr(std::string_view name);
    // Reads "})".
    void close();

    bool readBool();
    U64 readUnsigned();
    std::int64_t readSigned();
    void const* readPointer();
    // Reads `text` exactly.
    void literal(std::string_view text);

    IteratorConst& position() { return it_; }
    IteratorConst end() const { return end_; }

  private:
    IteratorConst& it_;
    IteratorConst end_;
    bool first_ = true;
};

// Free helpers for parsers outside the Value(...) shape.
void parseLiteral(String::IteratorConst& it, String::IteratorConst end, std::string_view text);
U64 parseUnsigned(String::IteratorConst& it, String::IteratorConst end);
std::int64_t parseSigned(String::IteratorConst& it, String::IteratorConst end);
void const* parsePointer(String::IteratorConst& it, String::IteratorConst end);

}  // namespace Kiv
