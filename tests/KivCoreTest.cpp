// The framework pieces the library leans on where nothing else shows them:
// counted references under threads, enumeration texts and their errors,
// where an assertion says it failed;
// the optional 63-bit integer and the dense attribute word; the pointer set's
// probe chains.
#include <algorithm>
#include <thread>

#include "Kiv/Assert.h"
#include "Kiv/Enum.h"
#include "Kiv/PointerSet.h"
#include "Kiv/Ptr.h"
#include "TestUtil.h"
#include "VoBgp/VoBgpMiscTypes.h"
#include "Vok/MaybeU63.h"

namespace KivCoreTest {

#define TEST_FRUIT_MEMBERS(X) X(fruitApple, 1) X(fruitPear, 7) X(fruitUnknown, 256)
KIV_ENUM(TestFruit, U16, "KivCoreTest::TestFruit", TEST_FRUIT_MEMBERS)
#define TEST_TINY_MEMBERS(X) X(tinyZero, 0) X(tinyMax, 255)
KIV_ENUM(TestTiny, U8, "KivCoreTest::TestTiny", TEST_TINY_MEMBERS)

struct Tracked : Kiv::PtrInterface {
    explicit Tracked(int* liveCount) : live(liveCount) { ++*live; }
    ~Tracked() override { --*live; }
    int* live;
};

TEST(Ptr, AtomicCountsSurviveConcurrentCopiesAndHandOver) {
    int live = 0;
    Kiv::Ptr<Tracked> shared(new Tracked(&live));
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 20000; ++i)
                Kiv::Ptr<Tracked const> copy = shared;
        });
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(1u, shared->references());
    shared = nullptr;
    EXPECT_EQ(0, live);
}

TEST(Enum, TextRoundTripsAndErrors) {
    EXPECT_EQ("fruitPear", valueToStrep(fruitPear));
    EXPECT_EQ(fruitUnknown, TestFruitInstance(Kiv::String("fruitUnknown")));
    // Non-members print as numbers and parse back.
    EXPECT_EQ("42", stringValue(TestFruitInstance(42u)));
    Kiv::String text("42 rest");
    auto it = text.begin();
    TestFruit parsed = fruitApple;
    sequenceToValue(it, text.end(), &parsed);
    EXPECT_EQ(TestFruitInstance(42u), parsed);
    EXPECT_EQ(' ', *it);
    EXPECT_THROW(TestFruitInstance(Kiv::String("fruitBanana")), Kiv::RangeError);
    EXPECT_THROW(TestTinyInstance(256u), Kiv::RangeError);
    Kiv::String bad("fruitBanana");
    it = bad.begin();
    EXPECT_THROW(sequenceToValue(it, bad.end(), &parsed), Kiv::RangeError);
}

TEST(AssertDeathTest, MessageHoldsTextFunctionAndLine) {
    auto fails = [] { KIV_ASSERT(1 + 1 == 3); };
    EXPECT_ASSERT_DEATH(fails(), "1 + 1 == 3");
    auto explicitText = [] { KIV_ASSERT(false, "commVectorSorted()"); };
    EXPECT_ASSERT_DEATH(explicitText(), "commVectorSorted()");
    EXPECT_DEATH(fails(), "KivCoreTest.cpp:[0-9]+: ");
}

// Members that say which slot of the array they want, so that chains and
// the wrap from the last slot to the first are laid out by hand.
struct Placed {
    std::size_t home;
    mutable int references = 0;
    void referencesInc() const { ++references; }
    void referencesDec() const { --references; }
};
using HomeSlot = decltype([](Placed const* p, unsigned bits) {
    return p->home & ((std::size_t(1) << bits) - 1);
});

TEST(PointerSet, ErasingShiftsChainsBackAcrossTheWrapAndTheArrayFollowsTheSize) {
    struct Case {
        std::vector<std::size_t> homes;  // in an 8-slot array, inserted in order
        std::vector<int> takes;          // then taken in this order, then the last re-inserted
        std::size_t grownCapacity;
        std::size_t capacityAfterInsert;
    };
    for (Case const& c : std::vector<Case>{{{6, 6, 7, 6, 0}, {1, 0, 4, 2}, 8, 8},
                                           {{6, 7, 7, 1}, {0, 1, 3}, 8, 8},
                                           {{0, 1, 2, 3, 4, 5, 6}, {6, 0, 1, 2, 3, 4}, 16, 8},
                                           {{0, 1, 2, 3, 4, 5, 6}, {6, 0, 1, 2, 3}, 16, 16}}) {
        std::vector<Placed> items;
        for (std::size_t home : c.homes)
            items.push_back({home});
        Kiv::PointerSet<Placed const, HomeSlot> set;
        for (Placed const& item : items)
            EXPECT_TRUE(set.insert(&item));
        EXPECT_FALSE(set.insert(&items[0]));
        EXPECT_EQ(c.grownCapacity, set.capacity());
        for (int taken : c.takes) {
            EXPECT_EQ(&items[taken], set.take(&items[taken]).ptr());
            EXPECT_EQ(nullptr, set.take(&items[taken]));
            for (std::size_t i = 0; i < items.size(); ++i)
                EXPECT_EQ(items[i].references, int(set.contains(&items[i]))) << i;
        }
        EXPECT_EQ(c.homes.size() - c.takes.size(), set.size());
        EXPECT_EQ(c.grownCapacity, set.capacity()) << "taking never reallocates";
        EXPECT_TRUE(set.insert(&items[c.takes.back()]));
        EXPECT_EQ(c.capacityAfterInsert, set.capacity()) << "an insert shrinks under 1/8 full";
        for (std::size_t i = 0; i < items.size(); ++i) {
            bool const taken = std::count(c.takes.begin(), c.takes.end() - 1, int(i)) != 0;
            EXPECT_EQ(!taken, set.contains(&items[i])) << "found after the shrink: " << i;
        }
        set.clear();
        for (Placed const& item : items)
            EXPECT_EQ(0, item.references);
    }
}

}  // namespace KivCoreTest

