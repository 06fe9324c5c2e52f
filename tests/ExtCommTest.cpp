#include <sstream>

#include "Kiv/Errors.h"
#include "TestUtil.h"
#include "VoBgp/VoBgpCommunity.h"

namespace Routing::Bgp {
namespace {

ExtCommContent content(U64 v) {
    return ExtCommContent(v);
}

std::string derived(ExtComm::PtrConst const& c) {
    std::ostringstream os;
    os << c;
    return os.str();
}

TEST(ExtCommContent, HexFormAndItsInverse) {
    struct Case {
        U64 value;
        char const* text;
    } const cases[] = {
        {0x0002FDE800000064, "0x0002fde800000064"},
        {0, "000000000000000000"},
        {1, "0x0000000000000001"},
        {0xFFFFFFFFFFFFFFFF, "0xffffffffffffffff"},
    };
    for (auto const& c : cases) {
        std::ostringstream os;
        os << content(c.value);
        EXPECT_EQ(c.text, os.str());
        EXPECT_EQ(c.text, valueToStrep(content(c.value)));
        EXPECT_EQ(content(c.value), strepToValue<ExtCommContent>(Kiv::String(c.text)));
    }
    EXPECT_THROW(strepToValue<ExtCommContent>(Kiv::String("0x")), Kiv::ParseError);
    EXPECT_THROW(strepToValue<ExtCommContent>(Kiv::String("0x10000000000000000")), Kiv::RangeError);
}

TEST(ExtComm, StaysWithinThirtyTwoBytes) {
    EXPECT_LE(sizeof(ExtComm), 32u);
}

TEST(ExtComm, AccessorsReadTheWireOctets) {
    auto rt = extCommSubtypedFactory(extCommClassificationRouteTarget, content(0x0002FDE800000064));
    EXPECT_EQ(extCommPktTypeTransTwoOctetAs, rt->pktType());
    EXPECT_EQ(BgpExtCommPktSubtype(2), rt->pktSubtype());
    EXPECT_EQ(extCommClassificationRouteTarget, rt->classification());
    EXPECT_TRUE(rt->isTransitive());
    EXPECT_EQ(0x0002FDE800000064u, rt->community());

    auto plain = extCommFactory(extCommClassificationUnSpecified, content(0x0702000000000000));
    EXPECT_EQ(extCommPktTypeUnknown, plain->pktType());
    EXPECT_TRUE(plain->pktSubtype().isUnspecified());
    auto nonTransitive =
        extCommFactory(extCommClassificationUnSpecified, content(0x4004FDE800000064));
    EXPECT_FALSE(nonTransitive->isTransitive());
}

TEST(ExtComm, DerivedForms) {
    struct Case {
        bool subtyped;
        U64 value;
        char const* text;
    } const cases[] = {
        {true, 0x0002FDE800000064,
         "<extCommPktTypeTransTwoOctetAs extCommPktSubtypeTransTwoOctetAsRouteTarget "
         "0x0002fde800000064>"},
        // Declared but invalid subtype: shown by number.
        {true, 0x0014000000000001, "<extCommPktTypeTransTwoOctetAs subtype=20 0x0014000000000001>"},
        {false, 0x0400000000000001, "<extCommPktTypeTransQosMarking 0x0400000000000001>"},
        {false, 0x0700000000000000, "<extCommPktTypeUnknown 0x0700000000000000>"},
        {true, 0x0600000000000000,
         "<extCommPktTypeTransEvpn extCommPktSubtypeEvpnMacMobility 0x0600000000000000>"},
        {true, 0x4300000000000002,
         "<extCommPktTypeNonTransOpaque extCommPktSubtypeNonTransOriginValidationState "
         "0x4300000000000002>"},
        {true, 0x4105000000000000,
         "<extCommPktTypeNonTransIpv4Address subtype=5 0x4105000000000000>"},
        {false, 0, "<extCommPktTypeTransTwoOctetAs 000000000000000000>"},
    };
    for (auto const& c : cases) {
        ExtComm::PtrConst comm = c.subtyped
                                     ? ExtComm::PtrConst(extCommSubtypedFactory(
                                           extCommClassificationUnSpecified, content(c.value)))
                                     : ExtComm::PtrConst(extCommFactory(
                                           extCommClassificationUnSpecified, content(c.value)));
        EXPECT_EQ(c.text, derived(comm));
        EXPECT_EQ(c.text, comm->toStrep());
    }
    EXPECT_EQ("NULL", derived(ExtComm::PtrConst()));
}

TEST(ExtComm, PrintingKeepsTheStreamFlags) {
    auto comm = extCommFactory(extCommClassificationUnSpecified, content(0x0400000000000001));
    std::ostringstream os;
    os << std::hex << comm.ptr() << ' ' << 255;
    EXPECT_EQ("<extCommPktTypeTransQosMarking 0x0400000000000001> ff", os.str());
}

TEST(ExtComm, BasePolicyFormNeedsClassificationAndUI) {
    auto nt = extCommSubtypedFactory(extCommClassificationUnSpecified, content(0x4004FDE800000064));
    auto t = extCommSubtypedFactory(extCommClassificationUnSpecified, content(0x0002FDE800000064));
    EXPECT_EQ("0004(NT)fde800000064", nt->toStrepForUI());
    EXPECT_EQ("0002fde800000064", t->toStrepForUI(true, true, true));
    for (unsigned bits = 0; bits < 64; ++bits) {
        ExtComm::StrepFormat f(bits);
        bool shown = f.strepFormatClassification() && f.strepFormatUI();
        EXPECT_EQ(shown ? "0002fde800000064" : "", t->toStrepForPolicy(f).view()) << bits;
    }
}

TEST(ExtComm, UiFormatsAreTheEightCombinations) {
    U8 expected[] = {6, 38, 14, 46, 22, 54, 30, 62};
    int i = 0;
    for (bool asdot : {false, true})
        for (bool json : {false, true})
            for (bool weighted : {false, true})
                EXPECT_EQ(expected[i++], ExtComm::uiFormat(asdot, weighted, json).value());
}

TEST(ExtComm, BetterMeansNumericallyLower) {
    auto low = extCommFactory(extCommClassificationUnSpecified, content(1));
    auto high = extCommFactory(extCommClassificationUnSpecified, content(2));
    EXPECT_TRUE(low->isBetterThan(high));
    EXPECT_FALSE(high->isBetterThan(low));
    EXPECT_FALSE(low->isBetterThan(low));
}

TEST(ExtComm, InterningHooksIgnoreTheClassification) {
    auto a = extCommFactory(extCommClassificationUnSpecified, content(9));
    auto b = extCommFactory(extCommClassificationColor, content(9));
    EXPECT_EQ(a->hash(), b->hash());
    EXPECT_TRUE(a->compare(b.ptr()));
    EXPECT_TRUE(a->compareByContent(content(9)));
    EXPECT_FALSE(a->compareByContent(content(8)));
}

TEST(StrepFormat, TextFormAndRange) {
    ExtComm::StrepFormat all(63);
    EXPECT_EQ(
        "Value('Routing::Bgp::ExtComm::StrepFormat', ** {'strepFormatDefault': True, "
        "'strepFormatClassification': True, 'strepFormatUI': True, 'strepFormatJson': True, "
        "'strepFormatAsdot': True, 'strepFormatLinkBwWeighted': True})",
        valueToStrep(all));
    ExtComm::StrepFormat some(0x12);
    EXPECT_EQ(some, strepToValue<ExtComm::StrepFormat>(valueToStrep(some)));
    EXPECT_THROW(ExtComm::StrepFormat(64), Kiv::DenseBoolSetRangeError);
}

TEST(ExtCommTypeAsString, WritesTypeSubtypeNameAndMarker) {
    EXPECT_EQ("0002-AS", extCommTypeAsString("-AS", 0x00, 0x02, true));
    EXPECT_EQ("0004-AS(NT)", extCommTypeAsString("-AS", 0x40, 0x04, false));
    EXPECT_EQ("820b", extCommTypeAsString("", 0xC2, 0x0b, true));
}

TEST(ExtCommAsNumber, GenericFormsOfBothLayouts) {
    struct Case {
        U64 value;
        bool fourOctet;
        U8 format;
        char const* text;
    } const cases[] = {
        {0x0005FDE800000064, false, 6, "0005-AS:65000:100"},
        {0x0005FDE800000064, false, 0, "65000:100"},
        {0x0005FDE8FFFFFFFF, false, 2, "65000:4294967295"},
        {0x0205000100000064, true, 6, "0205-AS4:65536:100"},
        {0x0205000100000064, true, 22, "0205-AS4:1.0:100"},
        {0x02050000FFFF0064, true, 22, "0205-AS4:65535:100"},
        {0x0205FFFFFFFF0064, true, 22, "0205-AS4:65535.65535:100"},
        {0x4204000100000007, true, 6, "0204-AS4(NT):65536:7"},
    };
    for (auto const& c : cases) {
        auto comm =
            extCommAsNumberFactory(extCommClassificationUnSpecified, content(c.value), c.fourOctet);
        EXPECT_EQ(c.text, comm->toStrepForPolicy(ExtComm::StrepFormat(c.format)).view());
    }
    auto two = extCommAsNumberFactory(extCommClassificationUnSpecified, content(0x0005FDE800000064),
                                      false);
    EXPECT_EQ(
        "<extCommPktTypeTransTwoOctetAs extCommPktSubtypeTransTwoOctetAsOspfDomainIdentifier "
        "ASN=65000 0x0005fde800000064>",
        two->toStrep());
    EXPECT_EQ(extCommClassificationUnSpecified, two->classification());
    auto four =
        extCommAsNumberFactory(extCommClassificationRouteTarget, content(0x0202000100000064), true);
    EXPECT_TRUE(four->fourOctetAs());
    EXPECT_EQ(extCommClassificationRouteTarget, four->classification());
    EXPECT_EQ("1.0", four->formatAsNumber(true));
    EXPECT_EQ("65536", four->formatAsNumber(false));
}

TEST(ExtCommIpv4Address, GenericForms) {
    auto comm =
        extCommIpv4AddressFactory(extCommClassificationUnSpecified, content(0x41050A0102030007));
    EXPECT_EQ("0105-IP(NT):10.1.2.3:7", comm->toStrepForUI());
    EXPECT_EQ("10.1.2.3:7", comm->toStrepForPolicy(ExtComm::StrepFormat(2)));
    EXPECT_EQ("<extCommPktTypeNonTransIpv4Address subtype=5 10.1.2.3 0x41050a0102030007>",
              comm->toStrep());
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
}

TEST(ExtComm, FamilyAccessorsNameOrNumberTheSubtype) {
    auto rt = extCommSubtypedFactory(extCommClassificationUnSpecified, content(0x0002000000000000));
    EXPECT_EQ("extCommPktSubtypeTransTwoOctetAsRouteTarget", rt->pktSubtypeTransTwoOctetAsString());
    auto any =
        extCommSubtypedFactory(extCommClassificationUnSpecified, content(0x0014000000000000));
    EXPECT_EQ("subtype=20", any->pktSubtypeTransTwoOctetAsString());
    auto opaque =
        extCommSubtypedFactory(extCommClassificationUnSpecified, content(0x0300000000000000));
    EXPECT_EQ("subtype=0", opaque->pktSubtypeTransOpaqueString());
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
