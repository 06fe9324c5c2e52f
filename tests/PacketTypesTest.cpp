#include <algorithm>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "Kiv/Errors.h"
#include "TestUtil.h"
#include "VoBgp/VoBgpCommunityPacketTypes.h"
#include "VoFmt/StackBackedBuffer.h"

namespace Routing::Bgp {
namespace {

// One row per packet enumeration: the octets it accepts, its Unknown member's
// name and the values that are declared but deliberately not accepted.
struct PacketEnumRow {
    char const* name;
    char const* unknownName;
    std::vector<unsigned> nameOnly;
    std::vector<unsigned> valid;
    void (*check)(PacketEnumRow const&);
};

bool contains(std::vector<unsigned> const& values, unsigned v) {
    return std::find(values.begin(), values.end(), v) != values.end();
}

template <class E, E (*byName)(Kiv::String const&), E (*byValue)(U32)>
void checkPacketEnum(PacketEnumRow const& row) {
    SCOPED_TRACE(row.name);
    static_assert(std::is_same_v<std::underlying_type_t<E>, U16>);
    EXPECT_EQ(std::string("Routing::Bgp::") + row.name, Kiv::enumTable<E>().typeName);

    E const unknown = static_cast<E>(0x100);
    EXPECT_EQ(unknown, byName(Kiv::String(row.unknownName)));
    EXPECT_EQ(row.unknownName, stringValue(unknown));

    std::vector<unsigned> declaredInvalid;
    for (auto const& m : Kiv::enumTable<E>().members) {
        std::string name(m.name);
        EXPECT_EQ(m.value, byName(Kiv::String(name))) << name;
        EXPECT_EQ(m.value, byValue(static_cast<U32>(m.value))) << name;
        EXPECT_EQ(name, valueToStrep(m.value));
        std::ostringstream os;
        os << m.value;
        EXPECT_EQ(name, os.str());
        Kiv::String text(name + ")");
        auto it = text.begin();
        E parsed = unknown;
        sequenceToValue(it, text.end(), &parsed);
        EXPECT_EQ(m.value, parsed) << name;
        EXPECT_EQ(')', *it);
        unsigned v = static_cast<unsigned>(m.value);
        EXPECT_TRUE(v <= 0xff || v == 0x100) << name;
        if (v <= 0xff && !contains(row.valid, v))
            declaredInvalid.push_back(v);
    }
    EXPECT_EQ(row.nameOnly, declaredInvalid);

    for (unsigned v = 0; v <= 0x100; ++v)
        EXPECT_EQ(contains(row.valid, v), bgpIsValidEnumMember(static_cast<E>(v))) << v;
}

#define ROW(Name, unknownName, nameOnly, ...)                                          \
    PacketEnumRow {                                                                    \
#Name, unknownName, nameOnly,                                                  \
            {__VA_ARGS__ }, &checkPacketEnum < Name, &Name##Instance, &Name##Instance> \
    }
#define NONE \
    std::vector<unsigned> {}

std::vector<PacketEnumRow> const kPacketEnums = {
    ROW(BgpExtCommPktType, "extCommPktTypeUnknown", NONE, 0x00, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06,
        0x08, 0x40, 0x41, 0x42, 0x43, 0x44, 0x80, 0x81, 0x82),
    ROW(BgpExtCommIp6PktType, "extCommIp6PktTypeUnknown", NONE, 0x00, 0x40),
    ROW(BgpExtCommPktSubtypeTransTwoOctetAs, "extCommPktSubtypeTransTwoOctetAsUnknown",
        std::vector<unsigned>{20}, 2, 3, 5, 8, 9, 10, 16),
    ROW(BgpExtCommPktSubtypeTransIpv4Address, "extCommPktSubtypeTransIpv4AddressUnknown", NONE, 2,
        3, 5, 7, 10, 11, 12, 16),
    ROW(BgpExtCommPktSubtypeTransFourOctetAs, "extCommPktSubtypeTransFourOctetAsUnknown", NONE, 2,
        3, 4, 5, 8, 9, 16),
    ROW(BgpExtCommPktSubtypeTransOpaque, "extCommPktSubtypeTransOpaqeUnknown", NONE, 1, 3, 6, 11,
        12, 13),
    ROW(BgpExtCommPktSubtypeEvpn, "extCommPktSubtypeEvpnUnknown", NONE, 0, 1, 2, 3, 4, 5, 6, 8, 9,
        10, 11, 12),
    ROW(BgpExtCommPktSubtypeTransFlowspecRedirectNexthop,
        "extCommPktSubtypeFlowspecRedirectUnknown", NONE, 0),
    ROW(BgpExtCommPktSubtypeTransGeneric, "extCommPktSubtypeTransGenericUnknown", NONE, 6, 7, 8, 9,
        10, 11),
    ROW(BgpExtCommPktSubtypeTransGenericPart2, "extCommPktSubtypeTransGenericPart2Unknown", NONE,
        8),
    ROW(BgpExtCommPktSubtypeTransGenericPart3, "extCommPktSubtypeTransGenericPart3Unknown", NONE,
        8),
    ROW(BgpExtCommPktSubtypeNonTransTwoOctetAs, "extCommPktSubtypeNonTransTwoOctetAsUnknown", NONE,
        4, 128),
    ROW(BgpExtCommPktSubtypeNonTransIpv4Address, "extCommPktSubtypeNonTransIpv4AddressUnknown",
        NONE),
    ROW(BgpExtCommPktSubtypeNonTransFourOctetAs, "extCommPktSubNonTransFourOctetAsUnknown", NONE,
        4),
    ROW(BgpExtCommPktSubtypeNonTransOpaque, "extCommPktSubtypeNonTransOpaqueUnknown", NONE, 0, 1),
    ROW(BgpExtCommIp6PktSubtypeTransIpv6Address, "extCommIp6PktSubtypeTransIpv6AddressUnknown",
        NONE, 2, 3, 4, 11, 12, 16, 17, 18),
    ROW(BgpExtCommIp6PktSubtypeNonTransIpv6Address,
        "extCommIp6PktSubtypeNonTransIpv6AddressUnknown", NONE),
};

#undef ROW
#undef NONE

TEST(PacketTypes, EveryPacketEnumerationRoundTripsAndAcceptsExactlyItsOctets) {
    ASSERT_EQ(17u, kPacketEnums.size());
    for (auto const& row : kPacketEnums)
        row.check(row);
}

TEST(PacketTypes, TypeOctetMapsToItsMemberOrUnknown) {
    for (unsigned t : {0x07u, 0x09u, 0x45u, 0x83u, 0xffu})
        EXPECT_EQ(extCommPktTypeUnknown, extCommPktTypeFromOctet(static_cast<U8>(t))) << t;
    EXPECT_EQ(extCommPktTypeNonTransOpaque, extCommPktTypeFromOctet(0x43));
    EXPECT_EQ(extCommPktTypeTransGenericPart3, extCommPktTypeFromOctet(0x82));
    EXPECT_EQ(extCommIp6PktTypeUnknown, bgpEnumFromOctet<BgpExtCommIp6PktType>(0x01));
    EXPECT_EQ(extCommPktSubtypeTransTwoOctetAsUnknown,
              bgpEnumFromOctet<BgpExtCommPktSubtypeTransTwoOctetAs>(20));
}

TEST(PacketTypes, SubtypeFamilyIsChosenByTypeMember) {
    struct Case {
        BgpExtCommPktType type;
        char const* subtypeEnum;  // "" when the type has no subtype octet
    };
    Case const cases[] = {
        {extCommPktTypeTransTwoOctetAs, "BgpExtCommPktSubtypeTransTwoOctetAs"},
        {extCommPktTypeTransIpv4Address, "BgpExtCommPktSubtypeTransIpv4Address"},
        {extCommPktTypeTransFourOctetAs, "BgpExtCommPktSubtypeTransFourOctetAs"},
        {extCommPktTypeTransOpaque, "BgpExtCommPktSubtypeTransOpaque"},
        {extCommPktTypeTransQosMarking, ""},
        {extCommPktTypeTransCosCapability, ""},
        {extCommPktTypeTransEvpn, "BgpExtCommPktSubtypeEvpn"},
        {extCommPktTypeTransFlowspecRedirectNexthop,
         "BgpExtCommPktSubtypeTransFlowspecRedirectNexthop"},
        {extCommPktTypeTransGeneric, "BgpExtCommPktSubtypeTransGeneric"},
        {extCommPktTypeTransGenericPart2, "BgpExtCommPktSubtypeTransGenericPart2"},
        {extCommPktTypeTransGenericPart3, "BgpExtCommPktSubtypeTransGenericPart3"},
        {extCommPktTypeNonTransTwoOctetAs, "BgpExtCommPktSubtypeNonTransTwoOctetAs"},
        {extCommPktTypeNonTransIpv4Address, "BgpExtCommPktSubtypeNonTransIpv4Address"},
        {extCommPktTypeNonTransFourOctetAs, "BgpExtCommPktSubtypeNonTransFourOctetAs"},
        {extCommPktTypeNonTransOpaque, "BgpExtCommPktSubtypeNonTransOpaque"},
        {extCommPktTypeNonTransQosMarking, ""},
        {extCommPktTypeUnknown, ""},
    };
    for (auto const& c : cases) {
        std::string seen;
        bool has = withExtCommSubtypeEnum(c.type, [&](auto tag) {
            seen = Kiv::enumTable<typename decltype(tag)::type>().typeName;
        });
        EXPECT_EQ(*c.subtypeEnum != '\0', has) << c.type;
        EXPECT_EQ(*c.subtypeEnum ? std::string("Routing::Bgp::") + c.subtypeEnum : "", seen);
    }
}

TEST(PacketTypes, SubtypeStringNamesValidMembersAndNumbersTheRest) {
    struct Case {
        Kiv::String (*text)(U8);
        U8 octet;
        char const* expected;
    };
    Case const cases[] = {
        {&extCommSubtypeString<BgpExtCommPktSubtypeTransTwoOctetAs>, 2,
         "extCommPktSubtypeTransTwoOctetAsRouteTarget"},
        // Declared, but not a subtype this family accepts.
        {&extCommSubtypeString<BgpExtCommPktSubtypeTransTwoOctetAs>, 20, "subtype=20"},
        {&extCommSubtypeString<BgpExtCommPktSubtypeTransTwoOctetAs>, 255, "subtype=255"},
        {&extCommSubtypeString<BgpExtCommPktSubtypeNonTransIpv4Address>, 0, "subtype=0"},
        {&extCommSubtypeString<BgpExtCommPktSubtypeNonTransOpaque>, 0,
         "extCommPktSubtypeNonTransOriginValidationState"},
        {&extCommSubtypeString<BgpExtCommPktSubtypeEvpn>, 7, "subtype=7"},
    };
    for (auto const& c : cases)
        EXPECT_EQ(c.expected, c.text(c.octet).str());

    VoFmt::StackBackedBuffer<64> buf;
    appendExtCommSubtypeString<BgpExtCommPktSubtypeTransOpaque>(buf, 0x0b);
    buf.append(' ');
    appendExtCommSubtypeString<BgpExtCommPktSubtypeTransOpaque>(buf, 0x0e);
    EXPECT_EQ("extCommPktSubtypeTransOpaqueColorExtendedCommunity subtype=14", buf.view());
    EXPECT_FALSE(buf.onHeap());
}

TEST(PacketTypes, MisspelledNamesAreTheMembers) {
    EXPECT_EQ(
        extCommPktSubtypeTransOpaqeUnknown,
        BgpExtCommPktSubtypeTransOpaqueInstance(Kiv::String("extCommPktSubtypeTransOpaqeUnknown")));
    EXPECT_EQ(256, extCommPktSubtypeTransOpaqeUnknown);
    EXPECT_THROW(
        BgpExtCommPktSubtypeTransOpaqueInstance(Kiv::String("extCommPktSubtypeTransOpaqueUnknown")),
        Kiv::RangeError);
    EXPECT_EQ("extCommPktSubtypeNonTransTwoOctetAsLinkBandwidthAny",
              stringValue(static_cast<BgpExtCommPktSubtypeTransTwoOctetAs>(20)));
    EXPECT_FALSE(bgpIsValidEnumMember(extCommPktSubtypeNonTransTwoOctetAsLinkBandwidthAny));
}

TEST(PacketTypes, ClassificationAndWellKnownCommunities) {
    static_assert(std::is_same_v<std::underlying_type_t<ExtCommClassification>, U8>);
    static_assert(std::is_same_v<std::underlying_type_t<BgpCommunityValue>, U32>);
    EXPECT_EQ(11, extCommClassificationOneBeyondLast);
    EXPECT_EQ(12u, Kiv::enumTable<ExtCommClassification>().members.size());
    unsigned expected = 0;
    for (auto const& m : Kiv::enumTable<ExtCommClassification>().members)
        EXPECT_EQ(expected++, static_cast<unsigned>(m.value)) << m.name;
    EXPECT_EQ(extCommClassificationVrfRouteImport,
              ExtCommClassificationInstance(Kiv::String("extCommClassificationVrfRouteImport")));
    EXPECT_EQ("Routing::Bgp::ExtCommClassification",
              Kiv::enumTable<ExtCommClassification>().typeName);

    EXPECT_EQ(communityNoExportSubconfed,
              BgpCommunityValueInstance(Kiv::String("communityNoExportSubconfed")));
    EXPECT_EQ(0xFFFF0006u, communityLlgrStale);
    EXPECT_EQ("communityGshut", stringValue(BgpCommunityValueInstance(0xFFFF0000u)));
    EXPECT_EQ("communityInternet", stringValue(communityInternet));
    EXPECT_EQ("Routing::Bgp::BgpCommunityValue", Kiv::enumTable<BgpCommunityValue>().typeName);
}

TEST(PktSubtype, HoldsAnOctetOrNothing) {
    BgpExtCommPktSubtype none;
    EXPECT_TRUE(none.unspecified());
    EXPECT_EQ("-", valueToStrep(none).str());
    BgpExtCommPktSubtype zero(0);
    EXPECT_NE(none, zero);
    EXPECT_LT(none, zero);
    EXPECT_EQ(255u, U64(BgpExtCommPktSubtype(255)));
    EXPECT_THROW(BgpExtCommPktSubtype(256), Kiv::RangeError);
    std::ostringstream os;
    os << std::hex << BgpExtCommPktSubtype(20) << ' ' << none;
    EXPECT_EQ("20 -", os.str());
}

TEST(PktSubtype, ParsesItsTextFormWithinRange) {
    EXPECT_EQ(BgpExtCommPktSubtype(7), strepToValue<BgpExtCommPktSubtype>("7"));
    EXPECT_TRUE(strepToValue<BgpExtCommPktSubtype>("-").unspecified());
    EXPECT_THROW(strepToValue<BgpExtCommPktSubtype>("256"), Kiv::RangeError);
    EXPECT_THROW(strepToValue<BgpExtCommPktSubtype>("7x"), Kiv::ParseError);
    EXPECT_THROW(strepToValue<BgpExtCommPktSubtype>(""), Kiv::ParseError);

    Kiv::String text("12 rest");
    auto it = text.begin();
    BgpExtCommPktSubtype parsed;
    sequenceToValue(it, text.end(), &parsed);
    EXPECT_EQ(BgpExtCommPktSubtype(12), parsed);
    EXPECT_EQ(' ', *it);
}

}  // namespace
}  // namespace Routing::Bgp
