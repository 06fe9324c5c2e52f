// Path attributes on the wire: the octet buffer, the attribute header in
// its short and extended forms, and the attribute enumerations.

#include "Routing/Bgp/Serialize.h"
#include "TestUtil.h"
#include "VoBgp/BgpPathAttributeEnums.h"
#include "VoBgp/VoBgpSerialize.h"

namespace SerializeTest {

using namespace Routing::Bgp;
using Octets = std::vector<U8>;

Octets octetsOf(Kiv::String const& s, std::size_t n = ~std::size_t(0)) {
    return Octets(s.begin(), s.begin() + std::min(n, s.size()));
}

void fill(Serialize& out, U32 count) {
    for (U32 i = 0; i < count; ++i)
        out.addU8(static_cast<U8>(i));
}

TEST(Serialize, NetworkOrderAndGrowthKeepTheOctets) {
    Serialize out;
    U8 const address[16] = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x01};
    out.addU8(0xAB);
    out.addU16hton(0x1234);
    out.addU32hton(0x89ABCDEF);
    out.addU64hton(0x0102030405060708ull);
    out.addIpv6Addr(address);
    out.addOctets("xy", 2);
    Octets expected = {0xAB, 0x12, 0x34, 0x89, 0xAB, 0xCD, 0xEF, 1, 2, 3, 4, 5, 6, 7, 8};
    expected.insert(expected.end(), address, address + 16);
    expected.insert(expected.end(), {'x', 'y'});
    EXPECT_EQ(expected, octetsOf(out.serializedString(0)));
    EXPECT_EQ(Octets(expected.begin() + 3, expected.end()), octetsOf(out.serializedString(3)));
    EXPECT_FALSE(out.onHeap());

    // Growing past the inline storage, and again from the heap, keeps every
    // octet.
    Serialize big;
    fill(big, 4095);
    big.addU32hton(0xDEADBEEF);  // straddles the inline boundary
    EXPECT_TRUE(big.onHeap());
    fill(big, 10000);
    Kiv::String s = big.serializedString(0);
    ASSERT_EQ(4095u + 4 + 10000, s.size());
    EXPECT_EQ(Octets({0xFD, 0xFE, 0xDE, 0xAD, 0xBE, 0xEF, 0x00}),
              Octets(s.begin() + 4093, s.begin() + 4100));
}

TEST(SerializePathAttribute, HeaderFormsAndExactLengths) {
    struct Case {
        BgpPathAttrType type;
        BgpPathAttrFlag flags;
        U32 size;
        Octets header;
    } const cases[] = {
        {community, optionalTransitive, 12, {0xC0, 0x08, 0x0C}},
        {extCommunityIp6, optionalTransitive, 300, {0xD0, 0x19, 0x01, 0x2C}},
        // The caller's extLen is honoured for a short value.
        {extCommunityIp6, optionalTransitive | extLen, 20, {0xD0, 0x19, 0x00, 0x14}},
        {community, optionalTransitive, 0, {0xC0, 0x08, 0x00}},
        {community, optionalTransitive, 255, {0xC0, 0x08, 0xFF}},
        {community, optionalTransitive, 256, {0xD0, 0x08, 0x01, 0x00}},
        {largeCommunity, optionalTransitive, 65535, {0xD0, 0x20, 0xFF, 0xFF}},
        // Low flag bits go out as given; the type octet may be 255.
        {reservedForDevelopment, BgpPathAttrFlagInstance(0x4F), 1, {0x4F, 0xFF, 0x01}},
    };
    for (auto const& c : cases) {
        SerializePathAttribute attr(c.type, c.flags, c.size);
        EXPECT_EQ(c.header.size(), attr.headerSize()) << c.size;
        EXPECT_EQ(c.size, attr.attrSize());
        fill(attr, c.size);
        Kiv::String s = attr.serializedString();
        ASSERT_EQ(c.header.size() + c.size, s.size());
        EXPECT_EQ(c.header, octetsOf(s, c.header.size())) << c.size;
    }
    // The announced size is reserved up front.
    SerializePathAttribute small(community, optionalTransitive, 4092);
    EXPECT_FALSE(small.onHeap());  // the largest value that fits inline
    SerializePathAttribute large(largeCommunity, optionalTransitive, 60000);
    EXPECT_EQ(60004u, large.capacity());
}

