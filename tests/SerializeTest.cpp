#include <string>
#include <vector>

#include "Routing/Bgp/Serialize.h"
#include "TestUtil.h"
#include "VoBgp/VoBgpSerialize.h"

namespace SerializeTest {

using namespace Routing::Bgp;
using Octets = std::vector<U8>;

Octets octetsOf(Kiv::String const& s) {
    return Octets(s.begin(), s.end());
}

// The first `n` octets of a string.
Octets headOf(Kiv::String const& s, std::size_t n) {
    return Octets(s.begin(), s.begin() + std::min(n, s.size()));
}

void fill(Serialize& out, U32 count) {
    for (U32 i = 0; i < count; ++i)
        out.addU8(static_cast<U8>(i));
}

constexpr char const* kReInitHdr =
    "void Routing::Bgp::SerializePathAttribute::reInitHdr(Routing::Bgp::BgpPathAttrType, "
    "Routing::Bgp::BgpPathAttrFlag, U32)";

TEST(Serialize, WritesMultiOctetValuesInNetworkOrder) {
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
    expected.push_back('x');
    expected.push_back('y');
    EXPECT_EQ(expected, octetsOf(out.serializedString(0)));
    EXPECT_EQ(Octets(expected.begin() + 3, expected.end()), octetsOf(out.serializedString(3)));
    EXPECT_TRUE(out.serializedString(out.size()).empty());
    EXPECT_FALSE(out.onHeap());
}

TEST(Serialize, GrowsPastTheInlineStorageKeepingItsOctets) {
    Serialize out;
    EXPECT_EQ(4096u, out.capacity());
    fill(out, 4095);
    out.addU32hton(0xDEADBEEF);  // straddles the inline boundary
    EXPECT_TRUE(out.onHeap());
    EXPECT_EQ(8192u, out.capacity());
    fill(out, 10000);  // grows again from the heap
    EXPECT_EQ(4095u + 4 + 10000, out.size());
    Kiv::String s = out.serializedString(0);
    ASSERT_EQ(out.size(), s.size());
    for (U32 i = 0; i < 4095; ++i)
        ASSERT_EQ(static_cast<U8>(i), static_cast<U8>(s.data()[i]));
    EXPECT_EQ((Octets{0xDE, 0xAD, 0xBE, 0xEF}), Octets(s.begin() + 4095, s.begin() + 4099));
    EXPECT_EQ(static_cast<U8>(9999), static_cast<U8>(s.data()[s.size() - 1]));
}

TEST(Serialize, GrowBufferInAdvanceAndSizeIs) {
    Serialize out;
    out.addU16hton(0x0102);
    out.growBuffer(100);  // smaller than what it has: no change
    EXPECT_FALSE(out.onHeap());
    out.growBuffer(5000);
    EXPECT_EQ(5000u, out.capacity());
    EXPECT_EQ((Octets{1, 2}), octetsOf(out.serializedString(0)));
    fill(out, 4998);
    EXPECT_EQ(5000u, out.capacity());  // no reallocation up to what was announced
    out.sizeIs(1);
    out.addU8(9);
    EXPECT_EQ((Octets{1, 9}), octetsOf(out.serializedString(0)));
}

struct HeaderCase {
    BgpPathAttrType type;
    BgpPathAttrFlag flags;
    U32 size;
    Octets header;
};

TEST(SerializePathAttribute, HeaderFormsAndExactLengths) {
    HeaderCase const cases[] = {
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
        EXPECT_EQ(c.header, headOf(s, c.header.size())) << c.size;
        if (c.size > 0) {
            EXPECT_EQ(static_cast<U8>(c.size - 1), static_cast<U8>(s.end()[-1]));
        }
    }
}

TEST(SerializePathAttribute, AnnouncedSizeIsReservedUpFront) {
    SerializePathAttribute small(community, optionalTransitive, 4092);
    EXPECT_FALSE(small.onHeap());  // the largest value that fits inline
    SerializePathAttribute large(largeCommunity, optionalTransitive, 60000);
    EXPECT_EQ(60004u, large.capacity());
    fill(large, 60000);
    EXPECT_EQ(60004u, large.capacity());
    EXPECT_EQ(60004u, large.serializedString().size());
}

TEST(SerializePathAttribute, ClearAndReInitStartsAnotherAttribute) {
    SerializePathAttribute attr(extCommunityIp6, optionalTransitive, 300);
    fill(attr, 300);
    attr.clearAndReInit(community, optionalTransitive, 4);
    EXPECT_EQ(3u, attr.headerSize());
    EXPECT_EQ(4u, attr.attrSize());
    attr.addU32hton(0xFFFFFF01);
    EXPECT_EQ((Octets{0xC0, 0x08, 0x04, 0xFF, 0xFF, 0xFF, 0x01}),
              octetsOf(attr.serializedString()));
}

TEST(SerializePathAttribute, ReInitHdrAppendsWithoutTouchingTheAnnouncedSize) {
    SerializePathAttribute attr(community, optionalTransitive, 4);
    attr.reInitHdr(extCommunity, optionalTransitive, 300);
    EXPECT_EQ(4u, attr.headerSize());
    EXPECT_EQ(4u, attr.attrSize());
    EXPECT_EQ((Octets{0xC0, 0x08, 0x04, 0xD0, 0x10, 0x01, 0x2C}),
              octetsOf(attr.serializedString(0)));
}

TEST(SerializePathAttributeDeathTest, ProgrammingErrorsStopTheProcess) {
    // Checked before anything is written.
    EXPECT_ASSERT_DEATH_IN(SerializePathAttribute(attrTypeUnknown, optionalTransitive, 4),
                           "attrType <= 0xFF", kReInitHdr);
    EXPECT_ASSERT_DEATH_IN(SerializePathAttribute(largeCommunity, optionalTransitive, 65536),
                           "attrSize <= 0xFFFF", kReInitHdr);
    EXPECT_ASSERT_DEATH(SerializePathAttribute(largeCommunity, optionalTransitive, 0xFFFFFFFF),
                        "attrSize <= 0xFFFF");
    EXPECT_ASSERT_DEATH_IN(
        {
            SerializePathAttribute attr(community, optionalTransitive, 8);
            attr.addU32hton(1);  // one community short of what was announced
            attr.serializedString();
        },
        "serialized.size() == attrSize_ + headerSize_",
        "Kiv::String Routing::Bgp::SerializePathAttribute::serializedString() const");
    EXPECT_ASSERT_DEATH(
        {
            SerializePathAttribute attr(community, optionalTransitive, 0);
            attr.addU8(1);  // one octet more than announced
            attr.serializedString();
        },
        "serialized.size() == attrSize_ + headerSize_");
}

TEST(SerializePathAttributeAutoExtLen, FitsTheHeaderInFrontOfTheValue) {
    struct Case {
        U32 valueLen;
        std::size_t resultLen;
        Octets header;
    };
    Case const cases[] = {
        {0, 3, {0xC0, 0x10, 0x00}},
        {255, 258, {0xC0, 0x10, 0xFF}},
        {256, 260, {0xD0, 0x10, 0x01, 0x00}},
        {5000, 5004, {0xD0, 0x10, 0x13, 0x88}},
    };
    for (auto const& c : cases) {
        SerializePathAttributeAutoExtLen attr;
        EXPECT_EQ(4u, attr.size());
        fill(attr, c.valueLen);
        Kiv::String value = attr.serializeAttributeValue();
        Kiv::String s = attr.patchHdrAndStringify(extCommunity, optionalTransitive);
        ASSERT_EQ(c.resultLen, s.size()) << c.valueLen;
        EXPECT_EQ(c.header, headOf(s, c.header.size()));
        EXPECT_EQ(c.header.size(), attr.headerSize());
        EXPECT_EQ(value.view(), s.view().substr(c.header.size()));
        EXPECT_EQ(value.view(), attr.serializeAttributeValue().view());
        EXPECT_EQ(4 + c.valueLen, attr.size());  // the write position is restored
        // The result is the buffer from offset 1 (short) or 0 (extended).
        EXPECT_EQ(s.view(),
                  attr.serializedString(static_cast<U32>(4 + c.valueLen - s.size())).view());
    }
}

TEST(SerializePathAttributeAutoExtLen, LengthIsTakenAsSixteenBits) {
    SerializePathAttributeAutoExtLen attr;
    fill(attr, 65536 + 1);
    Kiv::String s = attr.patchHdrAndStringify(largeCommunity, optionalTransitive);
    // 65537 octets announce a length of 1 and keep the short header.
    EXPECT_EQ((Octets{0xC0, 0x20, 0x01}), headOf(s, 3));
    EXPECT_EQ(65537u + 3, s.size());
}

TEST(SerializedBgpPrefixSidAttribute, WritesTheTlvHeader) {
    SerializedBgpPrefixSidAttribute tlv(labelIndexTlv, 7);
    EXPECT_EQ((Octets{0x01, 0x00, 0x07}), octetsOf(tlv.serializedString(0)));
    SerializedBgpPrefixSidAttribute big(originatorSrgbTlv, 0x1234);
    EXPECT_EQ((Octets{0x03, 0x12, 0x34}), octetsOf(big.serializedString(0)));
}

}  // namespace SerializeTest
