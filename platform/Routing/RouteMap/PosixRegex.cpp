#include "Routing/RouteMap/PosixRegex.h"

#include <cctype>
#include <cstddef>
#include <string_view>
#include <vector>

#include "Kiv/Errors.h"

namespace Routing::RouteMap {

namespace {

[[noreturn]] void refuse(std::string_view why, std::string const& pattern) {
    throw Kiv::ParseError(std::string(why) + " in regular expression '" + pattern + "'");
}

// Reads a bound "{m}", "{m,}" or "{m,n}" at `at` (on the '{'); the larger
// count it allows (m when unbounded), and `at` past it. False when the text
// is not a bound (regcomp then judges it).
bool readBound(std::string_view p, std::size_t& at, std::size_t* most) {
    std::size_t i = at + 1;
    auto number = [&](std::size_t* out) {
        std::size_t const start = i;
        for (*out = 0; i < p.size() && std::isdigit(static_cast<unsigned char>(p[i])); ++i)
            *out = *out * 10 + (*out < 100000 ? std::size_t(p[i] - '0') : 0);
        return i > start;
    };
    std::size_t low = 0, high = 0;
    if (!number(&low))
        return false;
    *most = low;
    if (i < p.size() && p[i] == ',') {
        ++i;
        if (number(&high))
            *most = high;
    }
    if (i >= p.size() || p[i] != '}')
        return false;
    at = i;
    return true;
}

// Where the bracket expression starting at `at` ends (on its ']'), or npos.
std::size_t bracketEnd(std::string_view p, std::size_t at) {
    std::size_t i = at + 1;
    if (i < p.size() && p[i] == '^')
        ++i;
    if (i < p.size() && p[i] == ']')
        ++i;
    for (; i < p.size(); ++i) {
        if (p[i] == ']')
            return i;
        if (p[i] == '[' && i + 1 < p.size() &&
            (p[i + 1] == ':' || p[i + 1] == '=' || p[i + 1] == '.')) {
            char const close[] = {p[i + 1], ']', '\0'};
            std::size_t const end = p.find(close, i + 2);
            if (end == std::string_view::npos)
                return end;
            i = end + 1;
        }
    }
    return std::string_view::npos;
}

// libc compiles a bounded or '+' repetition by copying the repeated
// expression, and copies copies when repetitions nest: "a++++++++++++++++++++"
// or "((a{1,100}){1,100}){1,100}" take seconds to minutes and unbounded
// memory to compile, a route-map pattern that stalls the agent. So patterns
// that repeat a repetition directly, or that expand to more than
// `maxElements` elements, are refused before regcomp sees them. The count
// follows the pattern's structure: every atom is one element, "x+" is x
// twice, "x{m,n}" is x n times (m when unbounded), a group is the sum of its
// alternatives.
constexpr std::size_t maxElements = 2000;
constexpr std::size_t maxDepth = 100;

void checkComplexity(std::string const& pattern) {
    std::string_view const p = pattern;
    struct Group {
        std::size_t size = 0;  // elements so far
        std::size_t last = 0;  // elements of the last atom, 0 when there is none
        bool lastRepeated = false;
    };
    std::vector<Group> groups(1);
    auto atom = [&](std::size_t size) {
        Group& g = groups.back();
        g.size += size;
        g.last = size;
        g.lastRepeated = false;
    };
    for (std::size_t at = 0; at < p.size(); ++at) {
        char const c = p[at];
        std::size_t most = 0;
        bool const repetition =
            c == '*' || c == '+' || c == '?' || (c == '{' && readBound(p, at, &most));
        if (repetition && groups.back().last != 0) {
            Group& g = groups.back();
            if (g.lastRepeated)
                refuse("repetition of a repetition", pattern);
            std::size_t const copies = c == '+' ? 2 : c == '{' ? (most == 0 ? 1 : most) : 1;
            g.size += g.last * (copies - 1);
            g.last *= copies;
            g.lastRepeated = true;
        } else if (c == '(') {
            // regcomp parses groups recursively: bound its depth too.
            if (groups.size() > maxDepth)
                refuse("groups nested deeper than " + std::to_string(maxDepth), pattern);
            groups.emplace_back();
        } else if (c == ')' && groups.size() > 1) {
            std::size_t const size = groups.back().size == 0 ? 1 : groups.back().size;
            groups.pop_back();
            atom(size);
        } else if (c == '|') {
            groups.back().last = 0;
            groups.back().lastRepeated = false;
        } else if (c == '[') {
            std::size_t const end = bracketEnd(p, at);
            if (end == std::string_view::npos)
                return;  // unterminated: regcomp refuses it
            at = end;
            atom(1);
        } else {
            at += c == '\\' ? 1 : 0;
            atom(1);
        }
        if (groups.back().size > maxElements)
            refuse("expands to more than " + std::to_string(maxElements) + " elements", pattern);
    }
}

}  // namespace

PosixRegex::PosixRegex(std::string const& pattern) : pattern_(pattern) {
    checkComplexity(pattern_);
    int const error = ::regcomp(&regex_, pattern_.c_str(), REG_EXTENDED | REG_NOSUB);
    if (error != 0) {
        char text[256];
        ::regerror(error, &regex_, text, sizeof text);
        // regcomp leaves nothing to free when it fails.
        throw Kiv::ParseError(std::string(text) + " in regular expression '" + pattern_ + "'");
    }
}

PosixRegex::~PosixRegex() {
    ::regfree(&regex_);
}

int PosixRegex::execute(char const* text) const {
    return ::regexec(&regex_, text, 0, nullptr, 0);
}

}  // namespace Routing::RouteMap