TEST(SerializePathAttribute, ReInitStartsOrAppendsAnotherHeader) {
    SerializePathAttribute attr(extCommunityIp6, optionalTransitive, 300);
    fill(attr, 300);
    attr.clearAndReInit(community, optionalTransitive, 4);
    attr.addU32hton(0xFFFFFF01);
    EXPECT_EQ((Octets{0xC0, 0x08, 0x04, 0xFF, 0xFF, 0xFF, 0x01}),
              octetsOf(attr.serializedString()));
    // reInitHdr appends without touching the announced size.
    SerializePathAttribute twice(community, optionalTransitive, 4);
    twice.reInitHdr(extCommunity, optionalTransitive, 300);
    EXPECT_EQ(4u, twice.headerSize());
    EXPECT_EQ((Octets{0xC0, 0x08, 0x04, 0xD0, 0x10, 0x01, 0x2C}),
              octetsOf(twice.serializedString(0)));
}

TEST(SerializePathAttributeDeathTest, ProgrammingErrorsStopTheProcess) {
    char const* reInitHdr =
        "void Routing::Bgp::SerializePathAttribute::reInitHdr(Routing::Bgp::BgpPathAttrType, "
        "Routing::Bgp::BgpPathAttrFlag, U32)";
    // Checked before anything is written.
    EXPECT_ASSERT_DEATH_IN(SerializePathAttribute(attrTypeUnknown, optionalTransitive, 4),
                           "attrType <= 0xFF", reInitHdr);
    EXPECT_ASSERT_DEATH_IN(SerializePathAttribute(largeCommunity, optionalTransitive, 65536),
                           "attrSize <= 0xFFFF", reInitHdr);
    EXPECT_ASSERT_DEATH_IN(
        {
            SerializePathAttribute attr(community, optionalTransitive, 8);
            attr.addU32hton(1);  // one community short of what was announced
            attr.serializedString();
        },
        "serialized.size() == attrSize_ + headerSize_",
        "Kiv::String Routing::Bgp::SerializePathAttribute::serializedString() const");
}

TEST(SerializePathAttributeAutoExtLen, FitsTheHeaderInFrontOfTheValue) {
    for (auto [valueLen, header] : Rows<U32, Octets>{
             {0, {0xC0, 0x10, 0x00}},
             {255, {0xC0, 0x10, 0xFF}},
             {256, {0xD0, 0x10, 0x01, 0x00}},
             {5000, {0xD0, 0x10, 0x13, 0x88}},
             // The length is taken as sixteen bits: 65537 octets announce 1.
             {65537, {0xC0, 0x10, 0x01}},
         }) {
        SerializePathAttributeAutoExtLen attr;
        fill(attr, valueLen);
        Kiv::String value = attr.serializeAttributeValue();
        Kiv::String s = attr.patchHdrAndStringify(extCommunity, optionalTransitive);
        ASSERT_EQ(header.size() + valueLen, s.size()) << valueLen;
        EXPECT_EQ(header, octetsOf(s, header.size()));
        EXPECT_EQ(header.size(), attr.headerSize());
        EXPECT_EQ(value.view(), s.view().substr(header.size()));
        EXPECT_EQ(4 + valueLen, attr.size());  // the write position is restored
    }
    SerializedBgpPrefixSidAttribute tlv(originatorSrgbTlv, 0x1234);
    EXPECT_EQ((Octets{0x03, 0x12, 0x34}), octetsOf(tlv.serializedString(0)));
}

TEST(PathAttributeEnums, NamesFlagsAndWidths) {
    EXPECT_EQ("optionalTransitivePartial", valueToStrep(opt | transitive | partial));
    EXPECT_EQ(0xD0, optionalTransitive | extLen);
    EXPECT_EQ("nextHop aspTypeMax originatorSrgbTlv",
              streamed(nextHop) + ' ' + streamed(aspTypeMax) + ' ' + streamed(originatorSrgbTlv));
    // One-octet enums refuse what does not fit rather than truncate.
    EXPECT_THROW(AspTypeInstance(256), Kiv::RangeError);
    EXPECT_EQ(originUnknown, OriginCodeInstance(256));
}

// Labels of the members, and of codes without one (also beyond the octet).
TEST(PathAttributeEnums, ShowStrings) {
    for (auto [code, label] :
         Rows<U32, char const*>{{0, "Invalid Path Attribute"},
                                {3, "Nexthop"},
                                {16, "Extended Community"},
                                {25, "IPv6 Address Specific Extended Community"},
                                {32, "Large Community"},
                                {128, "Attribute Set"},
                                {255, "Reserved for Development"},
                                {11, "Invalid attribute"},
                                {127, "Invalid attribute"},
                                {256, "Invalid attribute"}})
        EXPECT_STREQ(label, bgpPathAttrTypeShowString(BgpPathAttrTypeInstance(code))) << code;
}

}  // namespace SerializeTest
