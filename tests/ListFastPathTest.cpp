// The received-values entry points of every list kind (intern and
// internReceived): they must find the very list the classic path (private
// list, commIs, dedup) interned, and a list they build must be the one the
// classic path then finds; unsorted and repeated input, lists longer than
// the stack buffer, and nothing left behind once the routes let go. What
// they cost, counted in allocations; and for every kind, how many values
// one attribute carries.
#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <new>
#include <set>
#include <tuple>
#include <vector>

#include "ExtCommListTestEnv.h"
#include "HashColliders.h"
#include "VoBgp/ExtCommIp6ListDedupTable.h"
#include "VoBgp/internal/ListInternCache.h"
#include "Vok/SizeClassArena.h"

// Every allocation of this program is counted. ThreadSanitizer's runtime
// keeps the allocation functions to itself: there the count test is skipped.
#if defined(__SANITIZE_THREAD__)
#define VOBGP_TEST_NO_ALLOCATION_COUNT
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define VOBGP_TEST_NO_ALLOCATION_COUNT
#endif
#endif
namespace {
std::atomic<std::size_t> allocations{0};
}  // namespace
#ifndef VOBGP_TEST_NO_ALLOCATION_COUNT
void* operator new(std::size_t size) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(size ? size : 1))
        return p;
    throw std::bad_alloc();
}
void* operator new[](std::size_t size) {
    return operator new(size);
}
void* operator new(std::size_t size, std::nothrow_t const&) noexcept {
    allocations.fetch_add(1, std::memory_order_relaxed);
    return std::malloc(size ? size : 1);
}
void* operator new[](std::size_t size, std::nothrow_t const& tag) noexcept {
    return operator new(size, tag);
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete[](void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    std::free(p);
}
#endif

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

template <class Kind>
class ListFastPathTest : public ::testing::Test {};
using Kinds = ::testing::Types<StandardKind, LargeKind, ExtendedKind, Ip6Kind>;
TYPED_TEST_SUITE(ListFastPathTest, Kinds);

TYPED_TEST(ListFastPathTest, FindsAndBuildsWhatTheClassicPathDoes) {
    using Value = typename TypeParam::Value;
    std::size_t const liveBefore = KivStash::DedupHandle::liveHandles();
    {
        TypeParam kind;
        for (std::size_t count : {std::size_t(0), std::size_t(3), TypeParam::beyondStack}) {
            SCOPED_TRACE(count);
            // Ascending values [first, first + count); received reversed, the
            // first two repeated.
            auto make = [&](U32 first) {
                std::vector<Value> sorted, received;
                for (U32 i = 0; i < count; ++i)
                    sorted.push_back(TypeParam::value(first + i));
                received.assign(sorted.rbegin(), sorted.rend());
                received.insert(received.end(), sorted.begin(),
                                sorted.begin() + std::min<std::size_t>(2, count));
                return std::make_pair(sorted, received);
            };
            auto const [sorted, received] = make(1000);
            Octets octets;
            for (Value const& v : received)
                TypeParam::wire(octets, v);

            auto const held = kind.classic(sorted);  // a route holds it
            EXPECT_EQ(held.ptr(), fast(kind, received).ptr());
            EXPECT_EQ(held.ptr(), fromOctets(kind, octets).ptr());

            // Built by the fast path (a miss), then found by the classic one.
            auto const [sorted2, received2] = make(5000);
            auto const built = fast(kind, received2);
            EXPECT_EQ(count == 0, held.ptr() == built.ptr());  // one empty list
            EXPECT_EQ(built.ptr(), kind.classic(sorted2).ptr());
            EXPECT_EQ(count, built->comms());
            EXPECT_TRUE(built->commVectorSorted());
        }
        EXPECT_EQ(0u, kind.interned());  // the routes let go: nothing stays
    }
    EXPECT_EQ(liveBefore, KivStash::DedupHandle::liveHandles());
}

// Colliders of each kind (see identityColliders) stay distinct lists and are
// found again by their members, built and from received octets. There are
// enough of them on one another's probe paths with equal slot fingerprints
// (standard, large: one probed entry in 1,024) or with equal placements
// (an extended list's classification lists, placed by hash()) that a
// lookup comparing hash() or the fingerprint instead of the members returns
// a wrong list every run.
TYPED_TEST(ListFastPathTest, CraftedCollisionsStayDistinct) {
    TypeParam kind;
    Pool pool;
    auto const colliders = kind.colliders(pool);
    ASSERT_GE(colliders.size(), 32u);
    // Where a kind's colliders share hash(): the list, or an extended list's
    // one classification list.
    auto const colliding = [](auto const& list) -> Vok::DedupHandle const* {
        if constexpr (requires { list->classificationLists(); }) {
            for (auto const& part : list->classificationLists())
                if (part != nullptr)
                    return part.ptr();
            return nullptr;
        } else {
            return list.ptr();
        }
    };
    std::vector<typename TypeParam::List::PtrConst> held;
    std::set<Vok::DedupHandle const*> distinct;
    for (auto const& members : colliders) {
        held.push_back(kind.classic(members));
        distinct.insert(colliding(held.back()));
        // Pairs at least (an extended list's colliders come in pairs).
        ASSERT_EQ(colliding(held[(held.size() - 1) & ~std::size_t(1)])->hash(),
                  colliding(held.back())->hash());
    }
    EXPECT_EQ(colliders.size(), distinct.size());
    for (std::size_t i = 0; i < colliders.size(); ++i) {
        Octets octets;
        for (auto const& v : colliders[i])
            TypeParam::wire(octets, v);
        ASSERT_EQ(held[i], fast(kind, colliders[i])) << i;
        ASSERT_EQ(held[i], fromOctets(kind, octets)) << i;
    }
}

// What the entry points cost, counted: a hit allocates nothing (so it builds
// nothing: every list is a heap block); a miss whose parts (values,
// classification lists) are interned already allocates the new list's one
// block and nothing else (standard and large lists: not even that).
TYPED_TEST(ListFastPathTest, AHitAllocatesNothingAMissOneBlock) {
#ifdef VOBGP_TEST_NO_ALLOCATION_COUNT
    GTEST_SKIP() << "allocations are not counted under ThreadSanitizer";
#endif
    TypeParam kind;
    std::vector<typename TypeParam::Value> values;
    Octets octets;
    for (U32 i : {7u, 1u, 4u, 2u, 1u}) {
        values.push_back(TypeParam::value(i));
        TypeParam::wire(octets, TypeParam::value(i));
    }
    auto list = fast(kind, values);
    auto const* const interned = list.ptr();
    [[maybe_unused]] auto const parts = [](auto const& l) {
        if constexpr (requires { l->classificationLists(); })
            return std::vector(l->classificationLists().begin(), l->classificationLists().end());
        else
            return 0;
    }(list);
    auto const arenaLive = [] { return Vok::SizeClassArena::global().liveBytes(); };
    std::size_t const before = allocations;
    std::size_t const arenaBefore = arenaLive();
    EXPECT_EQ(interned, fast(kind, values).ptr());
    EXPECT_EQ(interned, fromOctets(kind, octets).ptr());
    EXPECT_EQ(0u, allocations - before) << "a hit";
    EXPECT_EQ(arenaBefore, arenaLive()) << "a hit";
    list = nullptr;  // the route lets go; the parts stay shared
    std::size_t const miss = allocations;
    std::size_t const released = arenaLive();
    list = fromOctets(kind, octets);
    // Standard and large lists come from the size-class arena, the handle
    // (24 octets) and 4 values in 8-octet steps, without a header: the freed
    // block is taken back, no heap allocation at all.
    constexpr std::size_t arenaBlock = std::is_same_v<typename TypeParam::List, CommList> ? 40
                                       : std::is_same_v<typename TypeParam::List, LargeCommList>
                                           ? 72
                                           : 0;
    EXPECT_EQ(arenaBlock ? 0u : 1u, allocations - miss) << "a miss";
    if (sizeof(void*) == 8) {
        EXPECT_EQ(arenaBlock, arenaLive() - released) << "a miss";
    }
    EXPECT_EQ(4u, list->comms());
}

// The most values one attribute carries: the sizes say beforehand what
// serialize writes and whether it can; serialize of one value more stops
// the process.
#define VOBGP_WITH_ALL(list, call) \
    std::apply([&](auto... all) { return (list)->call(all...); }, TypeParam::all())
TYPED_TEST(ListFastPathTest, SizesSayBeforehandWhetherOneAttributeCarriesAList) {
    TypeParam kind;
    auto const [most, fitting, over] = TypeParam::most;
    std::vector<typename TypeParam::Value> values;
    for (U32 i = 0; i < most; ++i)
        values.push_back(TypeParam::value(i));
    auto const fits = fast(kind, values);
    values.push_back(TypeParam::value(most));
    auto const tooLong = fast(kind, values);
    EXPECT_TRUE(VOBGP_WITH_ALL(fits, fitsOneAttribute));
    EXPECT_FALSE(VOBGP_WITH_ALL(tooLong, fitsOneAttribute));
    EXPECT_EQ(fitting, VOBGP_WITH_ALL(fits, serializedSize));
    EXPECT_EQ(fitting, VOBGP_WITH_ALL(fits, serialize).size());
    EXPECT_EQ(over, VOBGP_WITH_ALL(tooLong, serializedSize));
    EXPECT_ASSERT_DEATH(VOBGP_WITH_ALL(tooLong, serialize), "attrSize <= 0xFFFF");
}

// The per-thread cache: it hands out the tables' own lists (found by
// content, whatever the wire order), and its hits write no shared count: the
// list's count moves by exactly one batch (64) when the cache takes credit,
// then not at all for 63 hits, copies and give-backs, then by one batch
// again on the 64th hit. A flush returns the credit; the last release then
// removes the list the ordinary way.
TYPED_TEST(ListFastPathTest, ACacheHitWritesNoSharedCount) {
    using Cache = ListInternCache<typename TypeParam::List>;
    TypeParam kind;
    std::vector<typename TypeParam::Value> sorted;
    Octets octets, reversed, longer;
    for (U32 i : {1u, 2u, 4u}) {
        sorted.push_back(TypeParam::value(i));
        TypeParam::wire(octets, TypeParam::value(i));
    }
    for (auto it = sorted.rbegin(); it != sorted.rend(); ++it)
        TypeParam::wire(reversed, *it);
    TypeParam::wire(reversed, sorted.front());
    longer = octets;
    TypeParam::wire(longer, TypeParam::value(9));
    auto held = kind.classic(sorted);
    {
        Cache cache(
            std::apply([](auto... t) { return typename Cache::Tables{t...}; }, kind.tables()));
        U32 const before = held->references();
        std::vector<typename TypeParam::List::PtrConst> out{cache.internReceived(
            octets.data(), octets.size())};  // a miss: the lookup's reference and a batch
        EXPECT_EQ(held, out.back());
        EXPECT_EQ(before + 1 + 64, held->references());
        for (int i = 1; i < 64; ++i) {
            Octets const& wire = i % 2 ? reversed : octets;
            out.push_back(i % 3 ? cache.internReceived(wire.data(), wire.size())
                                : cache.copy(held));
            ASSERT_EQ(held, out.back()) << i;
        }
        EXPECT_EQ(before + 1 + 64, held->references()) << "63 hits from credit";
        out.push_back(cache.internReceived(octets.data(), octets.size()));
        EXPECT_EQ(before + 1 + 128, held->references()) << "the 64th takes another batch";
        for (std::size_t i = 0; i + 1 < out.size(); ++i)
            cache.giveBack(out[i]);
        EXPECT_EQ(before + 1 + 128, held->references()) << "given back into credit";
        // Credit stops at 254: the give-back past it returns 127 to the count.
        std::vector<typename TypeParam::List::PtrConst> copies(126 + 1, held);
        U32 const all = held->references();
        for (std::size_t i = 0; i < copies.size(); ++i) {
            cache.giveBack(copies[i]);
            ASSERT_EQ(all - (i == 126 ? 127 : 0), held->references()) << i;
        }
        auto const other = cache.internReceived(longer.data(), longer.size());
        EXPECT_NE(held, other);
        EXPECT_EQ(4u, other->comms());
        EXPECT_EQ(2u, cache.size());
        cache.flush();
        EXPECT_EQ(before + 1, held->references()) << "the last hit's reference is out";
        EXPECT_EQ(2u, other->references());  // the table's and ours
    }
    held = nullptr;
    EXPECT_EQ(0u, kind.interned());
}

// A list's vector: its tail (here behind another member) holds exactly its
// room, one more element moves all to the heap; moving a tail copies it.
TEST(TailVectorTest, TailHoldsItsRoomThenTheHeapTakesOver) {
    struct Block {
        TailVector<U32> vector;
        U32 between = 0;
        U32 tail[3] = {};
    };
    for (std::size_t room : {std::size_t(0), std::size_t(3)}) {
        Block block;
        block.vector.tailIs(block.tail, room);
        for (U32 i = 1; i <= 4; ++i) {
            block.vector.push_back(i * 10);
            EXPECT_EQ(i <= room, block.vector.data() == block.tail) << room << " " << i;
        }
        EXPECT_EQ((TailVector<U32>{10, 20, 30, 40}), block.vector);
        Block moved;
        moved.vector.tailIs(moved.tail, room);
        moved.vector.push_back(5);
        moved.vector.resize(3);  // value-initialized: 5, 0, 0
        TailVector<U32> heap(std::move(moved.vector));
        EXPECT_EQ((TailVector<U32>{5, 0, 0}), heap) << room;
        EXPECT_TRUE(moved.vector.empty());
        heap.erase(heap.begin(), heap.begin() + 1);
        heap.shrink_to_fit();
        EXPECT_EQ(2u, heap.capacity());
    }
}

// The cached flags of a standard list built by the fast path.
// Extended lists are split into classification lists only when asked:
// interning lists from received values builds none (each miss is the list's
// one block, its flags known without a split), and asking one builds its
// own, once, sharing what exists.
TEST(ListFastPathFlagsTest, ExtendedListsSplitOnlyWhenAskedAndOnce) {
#ifdef VOBGP_TEST_NO_ALLOCATION_COUNT
    GTEST_SKIP() << "allocations are not counted under ThreadSanitizer";
#endif
    using namespace ExtCommListTestEnv;
    Env env;
    std::vector<ExtComm::PtrConst> const values = {env.comm(rtValue),         env.comm(colorValue),
                                                   env.comm(color2Value),     env.comm(lbwValue),
                                                   env.comm(lbw(65000, bw2)), env.comm(ovsValue)};
    std::vector<std::vector<U64>> const sets = {{rtValue, colorValue},
                                                {color2Value, rtValue},
                                                {rtValue, lbwValue, lbw(65000, bw2)},
                                                {ovsValue}};
    std::vector<Octets> octets(sets.size());
    for (std::size_t i = 0; i < sets.size(); ++i)
        for (U64 v : sets[i])
            appendBe64(octets[i], v);
    std::vector<ExtCommList::PtrConst> lists;
    lists.reserve(sets.size());
    std::size_t const before = allocations;
    for (Octets const& o : octets)
        lists.push_back(
            ExtCommList::internReceived(env.values.ptr(), env.lists.ptr(), o.data(), o.size()));
    EXPECT_EQ(sets.size(), allocations - before) << "one block per list, nothing split";
    EXPECT_EQ((std::vector<bool>{false, false, true, false}),
              (std::vector<bool>{lists[0]->hasLinkBandwidth(), lists[1]->hasLinkBandwidth(),
                                 lists[2]->hasLinkBandwidth(), lists[3]->hasLinkBandwidth()}));
    EXPECT_TRUE(lists[2]->hasPrunableValues()) << "two link bandwidths";
    EXPECT_FALSE(lists[0]->hasPrunableValues());
    EXPECT_TRUE(lists[3]->hasOriginValidationState());
    EXPECT_FALSE(lists[2]->hasOriginValidationState());

    auto const* const rts = lists[0]->classificationList(extCommClassificationRouteTarget);
    U32 const heldOnce = rts->references();
    std::size_t const second = allocations;
    // Its container and its color list; the route-target list is found.
    EXPECT_EQ(rts, lists[1]->classificationList(extCommClassificationRouteTarget));
    EXPECT_EQ(2u, allocations - second);
    EXPECT_EQ(heldOnce + 1, rts->references()) << "lists 2 and 3 are not split";
    std::size_t const again = allocations;
    EXPECT_EQ(2u, lists[1]->classificationLists().size());
    EXPECT_EQ(0u, allocations - again) << "split once";
    EXPECT_FALSE(lists[3]->classificationListsSplit());
    // Reaching a route-target notifier is watching: every list is split.
    EXPECT_NE(nullptr, static_cast<RtExtCommClassificationList const*>(rts)->lifeTimeNotifier());
    EXPECT_TRUE(lists[3]->classificationListsSplit());
}

// The same for IPv6-address-specific lists (their slot vector of
// classification lists): N distinct lists from received values cost N
// blocks; asking one builds its container and its one list (the parser
// classifies every IPv6 community alike), once; reaching the table set's
// classification table splits the rest.
TEST(ListFastPathFlagsTest, Ip6ListsSplitOnlyWhenAskedAndOnce) {
#ifdef VOBGP_TEST_NO_ALLOCATION_COUNT
    GTEST_SKIP() << "allocations are not counted under ThreadSanitizer";
#endif
    Ip6Kind kind;
    std::vector<ExtCommIp6::PtrConst> held;
    for (U32 i : {1, 2, 3})
        held.push_back(ExtCommIp6::dedupContent(kind.values.ptr(), Ip6Kind::value(i)));
    std::vector<std::vector<U32>> const sets = {{1, 2}, {3, 2}, {1, 2, 3}};
    std::vector<Octets> octets(sets.size());
    for (std::size_t i = 0; i < sets.size(); ++i)
        for (U32 v : sets[i])
            Ip6Kind::wire(octets[i], Ip6Kind::value(v));
    std::vector<ExtCommIp6List::PtrConst> lists;
    lists.reserve(sets.size());
    std::size_t const before = allocations;
    for (Octets const& o : octets)
        lists.push_back(fromOctets(kind, o));
    EXPECT_EQ(sets.size(), allocations - before) << "one block per list, nothing split";
    EXPECT_EQ(3u, lists[2]->totalTransitiveCommunities());

    std::size_t const first = allocations;
    ASSERT_EQ(1u, lists[1]->classificationLists().size());
    EXPECT_EQ(2u, allocations - first) << "its container and its one list";
    std::size_t const again = allocations;
    EXPECT_EQ(2u, lists[1]->classificationLists()[0]->comms());
    EXPECT_NE(0u, lists[1]->hash());
    EXPECT_EQ(0u, allocations - again) << "split once";
    EXPECT_EQ((std::vector<bool>{false, true, false}),
              (std::vector<bool>{lists[0]->classificationListsSplit(),
                                 lists[1]->classificationListsSplit(),
                                 lists[2]->classificationListsSplit()}));
    // Reaching the classification table is watching: every list is split.
    EXPECT_EQ(3u, kind.lists->extCommIp6ClassificationListDedupTable()->size());
    EXPECT_TRUE(lists[0]->classificationListsSplit() && lists[2]->classificationListsSplit());
    Octets alone;
    Ip6Kind::wire(alone, Ip6Kind::value(2));
    EXPECT_TRUE(fromOctets(kind, alone)->classificationListsSplit()) << "split as it enters";
}

TEST(ListFastPathFlagsTest, StandardListBuiltOnAMissCachesItsFlags) {
    auto table = commListDedupTableFactory();
    // 65000:1, no-export and local-as (RFC 1997).
    std::vector<U32> const values = {0xFDE80001u, 0xFFFFFF01u, 0xFFFFFF03u};
    auto const list = CommList::intern(table.ptr(), values);
    EXPECT_TRUE(list->noExport());
    EXPECT_FALSE(list->noAdvertise());
    EXPECT_TRUE(list->noExportSubconfed());
}

}  // namespace

