// --stats of `bgpcomm mrt`: what the run cost and how much the interning
// shared.
//
// With --stats the run keeps every matched route's interned communities
// alive, as a routing table would, so that the tables hold what a RIB of
// these routes would hold. The report then gives, per community kind, the
// attributes seen, distinct values and distinct lists among the kept routes
// and routes per distinct list; the heap bytes the run holds beyond the
// kept-routes array (counted by the tool's global operator new/delete when
// the executable provides them); peak memory (getrusage ru_maxrss); wall
// time and routes per second.
#pragma once

#include <cstdio>
#include <functional>
#include <vector>

#include "bgpcomm/Ingest.h"

namespace Bgpcomm {

struct RunCounts {
    U64 files = 0;
    U64 records = 0;
    U64 routesRead = 0;
    U64 routesMatched = 0;
    U64 skipped = 0;
    U64 attributes[commKindCount] = {};
};

class Stats {
  public:
    // `liveHeapBytes` is null when no allocation counter is linked in.
    explicit Stats(std::function<U64()> liveHeapBytes);

    // Called once the tables exist and before any route is read.
    void start();
    void hold(RouteComms const& comms) {
        if (held_.empty())
            held_.emplace_back();
        held_.back().push_back(comms);
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
    U64 heapAtStart_ = 0;
    U64 heapAtStop_ = 0;
    double startSeconds_ = 0;
    double seconds_ = 0;
};

// Seconds on a monotonic clock.
double monotonicSeconds();

}  // namespace Bgpcomm
