// --stats of `bgpcomm mrt`: what the run cost and how much the interning
// shared.
//
// With --stats the run keeps every matched route's interned communities
// alive, as a routing table would, so that the tables hold what a RIB of
// these routes would hold. The report then gives, per community kind, the
// attributes seen, distinct values and distinct lists among the kept routes
// (gathered by the threads that keep them, KeptTally) and routes per
// distinct list; the heap bytes the run holds beyond the kept-routes array
// and those tallies (counted by the tool's global operator new/delete when
// the executable provides them); peak memory (getrusage ru_maxrss); wall
// time and routes per second.
#pragma once

#include <cstdio>
#include <functional>
#include <memory>
#include <vector>

#include "bgpcomm/Ingest.h"
#include "bgpcomm/WordSet.h"

namespace Bgpcomm {

struct RunCounts {
    U64 files = 0;
    U64 records = 0;
    U64 routesRead = 0;
    U64 routesMatched = 0;
    U64 skipped = 0;
    U64 attributes[commKindCount] = {};
};

// Distinct interned lists among the routes one thread keeps (by identity),
// the distinct values they hold, and the routes that carry each kind. Each
// reading thread gathers its own as it keeps routes; the report merges them,
// and since lists are interned a list two threads kept is one address, so
// the merge is a union of address sets.
//
// A run that keeps every route it reads has every interned list in a kept
// route, and its kept routes hold no other: its threads count routes only,
// and the lists are taken from the tables once at the end (seeInterned),
// which spares every route a probe in a large set.
class KeptTally {
  public:
    struct Counts {
        U64 values = 0;
        U64 lists = 0;
        U64 routes = 0;  // kept routes that carry the kind
    };

    // `byRoute` false: see() counts routes only.
    explicit KeptTally(bool byRoute = true) : byRoute_(byRoute) {}

    // `routes` kept routes that carry `comms`.
    void see(RouteComms const& comms, U64 routes);
    // Every list of `kind` now interned in `ingest`'s tables.
    void seeInterned(Ingest const& ingest, CommKind kind);
    // Adds what `other` saw.
    void merge(KeptTally const& other);
    Counts counts(CommKind kind) const;
    // Heap the tally holds.
    std::size_t bytes() const;

    // Lists of one kind and how their members are counted: standard and
    // large ones by value, extended ones by the interned value's identity.
    template <class List, class Value>
    struct Kind {
        List const* last = nullptr;
        WordSet<List const*> lists;
        U64 interned = 0;  // lists taken from the tables (seeInterned)
        WordSet<Value> values;
        U64 routes = 0;
    };

  private:
    bool byRoute_;
    Kind<Routing::Bgp::CommList, U32> standard_;
    Kind<Routing::Bgp::LargeCommList, Acl::CommunityValue> large_;
    Kind<Routing::Bgp::ExtCommList, Routing::Bgp::ExtComm const*> extended_;
    Kind<Routing::Bgp::ExtCommIp6List, Routing::Bgp::ExtCommIp6 const*> ipv6_;
};

class Stats {
  public:
    // `liveHeapBytes` is null when no allocation counter is linked in.
    explicit Stats(std::function<U64()> liveHeapBytes);

    // Called once the tables exist and before any route is read.
    void start();
    // Whether the run keeps every route it reads (KeptTally), and the
    // threads it reads on (the report walks the tables on two when there
    // are); before the first newTally.
    void runIs(bool keepsEverything, unsigned threads) {
        keepsEverything_ = keepsEverything;
        threads_ = threads;
    }
    // One reading thread's tally (each thread asks once, before reading).
    KeptTally& newTally() {
        return *tallies_.emplace_back(std::make_unique<KeptTally>(!keepsEverything_));
    }
    // A kept route (its tally is the reading thread's business).
    void hold(RouteComms&& comms) {
        if (held_.empty())
            held_.emplace_back();
        held_.back().push_back(std::move(comms));
    }
    // Routes another thread kept, in input order: kept as they come, not
    // moved into one array (the reading thread has enough to do).
    void hold(std::vector<RouteComms>&& many) { held_.push_back(std::move(many)); }
    // Lets go of the kept routes (before the interning tables go).
    void release() { std::vector<std::vector<RouteComms>>().swap(held_); }
    // Called after the last route; `counts` is what the run counted.
    void print(std::FILE* out, RunCounts const& counts, Ingest const& ingest) const;
    void stop();

  private:
    std::function<U64()> liveHeapBytes_;
    std::vector<std::vector<RouteComms>> held_;
    std::vector<std::unique_ptr<KeptTally>> tallies_;
    bool keepsEverything_ = false;
    unsigned threads_ = 1;
    U64 heapAtStart_ = 0;
    U64 heapAtStop_ = 0;
    // The report's own bookkeeping at stop(), left out of the heap figure.
    U64 bookkeepingAtStop_ = 0;
    double startSeconds_ = 0;
    double seconds_ = 0;
};

// Seconds on a monotonic clock.
double monotonicSeconds();

}  // namespace Bgpcomm
