// Whole-table ingest: every route of a `bgpcomm synth` RIB handed to the
// library the way a BGP agent receives it. Each community attribute kind
// (COMMUNITIES type 8, LARGE_COMMUNITY type 32, EXTENDED COMMUNITIES type 16,
// IPV6 ADDRESS SPECIFIC EXTENDED COMMUNITY type 25) has its value octets laid
// out in one buffer in route order, as read from a socket; the routes keep
// the interned objects they get back, as an agent's RIB does.
//
// Measured (per_route: time per route; per kind, per route carrying it):
//   ingest/<kind>/first   fresh tables, every route interned once
//   ingest/<kind>/again   every list already interned and held by its route;
//                         each route's attribute is interned again and the
//                         result replaces what the route holds, through the
//                         list's internReceivedInto where the library has
//                         it (the held list found equal stays: no lookup)
//   ingest/<kind>/againAssign
//                         the same, each list interned by internReceived
//                         (a table lookup) and assigned to the route
//   ingest/<kind>/release every list interned, then each list's last
//                         reference dropped (per list: the removal from its
//                         tables and whatever it alone held)
//   ingest/<kind>/drop    every carrying route's reference dropped in route
//                         order (per carrying route)
//   ingestThreads/...     the whole table into one thread-safe table set, by
//                         one thread, or by two threads on disjoint halves
//                         (wall time; compare threads:1 with threads:2);
//                         cache:1 through per-thread caches (IngestCaches.h),
//                         assign:1 interned and assigned (againAssign)
// `threadSafe` chooses plain or thread-safe tables (VoBgpGlobals::
// multiThreaded, read when a table is created).
//
// Memory (B_per_route, B_per_list): the growth of glibc's mallinfo2()
// uordblks + hblkhd (heap and mmapped chunks in use, each chunk's header and
// rounding included) from before the tables are created to after the first
// ingest: every interned object, its allocation overhead and the tables, not
// the routes' own array nor the input buffers (both allocated before).
// The size-class arena's chunks count by the blocks in use in them (an
// earlier run's freed blocks wait there). For standard and large lists,
// B_payload, B_arena and B_malloc split a list's block (see blockCounters).
//
// Checks that the work is real: on the first pass every carrying route gets
// a new object; on every later pass every route gets back exactly the object
// it holds. Otherwise the benchmark reports an error.
//
// Routes: 1,000,000 by default; `--routes=N` or VOBGP_INGEST_ROUTES=N for
// fewer. The table is the default mix of `bgpcomm synth --seed 1`.
//
// Each kind goes through its list's internReceived. Built with
// INGEST_EXTENDED_VALUES_ONLY for libraries that predate it and the interned
// extended community lists: standard and large lists are then built as
// private lists and deduped, extended communities are interned value by
// value and each route keeps a sorted vector of them; IPv6-specific ones
// cannot be interned there, and a table carrying them is refused.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <type_traits>
#include <unordered_set>
#include <vector>

#include "IngestCaches.h"
#include "IngestInterner.h"
#include "IngestMemory.h"

