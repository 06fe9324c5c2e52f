// Matching community lists against route-policy expressions, at list
// lengths up to what one attribute holds (16,383 standard, 5,461 large,
// 8,191 extended communities): a peer chooses the length, the operator the
// pattern, so time per community must not grow with the length for any
// pattern family that PosixRegex accepts. Items are communities, so
// items_per_second at N and at N/8 compare directly.
#include <benchmark/benchmark.h>

#include <array>
#include <string>

#include "Routing/RouteMap/PosixRegex.h"
#include "VoBgp/Parse/ExtComm.h"
#include "VoBgp/VoBgpCommunityList.h"

namespace {

using namespace Routing::Bgp;
using Routing::RouteMap::PosixRegex;

// One per family: a literal, leading and trailing ".*", an unbounded
// repetition that never completes (libc's own search restarts at every
// '6' and runs to the end: quadratic before the one-pass form), alternations,
// a repeated group, nested stars.
constexpr std::array<char const*, 6> kPatterns = {
    "_65000:100_",          ".*65000:.*",        "65000:1.*x", "(65000|65001):(100|200) 7",
    "^(6[0-9]*:[0-9]+ )+x", "(( 6[0-9]*)*:x)*y",
};

template <class List>
void matchList(benchmark::State& state, List const& list, std::size_t comms) {
    PosixRegex const regex(kPatterns[static_cast<std::size_t>(state.range(1))]);
    for (auto _ : state)
        benchmark::DoNotOptimize(list->matchCommunitiesRegex(&regex));
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * comms));
    state.SetLabel(regex.pattern());
}

void standardMatch(benchmark::State& state) {
    auto table = commListDedupTableFactory();
    auto list = commListFactory();
    auto const n = static_cast<U32>(state.range(0));
    for (U32 i = 0; i < n; ++i)
        list->commIs(0xFDE80000u + i);  // 65000:0 ... 65000:n-1
    matchList(state, list->dedup(table.ptr()), n);
}

void largeMatch(benchmark::State& state) {
    auto table = largeCommListDedupTableFactory();
    auto list = largeCommListFactory();
    auto const n = static_cast<U32>(state.range(0));
    for (U32 i = 0; i < n; ++i)
        list->commIs(Acl::CommunityValue(65000, i, 7));
    matchList(state, list->dedup(table.ptr()), n);
}

void extendedMatch(benchmark::State& state) {
    auto container = bgpParseExtCommContainerSmFactory();
    auto root = extCommDedupTableFactory(container->extCommParser());
    auto table = extCommListDedupTableFactory();
    auto list = extCommListFactory();
    auto const n = static_cast<U32>(state.range(0));
    for (U32 i = 0; i < n; ++i)  // route targets 65000:i
        list->commIs(ExtComm::dedupContent(root.ptr(), ExtCommContent(0x0002fde800000000ull + i)));
    matchList(state, list->dedup(table.ptr()), n);
}

void lengths(benchmark::internal::Benchmark* b, int most) {
    for (int pattern = 0; pattern < static_cast<int>(kPatterns.size()); ++pattern)
        for (int n : {most / 8, most})
            b->Args({n, pattern});
}

BENCHMARK(standardMatch)->Apply([](auto* b) { lengths(b, 16383); });
BENCHMARK(largeMatch)->Apply([](auto* b) { lengths(b, 5461); });
BENCHMARK(extendedMatch)->Apply([](auto* b) { lengths(b, 8191); });

}  // namespace
