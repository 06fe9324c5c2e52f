// What interning costs, counted: allocations of the received-values entry
// points (a hit builds nothing), blocks of the size-class arena, shared
// counts written by the per-thread cache, and classification lists built
// only when asked.
#include <atomic>
#include <cstdlib>
#include <functional>
#include <new>
#include <vector>

#include "ListKinds.h"
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
// Not inlined: gcc at -O3 inlines the free() into callers that still see the
// library's operator new, and reports the pair as mismatched.
[[gnu::noinline]] void operator delete(void* p) noexcept {
    std::free(p);
}
[[gnu::noinline]] void operator delete[](void* p) noexcept {
    std::free(p);
}
[[gnu::noinline]] void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}
[[gnu::noinline]] void operator delete[](void* p, std::size_t) noexcept {
    std::free(p);
}
#endif

namespace {

template <class Kind>
class ListCostTest : public ::testing::Test {};
TYPED_TEST_SUITE(ListCostTest, Kinds);

// What the entry points cost, counted: a hit allocates nothing (so it builds
// nothing: every list is a heap block); a miss whose parts (values,
// classification lists) are interned already allocates the new list's one
// block and nothing else (standard and large lists: not even that).
TYPED_TEST(ListCostTest, AHitAllocatesNothingAMissOneBlock) {
#ifdef VOBGP_TEST_NO_ALLOCATION_COUNT
    GTEST_SKIP() << "allocations are not counted under ThreadSanitizer";
#endif
    TypeParam kind;
    std::vector<typename TypeParam::Value> values;
    Octets octets;
    for (U32 i : {7u, 1u, 4u, 2u, 1u, 5u}) {
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
    // Standard and large lists come from the size-class arena, the handle's
    // fields (20 octets: the values start in its tail padding) and 5 values
    // in 8-octet steps, without a header: the freed block is taken back, no
    // heap allocation at all.
    constexpr std::size_t arenaBlock = std::is_same_v<typename TypeParam::List, CommList> ? 40
                                       : std::is_same_v<typename TypeParam::List, LargeCommList>
                                           ? 80
                                           : 0;
    EXPECT_EQ(arenaBlock ? 0u : 1u, allocations - miss) << "a miss";
    if (sizeof(void*) == 8) {
        EXPECT_EQ(arenaBlock, arenaLive() - released) << "a miss";
    }
    EXPECT_EQ(5u, list->comms());
}

// The per-thread cache: it hands out the tables' own lists (found by
// content, whatever the wire order), and its hits write no shared count: the
// list's count moves by exactly one batch (64) when the cache takes credit,
// then not at all for 63 hits, copies and give-backs, then by one batch
// again on the 64th hit. A flush returns the credit; the last release then
// removes the list the ordinary way.
TYPED_TEST(ListCostTest, ACacheHitWritesNoSharedCount) {
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

// Extended lists are split into classification lists only when asked:
// interning lists from received values builds none (each miss is the list's
// one block, its flags known without a split), and asking one builds its
// own, once, sharing what exists.
TEST(ClassificationListsOnDemand, ExtendedListsSplitOnlyWhenAskedAndOnce) {
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
TEST(ClassificationListsOnDemand, Ip6ListsSplitOnlyWhenAskedAndOnce) {
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
    ExtCommIp6Content const ip6Value{0x00, 0x02, Vonet::Ip6Addr({0x20, 0x01, 0x0d, 0xb8}), 7};
    // Tables whose slot arrays exist already.
    auto const warm = std::make_pair(
        env.comm(unspecifiedValue),
        ExtCommIp6::dedupContent(
            ip6.ptr(), ExtCommIp6Content{0x00, 0x02, Vonet::Ip6Addr({0x20, 0x01, 0x0d, 0xb8}), 8}));
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

}  // namespace
