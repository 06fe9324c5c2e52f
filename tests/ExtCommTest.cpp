// The 8-octet value, the community classes built by factory (what the
// parser tables of ExtCommPluginsTest and ExtCommFormsTest cannot reach),
// the link bandwidth a link-bandwidth community carries, and the packet
// vocabulary: which octets each enumeration accepts and the optional
// subtype octet.
#include <cmath>

#include "Routing/Rib/LinkBandwidth.h"
#include "TestUtil.h"
#include "VoBgp/Parse/ExtCommLinkBandwidth.h"
#include "VoBgp/Parse/ExtCommRouteOrigin.h"
#include "VoBgp/Parse/ExtCommRouteTarget.h"
#include "VoBgp/VoBgpCommunity.h"
#include "VoBgp/VoBgpCommunityPacketTypes.h"
#include "VoFmt/StackBackedBuffer.h"

namespace Routing::Bgp {
namespace {

ExtCommContent content(U64 v) {
    return ExtCommContent(v);
}

TEST(ExtCommContent, HexFormAndItsInverse) {
    for (auto [value, text] : Rows<U64, char const*>{{0x0002FDE800000064, "0x0002fde800000064"},
                                                     {0, "000000000000000000"},
                                                     {0xFFFFFFFFFFFFFFFF, "0xffffffffffffffff"}}) {
        EXPECT_EQ(text, streamed(content(value)));
        EXPECT_EQ(text, valueToStrep(content(value)));
        EXPECT_EQ(content(value), strepToValue<ExtCommContent>(Kiv::String(text)));
    }
    EXPECT_EQ(content(0xABC), strepToValue<ExtCommContent>(Kiv::String("abc")));
    EXPECT_THROW(strepToValue<ExtCommContent>(Kiv::String("0x")), Kiv::ParseError);
    EXPECT_THROW(strepToValue<ExtCommContent>(Kiv::String("0x10000000000000000")), Kiv::RangeError);
}

// Forms of objects the parser never builds this way: a subtyped community
// of a type without a subtype family names its subtype "none", a plain one
// shows no subtype at all.
TEST(ExtComm, DerivedFormsOfFactoryBuiltCommunities) {
    for (auto [subtyped, value, text] : Rows<bool, U64, char const*>{
             {true, 0x0401020304050607, "<extCommPktTypeTransQosMarking none 0x0401020304050607>"},
             {true, 0x0700000000000000, "<extCommPktTypeUnknown none 0x0700000000000000>"},
             {true, 0x0600000000000000,
              "<extCommPktTypeTransEvpn extCommPktSubtypeEvpnMacMobility 0x0600000000000000>"},
             {true, 0x0300000000000000, "<extCommPktTypeTransOpaque subtype=0 0x0300000000000000>"},
             {false, 0x0002FDE800000064, "<extCommPktTypeTransTwoOctetAs 0x0002fde800000064>"},
             {false, 0, "<extCommPktTypeTransTwoOctetAs 000000000000000000>"},
         }) {
        ExtComm::PtrConst comm = subtyped ? ExtComm::PtrConst(extCommSubtypedFactory(
                                                extCommClassificationUnSpecified, content(value)))
                                          : ExtComm::PtrConst(extCommFactory(
                                                extCommClassificationUnSpecified, content(value)));
        EXPECT_EQ(text, streamed(comm));
        EXPECT_EQ(text, comm->toStrep());
    }
    EXPECT_EQ("NULL", streamed(ExtComm::PtrConst()));
    // The stream's own format survives printing.
    std::ostringstream os;
    os << std::hex << extCommFactory(extCommClassificationUnSpecified, content(0x0400000000000001))
       << ' ' << 255;
    EXPECT_EQ("<extCommPktTypeTransQosMarking 0x0400000000000001> ff", os.str());
}

TEST(ExtComm, UiFormatsAreTheEightCombinations) {
    U8 expected[] = {6, 38, 14, 46, 22, 54, 30, 62};
    int i = 0;
    for (bool asdot : {false, true})
        for (bool json : {false, true})
            for (bool weighted : {false, true})
                EXPECT_EQ(expected[i++], ExtComm::uiFormat(asdot, weighted, json).value());
}

TEST(ExtComm, BetterMeansNumericallyLowerAndIgnoresTheClassification) {
    auto make = [](U64 v, ExtCommClassification c = extCommClassificationUnSpecified) {
        return ExtComm::PtrConst(extCommFactory(c, content(v)));
    };
    EXPECT_TRUE(make(1)->isBetterThan(make(2)));
    EXPECT_FALSE(make(2)->isBetterThan(make(1)));
    EXPECT_FALSE(make(1)->isBetterThan(make(1, extCommClassificationColor)));
    EXPECT_TRUE(make(0x7FFFFFFFFFFFFFFF)->isBetterThan(make(0x8000000000000000)));
    // Interning sees the content alone.
    EXPECT_TRUE(make(9)->compare(make(9, extCommClassificationColor).ptr()));
    EXPECT_FALSE(make(9)->compareByContent(content(8)));
}

TEST(StrepFormat, TextFormAndRange) {
    EXPECT_EQ(
        "Value('Routing::Bgp::ExtComm::StrepFormat', ** {'strepFormatDefault': True, "
        "'strepFormatClassification': True, 'strepFormatUI': True, 'strepFormatJson': True, "
        "'strepFormatAsdot': True, 'strepFormatLinkBwWeighted': True})",
        valueToStrep(ExtComm::StrepFormat(63)));
    ExtComm::StrepFormat some(0x12);
    EXPECT_EQ(some, strepToValue<ExtComm::StrepFormat>(Kiv::String(streamed(some))));
    EXPECT_THROW(ExtComm::StrepFormat(64), Kiv::DenseBoolSetRangeError);
}

TEST(ExtCommTypeAsString, WritesTypeSubtypeNameAndMarker) {
    EXPECT_EQ("0002-AS", extCommTypeAsString("-AS", 0x00, 0x02, true));
    EXPECT_EQ("0004-AS(NT)", extCommTypeAsString("-AS", 0x40, 0x04, false));
    EXPECT_EQ("820b", extCommTypeAsString("", 0xC2, 0x0b, true));
}

TEST(ExtCommDeathTest, FamilyAccessorsCheckTypeAndSubtype) {
    auto qos = extCommFactory(extCommClassificationUnSpecified, content(0x0400000000000000));
    EXPECT_ASSERT_DEATH(qos->pktSubtypeTransTwoOctetAsString(),
                        "extCommPktTypeTransTwoOctetAs_ == pktType()");
    auto evpnPlain = extCommFactory(extCommClassificationUnSpecified, content(0x0600000000000000));
    EXPECT_ASSERT_DEATH(evpnPlain->pktSubtypeEvpnString(), "!pktSubtype().isUnspecified()");
    auto flow = extCommFactory(extCommClassificationUnSpecified, content(0x0200000000000000));
    EXPECT_ASSERT_DEATH(flow->pktSubtypeFlowspecRedirectNexthopString(),
                        "extCommPktTypeTransFlowspecRedirectNexthop_ == pktType()");
    // The AS-number route target and origin are built for types 0x00 and
    // 0x02 only.
    auto rt = ExtCommRouteTargetAs::ExtCommRouteTargetAsIs(content(0x4002FDE800000064), false);
    EXPECT_ASSERT_DEATH(rt->toStrep(), "unexpected type");
    auto ro = extCommRouteOriginAsFactory(content(0x0103000100000064), true);
    EXPECT_ASSERT_DEATH(ro->toStrep(), "unexpected type");
    // As does the link bandwidth's order without another community.
    auto lbw = extCommLinkBandwidthFactory(content(0x4004000100000000));
    EXPECT_ASSERT_DEATH(lbw->isBetterThan(ExtComm::PtrConst()), "other != nullptr");
}

using Rib::LinkBandwidth;

// IEEE 754 single-precision bit patterns, as they arrive in octets 4-7.
constexpr U32 kZero = 0x00000000;
constexpr U32 kNegativeZero = 0x80000000;
constexpr U32 kOne = 0x3F800000;
constexpr U32 kMinusOne = 0xBF800000;
constexpr U32 kSmallestDenormal = 0x00000001;
constexpr U32 kLargest = 0x7F7FFFFF;
constexpr U32 kInfinity = 0x7F800000;
constexpr U32 kMinusInfinity = 0xFF800000;
constexpr U32 kQuietNan = 0x7FC00000;
constexpr U32 k1e9 = 0x4E6E6B28;     // 1e9 bytes/s = 8 Gbps
constexpr U32 k1_25e9 = 0x4E9502F9;  // 1.25e9 bytes/s = 10 Gbps

ExtCommLinkBandwidth::PtrConst lbw(U16 as, U32 bandwidthBits) {
    return extCommLinkBandwidthFactory(
        ExtCommContent(U64(0x4004) << 48 | U64(as) << 32 | bandwidthBits));
}

// Valid means finite and not negative (-0 included); any bit pattern,
// NaNs too, goes back to the wire as received.
TEST(LinkBandwidth, ValidityAndWireBits) {
    for (auto [bits, valid] : Rows<U32, bool>{{kZero, true},
                                              {kNegativeZero, true},
                                              {kSmallestDenormal, true},
                                              {kLargest, true},
                                              {0x80000001, false},
                                              {kInfinity, false},
                                              {kMinusInfinity, false},
                                              {kQuietNan, false},
                                              {0xFFC00001, false}}) {
        EXPECT_EQ(valid, LinkBandwidth::fromWire(bits).isValid()) << std::hex << bits;
        EXPECT_EQ(bits, LinkBandwidth::fromWire(bits).toWire());
    }
    EXPECT_EQ(8e9, LinkBandwidth::fromWire(k1e9).bitsPerSecond());
}

TEST(LinkBandwidth, RateAndWeightTexts) {
    struct Case {
        float bytesPerSecond;
        char const* rate;
        char const* weight;
    } const cases[] = {
        {-0.0f, "0 bps", "0"},
        {0.1f, "0.8 bps", "0.1"},
        {124.999f, "999.99 bps", "124.999"},
        // 999.9999 bps would round to "1000 bps": shown in the next unit.
        {124.99999f, "1 Kbps", "125"},
        {125.0f, "1 Kbps", "125"},
        {123456.0f, "987.65 Kbps", "123456"},
        {124998752.0f, "999.99 Mbps", "124998752"},
        {1.5625e8f, "1.25 Gbps", "156250000"},
        {1099511627776.0f, "8.8 Tbps", "1099511627776"},
        // Above the largest unit the number just grows.
        {1.5e20f, "1200000024.05 Tbps", "1.5e+20"},
        {1.4e-45f, "0 bps", "1.4013e-45"},
        {-1.0f, "invalid", "invalid"},
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
}

// Valid when its bandwidth is; AS 0 stands for an unspecified AS.
TEST(ExtCommLinkBandwidth, ValidityAndUnspecifiedAs) {
    struct Case {
        U16 as;
        U32 bandwidth;
        bool valid;
    } const cases[] = {{0, k1_25e9, true},    {1, kZero, true},      {65535, kNegativeZero, true},
                       {0, kMinusOne, false}, {7, kQuietNan, false}, {7, kInfinity, false}};
    for (auto const& c : cases) {
        EXPECT_EQ(c.valid, lbw(c.as, c.bandwidth)->isValid()) << std::hex << c.bandwidth;
        EXPECT_EQ(c.as == 0, lbw(c.as, c.bandwidth)->isLinkBandwidthWithUnspecifiedAsNumber());
    }
}

// The bandwidth decides, not the content: the smaller one is better.
TEST(ExtCommLinkBandwidth, SmallerBandwidthIsBetter) {
    for (auto [as, bandwidth, otherAs, otherBandwidth, better] : Rows<U16, U32, U16, U32, bool>{
             {1, kOne, 1, k1e9, true},
             {1, k1e9, 1, kOne, false},
             {1, kOne, 1, kOne, false},
             {2, kOne, 1, k1e9, true},
             // -0 and 0 are equal floats; NaN is never better nor worse.
             {1, kNegativeZero, 1, kZero, false},
             {1, kQuietNan, 1, kOne, false},
             {1, kOne, 1, kQuietNan, false},
         }) {
        ExtComm::PtrConst other = lbw(otherAs, otherBandwidth);
        EXPECT_EQ(better, lbw(as, bandwidth)->isBetterThan(other))
            << std::hex << bandwidth << " vs " << otherBandwidth;
    }
}

// One row per packet enumeration: its type name, its Unknown member's name
// (misspellings included) and exactly the octets it accepts.
struct PacketEnumRow {
    char const* name;
    char const* unknownName;
    std::vector<unsigned> valid;
    void (*check)(PacketEnumRow const&);
};

template <class E, E (*byName)(Kiv::String const&)>
void checkPacketEnum(PacketEnumRow const& row) {
    EXPECT_EQ(std::string("Routing::Bgp::") + row.name, Kiv::enumTable<E>().typeName);
    E const unknown = static_cast<E>(0x100);
    EXPECT_EQ(unknown, byName(Kiv::String(row.unknownName))) << row.name;
    EXPECT_EQ(row.unknownName, stringValue(unknown));
    for (unsigned v = 0; v <= 0x100; ++v) {
        bool const valid = std::count(row.valid.begin(), row.valid.end(), v) != 0;
        EXPECT_EQ(valid, bgpIsValidEnumMember(static_cast<E>(v))) << row.name << " " << v;
        if (v < 0x100) {
            EXPECT_EQ(valid ? static_cast<E>(v) : unknown, bgpEnumFromOctet<E>(U8(v)));
        }
    }
}

#define ROW(Name, unknownName, ...)                                                   \
    PacketEnumRow {                                                                   \
#Name, unknownName, {__VA_ARGS__ }, &checkPacketEnum < Name, &Name##Instance> \
    }

TEST(PacketTypes, EveryPacketEnumerationAcceptsExactlyItsOctets) {
    PacketEnumRow const rows[] = {
        ROW(BgpExtCommPktType, "extCommPktTypeUnknown", 0x00, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06,
            0x08, 0x40, 0x41, 0x42, 0x43, 0x44, 0x80, 0x81, 0x82),
        ROW(BgpExtCommIp6PktType, "extCommIp6PktTypeUnknown", 0x00, 0x40),
        // 20 is declared (it carries a name) but not accepted.
        ROW(BgpExtCommPktSubtypeTransTwoOctetAs, "extCommPktSubtypeTransTwoOctetAsUnknown", 2, 3, 5,
            8, 9, 10, 16),
        ROW(BgpExtCommPktSubtypeTransIpv4Address, "extCommPktSubtypeTransIpv4AddressUnknown", 2, 3,
            5, 7, 10, 11, 12, 16),
        ROW(BgpExtCommPktSubtypeTransFourOctetAs, "extCommPktSubtypeTransFourOctetAsUnknown", 2, 3,
            4, 5, 8, 9, 16),
        ROW(BgpExtCommPktSubtypeTransOpaque, "extCommPktSubtypeTransOpaqeUnknown", 1, 3, 6, 11, 12,
            13),
        ROW(BgpExtCommPktSubtypeEvpn, "extCommPktSubtypeEvpnUnknown", 0, 1, 2, 3, 4, 5, 6, 8, 9, 10,
            11, 12),
        ROW(BgpExtCommPktSubtypeTransFlowspecRedirectNexthop,
            "extCommPktSubtypeFlowspecRedirectUnknown", 0),
        ROW(BgpExtCommPktSubtypeTransGeneric, "extCommPktSubtypeTransGenericUnknown", 6, 7, 8, 9,
            10, 11),
        ROW(BgpExtCommPktSubtypeTransGenericPart2, "extCommPktSubtypeTransGenericPart2Unknown", 8),
        ROW(BgpExtCommPktSubtypeTransGenericPart3, "extCommPktSubtypeTransGenericPart3Unknown", 8),
        ROW(BgpExtCommPktSubtypeNonTransTwoOctetAs, "extCommPktSubtypeNonTransTwoOctetAsUnknown", 4,
            128),
        ROW(BgpExtCommPktSubtypeNonTransIpv4Address, "extCommPktSubtypeNonTransIpv4AddressUnknown"),
        ROW(BgpExtCommPktSubtypeNonTransFourOctetAs, "extCommPktSubNonTransFourOctetAsUnknown", 4),
        ROW(BgpExtCommPktSubtypeNonTransOpaque, "extCommPktSubtypeNonTransOpaqueUnknown", 0, 1),
        ROW(BgpExtCommIp6PktSubtypeTransIpv6Address, "extCommIp6PktSubtypeTransIpv6AddressUnknown",
            2, 3, 4, 11, 12, 16, 17, 18),
        ROW(BgpExtCommIp6PktSubtypeNonTransIpv6Address,
            "extCommIp6PktSubtypeNonTransIpv6AddressUnknown"),
    };
    for (auto const& row : rows)
        row.check(row);
    // The name-only member keeps its name.
    EXPECT_EQ("extCommPktSubtypeNonTransTwoOctetAsLinkBandwidthAny",
              stringValue(static_cast<BgpExtCommPktSubtypeTransTwoOctetAs>(20)));
    EXPECT_THROW(
        BgpExtCommPktSubtypeTransOpaqueInstance(Kiv::String("extCommPktSubtypeTransOpaqueUnknown")),
        Kiv::RangeError);
    // The well-known standard communities by name.
    EXPECT_EQ("communityGshut", stringValue(BgpCommunityValueInstance(0xFFFF0000u)));
    EXPECT_EQ(0xFFFF0006u, BgpCommunityValueInstance(Kiv::String("communityLlgrStale")));
}

#undef ROW

// The optional subtype octet: a value 0-255 or unspecified ("-").
TEST(PktSubtype, HoldsAnOctetOrNothing) {
    EXPECT_LT(BgpExtCommPktSubtype(), BgpExtCommPktSubtype(0));
    EXPECT_THROW(BgpExtCommPktSubtype(256), Kiv::RangeError);
    EXPECT_EQ("255", streamedHex(BgpExtCommPktSubtype(255)));
    EXPECT_EQ("-", valueToStrep(BgpExtCommPktSubtype()).str());
    EXPECT_TRUE(strepToValue<BgpExtCommPktSubtype>("-").unspecified());
    EXPECT_EQ(BgpExtCommPktSubtype(12), strepToValue<BgpExtCommPktSubtype>("12"));
    EXPECT_THROW(strepToValue<BgpExtCommPktSubtype>("256"), Kiv::RangeError);
}

TEST(ExtCommDeathTest, AssertIsDedupedStopsOnlyOnAPrivateCommunity) {
    auto table = Vok::DedupHashTableUnorderedSet::create(false);
    auto comm = extCommFactory(extCommClassificationUnSpecified, content(1));
    EXPECT_ASSERT_DEATH_IN(comm->assertIsDeduped(),
                           "dedupState() != Vok::dedupHandleStateNeverDeduped()",
                           "void Vok::DedupHandle::assertIsDeduped() const");
    Vok::DedupHandle::PtrConst interned = table->dedup(comm.ptr());
    interned->assertIsDeduped();
    auto copy = extCommFactory(extCommClassificationUnSpecified, content(2));
    copy->dedupStateNotToBeDedupedIs();
    copy->assertIsDeduped();
}

}  // namespace
}  // namespace Routing::Bgp