// A new interned value is one block of the size-class arena of its concrete
// type's size, with no allocator header; a hit takes nothing, and the last
// release gives the block back.
TEST(ValueBlocks, ANewValueIsOneArenaBlockOfItsSize) {
#ifdef VOBGP_TEST_NO_ALLOCATION_COUNT
    GTEST_SKIP() << "allocations are not counted under ThreadSanitizer";
#endif
    if (sizeof(void*) != 8)
        GTEST_SKIP() << "block sizes are those of 64-bit objects";
    using namespace ExtCommListTestEnv;
    Env env;
    ExtCommIp6DedupTable::Ptr const ip6 =
        extCommIp6DedupTableFactory(env.container->extCommParser());
    ExtCommIp6Content const ip6Value(0x00, 0x02, Vonet::Ip6Addr({0x20, 0x01, 0x0d, 0xb8}), 7);
    // Tables whose slot arrays exist already.
    auto const warm = std::make_pair(
        env.comm(unspecifiedValue),
        ExtCommIp6::dedupContent(
            ip6.ptr(), ExtCommIp6Content(0x00, 0x02, Vonet::Ip6Addr({0x20, 0x01, 0x0d, 0xb8}), 8)));
    struct Case {
        char const* name;
        std::function<Kiv::Ptr<Vok::DedupHandle const>()> intern;
        std::size_t octets;
    } const cases[] = {
        {"color (typed)", [&] { return env.comm(colorValue); }, 32},
        {"link bandwidth (typed)", [&] { return env.comm(lbwValue); }, 32},
        {"unclassified (fallback)", [&] { return env.comm(0x8888000000000001); }, 32},
        {"IPv6-specific", [&] { return ExtCommIp6::dedupContent(ip6.ptr(), ip6Value); }, 48},
    };
    auto const arenaLive = [] { return Vok::SizeClassArena::global().liveBytes(); };
    for (Case const& c : cases) {
        std::size_t const before = arenaLive(), heap = allocations;
        auto value = c.intern();
        EXPECT_EQ(c.octets, arenaLive() - before) << c.name;
        EXPECT_EQ(0u, allocations - heap) << c.name;
        EXPECT_EQ(value, c.intern()) << c.name;
        EXPECT_EQ(c.octets, arenaLive() - before) << c.name << ": a hit";
        value = nullptr;
        EXPECT_EQ(before, arenaLive()) << c.name << ": released";
    }
}
