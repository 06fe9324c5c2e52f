// Hash flooding: a peer that knows the hash a table's kind defines (it is
// fixed and public) can send values crafted to share it. For every interning
// table kind, interning (and then releasing) 20,000 such values, against
// 20,000 random values of the same shape; the ratio of the two times is the
// figure (docs/PERFORMANCE.md, target at most 2). Tables place entries by a
// per-process seeded hash of the content, so crafted values should cost what
// random ones do.
//
// The colliders (bench/HashColliders.h): 8-octet extended communities share
// Kiv::hashU64; IPv6-specific ones and standard and large lists share their
// Jenkins one-at-a-time hash. Extended and IPv6-specific lists hash the
// addresses of their interned members, which no peer chooses: their crafted
// inputs are lists of one crafted community each, so the flood reaches the
// value table beneath them.
#include <benchmark/benchmark.h>

#include <memory>
#include <random>
#include <vector>

#include "HashColliders.h"
#include "VoBgp/ExtCommIp6DedupTable.h"
#include "VoBgp/ExtCommIp6ListDedupTable.h"
#include "VoBgp/Parse/ExtCommPluginSm.h"
#include "VoBgp/VoBgpCommunity.h"
#include "VoBgp/VoBgpCommunityList.h"

namespace {

using namespace Routing::Bgp;

constexpr std::size_t kCount = 20000;

std::vector<U64> extValues(bool crafted) {
    if (crafted)
        return HashColliders::hashU64Colliders(kCount, 0x5eed1e55u);
    std::mt19937_64 rng(1);
    std::vector<U64> values(kCount);
    for (auto& v : values)
        v = rng();
    return values;
}

std::vector<ExtCommIp6Content> ip6Values(bool crafted) {
    if (crafted)
        return HashColliders::extCommIp6Colliders(kCount);
    std::mt19937_64 rng(2);
    std::vector<ExtCommIp6Content> values(kCount);
    for (auto& v : values) {
        Vonet::Ip6Addr::Octets addr;
        for (auto& o : addr)
            o = static_cast<U8>(rng());
        v = ExtCommIp6Content{0x00, 0x02, Vonet::Ip6Addr(addr), static_cast<U16>(rng())};
    }
    return values;
}

struct Parser {
    BgpParseExtCommContainerSm::Ptr sm = BgpParseExtCommContainerSm::BgpParseExtCommContainerSmIs();
};

struct ExtCommKind : Parser {
    static std::vector<U64> values(bool crafted) { return extValues(crafted); }
    ExtComm::PtrConst intern(U64 v) const {
        return ExtComm::dedupContent(table.ptr(), ExtCommContent(v));
    }
    ExtCommDedupTable::Ptr table = extCommDedupTableFactory(sm->extCommParser());
};

struct ExtCommIp6Kind : Parser {
    static std::vector<ExtCommIp6Content> values(bool crafted) { return ip6Values(crafted); }
    ExtCommIp6::PtrConst intern(ExtCommIp6Content const& v) const {
        return ExtCommIp6::dedupContent(table.ptr(), v);
    }
    ExtCommIp6DedupTable::Ptr table = extCommIp6DedupTableFactory(sm->extCommParser());
};

struct CommListKind {
    static std::vector<std::array<U32, 4>> values(bool crafted) {
        if (crafted)
            return HashColliders::commListColliders(kCount);
        std::mt19937 rng(3);
        std::vector<std::array<U32, 4>> lists(kCount);
        for (auto& list : lists)
            for (auto& c : list)
                c = static_cast<U32>(rng());
        return lists;
    }
    CommList::PtrConst intern(std::array<U32, 4> const& comms) const {
        CommList::Ptr list = commListFactory();
        for (U32 c : comms)
            list->commIs(c);
        return list->dedup(table.ptr());
    }
    CommListDedupTable::Ptr table = commListDedupTableFactory();
};

struct LargeCommListKind {
    using Value = std::array<Acl::CommunityValue, 2>;
    static std::vector<Value> values(bool crafted) {
        if (crafted)
            return HashColliders::largeCommListColliders(kCount);
        std::mt19937 rng(4);
        std::vector<Value> lists(kCount);
        for (auto& list : lists)
            for (auto& c : list)
                c = Acl::CommunityValue(static_cast<U32>(rng()), static_cast<U32>(rng()),
                                        static_cast<U32>(rng()));
        return lists;
    }
    LargeCommList::PtrConst intern(Value const& comms) const {
        LargeCommList::Ptr list = largeCommListFactory();
        for (auto const& c : comms)
            list->commIs(c);
        return list->dedup(table.ptr());
    }
    LargeCommListDedupTable::Ptr table = largeCommListDedupTableFactory();
};

struct ExtCommListKind : ExtCommKind {
    ExtCommList::PtrConst intern(U64 v) const {
        ExtCommList::Ptr list = extCommListFactory();
        list->commIs(ExtCommKind::intern(v));
        return list->dedup(lists.ptr());
    }
    ExtCommListDedupTable::Ptr lists = extCommListDedupTableFactory();
};

struct ExtCommIp6ListKind : ExtCommIp6Kind {
    ExtCommIp6List::PtrConst intern(ExtCommIp6Content const& v) const {
        ExtCommIp6List::Ptr list = extCommIp6ListFactory();
        list->commIs(ExtCommIp6Kind::intern(v));
        return list->dedup(lists.ptr());
    }
    ExtCommIp6ListDedupTable::Ptr lists = extCommIp6ListDedupTableFactory();
};

// Interns the kind's 20,000 values into fresh tables, holding each, then
// drops them all (so removal is timed too); tables are made and destroyed
// outside the timing. Arg 1: crafted values, 0: random ones.
template <class Kind>
void flood(benchmark::State& state) {
    static auto const crafted = Kind::values(true);
    static auto const random = Kind::values(false);
    auto const& values = state.range(0) ? crafted : random;
    for (auto _ : state) {
        state.PauseTiming();
        auto tables = std::make_unique<Kind>();
        std::vector<decltype(tables->intern(values.front()))> held;
        held.reserve(values.size());
        state.ResumeTiming();
        for (auto const& v : values)
            held.push_back(tables->intern(v));
        held.clear();
        state.PauseTiming();
        tables.reset();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * values.size()));
    state.SetLabel(state.range(0) ? "crafted" : "random");
}

#define VOBGP_FLOOD(Kind)           \
    BENCHMARK_TEMPLATE(flood, Kind) \
        ->ArgName("crafted")        \
        ->Arg(0)                    \
        ->Arg(1)                    \
        ->Iterations(3)             \
        ->Unit(benchmark::kMillisecond)
VOBGP_FLOOD(ExtCommKind);
VOBGP_FLOOD(ExtCommIp6Kind);
VOBGP_FLOOD(CommListKind);
VOBGP_FLOOD(LargeCommListKind);
VOBGP_FLOOD(ExtCommListKind);
VOBGP_FLOOD(ExtCommIp6ListKind);

}  // namespace
