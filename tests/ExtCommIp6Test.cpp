#include <sstream>

#include "Kiv/Errors.h"
#include "TestUtil.h"
#include "VoBgp/ExtCommIp6.h"
#include "VoBgp/VoBgpMiscTypes.h"
#include "Vok/HashMix.h"

namespace Routing::Bgp {
namespace {

Vonet::Ip6Addr addr(char const* text) {
    Vonet::Ip6Addr out;
    EXPECT_TRUE(Vonet::Ip6Addr::parse(text, &out)) << text;
    return out;
}

ExtCommIp6Content content(U8 type, U8 subtype, char const* address, U16 localAdmin) {
    return ExtCommIp6Content{type, subtype, addr(address), localAdmin};
}

std::string derived(ExtCommIp6::PtrConst const& comm) {
    std::ostringstream os;
    os << comm;
    return os.str();
}

TEST(ExtCommIp6Content, OrderIsTypeSubtypeAddressLocalAdmin) {
    auto base = content(0x00, 0x02, "2001:db8::1", 7);
    EXPECT_LT(base, content(0x00, 0x02, "2001:db8::1", 8));
    EXPECT_LT(content(0x00, 0x02, "2001:db8::1", 9), content(0x00, 0x02, "2001:db8::2", 1));
    EXPECT_LT(content(0x00, 0x02, "ffff::", 9), content(0x00, 0x03, "::", 0));
    EXPECT_LT(content(0x00, 0xff, "ffff::", 9), content(0x40, 0x00, "::", 0));
    EXPECT_FALSE(base < base);
    EXPECT_EQ(base, content(0x00, 0x02, "2001:db8:0::1", 7));
    EXPECT_NE(base, content(0x00, 0x02, "2001:db8::1", 8));
    EXPECT_NE(base, content(0x40, 0x02, "2001:db8::1", 7));
}

TEST(ExtCommIp6Content, HashesTheTwentyWireOctetsInOrder) {
    auto c = content(0x00, 0x02, "2001:db8::1", 0x1234);
    Vok::HashMix mix;
    for (U8 octet : {0x00, 0x02, 0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x01,
                     // localAdmin, low octet first
                     0x34, 0x12})
        mix.mixOctet(octet);
    EXPECT_EQ(mix.result(), c.hash());
    EXPECT_NE(c.hash(), content(0x00, 0x02, "2001:db8::1", 0x3412).hash());
    // The classification is not part of the value.
    EXPECT_EQ(extCommIp6Factory(extCommClassificationRouteTarget, c)->hash(),
              extCommIp6Factory(extCommClassificationUnSpecified, c)->hash());
}

TEST(ExtCommIp6Content, TextWritesRawOctetsAndReadsNumbers) {
    auto c = content(0x00, 0x02, "2001:db8::1", 100);
    EXPECT_EQ(std::string("type=\0;subtype=\x02;addr=2001:db8::1;localAdmin=100", 48),
              valueToStrep(c).str());
    std::ostringstream os;
    os << c;
    EXPECT_EQ(valueToStrep(c).str(), os.str());

    // Parsing takes numbers and cuts them to the field widths unchecked.
    EXPECT_EQ(content(0x40, 0x02, "2001:db8::1", 100),
              strepToValue<ExtCommIp6Content>("type=64;subtype=2;addr=2001:db8::1;localAdmin=100"));
    EXPECT_EQ(content(0x01, 0xff, "::", 1),
              strepToValue<ExtCommIp6Content>("type=257;subtype=-1;addr=::;localAdmin=65537"));
    // So the printed form reads back only where the octets are digits.
    auto digits = content('4', '2', "::1", 3);
    EXPECT_EQ(content(4, 2, "::1", 3), strepToValue<ExtCommIp6Content>(valueToStrep(digits)));

    for (char const* bad : {"type=0;subtype=2;addr=::1;local=1", "type=0;addr=::1;localAdmin=1",
                            "type=0;subtype=2;addr=;localAdmin=1"})
        EXPECT_THROW(strepToValue<ExtCommIp6Content>(bad), Kiv::ParseError) << bad;
}

TEST(ExtCommIp6, AccessorsAndSubtypedVariant) {
    auto c = content(0x00, 0x02, "2001:db8::1", 7);
    auto plain = extCommIp6Factory(extCommClassificationRouteTarget, c);
    EXPECT_EQ(c, plain->getContent());
    EXPECT_EQ(extCommClassificationRouteTarget, plain->classification());
    EXPECT_EQ(extCommIp6PktTypeTransIpv6Address, plain->pktType());
    EXPECT_TRUE(plain->pktSubtype().isUnspecified());
    EXPECT_TRUE(plain->isTransitive());

    auto subtyped = extCommIp6SubtypedFactory(extCommClassificationUnSpecified, c);
    EXPECT_EQ(BgpExtCommPktSubtype(2), subtyped->pktSubtype());
    EXPECT_EQ("extCommIp6PktSubtypeRouteTarget", subtyped->pktSubtypeTransIpv6AddressAsString());

    EXPECT_EQ(
        extCommIp6PktTypeNonTransIpv6Address,
        extCommIp6Factory(extCommClassificationUnSpecified, content(0x40, 0, "::", 0))->pktType());
    EXPECT_EQ(
        extCommIp6PktTypeUnknown,
        extCommIp6Factory(extCommClassificationUnSpecified, content(0x01, 0, "::", 0))->pktType());

    EXPECT_TRUE(plain->compare(subtyped.ptr()));
    EXPECT_TRUE(plain->compareByContent(c));
    EXPECT_FALSE(plain->compareByContent(content(0x00, 0x02, "2001:db8::1", 8)));
}

TEST(ExtCommIp6, DerivedForms) {
    struct Case {
        bool subtyped;
        ExtCommIp6Content content;
        char const* text;
    } const cases[] = {
        {true, content(0x00, 0x02, "2001:db8::1", 7),
         "<extCommIp6PktTypeTransIpv6Address extCommIp6PktSubtypeRouteTarget addr=2001:db8::1 "
         "localAdmin=7>"},
        {true, content(0x00, 0x05, "::", 0),
         "<extCommIp6PktTypeTransIpv6Address subtype=5 addr=:: localAdmin=0>"},
        // The non-transitive family names no octet.
        {true, content(0x40, 0x02, "fe80::1", 65535),
         "<extCommIp6PktTypeNonTransIpv6Address subtype=2 addr=fe80::1 localAdmin=65535>"},
        {true, content(0x01, 0x02, "::1", 1),
         "<extCommIp6PktTypeUnknown none addr=::1 localAdmin=1>"},
        {false, content(0x00, 0x02, "::1", 1),
         "<extCommIp6PktTypeTransIpv6Address addr=::1 localAdmin=1>"},
    };
    for (auto const& c : cases) {
        ExtCommIp6::PtrConst comm = c.subtyped ? ExtCommIp6::PtrConst(extCommIp6SubtypedFactory(
                                                     extCommClassificationUnSpecified, c.content))
                                               : ExtCommIp6::PtrConst(extCommIp6Factory(
                                                     extCommClassificationUnSpecified, c.content));
        EXPECT_EQ(c.text, derived(comm));
        EXPECT_EQ(c.text, comm->toStrep().str());
    }
    EXPECT_EQ("NULL", derived(nullptr));

    // The stream's own format survives.
    std::ostringstream os;
    os << std::hex
       << extCommIp6SubtypedFactory(extCommClassificationUnSpecified,
                                    content(0x00, 0x02, "::1", 20))
       << 255;
    EXPECT_EQ(
        "<extCommIp6PktTypeTransIpv6Address extCommIp6PktSubtypeRouteTarget addr=::1 "
        "localAdmin=20>ff",
        os.str());
}

TEST(ExtCommIp6, PolicyForms) {
    using F = ExtCommIp6::StrepFormat;
    auto comm = extCommIp6SubtypedFactory(extCommClassificationRouteTarget,
                                          content(0x00, 0x02, "2001:db8::1", 7));
    auto nonTrans = extCommIp6SubtypedFactory(extCommClassificationUnSpecified,
                                              content(0x40, 0x03, "::ffff:10.0.0.1", 70));
    F classificationUi;
    classificationUi.strepFormatClassificationIs(true);
    classificationUi.strepFormatUIIs(true);
    F uiOnly;
    uiOnly.strepFormatUIIs(true);
    F classificationOnly;
    classificationOnly.strepFormatClassificationIs(true);

    EXPECT_EQ("0002-IP6:2001:db8::1:7", comm->toStrepForPolicy(classificationUi));
    EXPECT_EQ("0003-IP6(NT):::ffff:10.0.0.1:70", nonTrans->toStrepForPolicy(classificationUi));
    EXPECT_EQ("2001:db8::1:7", comm->toStrepForPolicy(uiOnly));
    EXPECT_EQ("2001:db8::1:7", comm->toStrepForPolicy(classificationOnly));
    EXPECT_EQ("2001:db8::1:7", comm->toStrepForPolicy(F(0)));
    // The flags this type does not use change nothing.
    EXPECT_EQ("0002-IP6:2001:db8::1:7", comm->toStrepForPolicy(F(31)));
}

TEST(ExtCommIp6, StrepFormatFlagsAndText) {
    using F = ExtCommIp6::StrepFormat;
    F all(31);
    EXPECT_TRUE(all.strepFormatDefault() && all.strepFormatClassification() &&
                all.strepFormatUI() && all.strepFormatAsdot() && all.strepFormatLinkBwWeighted());
    EXPECT_THROW(F(32), Kiv::DenseBoolSetRangeError);
    EXPECT_THROW(F(32), Kiv::RangeError);

    F some;
    some.strepFormatUIIs(true);
    some.strepFormatLinkBwWeightedIs(true);
    std::string const text =
        "Value('Routing::Bgp::ExtCommIp6::StrepFormat', ** {'strepFormatDefault': False, "
        "'strepFormatClassification': False, 'strepFormatUI': True, 'strepFormatAsdot': False, "
        "'strepFormatLinkBwWeighted': True})";
    EXPECT_EQ(text, valueToStrep(some).str());
    std::ostringstream os;
    os << some;
    EXPECT_EQ(text, os.str());
    Kiv::String parsedText(text);
    auto it = parsedText.begin();
    F back;
    sequenceToValue(it, parsedText.end(), &back);
    EXPECT_EQ(some, back);
    EXPECT_EQ(parsedText.end(), it);
}

TEST(ExtCommIp6DeathTest, FamilyAccessorsCheckTheirCommunity) {
    auto nonTrans =
        extCommIp6SubtypedFactory(extCommClassificationUnSpecified, content(0x40, 0x02, "::1", 1));
    auto unsubtyped =
        extCommIp6Factory(extCommClassificationUnSpecified, content(0x00, 0x02, "::1", 1));
    EXPECT_EQ("subtype=2", nonTrans->pktSubtypeNonTransIpv6AddressAsString());
    EXPECT_ASSERT_DEATH(nonTrans->pktSubtypeTransIpv6AddressAsString(),
                        "extCommIp6PktTypeTransIpv6Address_ == pktType()");
    EXPECT_ASSERT_DEATH(unsubtyped->pktSubtypeTransIpv6AddressAsString(),
                        "!pktSubtype().isUnspecified()");
    auto trans =
        extCommIp6SubtypedFactory(extCommClassificationUnSpecified, content(0x00, 0x02, "::1", 1));
    EXPECT_ASSERT_DEATH(trans->pktSubtypeNonTransIpv6AddressAsString(),
                        "extCommIp6PktTypeNonTransIpv6Address_ == pktType()");
    auto nonTransPlain =
        extCommIp6Factory(extCommClassificationUnSpecified, content(0x40, 0x02, "::1", 1));
    EXPECT_ASSERT_DEATH(nonTransPlain->pktSubtypeNonTransIpv6AddressAsString(),
                        "!pktSubtype().isUnspecified()");
}

}  // namespace
}  // namespace Routing::Bgp