namespace Routing::Bgp {
namespace {

constexpr U64 kUnspecified = 0x8000000000000000ull;

TEST(MaybeU63, TextFormIsDashOrDecimalAndParsesBack) {
    for (auto [word, text] :
         Rows<U64, char const*>{{kUnspecified, "-"},
                                {0xFFFFFFFFFFFFFFFFull, "-"},
                                {255, "255"},
                                {0x7FFFFFFFFFFFFFFFull, "9223372036854775807"}}) {
        Vok::MaybeU63 v(word);
        EXPECT_EQ(text, streamedHex(v));
        EXPECT_EQ(v.isUnspecified() ? kUnspecified : word, Vok::strepToValue(text).value);
    }
    EXPECT_THROW(Vok::strepToValue("9223372036854775808"), Kiv::RangeError);
    for (char const* bad : {"", "x", "-5", "5 "})
        EXPECT_THROW(Vok::strepToValue(bad), Kiv::ParseError) << bad;
}

// A concrete optional type, to see that the bounds and the mapping are taken
// from the derived type everywhere (checks, parsing).
struct Percent : BgpMaybeU63 {
    Percent() = default;
    explicit Percent(U64 v) : BgpMaybeU63(v) {}
    U64 min() const override { return 10; }
    U64 max() const override { return 100; }
    U64 mappedUnspecifiedValue() const override { return 50; }
};

TEST(BgpMaybeU63, BoundsMappingAndRangeErrors) {
    // The plain type accepts no specified value, and forgets a refused one.
    BgpMaybeU63 v(5);
    try {
        v.checkValue();
        ADD_FAILURE() << "no range error";
    } catch (Kiv::RangeError const& e) {
        EXPECT_STREQ("value < min or > max not allowed", e.what());
    }
    EXPECT_EQ(kUnspecified, v.value);
    EXPECT_EQ(0u, BgpMaybeU63().valueWithUnspecifiedMapped());
    EXPECT_EQ(50u, Percent().valueWithUnspecifiedMapped());
    EXPECT_EQ(Percent(10), strepToValue<Percent>("10"));
    EXPECT_EQ(Percent(100), strepToValue<Percent>("100"));
    for (char const* bad : {"9", "101"})
        EXPECT_THROW(strepToValue<Percent>(bad), Kiv::RangeError) << bad;
    EXPECT_EQ("77-", streamed(static_cast<BgpMaybeU63 const&>(Percent(77))) +
                         BgpMaybeU63().toStrep().str());
}

TEST(BgpMaybeU63DeathTest, ValueOfUnspecifiedAborts) {
    BgpMaybeU63 none;
    EXPECT_ASSERT_DEATH(
        (void)U64(none),
        "!isUnspecified() && \"Caller must check isUnspecified() before getting value()\"");
}

TEST(BgpDenseU32Attr, OutOfRangeIndexesAndDeletionsRaise) {
    BgpDenseU32Attr a(0x12345678);
    for (auto [call, text, range] : Rows<std::function<void()>, char const*, bool>{
             {[&] { (void)a.valueBool(16); }, "BgpDenseU32Attr::valueBool", true},
             {[&] { a.valueBoolIs(16, true); }, "BgpDenseU32Attr::valueBoolIs", true},
             {[&] { a.valueBoolDel(0); }, "BgpDenseU32Attr::valueBoolDel", false},
             {[&] { (void)a.valueU8(4); }, "BgpDenseU32Attr::valueU8", true},
             {[&] { a.valueU8Is(4, 1); }, "BgpDenseU32Attr::valueU8Is", true},
             {[&] { a.valueU8Del(0); }, "BgpDenseU32Attr::valueU8Del", false},
             {[&] { (void)a.valueU16(2); }, "BgpDenseU32Attr::valueU16", true},
             {[&] { a.valueU16Is(255, 1); }, "BgpDenseU32Attr::valueU16Is", true},
             {[&] { a.valueU16Del(0); }, "BgpDenseU32Attr::valueU16Del", false},
         }) {
        try {
            call();
            ADD_FAILURE() << "no error for " << text;
        } catch (Kiv::RangeError const& e) {
            EXPECT_TRUE(range) << text;
            EXPECT_STREQ(text, e.what());
        } catch (Kiv::NonDeletableAttributeError const& e) {
            EXPECT_FALSE(range) << text;
            EXPECT_STREQ(text, e.what());
        }
    }
    EXPECT_EQ(0x12345678u, a.value());
}

TEST(BgpDenseU32Attr, FrameworkTextFormRoundTrips) {
    Kiv::String text = valueToStrep(BgpDenseU32Attr(0xFFFFFFFFu));
    EXPECT_EQ("Value('Routing::Bgp::BgpDenseU32Attr', ** {'value': 4294967295})", text.str());
    EXPECT_EQ(BgpDenseU32Attr(0xFFFFFFFFu), strepToValue<BgpDenseU32Attr>(text));
    EXPECT_THROW(
        strepToValue<BgpDenseU32Attr>("Value('Routing::Bgp::BgpDenseU32Attr', ** {'word': 1})"),
        Kiv::ParseError);
    EXPECT_EQ("value", rangeErrorAttribute([] {
                  strepToValue<BgpDenseU32Attr>(
                      "Value('Routing::Bgp::BgpDenseU32Attr', ** {'value': 4294967296})");
              }));
}

}  // namespace
}  // namespace Routing::Bgp
