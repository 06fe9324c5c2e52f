#include "Kiv/Enum.h"

#include <charconv>

#include "Kiv/Errors.h"

namespace Kiv::EnumDetail {

std::string numberText(U64 value) {
    return std::to_string(value);
}

void throwUnknownName(std::string_view typeName, std::string_view word) {
    throw RangeError("unknown " + std::string(typeName) + " member '" + std::string(word) + "'");
}

void throwTooWide(std::string_view typeName, U64 value) {
    throw RangeError(std::to_string(value) + " does not fit " + std::string(typeName));
}

std::string_view readWord(char const*& it, char const* end, std::string_view typeName) {
    char const* start = it;
    while (it != end && ((*it >= 'a' && *it <= 'z') || (*it >= 'A' && *it <= 'Z') ||
                         (*it >= '0' && *it <= '9') || *it == '_'))
        ++it;
    if (it == start)
        throw ParseError("expected a " + std::string(typeName) + " member name");
    return std::string_view(start, static_cast<std::size_t>(it - start));
}

bool isNumber(std::string_view word) {
    for (char c : word)
        if (c < '0' || c > '9')
            return false;
    return !word.empty();
}

U64 parseNumber(std::string_view word, std::string_view typeName) {
    U64 value = 0;
    auto [ptr, ec] = std::from_chars(word.data(), word.data() + word.size(), value);
    if (ec != std::errc() || ptr != word.data() + word.size())
        throw RangeError(std::string(word) + " does not fit " + std::string(typeName));
    return value;
}

}  // namespace Kiv::EnumDetail
