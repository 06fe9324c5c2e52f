// The link-bandwidth community and the bandwidth value it carries.
#include <cmath>
#include <string>

#include "ExtCommFormCheck.h"
#include "Routing/Rib/LinkBandwidth.h"
#include "TestUtil.h"
#include "VoBgp/Parse/ExtCommLinkBandwidth.h"

namespace Routing::Bgp {
namespace {

using FormCheck::byClassification;
using FormCheck::derived;
using FormCheck::expectEveryFormat;
using Rib::LinkBandwidth;

// IEEE 754 single-precision bit patterns, as they arrive in octets 4-7.
constexpr U32 kZero = 0x00000000;
constexpr U32 kNegativeZero = 0x80000000;
constexpr U32 kOne = 0x3F800000;
constexpr U32 kMinusOne = 0xBF800000;
constexpr U32 kSmallestDenormal = 0x00000001;
constexpr U32 kSmallestNegativeDenormal = 0x80000001;
constexpr U32 kLargest = 0x7F7FFFFF;
constexpr U32 kInfinity = 0x7F800000;
constexpr U32 kMinusInfinity = 0xFF800000;
constexpr U32 kQuietNan = 0x7FC00000;
constexpr U32 kNegativeNan = 0xFFC00000;
constexpr U32 kSignallingNan = 0x7F800001;
constexpr U32 k1e9 = 0x4E6E6B28;           // 1e9 bytes/s = 8 Gbps
constexpr U32 k1_25e9 = 0x4E9502F9;        // 1.25e9 bytes/s = 10 Gbps
constexpr U32 k1_5625e8 = 0x4D1502F9;      // 1.5625e8 bytes/s = 1.25 Gbps
constexpr U32 k125 = 0x42FA0000;           // 125 bytes/s = 1 Kbps
constexpr U32 kJustBelow125 = 0x42F9FFFF;  // 124.99999237 bytes/s
constexpr U32 k124_999 = 0x42F9FF7D;       // 124.9990005 bytes/s

U64 lbwContent(U16 as, U32 bandwidthBits) {
    return U64(0x4004) << 48 | U64(as) << 32 | bandwidthBits;
}

ExtCommLinkBandwidth::PtrConst lbw(U16 as, U32 bandwidthBits) {
    return extCommLinkBandwidthFactory(ExtCommContent(lbwContent(as, bandwidthBits)));
}

TEST(LinkBandwidth, DecodesTheWireBitsAsAFloat) {
    struct Case {
        U32 bits;
        float value;
    } const cases[] = {
        {kZero, 0.0f},
        {kOne, 1.0f},
        {kMinusOne, -1.0f},
        {k1e9, 1e9f},
        {k1_25e9, 1.25e9f},
        {k125, 125.0f},
        {kInfinity, INFINITY},
        {kMinusInfinity, -INFINITY},
        {kLargest, 3.40282347e38f},
    };
    for (auto const& c : cases) {
        EXPECT_EQ(c.value, LinkBandwidth::fromWire(c.bits).bytesPerSecond()) << std::hex << c.bits;
        EXPECT_EQ(c.bits, LinkBandwidth(c.value).toWire());
    }
    EXPECT_TRUE(std::signbit(LinkBandwidth::fromWire(kNegativeZero).bytesPerSecond()));
    EXPECT_EQ(1.4e-45f, LinkBandwidth::fromWire(kSmallestDenormal).bytesPerSecond());
    for (U32 nan : {kQuietNan, kNegativeNan, kSignallingNan, 0x7FC00001u}) {
        LinkBandwidth value = LinkBandwidth::fromWire(nan);
        EXPECT_TRUE(std::isnan(value.bytesPerSecond()));
        // The bit pattern survives: a NaN is re-advertised as received.
        EXPECT_EQ(nan, value.toWire());
    }
    EXPECT_EQ(8e9, LinkBandwidth::fromWire(k1e9).bitsPerSecond());
}

TEST(LinkBandwidth, ValidMeansFiniteAndNotNegative) {
    struct Case {
        U32 bits;
        bool valid;
    } const cases[] = {
        {kZero, true},
        {kNegativeZero, true},
        {kOne, true},
        {kSmallestDenormal, true},
        {kLargest, true},
        {k1_25e9, true},
        {kMinusOne, false},
        {kSmallestNegativeDenormal, false},
        {kInfinity, false},
        {kMinusInfinity, false},
        {kQuietNan, false},
        {kNegativeNan, false},
        {kSignallingNan, false},
    };
    for (auto const& c : cases)
        EXPECT_EQ(c.valid, LinkBandwidth::fromWire(c.bits).isValid()) << std::hex << c.bits;
}

TEST(LinkBandwidth, RateAndWeightTexts) {
    struct Case {
        float bytesPerSecond;
        char const* rate;
        char const* weight;
    } const cases[] = {
        {0.0f, "0 bps", "0"},
        {-0.0f, "0 bps", "0"},
        {1.0f, "8 bps", "1"},
        {0.1f, "0.8 bps", "0.1"},
        {2.5f, "20 bps", "2.5"},
        {124.999f, "999.99 bps", "124.999"},
        // 999.9999 bps would round to "1000 bps": shown in the next unit.
        {124.99999f, "1 Kbps", "125"},
        {125.0f, "1 Kbps", "125"},
        {1500.0f, "12 Kbps", "1500"},
        {123456.0f, "987.65 Kbps", "123456"},
        {124998752.0f, "999.99 Mbps", "124998752"},
        {1.5625e8f, "1.25 Gbps", "156250000"},
        {1e9f, "8 Gbps", "1000000000"},
        {1.25e9f, "10 Gbps", "1250000000"},
        {1099511627776.0f, "8.8 Tbps", "1099511627776"},
        // Above the largest unit the number just grows.
        {1.5e20f, "1200000024.05 Tbps", "1.5e+20"},
        {1.4e-45f, "0 bps", "1.4013e-45"},
        {-1.0f, "invalid", "invalid"},
        {INFINITY, "invalid", "invalid"},
        {-INFINITY, "invalid", "invalid"},
        {NAN, "invalid", "invalid"},
    };
    for (auto const& c : cases) {
        LinkBandwidth value(c.bytesPerSecond);
        EXPECT_EQ(c.rate, value.toStrep(false)) << c.bytesPerSecond;
        EXPECT_EQ(c.weight, value.toStrep(true)) << c.bytesPerSecond;
    }
    EXPECT_EQ("2722258773108230922340139008 Tbps",
              LinkBandwidth::fromWire(kLargest).toStrep(false));
    EXPECT_EQ("3.40282e+38", LinkBandwidth::fromWire(kLargest).toStrep(true));
    EXPECT_EQ("1 Kbps", LinkBandwidth::fromWire(kJustBelow125).toStrep(false));
    EXPECT_EQ("999.99 bps", LinkBandwidth::fromWire(k124_999).toStrep(false));
}

TEST(ExtCommLinkBandwidth, PolicyForms) {
    struct Case {
        U16 as;
        U32 bandwidth;
        U8 format;
        char const* text;
    } const cases[] = {
        {65000, k1_25e9, 0, "65000:1.25e+09"},
        {65000, k1_25e9, 1, "65000:1.25e+09"},
        {65000, k1_25e9, 2, "lbw 65000:1.25e+09"},
        {65000, k1_25e9, 4, "65000:1.25e+09"},
        {65000, k1_25e9, 6, "Link-Bandwidth-AS:65000:10 Gbps"},
        {65000, k1_25e9, 38, "Link-Bandwidth-AS:65000:1250000000"},
        {65000, k1_25e9, 14, "Link-Bandwidth-AS:65000:10 Gbps"},
        {65000, k1_25e9, 62, "Link-Bandwidth-AS:65000:1250000000"},
        // Weighted only changes the UI form.
        {65000, k1_25e9, 34, "lbw 65000:1.25e+09"},
        {65000, k1e9, 0, "65000:1e+09"},
        {65000, k1e9, 2, "lbw 65000:1e+09"},
        {65000, k1e9, 6, "Link-Bandwidth-AS:65000:8 Gbps"},
        {65000, k1_5625e8, 0, "65000:1.5625e+08"},
        {65000, k1_5625e8, 6, "Link-Bandwidth-AS:65000:1.25 Gbps"},
        {1, kZero, 0, "1:0"},
        {1, kZero, 2, "lbw 1:0"},
        {1, kZero, 6, "Link-Bandwidth-AS:1:0 bps"},
        {1, kZero, 38, "Link-Bandwidth-AS:1:0"},
        {0, kOne, 2, "lbw 0:1"},
        {65535, k125, 22, "Link-Bandwidth-AS:65535:1 Kbps"},
        {65535, k125, 18, "lbw 65535:125"},
        {65000, kQuietNan, 0, "65000:nan"},
        {65000, kQuietNan, 6, "Link-Bandwidth-AS:65000:invalid"},
        {65000, kInfinity, 2, "lbw 65000:inf"},
        {65000, kMinusInfinity, 0, "65000:-inf"},
        {65000, kMinusOne, 0, "65000:-1"},
        {65000, kMinusOne, 38, "Link-Bandwidth-AS:65000:invalid"},
    };
    for (auto const& c : cases) {
        auto comm = lbw(c.as, c.bandwidth);
        EXPECT_EQ(c.text, comm->toStrepForPolicy(ExtComm::StrepFormat(c.format)).view())
            << derived(*comm) << " format " << unsigned(c.format);
    }
}

TEST(ExtCommLinkBandwidth, EveryFormat) {
    expectEveryFormat(*lbw(65000, k1_25e9), [](ExtComm::StrepFormat f) {
        return byClassification(f, "65000:1.25e+09", "lbw 65000:1.25e+09",
                                f.strepFormatLinkBwWeighted() ? "Link-Bandwidth-AS:65000:1250000000"
                                                              : "Link-Bandwidth-AS:65000:10 Gbps");
    });
    expectEveryFormat(*lbw(7, kQuietNan), [](ExtComm::StrepFormat f) {
        return byClassification(f, "7:nan", "lbw 7:nan", "Link-Bandwidth-AS:7:invalid");
    });
}

TEST(ExtCommLinkBandwidth, DerivedForms) {
    struct Case {
        U16 as;
        U32 bandwidth;
        char const* text;
    } const cases[] = {
        {65000, k1_25e9, "<LinkBandwidth 65000:1.25e+09 0x4004fde84e9502f9>"},
        {65000, k1e9, "<LinkBandwidth 65000:1e+09 0x4004fde84e6e6b28>"},
        {0, kZero, "<LinkBandwidth 0:0 0x4004000000000000>"},
        {65535, kOne, "<LinkBandwidth 65535:1 0x4004ffff3f800000>"},
        {65000, kQuietNan, "<LinkBandwidth 65000:nan 0x4004fde87fc00000>"},
        {65000, kInfinity, "<LinkBandwidth 65000:inf 0x4004fde87f800000>"},
    };
    for (auto const& c : cases)
        EXPECT_EQ(c.text, derived(*lbw(c.as, c.bandwidth)));
}

TEST(ExtCommLinkBandwidth, ClassificationAndLayout) {
    auto comm = lbw(65000, k1_25e9);
    EXPECT_EQ(extCommClassificationLinkBandwidth, comm->classification());
    EXPECT_EQ(extCommPktTypeNonTransTwoOctetAs, comm->pktType());
    EXPECT_FALSE(comm->fourOctetAs());
    EXPECT_EQ(65000u, comm->asNumber());
    EXPECT_EQ(1.25e9f, comm->linkBandwidth().bytesPerSecond());
    EXPECT_FALSE(comm->policyMatchStrepUI());
    auto twin = ExtCommLinkBandwidth::ExtCommLinkBandwidthIs(ExtCommContent(lbwContent(1, kOne)));
    EXPECT_EQ(extCommClassificationLinkBandwidth, twin->classification());
    EXPECT_EQ(sizeof(ExtComm), sizeof(ExtCommLinkBandwidth));
}

TEST(ExtCommLinkBandwidth, UnspecifiedAsNumberMeansAsZero) {
    EXPECT_TRUE(lbw(0, k1_25e9)->isLinkBandwidthWithUnspecifiedAsNumber());
    EXPECT_TRUE(lbw(0, kZero)->isLinkBandwidthWithUnspecifiedAsNumber());
    EXPECT_FALSE(lbw(1, kZero)->isLinkBandwidthWithUnspecifiedAsNumber());
    EXPECT_FALSE(lbw(65535, kZero)->isLinkBandwidthWithUnspecifiedAsNumber());
}

TEST(ExtCommLinkBandwidth, ValidityFollowsTheBandwidth) {
    EXPECT_TRUE(lbw(1, kZero)->isValid());
    EXPECT_TRUE(lbw(1, k1_25e9)->isValid());
    EXPECT_FALSE(lbw(1, kMinusOne)->isValid());
    EXPECT_FALSE(lbw(1, kQuietNan)->isValid());
    EXPECT_FALSE(lbw(1, kInfinity)->isValid());
}

TEST(ExtCommLinkBandwidth, SmallerBandwidthIsBetter) {
    struct Case {
        U16 as;
        U32 bandwidth;
        U16 otherAs;
        U32 otherBandwidth;
        bool better;
    } const cases[] = {
        {1, kOne, 1, k1e9, true},
        {1, k1e9, 1, kOne, false},
        {1, kOne, 1, kOne, false},
        // The bandwidth decides, not the content: AS 2 beats AS 1 here.
        {2, kOne, 1, k1e9, true},
        {1, k1e9, 2, kOne, false},
        {1, kMinusOne, 1, kZero, true},
        // -0 and 0 are equal floats.
        {1, kNegativeZero, 1, kZero, false},
        {1, kZero, 1, kNegativeZero, false},
        {1, kQuietNan, 1, kOne, false},
        {1, kOne, 1, kQuietNan, false},
        {1, kQuietNan, 1, kQuietNan, false},
        {1, kOne, 1, kInfinity, true},
    };
    for (auto const& c : cases) {
        ExtComm::PtrConst other = lbw(c.otherAs, c.otherBandwidth);
        EXPECT_EQ(c.better, lbw(c.as, c.bandwidth)->isBetterThan(other))
            << std::hex << c.bandwidth << " vs " << c.otherBandwidth;
    }
}

TEST(ExtCommLinkBandwidthDeathTest, NullOtherIsAProgramError) {
    auto comm = lbw(1, kOne);
    EXPECT_ASSERT_DEATH(comm->isBetterThan(ExtComm::PtrConst()), "other != nullptr");
}

}  // namespace
}  // namespace Routing::Bgp