namespace {

using namespace Routing::Bgp;
using namespace IngestBench;

template <class T>
bool sameObjects(Kiv::Ptr<T> const& a, Kiv::Ptr<T> const& b) {
    return a.ptr() == b.ptr();
}
[[maybe_unused]] bool sameObjects(std::vector<ExtComm::PtrConst> const& a,
                                  std::vector<ExtComm::PtrConst> const& b) {
    return a == b;
}
[[maybe_unused]] bool sameObjects(Ip6Held const&, Ip6Held const&) {
    return true;
}

// Kind number to the adapter's function and the route's member, both named
// after the kind.
template <unsigned Kind>
struct KindOps;
#define INGEST_KIND(number, name)                                                                  \
    template <>                                                                                    \
    struct KindOps<number> {                                                                       \
        static auto intern(Interner const& in, U8 const* p, U32 size) { return in.name(p, size); } \
        static auto& held(Route& route) { return route.name; }                                     \
        static void into(auto const& in, auto& held, U8 const* p, U32 size) {                      \
            in.name##Into(held, p, size);                                                          \
        }                                                                                          \
    };
INGEST_KIND(0, standard)
INGEST_KIND(1, large)
INGEST_KIND(2, extended)
INGEST_KIND(3, ipv6)
#undef INGEST_KIND

// How a route's attribute replaces what the route holds: through the
// list's replacing entry point (internReceivedInto) where the library has
// one; interned, then assigned; or through per-thread caches (IngestCaches.h,
// the previous object given back to them).
enum class Path { replace, assign, cache };

// Interns one route's attribute of Kind, `size` octets at cursor[Kind];
// counts the routes whose object changed (all carrying ones on a first pass,
// none on a later one).
template <Path path, unsigned Kind>
void step(Interner const& in, Caches* caches, U32 size, Route& route, U8 const** cursor,
          std::size_t* changed) {
    if (size == absent)
        return;
    auto& held = KindOps<Kind>::held(route);
#ifndef INGEST_EXTENDED_VALUES_ONLY
    if constexpr (path == Path::replace) {
        auto const* const before = held.ptr();
        KindOps<Kind>::into(in, held, cursor[Kind], size);
        cursor[Kind] += size;
        *changed += held.ptr() != before;
        return;
    }
#endif
    using Held = decltype(KindOps<Kind>::intern(in, cursor[Kind], size));
    Held fresh = [&] {
        if constexpr (path == Path::cache)
            return caches->template intern<Kind, Held>(cursor[Kind], size);
        else
            return KindOps<Kind>::intern(in, cursor[Kind], size);
    }();
    cursor[Kind] += size;
    if (!sameObjects(fresh, held))
        ++*changed;
    if constexpr (path == Path::cache)
        caches->template giveBack<Kind>(held);
    held = std::move(fresh);
}

// The loop over a range of routes, one per path: a loop holds no other
// path's code and reads the attribute lengths from arrays looked up once,
// so that the same loop runs against any library (with the per-thread cache
// or without): a kind that one route in ten carries (large lists) pays ten
// routes' loop per route it interns.
template <Path path, unsigned... Kinds>
std::size_t ingestKinds(Interner const& in, Route* routes, Range const& range, Caches* caches) {
    U8 const* cursor[kindCount];
    U32 const* sizes[kindCount];
    for (unsigned kind = 0; kind < kindCount; ++kind) {
        cursor[kind] = table().octets[kind].data() + range.offset[kind];
        sizes[kind] = table().sizes[kind].data();
    }
    std::size_t changed = 0;
    for (std::size_t i = range.begin; i < range.end; ++i)
        (step<path, Kinds>(in, caches, sizes[Kinds][i], routes[i], cursor, &changed), ...);
    return changed;
}

std::size_t ingest(unsigned kind, Interner const& in, Route* routes, Range const& range,
                   Path path) {
    std::unique_ptr<Caches> caches = path == Path::cache ? std::make_unique<Caches>(in) : nullptr;
    // Path and kind number to its loop; allKinds for the whole route.
    using Loop = std::size_t (*)(Interner const&, Route*, Range const&, Caches*);
#define INGEST_LOOPS_(p)                                                            \
    {                                                                               \
        ingestKinds<p, 0>, ingestKinds<p, 1>, ingestKinds<p, 2>, ingestKinds<p, 3>, \
            ingestKinds<p, 0, 1, 2, 3>                                              \
    }
    static constexpr Loop loops[3][kindCount + 1] = {
        INGEST_LOOPS_(Path::replace), INGEST_LOOPS_(Path::assign), INGEST_LOOPS_(Path::cache)};
#undef INGEST_LOOPS_
    return loops[static_cast<int>(path)][std::min(kind, allKinds)](in, routes, range, caches.get());
}

// The halves of the table, one per thread; the first runs on the caller's.
std::size_t ingestSplit(unsigned kind, Interner const& in, Route* routes,
                        std::vector<Range> const& ranges, Path path) {
    std::vector<std::size_t> changed(ranges.size());
    std::vector<std::thread> threads;
    for (std::size_t t = 1; t < ranges.size(); ++t)
        threads.emplace_back([&, t] { changed[t] = ingest(kind, in, routes, ranges[t], path); });
    changed[0] = ingest(kind, in, routes, ranges[0], path);
    for (auto& thread : threads)
        thread.join();
    std::size_t total = 0;
    for (std::size_t c : changed)
        total += c;
    return total;
}

// One run's interned state: tables and the routes holding their objects.
// Routes go before the tables that hold their objects.
struct State {
    std::unique_ptr<Interner> interner;
    std::vector<Route> routes;
    ~State() {
        routes.clear();
        interner.reset();
    }
    void reset(bool threadSafe) {
        routes.clear();
        interner.reset();
        routes.resize(table().routes);
        interner = std::make_unique<Interner>(threadSafe);
    }
};

void ingestBench(benchmark::State& bench, unsigned kind, bool again, bool threadSafe,
                 unsigned threads, Path path) {
    std::vector<Range> ranges;
    for (unsigned t = 0; t < threads; ++t)
        ranges.push_back(rangeOf(table().routes * t / threads, table().routes * (t + 1) / threads));
    std::size_t const carrying = carryingRoutes(kind);
    // Objects a first pass hands out: one per carrying route and kind.
    std::size_t objects = 0;
    for (unsigned k = 0; k < kindCount; ++k)
        if (kind == allKinds || kind == k)
            objects += table().carrying[k];

    // The first pass, counted by the allocator.
    State state;
    state.routes.resize(table().routes);
    std::size_t const heapBefore = heapInUse();
    state.interner = std::make_unique<Interner>(threadSafe);
    std::size_t const firstChanged =
        ingestSplit(kind, *state.interner, state.routes.data(), ranges, path);
    std::size_t const bytes = heapInUse() - heapBefore;
    if (firstChanged != objects)
        bench.SkipWithError("the first pass did not give every carrying route a new object");
    std::size_t interned = 0;
    for (unsigned k = 0; k < kindCount; ++k)
        if (kind == allKinds || kind == k)
            interned += state.interner->interned(k);

    for (auto _ : bench) {
        if (!again) {
            bench.PauseTiming();
            state.reset(threadSafe);
            bench.ResumeTiming();
        }
        std::size_t const changed =
            ingestSplit(kind, *state.interner, state.routes.data(), ranges, path);
        if (changed != (again ? 0 : objects)) {
            bench.SkipWithError(again ? "a later pass found other objects than the routes hold"
                                      : "the first pass did not give every route a new object");
            break;
        }
    }

    using Counter = benchmark::Counter;
    // Seconds per (carrying) route: printed as "354ns".
    bench.counters["per_route"] =
        Counter(double(carrying), Counter::kIsIterationInvariantRate | Counter::kInvert);
    bench.counters["routes"] = double(carrying);
    bench.counters["B_per_route"] = double(bytes) / double(carrying);
    bench.counters["interned"] = double(interned);
    if (kind != allKinds)
        bench.counters["B_per_list"] = double(bytes) / double(interned);
#if __has_include("Vok/SizeClassArena.h")
    if (kind <= 1)
        blockCounters(bench, state.interner->listTable(kind), kind);
#endif
    bench.SetLabel(std::string(kindNames[kind]) + (threadSafe ? ", thread-safe" : ", plain"));
}

// The references of Kind that the routes hold, moved out in route order;
// with `distinct`, only the first of each object, the others dropped. Not
// inlined, so that profiles tell this untimed work from the timed release.
template <unsigned Kind, class Held>
[[gnu::noinline]] std::vector<Held> takeReferences(std::vector<Route>& routes, bool distinct) {
    std::vector<Held> taken;
    std::unordered_set<void const*> seen;
    for (Route& route : routes) {
        Held& held = KindOps<Kind>::held(route);
        if (held && (!distinct || seen.insert(held.ptr()).second))
            taken.push_back(std::move(held));
        held = nullptr;
    }
    return taken;
}

// The timed release, apart for profilers (callgrind --toggle-collect).
template <class Held>
[[gnu::noinline]] void dropAll(std::vector<Held>& references) {
    references.clear();
}

// ingest/<kind>/release: every list of the kind interned and its holders'
// references but one dropped (untimed), then the last reference of each list
// dropped, which takes the list out of its tables and frees it and whatever
// it alone held (timed, per list). ingest/<kind>/drop: every carrying
// route's reference dropped in route order (timed, per carrying route):
// mostly plain decrements, each list's last release among them.
template <unsigned Kind>
void releaseBench(benchmark::State& bench, bool threadSafe, bool drop) {
    using Held = std::remove_reference_t<decltype(KindOps<Kind>::held(std::declval<Route&>()))>;
    if constexpr (requires(Held h) { h.ptr(); }) {
        State state;
        std::size_t lists = 0;
        for (auto _ : bench) {
            bench.PauseTiming();
            state.reset(threadSafe);
            ingestKinds<Path::replace, Kind>(*state.interner, state.routes.data(),
                                             rangeOf(0, table().routes), nullptr);
            lists = state.interner->interned(Kind);
            std::vector<Held> references = takeReferences<Kind, Held>(state.routes, !drop);
            if (references.size() != (drop ? table().carrying[Kind] : lists))
                bench.SkipWithError("the routes hold other lists than the table");
            bench.ResumeTiming();
            dropAll(references);
            bench.PauseTiming();
            std::vector<Held>().swap(references);  // its array freed untimed
            if (state.interner->interned(Kind) != 0)
                bench.SkipWithError("a list stayed in its table after its last release");
            bench.ResumeTiming();
        }
        using Counter = benchmark::Counter;
        double const count = drop ? double(table().carrying[Kind]) : double(lists);
        bench.counters[drop ? "per_route" : "per_list"] =
            Counter(count, Counter::kIsIterationInvariantRate | Counter::kInvert);
        bench.counters["interned"] = double(lists);
        bench.SetLabel(std::string(kindNames[Kind]) + (threadSafe ? ", thread-safe" : ", plain"));
    }
}

void releaseBenchOf(benchmark::State& bench, unsigned kind, bool threadSafe, bool drop) {
    using Run = void (*)(benchmark::State&, bool, bool);
    static constexpr Run runs[] = {releaseBench<0>, releaseBench<1>, releaseBench<2>,
                                   releaseBench<3>};
    runs[kind](bench, threadSafe, drop);
}

}  // namespace

