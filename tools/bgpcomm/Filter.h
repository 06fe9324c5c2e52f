// Route filters of `bgpcomm mrt`, as bgpdump and bgpkit-parser users know
// them, plus community regular expressions.
//
//   --prefix P         the route's prefix is P; with --include-super also
//                      any prefix covering P, with --include-sub also any
//                      prefix inside P
//   --peer-ip A, --peer-asn N, --origin-asn N   (each may repeat: any of)
//   --type announce|withdraw   announce keeps RIB entries and announcements
//   --kind K --match REGEX     the list of kind K (standard, large, extended,
//                      ipv6; --kind applies to the --match options after it,
//                      standard before any) matches REGEX (POSIX extended);
//                      several --match must all match
//   --has, --has-any, --has-not, --has-meaning   bgpcomm/HasFilter.h
//
// Contract: the batch-level tests (peer, type) run before ingest, the prefix
// and origin tests per route, the community tests on the interned lists.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "bgpcomm/HasFilter.h"
#include "bgpcomm/Ingest.h"
#include "bgpcomm/Mrt.h"

namespace Bgpcomm {

enum class TypeFilter { any, announce, withdraw };

class RouteFilter {
  public:
    RouteFilter() = default;
    RouteFilter(RouteFilter&&) = default;
    RouteFilter& operator=(RouteFilter&&) = default;

    std::optional<Prefix> prefix;
    bool includeSuper = false;
    bool includeSub = false;
    std::vector<IpAddress> peerIps;
    std::vector<U32> peerAsns;
    std::vector<U32> originAsns;
    TypeFilter type = TypeFilter::any;

    // Compiles `pattern` once for the list of `kind`; the library's message
    // when it does not compile.
    std::optional<std::string> matchIs(CommKind kind, std::string const& pattern) {
        return comm.matchIs(kind, pattern);
    }
    bool hasMatches() const { return !comm.empty(); }
    // --match, --has and the rest, remembered per interned list.
    CommFilter comm;

    // No filter is set: every route read is kept (the fields above and the
    // community filters all empty).
    bool keepsEverything() const;
    bool passesBatch(RouteBatch const& batch) const;
    bool passesPrefix(Prefix const& prefix) const;
    // `hasOrigin` false: the route has no origin AS (never passes a filter).
    bool passesOrigin(bool hasOrigin, U32 origin) const;
    bool passesComms(RouteComms const& comms, Ingest const& ingest) const;
};

// "standard", "large", "extended", "ipv6"; false for anything else.
bool parseCommKind(std::string const& text, CommKind* out);

}  // namespace Bgpcomm
