// The interning hit path: looking up a single value that is already
// interned among 100,000 and taking a counted reference to it (then dropping
// it), against the straightforward way to share interned objects, a
// std::unordered_map<U64, std::shared_ptr<T>> find and copy of the shared
// pointer (under a mutex for the thread-safe table). Both the generic table
// (a minimal 8-byte handle) and the extended community table as callers use
// it (ExtComm::dedupContent). And the miss: a value not yet interned, built
// by the parse rule, inserted, then dropped and removed again.
//
// Keys are 100,000 random 64-bit values, visited in the order they were
// inserted, so objects and map nodes alike are walked in allocation order
// while the slot array and the bucket array are hit at random. (Keys in
// arithmetic progression would hit the map's buckets, key modulo a prime, in
// a constant stride that the hardware prefetcher follows: no received
// traffic looks like that.)
//
// Counting is single-threaded only while the process has one thread: the
// two-thread benchmark comes last for that reason (run it alone, or after
// the others, as registered here). The label says which counting ran;
// VOBGP_BENCH_THREADS=1 in the environment starts and joins a thread before
// any benchmark, so that every one counts atomically, for comparison.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <memory>
#include <mutex>
#include <random>
#include <thread>
#include <unordered_map>
#include <vector>

#include "KivStash/DedupHandle.h"
#include "VoBgp/Parse/ExtCommPluginSm.h"
#include "VoBgp/VoBgpCommunity.h"
#include "VoBgp/VoBgpGlobals.h"
#include "Vok/DedupHashTable.h"

