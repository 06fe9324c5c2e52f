// The community filters of `bgpcomm mrt`, each evaluated once per distinct
// interned list:
//
//   --match REGEX (per --kind)   the library's own matching of the list
//   --has VALUE                  the route carries VALUE; "A|B": A or B;
//                                repeatable, all must hold
//   --has-any VALUE              one group: at least one of all --has-any
//   --has-not VALUE              none of them
//   --has-meaning REGEX          some community's note (well-known name or
//                                dictionary description) matches REGEX
//                                (POSIX extended, case-insensitive)
//
// A VALUE is a well-known name (the library's, like no-export, or the IANA
// registry's, like BLACKHOLE; case-insensitive, '-' and '_' alike), a
// pattern a:b, a:b:c, rt a:b, soo a:b with positional wildcards
// (bgpcomm/CommPattern.h: '*' or nnn any value, x one digit, a-b a range),
// an extended community's text in any form the tool prints or route policy
// sees (Route-Target-AS:65000:100, RT:65000:100; '*' any run without ':'),
// or one extended value in hex (0x0002fde800000064).
//
// Memo: the answer of every term for one list is kept in a hash table keyed
// by the list's address (open addressing, one array per kind), and the memo
// holds a reference to the list so the address cannot be reused by another
// list while the entry lives. A route
// costs one lookup per kind; the terms run once per distinct list (counted by
// evaluations()). Thread-safe: the memo is behind a mutex, unless the one
// thread that uses the filter says it is alone (oneThreadIs), which spares
// every route the lock.
#pragma once

#include <regex.h>

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "Routing/RouteMap/PosixRegex.h"
#include "bgpcomm/CommPattern.h"
#include "bgpcomm/Ingest.h"
#include "bgpcomm/Notes.h"

namespace Bgpcomm {

enum class HasGroup { all, any, none };

class CommFilter {
  public:
    CommFilter();
    ~CommFilter();
    CommFilter(CommFilter&&) noexcept;
    CommFilter& operator=(CommFilter&&) noexcept;

    // Each returns the problem when the argument does not read.
    std::optional<std::string> matchIs(CommKind kind, std::string const& pattern);
    std::optional<std::string> hasIs(HasGroup group, std::string const& values);
    std::optional<std::string> meaningIs(std::string const& pattern);
    // The notes --has-meaning reads; set before the first route.
    void notesIs(Notes const* notes) { notes_ = notes; }
    // Only one thread calls passes(): the memo needs no lock.
    void oneThreadIs(bool oneThread) { oneThread_ = oneThread; }

    bool empty() const { return terms_.empty(); }
    bool needsNotes() const;
    bool passes(RouteComms const& comms, Ingest const& ingest) const;

    // Lists evaluated so far (one per distinct list and kind).
    U64 evaluations() const { return evaluations_; }

  private:
    struct Term;
    template <class Ptr>
    U64 bitsOf(Ptr const& list, CommKind kind, RouteComms const& comms, Ingest const& ingest) const;
    U64 evaluate(RouteComms const& one, CommKind kind, Ingest const& ingest) const;

    std::vector<std::unique_ptr<Term>> terms_;
    U64 allMask_ = 0;
    U64 anyMask_ = 0;
    U64 noneMask_ = 0;
    unsigned kinds_ = 0;  // bit per CommKind some term looks at
    Notes const* notes_ = nullptr;
    bool oneThread_ = false;

    struct Memo;
    std::unique_ptr<Memo> memo_;
    mutable U64 evaluations_ = 0;
};

// A --match pattern that no pass of the list's matching can ever match
// (a show-only form, '_' anchoring, a name the library does not know):
// the warning text, else nothing.
std::optional<std::string> matchWarning(CommKind kind, std::string const& pattern);

}  // namespace Bgpcomm
