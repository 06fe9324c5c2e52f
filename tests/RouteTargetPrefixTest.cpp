#include <sstream>
#include <string>

#include "Kiv/Errors.h"
#include "TestUtil.h"
#include "VoBgp/RouteTargetPrefix.h"

namespace {

using Routing::Bgp::RouteTarget;
using Routing::Bgp::RouteTargetPrefix;

constexpr U64 kRt = 0x0202fa56ea0000ffull;  // 4-octet AS 4200000000, local 255

TEST(RouteTargetPrefix, MaskingAtEveryBoundary) {
    struct Case {
        size_t bitlen;
        U64 mask;
        U64 prefix;
    };
    constexpr Case cases[] = {
        {0, 0, 0},
        {1, 0x8000000000000000ull, 0},
        {8, 0xff00000000000000ull, 0x0200000000000000ull},
        {63, 0xfffffffffffffffeull, 0x0202fa56ea0000feull},
        {64, ~0ull, kRt},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.bitlen);
        RouteTargetPrefix p(RouteTarget(kRt), 64);
        p.bitlenIs(c.bitlen);
        EXPECT_EQ(c.mask, p.mask());
        EXPECT_EQ(c.prefix, p.prefixBits());
        EXPECT_EQ(c.bitlen, p.bitlen());
    }
    // Re-masking happens even when the length stays.
    RouteTargetPrefix p;
    EXPECT_EQ(0u, p.prefixBits());
}

TEST(RouteTargetPrefix, OutOfRangeLengthIsStoredBeforeTheError) {
    for (size_t bitlen : {65u, 255u}) {
        RouteTargetPrefix p(RouteTarget(kRt), 64);
        try {
            p.bitlenIs(bitlen);
            ADD_FAILURE() << "no error for " << bitlen;
        } catch (Kiv::RangeError const& e) {
            EXPECT_STREQ("Routing::Bgp::RouteTargetPrefix::length < 0 or > 64 not allowed",
                         e.what());
        }
        EXPECT_EQ(bitlen, p.bitlen());
        EXPECT_EQ(kRt, p.prefixBits());  // not re-masked
    }
}

TEST(RouteTargetPrefixDeathTest, LengthBeyondAnOctetAborts) {
    RouteTargetPrefix p;
    EXPECT_ASSERT_DEATH_IN(p.bitlenIs(256), "0 == ( bitlen >> 8 )",
                           "void Routing::Bgp::RouteTargetPrefix::bitlenIs(size_t)");
}

TEST(RouteTargetPrefix, BitsCommonPrefixAndOrder) {
    RouteTargetPrefix const full(RouteTarget(0x8000000000000001ull), 64);
    EXPECT_TRUE(full.extractBit(0));
    EXPECT_FALSE(full.extractBit(1));
    EXPECT_TRUE(full.extractBit(63));

    RouteTargetPrefix const a20(RouteTarget(kRt), 20), a30(RouteTarget(kRt), 30);
    EXPECT_EQ(20, a20.commonPrefixLen(a30));
    EXPECT_EQ(20, a30.commonPrefixLen(a20));
    RouteTargetPrefix const b(RouteTarget(kRt ^ (1ull << 60)), 64), c(RouteTarget(kRt), 64);
    EXPECT_EQ(3, b.commonPrefixLen(c));

    RouteTargetPrefix const p8(RouteTarget(kRt), 8), p16(RouteTarget(kRt & ~0xffffull), 16);
    EXPECT_LT(p8, p16);  // same masked value 0x02...: shorter first
    EXPECT_LT(RouteTargetPrefix(RouteTarget(1), 64), RouteTargetPrefix(RouteTarget(2), 63));
    EXPECT_NE(p8, p16);
    EXPECT_NE(a20.hash(), a30.hash());
    EXPECT_EQ(a20.hash(), RouteTargetPrefix(RouteTarget(kRt), 20).hash());
}

TEST(RouteTargetPrefix, TextForms) {
    EXPECT_EQ("0/0", RouteTargetPrefix().toStrep(false));
    EXPECT_EQ("0:0/64", RouteTargetPrefix(RouteTarget(0), 64).toStrep(false));
    RouteTargetPrefix const p(RouteTarget(kRt), 64);
    EXPECT_EQ("4200000000:255/64", p.toStrep(false));
    EXPECT_EQ("64086.59904:255/64", p.toStrep(true));
    EXPECT_EQ("65000:0/32",  // the local part is masked away
              RouteTargetPrefix(RouteTarget(0x0002fde800000064ull), 32).toStrep(false));

    char const* framework =
        "Value('Routing::Bgp::RouteTargetPrefix', ** {'prefix': "
        "Value('Routing::Bgp::RouteTarget', ** {'value': 0x0202fa56ea0000ff}), 'length': 64})";
    EXPECT_EQ(framework, p.valueToStrep());
    std::ostringstream os;
    os << p;
    EXPECT_EQ(framework, os.str());
    EXPECT_EQ(p, RouteTargetPrefix::strepToValue(framework));
}

TEST(RouteTargetPrefix, ParsingKeepsTheTextAndNamesTheBadAttribute) {
    auto text = [](char const* value, char const* length) {
        return std::string(
                   "Value('Routing::Bgp::RouteTargetPrefix', ** {'prefix': "
                   "Value('Routing::Bgp::RouteTarget', ** {'value': ") +
               value + "}), 'length': " + length + "})";
    };
    // Not re-masked: low bits survive a short length.
    auto parsed = RouteTargetPrefix::strepToValue(Kiv::String(text("0xff", "8")));
    EXPECT_EQ(0xffu, parsed.prefixBits());
    EXPECT_EQ(8, parsed.bitlen());

    try {
        RouteTargetPrefix::strepToValue(Kiv::String(text("0x1ffffffffffffffff", "8")));
        ADD_FAILURE();
    } catch (Kiv::RangeError const& e) {
        EXPECT_EQ("prefix", e.attributeName());
    }
    try {
        RouteTargetPrefix::strepToValue(Kiv::String(text("0x1", "65")));
        ADD_FAILURE();
    } catch (Kiv::RangeError const& e) {
        EXPECT_STREQ("Routing::Bgp::RouteTargetPrefix::length < 0 or > 64 not allowed", e.what());
    }
    EXPECT_THROW(RouteTargetPrefix::strepToValue(Kiv::String(text("0x1", "8") + " ")),
                 Kiv::ParseError);
    EXPECT_THROW(RouteTargetPrefix::strepToValue(Kiv::String("Value('X', ** {})")),
                 Kiv::ParseError);
}

}  // namespace