namespace {

using namespace Routing::Bgp;

// The generic table's smallest client: one 8-byte value, placed as the
// extended community is (its content as one seeded word).
struct Box : KivStash::DedupHandle {
    explicit Box(U64 v) : value(v) {}
    U32 hash() const override { return Kiv::hashU64(value); }
    U32 placementHashCompute() const override { return Vok::placementHashOf(value); }
    bool compare(Vok::DedupHandle const* other) const override {
        return static_cast<Box const*>(other)->value == value;
    }
    U64 value;
};

constexpr std::size_t kValues = 100000;

// The interned keys (kValues random values) and, after them, as many more
// for misses.
U64 key(std::size_t i) {
    static std::vector<U64> const keys = [] {
        std::mt19937_64 rng(7);
        std::vector<U64> k(4 * kValues);
        for (auto& v : k)
            v = rng();
        return k;
    }();
    return keys[i];
}

[[maybe_unused]] bool const threadsFromStart = [] {
    if (std::getenv("VOBGP_BENCH_THREADS") != nullptr)
        std::thread([] {}).join();
    return true;
}();

char const* countingLabel() {
    return Vok::processSingleThreaded() ? "one thread" : "threads";
}

void BM_InternHit(benchmark::State& state) {
    auto table = Vok::DedupHashTableUnorderedSet::create(state.range(0) != 0);
    std::vector<Kiv::Ptr<Box const>> held;
    for (U64 v = 0; v < kValues; ++v) {
        Kiv::Ptr<Box> fresh(new Box(key(v)));
        held.push_back(Vok::fromDedupHandle<Box>(table->dedup(fresh.ptr())));
    }
    std::size_t i = 0;
    for (auto _ : state) {
        U64 const v = key(i++ % kValues);
        auto hit = table->lookup<Box>(Vok::placementHashOf(v),
                                      [v](Box const* b) { return b->value == v; });
        benchmark::DoNotOptimize(hit.ptr());
    }
    state.SetLabel(countingLabel());
}
BENCHMARK(BM_InternHit)->Arg(0)->Arg(1)->ArgName("threadSafe");

// The extended community table, as the parse path interns received values.
struct ExtCommTable {
    explicit ExtCommTable(bool threadSafe) {
        VoBgpGlobals::multiThreadedIs(threadSafe);
        table = extCommDedupTableFactory(parser->extCommParser());
        VoBgpGlobals::multiThreadedIs(false);
        for (U64 v = 0; v < kValues; ++v)
            held.push_back(ExtComm::dedupContent(table.ptr(), ExtCommContent(key(v))));
    }
    BgpParseExtCommContainerSm::Ptr parser =
        BgpParseExtCommContainerSm::BgpParseExtCommContainerSmIs();
    ExtCommDedupTable::Ptr table;
    std::vector<ExtComm::PtrConst> held;
};

void BM_ExtCommInternHit(benchmark::State& state) {
    ExtCommTable t(state.range(0) != 0);
    std::size_t i = 0;
    for (auto _ : state) {
        auto hit = ExtComm::dedupContent(t.table.ptr(), ExtCommContent(key(i++ % kValues)));
        benchmark::DoNotOptimize(hit.ptr());
    }
    if (ExtComm::dedupContent(t.table.ptr(), ExtCommContent(key(1))) != t.held[1])
        state.SkipWithError("the lookup did not find the interned community");
    state.SetLabel(countingLabel());
}
BENCHMARK(BM_ExtCommInternHit)->Arg(0)->Arg(1)->ArgName("threadSafe");

// Values never seen, 1,000 a batch: lookup, parse and insert timed; with
// release:1 also the drop of each (removal and deletion), which is untimed
// otherwise. The table holds 100,000 others; `per_value` is the figure.
void BM_ExtCommInternMiss(benchmark::State& state) {
    ExtCommTable t(state.range(0) != 0);
    bool const timeRelease = state.range(1) != 0;
    constexpr std::size_t batch = 1000;
    std::vector<ExtComm::PtrConst> fresh;
    fresh.reserve(batch);
    std::size_t next = 0;
    for (auto _ : state) {
        for (std::size_t i = 0; i < batch; ++i)
            fresh.push_back(ExtComm::dedupContent(
                t.table.ptr(), ExtCommContent(key(kValues + next++ % (3 * kValues)))));
        if (!timeRelease)
            state.PauseTiming();
        fresh.clear();
        if (!timeRelease)
            state.ResumeTiming();
    }
    state.counters["per_value"] =
        benchmark::Counter(static_cast<double>(state.iterations() * batch),
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    if (t.table->dedupTable()->size() != kValues)
        state.SkipWithError("a missed community stayed in the table");
    state.SetLabel(countingLabel());
}
BENCHMARK(BM_ExtCommInternMiss)->ArgsProduct({{0, 1}, {0, 1}})->ArgNames({"threadSafe", "release"});

// The baseline: a hash map from value to a shared_ptr, copied out on a hit
// (libstdc++ counts without atomics while the process has one thread, as the
// interned handles do), under a mutex for the thread-safe case.
void BM_SharedPtrMapBaseline(benchmark::State& state) {
    std::unordered_map<U64, std::shared_ptr<U64>> map;
    std::mutex mutex;
    bool const locked = state.range(0) != 0;
    for (U64 v = 0; v < kValues; ++v)
        map.emplace(key(v), std::make_shared<U64>(key(v)));
    std::size_t i = 0;
    for (auto _ : state) {
        U64 const v = key(i++ % kValues);
        std::shared_ptr<U64> hit;
        if (locked)
            mutex.lock();
        auto it = map.find(v);
        if (it != map.end())
            hit = it->second;
        if (locked)
            mutex.unlock();
        benchmark::DoNotOptimize(hit.get());
    }
    state.SetLabel(countingLabel());
}
BENCHMARK(BM_SharedPtrMapBaseline)->Arg(0)->Arg(1)->ArgName("locked");

// Two threads hitting the same thread-safe table (last: see above).
void BM_InternHitTwoThreads(benchmark::State& state) {
    static Vok::DedupHashTable::Ptr table;
    static std::vector<Kiv::Ptr<Box const>> held;
    if (state.thread_index() == 0) {
        table = Vok::DedupHashTableUnorderedSet::create(true);
        held.clear();
        for (U64 v = 0; v < kValues; ++v) {
            Kiv::Ptr<Box> fresh(new Box(v));
            held.push_back(Vok::fromDedupHandle<Box>(table->dedup(fresh.ptr())));
        }
    }
    std::size_t i = static_cast<std::size_t>(state.thread_index()) * 7919;
    for (auto _ : state) {
        U64 const v = i++ % kValues;
        auto hit = table->lookup<Box>(Vok::placementHashOf(v),
                                      [v](Box const* b) { return b->value == v; });
        benchmark::DoNotOptimize(hit.ptr());
    }
    if (state.thread_index() == 0) {
        held.clear();
        table = nullptr;
    }
}
BENCHMARK(BM_InternHitTwoThreads)->Threads(2);

}  // namespace
