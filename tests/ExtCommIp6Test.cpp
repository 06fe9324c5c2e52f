// IPv6-address-specific extended communities (20 octets), and the IPv6
// addresses they carry: the canonical text (RFC 5952) and every RFC 4291
// spelling.

#include "TestUtil.h"
#include "VoBgp/ExtCommIp6.h"
#include "VoBgp/VoBgpMiscTypes.h"
#include "Vok/HashMix.h"
#include "Vonet/Ip6Addr.h"

namespace Routing::Bgp {
namespace {

ExtCommIp6Content content(U8 type, U8 subtype, char const* address, U16 localAdmin) {
    Vonet::Ip6Addr addr;
    EXPECT_TRUE(Vonet::Ip6Addr::parse(address, &addr)) << address;
    return ExtCommIp6Content{type, subtype, addr, localAdmin};
}

ExtCommIp6::PtrConst subtyped(ExtCommIp6Content const& c) {
    return extCommIp6SubtypedFactory(extCommClassificationUnSpecified, c);
}

TEST(ExtCommIp6Content, OrderHashAndText) {
    // Order: type, subtype, address, local administrator.
    EXPECT_LT(content(0x00, 0x02, "2001:db8::1", 7), content(0x00, 0x02, "2001:db8::1", 8));
    EXPECT_LT(content(0x00, 0x02, "2001:db8::1", 9), content(0x00, 0x02, "2001:db8::2", 1));
    EXPECT_LT(content(0x00, 0xff, "ffff::", 9), content(0x40, 0x00, "::", 0));
    // The twenty wire octets in order, the local administrator low octet
    // first; the classification is not part of the value.
    auto c = content(0x00, 0x02, "2001:db8::1", 0x1234);
    Vok::HashMix mix;
    for (U8 octet :
         {0x00, 0x02, 0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x01, 0x34, 0x12})
        mix.mixOctet(octet);
    EXPECT_EQ(mix.result(), c.hash());
    EXPECT_EQ(extCommIp6Factory(extCommClassificationRouteTarget, c)->hash(),
              extCommIp6Factory(extCommClassificationUnSpecified, c)->hash());
    // The text writes the type and subtype as raw octets and reads numbers,
    // cut to the field widths unchecked.
    EXPECT_EQ(std::string("type=\0;subtype=\x02;addr=2001:db8::1;localAdmin=100", 48),
              valueToStrep(content(0x00, 0x02, "2001:db8::1", 100)).str());
    EXPECT_EQ(valueToStrep(c).str(), streamed(c));
    EXPECT_EQ(content(0x01, 0xff, "::", 1),
              strepToValue<ExtCommIp6Content>("type=257;subtype=-1;addr=::;localAdmin=65537"));
    for (char const* bad : {"type=0;subtype=2;addr=::1;local=1", "type=0;addr=::1;localAdmin=1",
                            "type=0;subtype=2;addr=;localAdmin=1"})
        EXPECT_THROW(strepToValue<ExtCommIp6Content>(bad), Kiv::ParseError) << bad;
}

TEST(ExtCommIp6, AccessorsAndDerivedForms) {
    auto c = content(0x00, 0x02, "2001:db8::1", 7);
    auto plain = extCommIp6Factory(extCommClassificationRouteTarget, c);
    EXPECT_TRUE(plain->pktSubtype().isUnspecified());
    EXPECT_TRUE(plain->compare(subtyped(c).ptr()));
    EXPECT_TRUE(plain->compareByContent(c));
    EXPECT_FALSE(plain->compareByContent(content(0x00, 0x02, "2001:db8::1", 8)));
    EXPECT_EQ(BgpExtCommPktSubtype(2), subtyped(c)->pktSubtype());

    struct Case {
        ExtCommIp6::PtrConst comm;
        char const* text;
    } const cases[] = {
        {subtyped(c),
         "<extCommIp6PktTypeTransIpv6Address extCommIp6PktSubtypeRouteTarget addr=2001:db8::1 "
         "localAdmin=7>"},
        {subtyped(content(0x00, 0x05, "::", 0)),
         "<extCommIp6PktTypeTransIpv6Address subtype=5 addr=:: localAdmin=0>"},
        // The non-transitive family names no octet.
        {subtyped(content(0x40, 0x02, "fe80::1", 65535)),
         "<extCommIp6PktTypeNonTransIpv6Address subtype=2 addr=fe80::1 localAdmin=65535>"},
        {subtyped(content(0x01, 0x02, "::1", 1)),
         "<extCommIp6PktTypeUnknown none addr=::1 localAdmin=1>"},
        {plain, "<extCommIp6PktTypeTransIpv6Address addr=2001:db8::1 localAdmin=7>"},
    };
    for (auto const& k : cases) {
        EXPECT_EQ(k.text, streamedHex(k.comm));
        EXPECT_EQ(k.text, k.comm->toStrep().str());
    }
    EXPECT_EQ("NULL", streamed(ExtCommIp6::PtrConst()));
    // The stream's own format survives printing.
    std::ostringstream os;
    os << std::hex << plain << 255;
    EXPECT_EQ(std::string(cases[4].text) + "ff", os.str());
}

TEST(ExtCommIp6, PolicyFormsAndFormatFlags) {
    using F = ExtCommIp6::StrepFormat;
    auto comm = subtyped(content(0x00, 0x02, "2001:db8::1", 7));
    auto nonTrans = subtyped(content(0x40, 0x03, "::ffff:10.0.0.1", 70));
    // Only classification with UI adds the type; the other flags change nothing.
    for (U8 bits = 0; bits < 32; ++bits) {
        bool const typed = (bits & 6) == 6;
        EXPECT_EQ(typed ? "0002-IP6:2001:db8::1:7" : "2001:db8::1:7",
                  comm->toStrepForPolicy(F(bits)).str())
            << int(bits);
    }
    EXPECT_EQ("0003-IP6(NT):::ffff:10.0.0.1:70", nonTrans->toStrepForPolicy(F(6)));
    EXPECT_THROW(F(32), Kiv::DenseBoolSetRangeError);
    F const some(20);
    std::string const text =
        "Value('Routing::Bgp::ExtCommIp6::StrepFormat', ** {'strepFormatDefault': False, "
        "'strepFormatClassification': False, 'strepFormatUI': True, 'strepFormatAsdot': False, "
        "'strepFormatLinkBwWeighted': True})";
    EXPECT_EQ(text, streamed(some));
    EXPECT_EQ(some, strepToValue<F>(Kiv::String(text)));
}

TEST(ExtCommIp6DeathTest, FamilyAccessorsCheckTheirCommunity) {
    auto nonTrans = subtyped(content(0x40, 0x02, "::1", 1));
    EXPECT_EQ("subtype=2", nonTrans->pktSubtypeNonTransIpv6AddressAsString());
    EXPECT_ASSERT_DEATH(nonTrans->pktSubtypeTransIpv6AddressAsString(),
                        "extCommIp6PktTypeTransIpv6Address_ == pktType()");
    EXPECT_ASSERT_DEATH(
        subtyped(content(0x00, 0x02, "::1", 1))->pktSubtypeNonTransIpv6AddressAsString(),
        "extCommIp6PktTypeNonTransIpv6Address_ == pktType()");
    auto unsubtyped = extCommIp6Factory(extCommClassificationUnSpecified, content(0, 2, "::1", 1));
    EXPECT_ASSERT_DEATH(unsubtyped->pktSubtypeTransIpv6AddressAsString(),
                        "!pktSubtype().isUnspecified()");
    auto nonTransPlain =
        extCommIp6Factory(extCommClassificationUnSpecified, content(0x40, 0x02, "::1", 1));
    EXPECT_ASSERT_DEATH(nonTransPlain->pktSubtypeNonTransIpv6AddressAsString(),
                        "!pktSubtype().isUnspecified()");
}

using Vonet::Ip6Addr;

Ip6Addr groups(U16 a, U16 b, U16 c, U16 d, U16 e, U16 f, U16 g, U16 h) {
    return Ip6Addr::fromGroups({a, b, c, d, e, f, g, h});
}

Ip6Addr parsed(std::string_view text) {
    Ip6Addr addr;
    EXPECT_TRUE(Ip6Addr::parse(text, &addr)) << text;
    return addr;
}

TEST(Ip6Addr, CanonicalTextParsesBack) {
    for (auto [addr, text] : Rows<Ip6Addr, char const*>{
             {Ip6Addr(), "::"},
             {groups(0, 0, 0, 0, 0, 0, 0, 1), "::1"},
             {groups(1, 0, 0, 0, 0, 0, 0, 0), "1::"},
             // A single zero group is not shortened.
             {groups(0x2001, 0xdb8, 0, 1, 1, 1, 1, 1), "2001:db8:0:1:1:1:1:1"},
             // The longest run wins; of equal runs the first.
             {groups(0x2001, 0, 0, 1, 0, 0, 0, 1), "2001:0:0:1::1"},
             {groups(0x2001, 0xdb8, 0, 0, 1, 0, 0, 1), "2001:db8::1:0:0:1"},
             // Lower case, leading zeros dropped.
             {groups(0xABCD, 0x00EF, 0x0001, 0x0010, 0x0100, 0x1000, 0xFFFF, 0x0000),
              "abcd:ef:1:10:100:1000:ffff:0"},
             // IPv4-mapped addresses show their IPv4 part dotted; others never.
             {groups(0, 0, 0, 0, 0, 0xffff, 0xc000, 0x0201), "::ffff:192.0.2.1"},
             {groups(0, 0, 0, 0, 0, 0, 0xc000, 0x0201), "::c000:201"},
             {groups(0, 0, 0, 0, 0, 0xfffe, 0xc000, 0x0201), "::fffe:c000:201"},
         }) {
        EXPECT_EQ(text, addr.toStrep());
        EXPECT_EQ(text, streamed(addr));
        EXPECT_EQ(addr, parsed(text)) << text;
    }
    // The printer writes into a caller's buffer of the documented size.
    char buffer[Ip6Addr::strepSizeMax + 1];
    EXPECT_EQ(39u, groups(0x1111, 0x2222, 0x3333, 0x4444, 0x5555, 0x6666, 0x7777, 0x8888)
                       .printToBuffer(buffer));
    EXPECT_STREQ("1111:2222:3333:4444:5555:6666:7777:8888", buffer);
    EXPECT_LT(parsed("::ffff"), parsed("0:0:0:0:0:0:1:0"));
    EXPECT_LT(parsed("fe80::"), parsed("ff00::"));
}

TEST(Ip6Addr, ParsesEverySpellingAndRejectsTheRest) {
    for (char const* text : {"2001:0DB8:0000:0000:0000:0000:C000:0201", "2001:db8::192.0.2.1",
                             "2001:db8:0:0:0:0:192.0.2.1"})
        EXPECT_EQ(groups(0x2001, 0xdb8, 0, 0, 0, 0, 0xc000, 0x0201), parsed(text)) << text;
    // Refused, and the target left untouched.
    auto rejects = [](std::initializer_list<char const*> texts) {
        for (char const* text : texts) {
            Ip6Addr addr = groups(9, 9, 9, 9, 9, 9, 9, 9);
            EXPECT_FALSE(Ip6Addr::parse(text, &addr)) << text;
            EXPECT_EQ(groups(9, 9, 9, 9, 9, 9, 9, 9), addr) << text;
        }
    };
    rejects({"", ":", ":::", "1", "1:2:3:4:5:6:7", "1:2:3:4:5:6:7:8:9", "1::2::3",
             ":1::", "1::2:", "1:2:3:4:5:6:7:8::"});
    rejects({"12345::", "g::", "1:2:3:4:5:6:7:1.2.3.4", "::1.2.3", "::1.2.3.4.5", "::256.1.1.1",
             "::01.1.1.1", "::1.2.3.4:5", "1.2.3.4", "::ffff:1..2.3"});
    // The framework parser stops at the address, and refuses without moving.
    Kiv::String text("2001:db8::1;rest");
    auto it = text.begin();
    Ip6Addr addr;
    sequenceToValue(it, text.end(), &addr);
    EXPECT_EQ(';', *it);
    Kiv::String bad("2001:db8:::1");
    auto badIt = bad.begin();
    EXPECT_THROW(sequenceToValue(badIt, bad.end(), &addr), Kiv::ParseError);
    EXPECT_EQ(bad.begin(), badIt);
}

}  // namespace
}  // namespace Routing::Bgp
