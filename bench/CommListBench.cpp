// Interning a received COMMUNITIES attribute whose list already exists, the
// common case on a router: build the private candidate, dedup it, get the
// shared list back; or hand the received octets to internReceived, which
// finds it without building anything. Measured against the least any receiver must do, copying
// the communities into a vector of its own; and on the plain table against
// the thread-safe one (shard lock on every lookup).
#include <benchmark/benchmark.h>

#include <array>
#include <string>
#include <vector>

#include "VoBgp/VoBgpCommunityList.h"
#include "VoBgp/VoBgpGlobals.h"

namespace {

using namespace Routing::Bgp;

// Ten communities as received: unsorted, one well-known.
constexpr std::array<U32, 10> kReceived = {0xFDE80064u, 0x00010002u, 0xFFFFFF01u, 0xFDE80001u,
                                           0x000A0001u, 0x12345678u, 0xFDE8FFFFu, 0x00640064u,
                                           0xFFFF0006u, 0x0001FFFFu};

CommList::PtrConst receive(CommListDedupTable const* table) {
    auto list = commListFactory();
    list->commVectorRawPtrNonConst()->reserve(kReceived.size());
    for (U32 comm : kReceived)
        list->commIs(comm);
    return list->dedup(table);
}

void commListInternHit(benchmark::State& state) {
    VoBgpGlobals::multiThreadedIs(state.range(0) != 0);
    auto table = commListDedupTableFactory();
    VoBgpGlobals::multiThreadedIs(false);
    auto const held = receive(table.ptr());  // the list routes already share
    for (auto _ : state) {
        auto list = receive(table.ptr());
        benchmark::DoNotOptimize(list.ptr());
    }
    if (table->dedupTable()->size() != 1 || receive(table.ptr()).ptr() != held.ptr())
        state.SkipWithError("the candidate did not find the interned list");
    state.SetLabel(state.range(0) ? "thread-safe table" : "plain table");
}
BENCHMARK(commListInternHit)->Arg(0)->Arg(1);

// The same list found from the received attribute octets: sorted and hashed
// on the stack, nothing built.
void commListInternReceivedHit(benchmark::State& state) {
    VoBgpGlobals::multiThreadedIs(state.range(0) != 0);
    auto table = commListDedupTableFactory();
    VoBgpGlobals::multiThreadedIs(false);
    std::vector<U8> octets;
    for (U32 comm : kReceived)
        for (int shift = 24; shift >= 0; shift -= 8)
            octets.push_back(static_cast<U8>(comm >> shift));
    auto const held = receive(table.ptr());
    for (auto _ : state) {
        auto list = CommList::internReceived(table.ptr(), octets.data(), octets.size());
        benchmark::DoNotOptimize(list.ptr());
    }
    if (CommList::internReceived(table.ptr(), octets.data(), octets.size()).ptr() != held.ptr())
        state.SkipWithError("the received octets did not find the interned list");
    state.SetLabel(state.range(0) ? "thread-safe table" : "plain table");
}
BENCHMARK(commListInternReceivedHit)->Arg(0)->Arg(1);

void vectorCopyBaseline(benchmark::State& state) {
    for (auto _ : state) {
        std::vector<U32> copy(kReceived.begin(), kReceived.end());
        benchmark::DoNotOptimize(copy.data());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(vectorCopyBaseline);

// The same for a large community list of four.
void largeCommListInternHit(benchmark::State& state) {
    VoBgpGlobals::multiThreadedIs(state.range(0) % 2 != 0);
    auto table = largeCommListDedupTableFactory();
    VoBgpGlobals::multiThreadedIs(false);
    std::array<Acl::CommunityValue, 4> const received = {
        Acl::CommunityValue{65000, 1, 2}, Acl::CommunityValue{4200000000u, 100, 200},
        Acl::CommunityValue{65536, 4294967295u, 0}, Acl::CommunityValue{1, 1, 1}};
    auto build = [&] {
        auto list = largeCommListFactory();
        list->commVectorRawPtrNonConst()->reserve(received.size());
        for (auto const& value : received)
            list->commIs(value);
        return list->dedup(table.ptr());
    };
    auto const held = build();
    // Arg 2, 3: the values-on-the-stack entry point instead.
    for (auto _ : state) {
        auto list = state.range(0) < 2 ? build() : LargeCommList::intern(table.ptr(), received);
        benchmark::DoNotOptimize(list.ptr());
    }
    if (LargeCommList::intern(table.ptr(), received).ptr() != held.ptr())
        state.SkipWithError("intern did not find the interned list");
    state.SetLabel(std::string(state.range(0) % 2 ? "thread-safe table" : "plain table") +
                   (state.range(0) < 2 ? ", private list" : ", intern"));
}
BENCHMARK(largeCommListInternHit)->DenseRange(0, 3);

// Serializing a shared list for an UPDATE (stack buffer, one string result).
void commListSerialize(benchmark::State& state) {
    auto table = commListDedupTableFactory();
    auto const list = receive(table.ptr());
    for (auto _ : state) {
        Kiv::String octets = list->serialize();
        benchmark::DoNotOptimize(octets.data());
    }
}
BENCHMARK(commListSerialize);

}  // namespace
