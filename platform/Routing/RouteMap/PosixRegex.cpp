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

// A bound "{m}", "{m,}", "{m,n}", "{,n}" or "{,}" (libc reads a missing m
// as 0): its counts, `unbounded` for a missing n.
struct Bound {
    std::size_t least = 0, most = 0;
    bool unbounded = false;
};

// Reads the bound at `at` (on the '{') and moves `at` onto its '}'. False
// when the text is not a bound (regcomp then judges it).
bool readBound(std::string_view p, std::size_t& at, Bound* bound) {
    std::size_t i = at + 1;
    auto number = [&](std::size_t* out) {
        std::size_t const start = i;
        for (*out = 0; i < p.size() && std::isdigit(static_cast<unsigned char>(p[i])); ++i)
            *out = *out * 10 + (*out < 100000 ? std::size_t(p[i] - '0') : 0);
        return i > start;
    };
    bool const hasLeast = number(&bound->least);
    bound->most = bound->least;
    bound->unbounded = false;
    if (i < p.size() && p[i] == ',') {
        ++i;
        bound->unbounded = !number(&bound->most);
    } else if (!hasLeast) {
        return false;
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

// Compile cost. libc builds one automaton node per atom, per '|' and per
// repetition, and compiles a repetition by copying what it repeats: "x*"
// and "x?" are x and one node, "x{m,}" (so "x+") m + 1 copies of x and
// one node, "x{m,n}" n copies and a node for each of the n - m optional
// ones; nested repetitions copy copies. So the nodes are counted as libc
// makes them and patterns of more than `maxNodes` are refused. Where what
// is repeated can match the empty text, libc follows every path that reads
// no character between the copies, and carries anchors ('^', "\<") along
// each: "(((((a)*)*)*)...)+" nested 21 deep took 6.5 s and 1.7 GB to
// compile, "^(((((a*)+)+)+)+)+" (95 nodes) minutes. Such repetitions add
// nothing ("(a*)+" is "a*"), so '*', '+' and bounds applied to what can
// match the empty text are refused ('?' makes no loop and stays), as are
// a repetition applied directly to a repetition ("a**", "a{2}{3}") and
// groups nested deeper than `maxDepth` (regcomp parses them recursively).
constexpr std::size_t maxNodes = 1000;
constexpr std::size_t maxDepth = 100;

// Match cost. libc's search restarts its automaton at every position of
// the text, and an unbounded repetition keeps it running to the end of the
// text from each of them: "6.*x" takes time quadratic in the text's length
// where no x follows. Patterns with an unbounded repetition are therefore
// executed as "^.*(pattern)", which matches the same texts in one pass;
// that pass tracks the pattern's positions in subsets, and positions that
// accept many characters ('.', bracket expressions, class escapes) can
// each be live or not at once, so such a pattern may hold at most
// `maxWideNodes` of them (else "6.{50}x.*" would take minutes). A pattern
// without unbounded repetition keeps libc's search: every restart then
// stops within the pattern's longest match, at most `maxNodes` characters.
constexpr std::size_t maxWideNodes = 12;

struct Plan {
    bool singlePass = false;
    std::string wrapped;  // the single-pass form
};

Plan plan(std::string const& pattern) {
    std::string_view const p = pattern;
    struct Count {
        std::size_t nodes = 0, wide = 0;
        bool empty = false;  // matches the empty text
    };
    struct Group {
        Count size;  // so far
        Count last;  // the last atom; nodes 0 when there is none
        bool lastRepeated = false;
        // Whether the alternative so far, before its last atom, and an
        // earlier alternative match the empty text.
        bool altEmpty = true, altEmptyBeforeLast = true, someAltEmpty = false;
    };
    std::vector<Group> groups(1);
    Plan result;
    bool unbounded = false;
    auto atom = [&](Count size) {
        Group& g = groups.back();
        g.size.nodes += size.nodes;
        g.size.wide += size.wide;
        g.last = size;
        g.lastRepeated = false;
        g.altEmptyBeforeLast = g.altEmpty;
        g.altEmpty = g.altEmpty && size.empty;
    };
    for (std::size_t at = 0; at < p.size(); ++at) {
        char const c = p[at];
        std::size_t const from = at;
        Bound bound;
        if (c == '*' || c == '?')
            bound = {0, 1, c == '*'};
        else if (c == '+')
            bound = {1, 1, true};
        bool const repetition =
            c == '*' || c == '+' || c == '?' || (c == '{' && readBound(p, at, &bound));
        if (repetition && groups.back().last.nodes != 0) {
            Group& g = groups.back();
            if (g.lastRepeated)
                refuse("repetition of a repetition", pattern);
            // Copies of the operand, and the nodes that join them.
            std::size_t copies = 0, joints = 0;
            if (bound.unbounded) {
                copies = bound.least + 1;
                joints = 1;
                unbounded = true;
            } else {
                copies = bound.most < bound.least ? bound.least : bound.most;
                joints = copies - bound.least;
            }
            if (g.last.empty && (copies > 1 || bound.unbounded))
                refuse("repetition of what matches the empty text", pattern);
            Count const added{g.last.nodes * copies + joints, g.last.wide * copies,
                              g.last.empty || bound.least == 0};
            g.altEmpty = g.altEmptyBeforeLast && added.empty;
            g.size.nodes += added.nodes - g.last.nodes;
            g.size.wide += added.wide - g.last.wide;
            g.last = added;
            g.lastRepeated = true;
        } else if (c == '(') {
            if (groups.size() > maxDepth)
                refuse("groups nested deeper than " + std::to_string(maxDepth), pattern);
            groups.emplace_back();
        } else if (c == ')' && groups.size() > 1) {
            Count size = groups.back().size;
            size.nodes = size.nodes == 0 ? 1 : size.nodes;
            size.empty = groups.back().altEmpty || groups.back().someAltEmpty;
            groups.pop_back();
            atom(size);
        } else if (c == ')') {
            // Unmatched: libc reads it as the character, so must the
            // single-pass form, which adds a group around the pattern.
            result.wrapped += '\\';
            atom({1, 0, false});
        } else if (c == '|') {
            Group& g = groups.back();
            g.size.nodes += 1;
            g.last = {};
            g.lastRepeated = false;
            g.someAltEmpty = g.someAltEmpty || g.altEmpty;
            g.altEmpty = g.altEmptyBeforeLast = true;
        } else if (c == '[') {
            std::size_t const end = bracketEnd(p, at);
            if (end == std::string_view::npos)
                return {};  // unterminated: regcomp refuses it
            at = end;
            atom({1, 1, false});
        } else if (c == '\\' && at + 1 < p.size()) {
            char const escaped = p[++at];
            // "\1" to "\9" refer back to a group's match: a libc extension
            // to the extended syntax whose matching takes time polynomial
            // of high degree in the text's length ("(.*)(.*)\2\1").
            if (escaped >= '1' && escaped <= '9')
                refuse("back-reference", pattern);
            bool const wide = std::string_view("wWsS").find(escaped) != std::string_view::npos;
            // GNU anchors: word boundaries, start and end of the text.
            bool const anchor = std::string_view("<>bB`'").find(escaped) != std::string_view::npos;
            atom({1, wide ? 1u : 0u, anchor});
        } else {
            atom({1, c == '.' ? 1u : 0u, c == '^' || c == '$'});
        }
        result.wrapped.append(p.substr(from, at + 1 - from));
        if (groups.back().size.nodes > maxNodes)
            refuse("expands to more than " + std::to_string(maxNodes) + " automaton nodes",
                   pattern);
    }
    if (unbounded) {
        std::size_t wide = 0;
        for (Group const& g : groups)
            wide += g.size.wide;
        if (wide > maxWideNodes)
            refuse("more than " + std::to_string(maxWideNodes) +
                       " wide positions ('.', brackets, classes) with an unbounded repetition",
                   pattern);
        result.singlePass = true;
        result.wrapped = "^.*(" + result.wrapped + ")";
    }
    return result;
}

void compile(regex_t* regex, std::string const& pattern, std::string const& shown) {
    int const error = ::regcomp(regex, pattern.c_str(), REG_EXTENDED | REG_NOSUB);
    if (error != 0) {
        char text[256];
        ::regerror(error, regex, text, sizeof text);
        // regcomp leaves nothing to free when it fails.
        throw Kiv::ParseError(std::string(text) + " in regular expression '" + shown + "'");
    }
}

}  // namespace

PosixRegex::PosixRegex(std::string const& pattern) : pattern_(pattern) {
    Plan const how = plan(pattern_);
    // The pattern itself is compiled first, so that errors name what the
    // operator wrote.
    compile(&regex_, pattern_, pattern_);
    if (how.singlePass) {
        ::regfree(&regex_);
        compile(&regex_, how.wrapped, pattern_);
    }
}

PosixRegex::~PosixRegex() {
    ::regfree(&regex_);
}

int PosixRegex::execute(char const* text) const {
    return ::regexec(&regex_, text, 0, nullptr, 0);
}

}  // namespace Routing::RouteMap
