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

// Data that reads differently under the wrong alternative: bits counted
// from the least significant end, the longer instead of the shorter length,
// ties of equal masked values ordered longest first.
TEST(RouteTargetPrefix, BitsCommonPrefixAndOrder) {
    RouteTargetPrefix const bits(RouteTarget(0x4000000000000003ull), 64);
    for (auto [i, set] :
         {std::pair{0u, false}, {1u, true}, {2u, false}, {61u, false}, {62u, true}, {63u, true}})
        EXPECT_EQ(set, bits.extractBit(i)) << i;

    // 0x0020... masked to 10 bits is 0; to 20 bits it keeps bit 10, so
    // the prefixes agree on 10 bits, the longer one's extra bits differ.
    RouteTargetPrefix const z10(RouteTarget(0), 10), x20(RouteTarget(0x0020000000000000ull), 20),
        z20(RouteTarget(0), 20), y64(RouteTarget(0x0000000000000800ull), 64);
    struct {
        RouteTargetPrefix a, b;
        int common;
    } const pairs[] = {
        {z10, x20, 10},  // differ first at bit 10, just past the shorter length
        {z10, z20, 10},  // equal values: the shorter length, not the longer
        {x20, z20, 10},
        {z20, y64, 20},  // differ at bit 52, beyond the shorter length 20
        {RouteTargetPrefix(RouteTarget(kRt ^ (1ull << 60)), 64),
         RouteTargetPrefix(RouteTarget(kRt), 64), 3},
    };
    for (auto const& row : pairs) {
        EXPECT_EQ(row.common, row.a.commonPrefixLen(row.b)) << row.a << ' ' << row.b;
        EXPECT_EQ(row.common, row.b.commonPrefixLen(row.a)) << row.a << ' ' << row.b;
    }

    // Equal masked values: the shorter orders first.
    RouteTargetPrefix const p8(RouteTarget(kRt), 8),
        p16(RouteTarget(kRt & 0xff00ffffffffffffull), 16);
    ASSERT_EQ(p8.prefixBits(), p16.prefixBits());
    EXPECT_LT(p8, p16);
    EXPECT_FALSE(p16 < p8);
    EXPECT_LT(RouteTargetPrefix(RouteTarget(1), 64), RouteTargetPrefix(RouteTarget(2), 63));
    EXPECT_NE(p8, p16);
    EXPECT_NE(p8.hash(), p16.hash());
    EXPECT_EQ(p8.hash(), RouteTargetPrefix(RouteTarget(kRt), 8).hash());
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
