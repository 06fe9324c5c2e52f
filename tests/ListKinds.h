// Every list kind as the list tests drive it: the i-th sample value, its
// wire form, the classic path (private list, commIs, dedup), the tables the
// received-values entry points take, and those entry points themselves.
#pragma once

#include <algorithm>
#include <set>
#include <tuple>
#include <vector>

#include "ExtCommListTestEnv.h"
#include "HashColliders.h"
#include "VoBgp/ExtCommIp6ListDedupTable.h"

namespace {

using namespace Routing::Bgp;
using ExtCommListTestEnv::Octets;

void appendBe32(Octets& out, U32 word) {
    for (int shift = 24; shift >= 0; shift -= 8)
        out.push_back(static_cast<U8>(word >> shift));
}

// The classic path: a private list, one commIs per value, dedup.
template <class ListPtr, class Table, class Values>
auto classicOf(ListPtr list, Table const* table, Values const& values) {
    for (auto const& v : values)
        list->commIs(v);
    return list->dedup(table);
}

// Lists sharing the hash() their table places them by, as a flooding peer
// would send them, and the interned values they need kept alive (`pool`).
// Standard and large lists hash their values: 8,000 colliders each
// (bench/HashColliders.h). An extended list's classification list hashes
// its members' addresses: pairs of two-route-target lists that collide,
// found among the two million of 1,024 x 2,048 interned route targets
// (hundreds of pairs).
using Pool = std::vector<Vok::DedupHandle::PtrConst>;
template <class Value, class Colliders>
std::vector<std::vector<Value>> asLists(Colliders const& colliders) {
    std::vector<std::vector<Value>> lists;
    for (auto const& members : colliders)
        lists.emplace_back(members.begin(), members.end());
    return lists;
}
template <class Kind>
std::vector<std::vector<typename Kind::Value>> identityColliders(Kind const& kind, Pool& pool) {
    auto const* const values = std::get<0>(kind.tables());
    using Content = typename std::remove_cvref_t<decltype(*values)>::Content;
    std::vector<void const*> addresses[2];
    for (U32 i = 0; i < 3072; ++i) {
        pool.emplace_back(values->intern(Content(Kind::value(2 * i + 1))).ptr());
        addresses[i < 1024 ? 0 : 1].push_back(pool.back().ptr());
    }
    std::vector<std::vector<typename Kind::Value>> lists;
    for (auto const& pair : HashColliders::identityPairColliders(addresses[0], addresses[1]))
        for (auto const& [first, second] : pair)
            lists.push_back({Kind::value(2 * first + 1), Kind::value(2 * (1024 + second) + 1)});
    return lists;
}

// Per kind: the i-th sample value (ascending in i), its wire form, the
// classic path, and the tables the entry points take before the values.
struct StandardKind {
    using Value = U32;
    using List = CommList;
    static constexpr std::size_t beyondStack = 64 + 7;
    // The most one attribute carries, its octets and those of one value more.
    static constexpr std::tuple<U32, std::size_t, std::size_t> most{16383, 65536, 65540};
    static auto all() { return std::tuple<>(); }  // the selection that writes every value
    CommListDedupTable::Ptr table = commListDedupTableFactory();
    static Value value(U32 i) { return 0xFDE80000u + i; }  // 65000:i
    static void wire(Octets& out, Value v) { appendBe32(out, v); }
    CommList::PtrConst classic(std::vector<Value> const& values) const {
        return classicOf(commListFactory(), table.ptr(), values);
    }
    std::size_t interned() const { return table->dedupTable()->size(); }
    auto tables() const { return std::make_tuple(table.ptr()); }
    auto colliders(Pool&) const { return asLists<Value>(HashColliders::commListColliders(8000)); }
};

struct LargeKind {
    using Value = Acl::CommunityValue;
    using List = LargeCommList;
    static constexpr std::size_t beyondStack = 64 + 3;
    static constexpr std::tuple<U32, std::size_t, std::size_t> most{5461, 65536, 65548};
    static auto all() { return std::tuple<>(); }
    LargeCommListDedupTable::Ptr table = largeCommListDedupTableFactory();
    static Value value(U32 i) { return Value(65000, i, 4000000000u - i); }
    static void wire(Octets& out, Value v) {
        for (U32 word : {v.globalAdmin(), v.localData1(), v.localData2()})
            appendBe32(out, word);
    }
    LargeCommList::PtrConst classic(std::vector<Value> const& values) const {
        return classicOf(largeCommListFactory(), table.ptr(), values);
    }
    std::size_t interned() const { return table->dedupTable()->size(); }
    auto tables() const { return std::make_tuple(table.ptr()); }
    auto colliders(Pool&) const {
        return asLists<Value>(HashColliders::largeCommListColliders(8000));
    }
};

struct ExtendedKind {
    using Value = U64;
    using List = ExtCommList;
    static constexpr std::size_t beyondStack = 32 + 5;
    static constexpr std::tuple<U32, std::size_t, std::size_t> most{8191, 65532, 65540};
    static auto all() { return std::make_tuple(ExtCommList::serialization(true, false, false)); }
    ExtCommListTestEnv::Env env;
    // Route targets 65000:i and colors i (two classifications), RFC 4360 / 9012.
    static Value value(U32 i) {
        return (i % 2 ? ExtCommListTestEnv::rtValue : ExtCommListTestEnv::colorValue) + i;
    }
    static void wire(Octets& out, Value v) { ExtCommListTestEnv::appendBe64(out, v); }
    ExtCommList::PtrConst classic(std::vector<Value> const& values) const {
        return env.list(values);
    }
    std::size_t interned() const {
        return env.lists->dedupTable()->size() + env.values->dedupTable()->size();
    }
    auto tables() const { return std::make_tuple(env.values.ptr(), env.lists.ptr()); }
    auto colliders(Pool& pool) const { return identityColliders(*this, pool); }
};

struct Ip6Kind {
    using Value = ExtCommIp6Content;
    using List = ExtCommIp6List;
    static constexpr std::size_t beyondStack = 16 + 2;
    static constexpr std::tuple<U32, std::size_t, std::size_t> most{3276, 65524, 65544};
    static auto all() { return std::make_tuple(true); }
    BgpParseExtCommContainerSm::Ptr container = bgpParseExtCommContainerSmFactory();
    ExtCommIp6DedupTable::Ptr values = extCommIp6DedupTableFactory(container->extCommParser());
    ExtCommIp6ListDedupTable::Ptr lists = extCommIp6ListDedupTableFactory();
    // Route target 2001:db8::<i>:i (RFC 5701; RFC 3849 addresses).
    static Value value(U32 i) {
        return {0x00, 0x02,
                Vonet::Ip6Addr(
                    {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, U8(i >> 8), U8(i)}),
                U16(i)};
    }
    static void wire(Octets& out, Value const& v) {
        out.insert(out.end(), {v.type, v.subtype});
        out.insert(out.end(), v.addr.octets().begin(), v.addr.octets().end());
        out.insert(out.end(), {U8(v.localAdmin >> 8), U8(v.localAdmin)});
    }
    ExtCommIp6List::PtrConst classic(std::vector<Value> const& contents) const {
        auto list = extCommIp6ListFactory();
        for (Value const& content : contents)
            list->commIs(ExtCommIp6::dedupContent(values.ptr(), content));
        return list->dedup(lists.ptr());
    }
    std::size_t interned() const {
        return lists->dedupTable()->size() + values->dedupTable()->size();
    }
    auto tables() const { return std::make_tuple(values.ptr(), lists.ptr()); }
    auto colliders(Pool& pool) const { return identityColliders(*this, pool); }
};

// List::intern(tables..., values) and List::internReceived(tables..., octets).
template <class Kind>
auto fast(Kind const& kind, std::vector<typename Kind::Value> const& values) {
    return std::apply([&](auto... t) { return Kind::List::intern(t..., values); }, kind.tables());
}
template <class Kind>
auto fromOctets(Kind const& kind, Octets const& o) {
    return std::apply(
        [&](auto... t) { return Kind::List::internReceived(t..., o.data(), o.size()); },
        kind.tables());
}

// List::internReceivedInto(held, tables..., octets).
template <class Kind>
void replaceFromOctets(Kind const& kind, typename Kind::List::PtrConst& held, Octets const& o) {
    std::apply([&](auto... t) { Kind::List::internReceivedInto(held, t..., o.data(), o.size()); },
               kind.tables());
}

using Kinds = ::testing::Types<StandardKind, LargeKind, ExtendedKind, Ip6Kind>;

}  // namespace
