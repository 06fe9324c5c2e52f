// The generic dedup table and handle: find-or-create, the table's own
// reference, lifetime notifications, probe chains, and the race between a
// lookup and the last release.
#include <map>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include "Kiv/Errors.h"
#include "Kiv/Hash.h"
#include "KivStash/DedupHandle.h"
#include "TestUtil.h"
#include "Vok/DedupHashTable.h"

namespace {

// A minimal interned type: one 64-bit value, with a hash that may be forced.
struct Box : KivStash::DedupHandle {
    using PtrConst = Kiv::Ptr<Box const>;
    explicit Box(U64 v, U32 hashOverride = 0) : value(v), forcedHash(hashOverride) {}
    U32 hash() const override { return forcedHash ? forcedHash : Kiv::hashU64(value); }
    U32 placementHashCompute() const override {
        ++placementComputes;
        return DedupHandle::placementHashCompute();
    }
    bool compare(Vok::DedupHandle const* other) const override {
        return static_cast<Box const*>(other)->value == value;
    }
    void countIs(U32 count) const { referencesForTestIs(count); }
    U64 value;
    U32 forcedHash;
    static inline int placementComputes = 0;
};

Box::PtrConst intern(Vok::DedupHashTable const* table, U64 value, U32 forcedHash = 0) {
    U32 hash = forcedHash ? forcedHash : Kiv::hashU64(value);
    if (auto hit = table->lookup<Box>(Vok::placementHashOf(hash),
                                      [&](Box const* b) { return b->value == value; }))
        return hit;
    Kiv::Ptr<Box> fresh(new Box(value, forcedHash));
    return Vok::fromDedupHandle<Box>(table->dedup(fresh.ptr()));
}

// Keeps, per content, how many times it was announced as interned minus
// removed: it must stay 0 or 1, and is 1 exactly while the content is interned.
struct CountingNotifiee : Vok::DedupHashTableLifeTimeNotifiee {
    void handleInsert(Vok::DedupHandle const* h) override { bump(h, +1); }
    void handleRemove(Vok::DedupHandle const* h) override { bump(h, -1); }
    void handleNotificationStop(Vok::DedupHashTable const*) override {}
    void bump(Vok::DedupHandle const* h, int delta) {
        std::lock_guard<std::mutex> lock(mutex);
        int& n = present[static_cast<Box const*>(h)->value];
        n += delta;
        broken |= n < 0 || n > 1;
        events++;
    }
    std::mutex mutex;
    std::map<U64, int> present;
    int events = 0;
    bool broken = false;
};

class DedupTableTest : public ::testing::TestWithParam<bool> {
  protected:
    void SetUp() override {
        liveBefore = KivStash::DedupHandle::liveHandles();
        table = Vok::DedupHashTableUnorderedSet::create(GetParam());
        notifiee = Kiv::Ptr<CountingNotifiee>(new CountingNotifiee);
        table->lifeTimeNotifieeIs(notifiee);
    }
    void TearDown() override {
        table = nullptr;
        EXPECT_EQ(liveBefore, KivStash::DedupHandle::liveHandles());
        EXPECT_FALSE(notifiee->broken);
    }
    std::size_t liveBefore = 0;
    Vok::DedupHashTable::Ptr table;
    Kiv::Ptr<CountingNotifiee> notifiee;
};

TEST_P(DedupTableTest, EqualValuesShareOneHandleThatLeavesWithItsLastHolder) {
    auto a = intern(table.ptr(), 42);
    auto b = intern(table.ptr(), 42);
    EXPECT_EQ(a.ptr(), b.ptr());
    EXPECT_EQ(3u, a->references());  // two holders and the table
    EXPECT_EQ(1, notifiee->present[42]);
    a = nullptr;
    EXPECT_EQ(1u, table->size());
    b = nullptr;
    EXPECT_EQ(0u, table->size());
    EXPECT_EQ(0, notifiee->present[42]);
    EXPECT_EQ(2, notifiee->events);
}

TEST_P(DedupTableTest, ProbeChainsSurviveGrowthAndDeletion) {
    // Force long collision chains (16 distinct hashes for 2000 values) so that
    // backward-shift deletion is exercised across wrapped and shared chains.
    std::map<U64, Box::PtrConst> held;
    std::mt19937_64 rng(1);
    for (U64 v = 0; v < 2000; ++v)
        held[v] = intern(table.ptr(), v, U32(1 + v % 16));
    EXPECT_EQ(2000u, table->size());
    for (U64 v = 0; v < 2000; ++v)
        if (rng() % 2)
            held.erase(v);
    EXPECT_EQ(held.size(), table->size());
    for (U64 v = 0; v < 2000; ++v) {
        auto again = intern(table.ptr(), v, U32(1 + v % 16));
        auto it = held.find(v);
        if (it != held.end()) {
            EXPECT_EQ(it->second.ptr(), again.ptr()) << v;
        }
    }
    EXPECT_EQ(held.size(), table->size());
    held.clear();
    EXPECT_EQ(0u, table->size());
}

// A handle's placement hash is computed once, when it is interned: neither
// growing the table nor releasing and removing handles computes it again.
TEST_P(DedupTableTest, PlacementHashIsComputedOncePerHandle) {
    Box::placementComputes = 0;
    std::vector<Box::PtrConst> held;
    for (U64 v = 0; v < 1000; ++v)
        held.push_back(intern(table.ptr(), v));
    held.resize(500);
    EXPECT_EQ(500u, table->size());
    held.clear();
    EXPECT_EQ(1000, Box::placementComputes);
}

// At the limit a count sticks: the handle stays interned whoever lets go,
// and the state bits above the count are never touched.
TEST_P(DedupTableTest, CountsSaturateAtTheLimit) {
    constexpr U32 limit = Vok::DedupHandle::referencesLimit;
    static_assert(limit == (1u << 28) - 4096);
    struct Step {
        U32 start;
        U32 afterInc, afterDec;
        bool saturated;
    };
    for (Step step : {Step{limit - 2, limit - 1, limit - 2, false},
                      Step{limit - 1, limit, limit, true}, Step{limit, limit, limit, true}}) {
        auto held = intern(table.ptr(), 9);
        held->countIs(step.start);
        {
            Box::PtrConst another = held;
            EXPECT_EQ(step.afterInc, held->references()) << step.start;
        }
        EXPECT_EQ(step.afterDec, held->references()) << step.start;
        EXPECT_EQ(step.saturated, held->referencesSaturated()) << step.start;
        EXPECT_TRUE(held->isDeduped());
        Box const* raw = held.ptr();
        if (!step.saturated)
            held->countIs(2);  // the table and `held`
        held = nullptr;
        EXPECT_EQ(step.saturated ? 1u : 0u, table->size()) << step.start;
        if (step.saturated) {
            EXPECT_EQ(raw, intern(table.ptr(), 9).ptr());
            raw->countIs(2);  // let it go, so the test leaks nothing
            Box::PtrConst::adopt(raw);
        }
    }
    EXPECT_EQ(0u, table->size());
}

// Batched counting (per-thread caches): one add of a batch saturates the way
// single increments do, and the return of a batch that holds the last
// outside reference removes the handle from its table.
TEST_P(DedupTableTest, BatchesSaturateAndTheLastReturnLeavesTheTable) {
    constexpr U32 limit = Vok::DedupHandle::referencesLimit;
    struct Step {
        U32 start, afterInc;
        bool saturated;
    };
    for (Step step : {Step{limit - 65, limit - 1, false}, Step{limit - 64, limit, true},
                      Step{limit, limit, true}}) {
        auto held = intern(table.ptr(), 9);
        held->countIs(step.start);
        EXPECT_EQ(step.saturated, held->referencesIncBy(64)) << step.start;
        EXPECT_EQ(step.afterInc, held->references()) << step.start;
        held->countIs(2);
    }
    auto held = intern(table.ptr(), 9);
    EXPECT_FALSE(held->referencesIncBy(64));
    held->referencesDecBy(63);
    EXPECT_EQ(3u, held->references());
    EXPECT_EQ(1u, table->size());
    held.release()->referencesDecBy(2);  // the batch's last and `held`'s own
    EXPECT_EQ(0u, table->size());
}

INSTANTIATE_TEST_SUITE_P(Variants, DedupTableTest, ::testing::Values(false, true),
                         [](auto const& info) { return info.param ? "ThreadSafe" : "Plain"; });

// The race that matters: one thread drops the last outside reference of a
// value while another looks the same value up. A lookup must either revive
// the handle (and the release must then leave it in the table) or find it
// gone (and create a new one); it must never return a removed handle.
class DedupThreadSafeTableTest : public DedupTableTest {};

// The revive made certain: the table's test hook runs the lookup, on another
// thread, right in the window between the release and its lock.
Vok::DedupHashTable const* reviveTable;
Box::PtrConst revived;
int windowCalls;

TEST_P(DedupThreadSafeTableTest, RevivingInTheReleaseWindowKeepsTheHandle) {
    reviveTable = table.ptr();
    windowCalls = 0;
    auto held = intern(table.ptr(), 42);
    Box const* const original = held.ptr();
    Vok::DedupHashTable::releaseWindowHookIs([](Vok::DedupHandle const*) {
        if (windowCalls++ == 0)
            std::thread([] { revived = intern(reviveTable, 42); }).join();
    });
    held = nullptr;
    Vok::DedupHashTable::releaseWindowHookIs(nullptr);
    EXPECT_EQ(1, windowCalls);
    EXPECT_EQ(original, revived.ptr());
    EXPECT_EQ(table.ptr(), revived->dedupTable());
    EXPECT_EQ(2u, revived->references());  // the reviver and the table
    EXPECT_EQ(1u, table->size());
    EXPECT_EQ(revived.ptr(), intern(table.ptr(), 42).ptr());
    EXPECT_EQ(1, notifiee->events);
    revived = nullptr;
    EXPECT_EQ(0u, table->size());
    EXPECT_EQ(0, notifiee->present[42]);
}

// A plain table serves one thread.
INSTANTIATE_TEST_SUITE_P(Variants, DedupThreadSafeTableTest, ::testing::Values(true));

TEST(DedupHandleDeathTest, InterningTwiceIsFatal) {
    auto table = Vok::DedupHashTableUnorderedSet::create(false);
    auto held = intern(table.ptr(), 3);
    char const* text =
        "__null == ( candidate ) || ( candidate )->dedupState() == "
        "Vok::dedupHandleStateNeverDeduped()";
    EXPECT_ASSERT_DEATH(table->dedup(held.ptr()), text);
    Kiv::Ptr<Box> display(new Box(4));
    display->dedupStateNotToBeDedupedIs();
    EXPECT_ASSERT_DEATH(table->dedup(display.ptr()), text);
    // A reference to an interned handle whose count fell to zero (one being
    // destroyed) would resurrect it.
    EXPECT_ASSERT_DEATH(
        {
            held->countIs(0);
            Box::PtrConst again(held.ptr());
        },
        "referencesIncReturnRef");
}

// Tables are named by 16-bit ids: the 65,536th live table is refused, a
// freed id serves the next table, and a handle that outlived its table
// never names the table that took the id over.
TEST(DedupTableIds, LimitReuseAndSurvivors) {
    auto first = Vok::DedupHashTableUnorderedSet::create(false);
    auto survivor = intern(first.ptr(), 5);
    first = nullptr;
    std::vector<Vok::DedupHashTable::Ptr> tables;
    try {
        while (tables.size() <= Vok::DedupHashTable::maxLiveTables)
            tables.push_back(Vok::DedupHashTableUnorderedSet::create(false));
        ADD_FAILURE() << "no limit";
    } catch (Kiv::RangeError const&) {
    }
    EXPECT_LE(tables.size(), Vok::DedupHashTable::maxLiveTables);
    EXPECT_EQ(nullptr, survivor->dedupTable());
    auto& middle = tables[tables.size() / 2];
    middle = nullptr;
    middle = Vok::DedupHashTableUnorderedSet::create(true);
    auto moved = intern(middle.ptr(), 6);
    EXPECT_EQ(middle.ptr(), moved->dedupTable());
    EXPECT_EQ(nullptr, survivor->dedupTable());
}

}  // namespace
