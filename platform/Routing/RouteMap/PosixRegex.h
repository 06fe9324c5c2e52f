// Routing::RouteMap::PosixRegex: one regular expression of a route policy,
// compiled once, matched against the texts that community lists present.
//
// The dialect is POSIX extended regular expressions as libc implements them
// (regcomp with REG_EXTENDED | REG_NOSUB, regexec): the route-map language
// has always used libc's dialect, so an expression means on the router what
// it means in the operator's shell tools. A match may lie anywhere in the
// text unless the pattern anchors it with ^ and $.
//
// A pattern that does not compile raises Kiv::ParseError carrying regerror's
// text and the pattern. So does one that libc would take unbounded time or
// memory to compile or to match against a long text: a back-reference
// (\1, libc's extension, polynomial of high degree to match), a
// repetition applied directly to a repetition ("a**", "a{2}{3}"), a '*',
// '+' or bound applied to what can match the empty text ("(a*)+"), more
// than 1000 automaton nodes once libc has copied repeated expressions
// ("(a{1,50}){1,50}"), groups nested more than 100 deep, and, in a pattern
// with an unbounded repetition, more than 12 positions that accept many
// characters ('.', bracket expressions, "\\w"). Matching then takes time
// linear in the text's length (PosixRegex.cpp says how). A compiled
// expression is immutable: execute may run on any number of threads at
// once (regexec does not modify the regex_t).
#pragma once

#include <regex.h>

#include <string>

namespace Routing::RouteMap {

class PosixRegex {
  public:
    explicit PosixRegex(std::string const& pattern);
    ~PosixRegex();
    PosixRegex(PosixRegex const&) = delete;
    PosixRegex& operator=(PosixRegex const&) = delete;

    // 0 when `text` (NUL-terminated) matches, else regexec's REG_NOMATCH.
    int execute(char const* text) const;
    int execute(std::string const& text) const { return execute(text.c_str()); }

    std::string const& pattern() const { return pattern_; }

  private:
    std::string pattern_;
    regex_t regex_;
};

}  // namespace Routing::RouteMap
