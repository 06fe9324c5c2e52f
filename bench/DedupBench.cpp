// The interning hit path: looking up a value that is already interned and
// taking a reference to it, against a std::unordered_set lookup of the same
// keys (no reference counting) as the baseline.
#include <benchmark/benchmark.h>

#include <memory>
#include <mutex>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "Kiv/Hash.h"
#include "KivStash/DedupHandle.h"
#include "Vok/DedupHashTable.h"

namespace {

struct Box : KivStash::DedupHandle {
    explicit Box(U64 v) : value(v) {}
    U32 hash() const override { return Kiv::hashU64(value); }
    bool compare(Vok::DedupHandle const* other) const override {
        return static_cast<Box const*>(other)->value == value;
    }
    U64 value;
};

constexpr std::size_t kValues = 100000;

void BM_InternHit(benchmark::State& state) {
    auto table = Vok::DedupHashTableUnorderedSet::create(state.range(0) != 0);
    std::vector<Kiv::Ptr<Box const>> held;
    for (U64 v = 0; v < kValues; ++v) {
        Kiv::Ptr<Box> fresh(new Box(v * 0x9e3779b97f4a7c15ull));
        held.push_back(Vok::fromDedupHandle<Box>(table->dedup(fresh.ptr())));
    }
    std::size_t i = 0;
    for (auto _ : state) {
        U64 v = (i++ % kValues) * 0x9e3779b97f4a7c15ull;
        auto hit = table->lookup<Box>(Vok::placementHashOf(Kiv::hashU64(v)),
                                      [v](Box const* b) { return b->value == v; });
        benchmark::DoNotOptimize(hit.ptr());
    }
}
BENCHMARK(BM_InternHit)->Arg(0)->Arg(1)->ArgName("threadSafe");

void BM_UnorderedSetFindBaseline(benchmark::State& state) {
    std::unordered_set<U64> set;
    for (U64 v = 0; v < kValues; ++v)
        set.insert(v * 0x9e3779b97f4a7c15ull);
    std::size_t i = 0;
    for (auto _ : state) {
        U64 v = (i++ % kValues) * 0x9e3779b97f4a7c15ull;
        benchmark::DoNotOptimize(set.find(v));
    }
}
BENCHMARK(BM_UnorderedSetFindBaseline);

// What a straightforward interning table costs: a hash map from value to a
// shared_ptr, copied out on a hit (one atomic increment and one decrement, as
// the interned hit path), under a mutex for the multi-threaded case.
void BM_SharedPtrMapBaseline(benchmark::State& state) {
    std::unordered_map<U64, std::shared_ptr<U64>> map;
    std::mutex mutex;
    bool locked = state.range(0) != 0;
    for (U64 v = 0; v < kValues; ++v) {
        U64 key = v * 0x9e3779b97f4a7c15ull;
        map.emplace(key, std::make_shared<U64>(key));
    }
    std::size_t i = 0;
    for (auto _ : state) {
        U64 v = (i++ % kValues) * 0x9e3779b97f4a7c15ull;
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
}
BENCHMARK(BM_SharedPtrMapBaseline)->Arg(0)->Arg(1)->ArgName("locked");

// Two threads hitting the same thread-safe table.
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
        U64 v = i++ % kValues;
        auto hit = table->lookup<Box>(Vok::placementHashOf(Kiv::hashU64(v)),
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
