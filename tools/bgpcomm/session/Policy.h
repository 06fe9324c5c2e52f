// The replayer's community policy, done through the library: a route's
// interned lists, with the communities whose text matches a --strip
// expression removed and the --add values added, interned again through
// the same Ingest (internReceived from the values' wire octets).
//
//   --kind K --strip REGEX   K: standard, large, extended, ipv6; the text is
//                            each community's show form (Ingest::forEachText)
//   --add VALUE              "a:b" standard, "a:b:c" large, 0x and 16 hex
//                            digits extended, 0x and 40 hex digits IPv6
//                            extended
//
// Contract: a list left empty becomes no list (no attribute is sent).
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Routing/RouteMap/PosixRegex.h"
#include "bgpcomm/Ingest.h"

namespace Bgpcomm::Session {

class CommPolicy {
  public:
    // The library's message when the expression does not compile.
    std::optional<std::string> stripIs(CommKind kind, std::string const& pattern);
    // A message when the text is none of the forms above.
    std::optional<std::string> addIs(std::string const& text);

    void apply(Ingest& ingest, RouteComms const& in, RouteComms* out) const;

  private:
    struct Strip {
        Strip(CommKind kind, std::string const& pattern) : kind(kind), regex(pattern) {}
        CommKind kind;
        Routing::RouteMap::PosixRegex regex;
    };
    std::vector<std::unique_ptr<Strip>> strips_;
    // Wire octets of the values to add, per kind.
    std::vector<U8> adds_[commKindCount];
};

}  // namespace Bgpcomm::Session
