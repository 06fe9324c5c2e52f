// One peer's Adj-RIB-In (RFC 4271 section 3.2): per prefix and path
// identifier, the interned community lists of the route (and, when a RIB
// dump is wanted, its attributes in TABLE_DUMP_V2 form, shared by the
// prefixes of one UPDATE).
//
// Contract: an announcement of a key already present replaces it (implicit
// withdrawal), releasing what the old route held; withdraw and clear release
// too, so an empty RIB holds no interned object. Not thread-safe: one peer's
// thread owns it.
#pragma once

#include <memory>
#include <unordered_map>

#include "bgpcomm/Ingest.h"
#include "bgpcomm/Mrt.h"
#include "bgpcomm/session/Message.h"

namespace Bgpcomm::Session {

struct RibRoute {
    RouteComms comms;
    std::shared_ptr<Octets const> attrs;  // null unless kept for a dump
    U32 originated = 0;
};

class AdjRibIn {
  public:
    struct Key {
        Prefix prefix;
        U32 pathId = 0;
        friend bool operator==(Key const&, Key const&) = default;
    };
    struct KeyHash {
        std::size_t operator()(Key const& k) const;
    };
    using Map = std::unordered_map<Key, RibRoute, KeyHash>;

    // False when it replaced a route (implicit withdrawal).
    bool announce(Nlri const& nlri, RibRoute route);
    // False when the route was not there.
    bool withdraw(Nlri const& nlri);
    void clear() { Map().swap(routes_); }
    std::size_t size() const { return routes_.size(); }
    Map const& routes() const { return routes_; }
    // Octets the map asks of operator new for one node: the next pointer,
    // the cached hash, key and value (libstdc++'s layout).
    static constexpr std::size_t nodeSize = 2 * sizeof(void*) + sizeof(Map::value_type);
    // The map's own heap: `nodeBlock` octets per node (what the allocator
    // really holds for nodeSize, which the caller can measure) and the
    // bucket array.
    U64 mapBytes(U64 nodeBlock) const;

  private:
    Map routes_;
};

// An UPDATE's path attributes as a TABLE_DUMP_V2 RIB entry holds them (RFC
// 6396 section 4.3.4): MP_REACH_NLRI / MP_UNREACH_NLRI left out, and for
// IPv6 routes an abbreviated MP_REACH_NLRI with the next hop alone.
Octets ribAttributes(Cursor raw, PathAttrs const& attrs, bool ipv6);

}  // namespace Bgpcomm::Session