int main(int argc, char** argv) {
    U64 const routes = routesWanted(&argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv) || routes == 0)
        return 1;
    loadTable(routes);

    benchmark::AddCustomContext("routes", std::to_string(table().routes));
    for (unsigned kind = 0; kind < kindCount; ++kind)
        benchmark::AddCustomContext(std::string("carrying ") + kindNames[kind],
                                    std::to_string(table().carrying[kind]));
    benchmark::AddCustomContext("nproc", std::to_string(std::thread::hardware_concurrency()));
    benchmark::AddCustomContext("loadavg at start", firstLine("/proc/loadavg"));

    for (unsigned kind = 0; kind <= allKinds; ++kind) {
        if (kind != allKinds && table().carrying[kind] == 0)
            continue;  // the table has none of this kind
        // againAssign: again, each route's list interned and then assigned
        // (what `again` does in libraries without the replacing entry point).
        for (char const* phase : {"first", "again", "againAssign"}) {
            bool const again = phase[0] == 'a';
            Path const path = phase[5] == 'A' ? Path::assign : Path::replace;
            std::string const name = std::string("ingest/") + kindNames[kind] + "/" + phase;
            for (bool threadSafe : {false, true})
                benchmark::RegisterBenchmark(
                    (name + (threadSafe ? "/threadSafe:1" : "/threadSafe:0")).c_str(), ingestBench,
                    kind, again, threadSafe, 1u, path)
                    ->Unit(benchmark::kMillisecond);
        }
        if (kind == allKinds || (extendedValuesOnly && kind >= 2))
            continue;  // no lists to release
        for (bool drop : {false, true})
            for (bool threadSafe : {false, true})
                benchmark::RegisterBenchmark(
                    (std::string("ingest/") + kindNames[kind] + (drop ? "/drop" : "/release") +
                     (threadSafe ? "/threadSafe:1" : "/threadSafe:0"))
                        .c_str(),
                    releaseBenchOf, kind, threadSafe, drop)
                    ->Unit(benchmark::kMillisecond)
                    // Each timed release needs an untimed ingest before it.
                    ->Iterations(10);
    }
    for (bool again : {false, true})
        for (Path path : {Path::replace, Path::assign, Path::cache})
            for (unsigned threads : {1u, 2u}) {
                if (path == Path::cache && !ingestHasCaches)
                    continue;  // no cache in those libraries
                if (path == Path::assign && !again)
                    continue;  // the same as replace on a first pass
                benchmark::RegisterBenchmark((std::string("ingestThreads/all/") +
                                              (again ? "again" : "first") + "/threadSafe:1" +
                                              (path == Path::cache    ? "/cache:1"
                                               : path == Path::assign ? "/assign:1"
                                                                      : "") +
                                              "/threads:" + std::to_string(threads))
                                                 .c_str(),
                                             ingestBench, allKinds, again, true, threads, path)
                    ->Unit(benchmark::kMillisecond)
                    ->UseRealTime();
            }

    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
