#include <functional>
#include <sstream>
#include <string>

#include "Kiv/Errors.h"
#include "TestUtil.h"
#include "VoBgp/VoBgpMiscTypes.h"
#include "Vok/MaybeU63.h"

namespace Routing::Bgp {
namespace {

constexpr U64 kUnspecified = 0x8000000000000000ull;

TEST(MaybeU63, TextFormIsDashOrDecimal) {
    struct Case {
        U64 word;
        char const* text;
    };
    Case const cases[] = {
        {kUnspecified, "-"},
        {0xFFFFFFFFFFFFFFFFull, "-"},  // any word with bit 63 set
        {0, "0"},
        {255, "255"},
        {0x7FFFFFFFFFFFFFFFull, "9223372036854775807"},
    };
    for (auto const& c : cases) {
        Vok::MaybeU63 v(c.word);
        EXPECT_EQ(c.text, Vok::valueToStrep(v).str());
        std::ostringstream os;
        os << std::hex << std::showbase << v;
        EXPECT_EQ(c.text, os.str());
        Vok::MaybeU63 back = Vok::strepToValue(c.text);
        EXPECT_EQ(v.isUnspecified() ? kUnspecified : c.word, back.value);
    }
}

TEST(MaybeU63, ParsingRejectsWhatIsNotTheForm) {
    EXPECT_THROW(Vok::strepToValue("9223372036854775808"), Kiv::RangeError);
    EXPECT_THROW(Vok::strepToValue("99999999999999999999"), Kiv::RangeError);
    EXPECT_THROW(Vok::strepToValue(""), Kiv::ParseError);
    EXPECT_THROW(Vok::strepToValue("x"), Kiv::ParseError);
    EXPECT_THROW(Vok::strepToValue("-5"), Kiv::ParseError);
    EXPECT_THROW(Vok::strepToValue("5 "), Kiv::ParseError);

    Kiv::String text("-,7");
    auto it = text.begin();
    Vok::MaybeU63 v(3);
    sequenceToValue(it, text.end(), &v);
    EXPECT_TRUE(v.isUnspecified());
    EXPECT_EQ(',', *it);
}

TEST(BgpMaybeU63, PlainTypeAcceptsNoSpecifiedValue) {
    BgpMaybeU63 v(5);
    try {
        v.checkValue();
        ADD_FAILURE() << "no range error";
    } catch (Kiv::RangeError const& e) {
        EXPECT_STREQ("value < min or > max not allowed", e.what());
    }
    EXPECT_TRUE(v.isUnspecified());
    EXPECT_EQ(kUnspecified, v.value);

    BgpMaybeU63 none;
    EXPECT_NO_THROW(none.checkValue());
    EXPECT_EQ(0u, none.valueWithUnspecifiedMapped());
    EXPECT_EQ(1u, none.min());
    EXPECT_EQ(0u, none.max());
    EXPECT_THROW(strepToValue<BgpMaybeU63>("0"), Kiv::RangeError);
    EXPECT_TRUE(strepToValue<BgpMaybeU63>("-").isUnspecified());
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

TEST(BgpMaybeU63, DerivedBoundsAndMappingApply) {
    for (U64 ok : {10u, 55u, 100u})
        EXPECT_NO_THROW(Percent(ok).checkValue()) << ok;
    for (U64 bad : {0u, 9u, 101u})
        EXPECT_THROW(Percent(bad).checkValue(), Kiv::RangeError) << bad;
    EXPECT_EQ(50u, Percent().valueWithUnspecifiedMapped());
    EXPECT_EQ(42u, Percent(42).valueWithUnspecifiedMapped());
    EXPECT_EQ(Percent(100), strepToValue<Percent>("100"));
    EXPECT_THROW(strepToValue<Percent>("101"), Kiv::RangeError);
    BgpMaybeU63 const& base = Percent(77);
    EXPECT_EQ("77", valueToStrep(base).str());
}

TEST(BgpMaybeU63, UnspecifiedSortsFirstAndEqualsOnlyUnspecified) {
    BgpMaybeU63 const u;
    BgpMaybeU63 const otherU(0xC000000000000001ull);  // non-canonical unspecified
    BgpMaybeU63 const zero(0), five(5);
    struct Case {
        BgpMaybeU63 const& a;
        BgpMaybeU63 const& b;
        bool less, equal;
    };
    Case const cases[] = {
        {u, zero, true, false},    {zero, u, false, false},     {u, u, false, true},
        {u, otherU, false, true},  {zero, five, true, false},   {five, zero, false, false},
        {five, five, false, true}, {otherU, five, true, false},
    };
    for (auto const& c : cases) {
        EXPECT_EQ(c.less, c.a < c.b) << c.a << " < " << c.b;
        EXPECT_EQ(c.equal, c.a == c.b) << c.a << " == " << c.b;
    }
}

TEST(BgpMaybeU63, TextForms) {
    EXPECT_EQ("-", BgpMaybeU63().toStrep().str());
    EXPECT_EQ("0", BgpMaybeU63(0).toStrep().str());
    std::ostringstream os;
    os << BgpMaybeU63(123) << BgpMaybeU63();
    EXPECT_EQ("123-", os.str());
    EXPECT_EQ(123u, U64(BgpMaybeU63(123)));
}

TEST(BgpMaybeU63DeathTest, ValueOfUnspecifiedAborts) {
    BgpMaybeU63 none;
    EXPECT_ASSERT_DEATH(
        (void)U64(none),
        "!isUnspecified() && \"Caller must check isUnspecified() before getting value()\"");
}

TEST(BgpDenseU32Attr, ViewsOverlapOnOneWord) {
    BgpDenseU32Attr a;
    a.valueBoolIs(15, true);
    EXPECT_EQ(0x8000u, a.value());
    EXPECT_EQ(0x80u, a.valueU8(1));
    a.valueU16Is(1, 0xABCD);
    EXPECT_EQ(0xABCD8000u, a.value());
    EXPECT_EQ(0xABu, a.valueU8(3));
    EXPECT_EQ(0xCDu, a.valueU8(2));

    a.valueU8Is(1, 0x02);  // sets bit 9, clears bit 15
    EXPECT_TRUE(a.valueBool(9));
    EXPECT_FALSE(a.valueBool(15));
    EXPECT_EQ(0x0200u, a.valueU16(0));
    a.valueBoolIs(9, false);
    EXPECT_EQ(0xABCD0000u, a.value());
    a.valueU8Is(0, 0xFF);
    EXPECT_EQ(0xABCD00FFu, a.value());
}

TEST(BgpDenseU32Attr, OutOfRangeIndexesAndDeletionsRaise) {
    BgpDenseU32Attr a(0x12345678);
    struct Case {
        std::function<void()> call;
        char const* text;
        bool range;  // else non-deletable
    };
    Case const cases[] = {
        {[&] { (void)a.valueBool(16); }, "BgpDenseU32Attr::valueBool", true},
        {[&] { a.valueBoolIs(16, true); }, "BgpDenseU32Attr::valueBoolIs", true},
        {[&] { a.valueBoolDel(0); }, "BgpDenseU32Attr::valueBoolDel", false},
        {[&] { (void)a.valueU8(4); }, "BgpDenseU32Attr::valueU8", true},
        {[&] { a.valueU8Is(4, 1); }, "BgpDenseU32Attr::valueU8Is", true},
        {[&] { a.valueU8Del(0); }, "BgpDenseU32Attr::valueU8Del", false},
        {[&] { (void)a.valueU16(2); }, "BgpDenseU32Attr::valueU16", true},
        {[&] { a.valueU16Is(255, 1); }, "BgpDenseU32Attr::valueU16Is", true},
        {[&] { a.valueU16Del(0); }, "BgpDenseU32Attr::valueU16Del", false},
    };
    for (auto const& c : cases) {
        try {
            c.call();
            ADD_FAILURE() << "no error for " << c.text;
        } catch (Kiv::RangeError const& e) {
            EXPECT_TRUE(c.range) << c.text;
            EXPECT_STREQ(c.text, e.what());
        } catch (Kiv::NonDeletableAttributeError const& e) {
            EXPECT_FALSE(c.range) << c.text;
            EXPECT_STREQ(c.text, e.what());
        }
    }
    EXPECT_EQ(0x12345678u, a.value());
    EXPECT_EQ(0x1234u, a.valueU16(1));
    EXPECT_TRUE(a.valueBool(3));
}

TEST(BgpDenseU32Attr, FrameworkTextFormRoundTrips) {
    for (U32 word : {0u, 0xABCD8000u, 0xFFFFFFFFu}) {
        Kiv::String text = valueToStrep(BgpDenseU32Attr(word));
        EXPECT_EQ(
            "Value('Routing::Bgp::BgpDenseU32Attr', ** {'value': " + std::to_string(word) + "})",
            text.str());
        EXPECT_EQ(BgpDenseU32Attr(word), strepToValue<BgpDenseU32Attr>(text));
    }
    EXPECT_THROW(strepToValue<BgpDenseU32Attr>("Value('Routing::Bgp::BgpDenseU32Attr', ** "
                                               "{'word': 1})"),
                 Kiv::ParseError);
    try {
        strepToValue<BgpDenseU32Attr>(
            "Value('Routing::Bgp::BgpDenseU32Attr', ** {'value': 4294967296})");
        ADD_FAILURE() << "no range error";
    } catch (Kiv::RangeError const& e) {
        EXPECT_EQ("value", e.attributeName());
    }
}

}  // namespace
}  // namespace Routing::Bgp
