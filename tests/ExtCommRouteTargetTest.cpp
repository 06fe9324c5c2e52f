// Route targets and route origins: both layouts, every format.
#include <sstream>
#include <string>

#include "ExtCommFormCheck.h"
#include "TestUtil.h"
#include "VoBgp/Parse/ExtCommRouteOrigin.h"
#include "VoBgp/Parse/ExtCommRouteTarget.h"

namespace Routing::Bgp {
namespace {

using FormCheck::byClassification;
using FormCheck::derived;
using FormCheck::expectEveryFormat;

enum class Kind { targetAs2, targetAs4, targetIp, originAs2, originAs4, originIp };

ExtComm::PtrConst make(Kind kind, U64 value) {
    ExtCommContent content(value);
    switch (kind) {
        case Kind::targetAs2:
            return extCommRouteTargetAsFactory(content, false);
        case Kind::targetAs4:
            return extCommRouteTargetAsFactory(content, true);
        case Kind::targetIp:
            return extCommRouteTargetIpv4AddressFactory(content);
        case Kind::originAs2:
            return extCommRouteOriginAsFactory(content, false);
        case Kind::originAs4:
            return extCommRouteOriginAsFactory(content, true);
        case Kind::originIp:
            return extCommRouteOriginIpv4AddressFactory(content);
    }
    return {};
}

TEST(ExtCommRouteTarget, PolicyForms) {
    struct Case {
        Kind kind;
        U64 value;
        U8 format;
        char const* text;
    } const cases[] = {
        {Kind::targetAs2, 0x0002FDE800000064, 2, "RT:65000:100"},
        {Kind::targetAs2, 0x0002FDE800000064, 6, "Route-Target-AS:65000:100"},
        {Kind::targetAs2, 0x0002FDE800000064, 0, "65000:100"},
        {Kind::targetAs2, 0x0002FDE800000064, 1, "65000:100"},
        {Kind::targetAs2, 0x0002FDE800000064, 4, "65000:100"},
        // Two-octet AS: the administrator has all 32 bits; asdot never dots.
        {Kind::targetAs2, 0x0002FDE8FFFFFFFF, 2, "RT:65000:4294967295"},
        {Kind::targetAs2, 0x0002FFFF00000001, 22, "Route-Target-AS:65535:1"},
        {Kind::targetAs2, 0x0002000000000000, 6, "Route-Target-AS:0:0"},
        {Kind::targetAs4, 0x0202000100000064, 22, "Route-Target-AS4:1.0:100"},
        {Kind::targetAs4, 0x0202000100000064, 6, "Route-Target-AS4:65536:100"},
        {Kind::targetAs4, 0x0202000100000064, 18, "RT:1.0:100"},
        {Kind::targetAs4, 0x0202000100000064, 2, "RT:65536:100"},
        {Kind::targetAs4, 0x0202000100000064, 16, "1.0:100"},
        {Kind::targetAs4, 0x0202000100000064, 0, "65536:100"},
        // asdot boundaries: 65535 stays plain, 65536 is the first dotted one.
        {Kind::targetAs4, 0x02020000FFFF0064, 22, "Route-Target-AS4:65535:100"},
        {Kind::targetAs4, 0x0202FFFFFFFF0064, 22, "Route-Target-AS4:65535.65535:100"},
        {Kind::targetAs4, 0x0202FFFFFFFF0064, 6, "Route-Target-AS4:4294967295:100"},
        {Kind::targetAs4, 0x0202000A0001FFFF, 62, "Route-Target-AS4:10.1:65535"},
        {Kind::targetIp, 0x01020A0102030007, 2, "RT:10.1.2.3:7"},
        {Kind::targetIp, 0x01020A0102030007, 6, "Route-Target-IP:10.1.2.3:7"},
        {Kind::targetIp, 0x01020A0102030007, 0, "10.1.2.3:7"},
        {Kind::targetIp, 0x01020A0102030007, 62, "Route-Target-IP:10.1.2.3:7"},
        {Kind::targetIp, 0x0102FFFFFFFFFFFF, 2, "RT:255.255.255.255:65535"},
        {Kind::targetIp, 0x0102000000000000, 2, "RT:0.0.0.0:0"},
        {Kind::originAs2, 0x0003FDE800000064, 2, "SoO:65000:100"},
        {Kind::originAs2, 0x0003FDE800000064, 6, "Route-Origin-AS:65000:100"},
        {Kind::originAs2, 0x0003FDE800000064, 0, "65000:100"},
        {Kind::originAs2, 0x0003FDE8FFFFFFFF, 22, "Route-Origin-AS:65000:4294967295"},
        {Kind::originAs4, 0x0203000100000064, 22, "Route-Origin-AS4:1.0:100"},
        {Kind::originAs4, 0x0203000100000064, 6, "Route-Origin-AS4:65536:100"},
        {Kind::originAs4, 0x02030000FFFF0064, 18, "SoO:65535:100"},
        {Kind::originIp, 0x01030A0102030007, 2, "SoO:10.1.2.3:7"},
        {Kind::originIp, 0x01030A0102030007, 6, "Route-Origin-IP:10.1.2.3:7"},
        {Kind::originIp, 0x01030A0102030007, 16, "10.1.2.3:7"},
    };
    for (auto const& c : cases) {
        auto comm = make(c.kind, c.value);
        EXPECT_EQ(c.text, comm->toStrepForPolicy(ExtComm::StrepFormat(c.format)).view())
            << derived(*comm) << " format " << unsigned(c.format);
    }
}

TEST(ExtCommRouteTarget, ShowCommandForms) {
    auto rt = extCommRouteTargetAsFactory(ExtCommContent(0x0202000100000064), true);
    EXPECT_EQ("Route-Target-AS4:65536:100", rt->toStrepForUI());
    EXPECT_EQ("Route-Target-AS4:1.0:100", rt->toStrepForUI(true, false, false));
    EXPECT_EQ("Route-Target-AS4:1.0:100", rt->toStrepForUI(true, true, true));
    EXPECT_EQ("Route-Target-AS4:65536:100", rt->toStrepForUI(false, true, true));
    auto so = extCommRouteOriginIpv4AddressFactory(ExtCommContent(0x01030A0102030007));
    EXPECT_EQ("Route-Origin-IP:10.1.2.3:7", so->toStrepForUI(true, true, true));
}

// Every format of each kind: only classification, UI and asdot matter.
TEST(ExtCommRouteTarget, EveryFormat) {
    auto rt4 = make(Kind::targetAs4, 0x0202000100000064);
    expectEveryFormat(*rt4, [](ExtComm::StrepFormat f) {
        return std::string(byClassification(f, "", "RT:", "Route-Target-AS4:")) +
               (f.strepFormatAsdot() ? "1.0:100" : "65536:100");
    });
    auto rt2 = make(Kind::targetAs2, 0x0002FDE800000064);
    expectEveryFormat(*rt2, [](ExtComm::StrepFormat f) {
        return std::string(byClassification(f, "", "RT:", "Route-Target-AS:")) + "65000:100";
    });
    auto ro4 = make(Kind::originAs4, 0x0203FFFFFFFF0007);
    expectEveryFormat(*ro4, [](ExtComm::StrepFormat f) {
        return std::string(byClassification(f, "", "SoO:", "Route-Origin-AS4:")) +
               (f.strepFormatAsdot() ? "65535.65535:7" : "4294967295:7");
    });
    auto ro2 = make(Kind::originAs2, 0x0003FDE800000064);
    expectEveryFormat(*ro2, [](ExtComm::StrepFormat f) {
        return std::string(byClassification(f, "", "SoO:", "Route-Origin-AS:")) + "65000:100";
    });
    auto rtIp = make(Kind::targetIp, 0x01020A0102030007);
    expectEveryFormat(*rtIp, [](ExtComm::StrepFormat f) {
        return std::string(byClassification(f, "", "RT:", "Route-Target-IP:")) + "10.1.2.3:7";
    });
    auto roIp = make(Kind::originIp, 0x01030A0102030007);
    expectEveryFormat(*roIp, [](ExtComm::StrepFormat f) {
        return std::string(byClassification(f, "", "SoO:", "Route-Origin-IP:")) + "10.1.2.3:7";
    });
}

TEST(ExtCommRouteTarget, OriginAndTargetNeverBorrowEachOthersWords) {
    for (unsigned bits = 0; bits < 64; ++bits) {
        ExtComm::StrepFormat f(static_cast<U8>(bits));
        for (Kind kind : {Kind::originAs2, Kind::originAs4, Kind::originIp}) {
            std::string text(make(kind, 0x0003000100000064)->toStrepForPolicy(f).view());
            EXPECT_EQ(std::string::npos, text.find("RT:")) << text;
            EXPECT_EQ(std::string::npos, text.find("Target")) << text;
        }
        for (Kind kind : {Kind::targetAs2, Kind::targetAs4, Kind::targetIp}) {
            std::string text(make(kind, 0x0002000100000064)->toStrepForPolicy(f).view());
            EXPECT_EQ(std::string::npos, text.find("SoO:")) << text;
            EXPECT_EQ(std::string::npos, text.find("Origin")) << text;
        }
    }
}

TEST(ExtCommRouteTarget, DerivedForms) {
    struct Case {
        Kind kind;
        U64 value;
        char const* text;
    } const cases[] = {
        {Kind::targetAs2, 0x0002FDE800000064, "<RouteTarget2ByteASN 65000:100 0x0002fde800000064>"},
        {Kind::targetAs2, 0x0002FDE8FFFFFFFF,
         "<RouteTarget2ByteASN 65000:4294967295 0x0002fde8ffffffff>"},
        // Never asdot.
        {Kind::targetAs4, 0x0202000100000064, "<RouteTarget4ByteASN 65536:100 0x0202000100000064>"},
        {Kind::targetIp, 0x01020A0102030007, "<RouteTarget 10.1.2.3:7 0x01020a0102030007>"},
        {Kind::originAs2, 0x0003FDE800000064, "<RouteOrigin2ByteASN 65000:100 0x0003fde800000064>"},
        {Kind::originAs4, 0x0203FFFFFFFFFFFF,
         "<RouteOrigin4ByteASN 4294967295:65535 0x0203ffffffffffff>"},
        {Kind::originIp, 0x01030A0102030007, "<RouteOrigin 10.1.2.3:7 0x01030a0102030007>"},
    };
    for (auto const& c : cases) {
        auto comm = make(c.kind, c.value);
        EXPECT_EQ(c.text, derived(*comm));
        EXPECT_EQ(c.text, comm->toStrep());
    }
}

TEST(ExtCommRouteTarget, DerivedFormIgnoresTheStreamsNumberBase) {
    auto comm = make(Kind::targetAs2, 0x0002FDE800000064);
    std::ostringstream os;
    os << std::hex << comm << ' ' << 255;
    EXPECT_EQ("<RouteTarget2ByteASN 65000:100 0x0002fde800000064> ff", os.str());
}

TEST(ExtCommRouteTarget, ClassificationAndLayout) {
    struct Case {
        Kind kind;
        U64 value;
        ExtCommClassification classification;
        U32 asNumber;
        U32 localAdmin;
    } const cases[] = {
        {Kind::targetAs2, 0x0002FDE8FFFFFFFF, extCommClassificationRouteTarget, 65000, 0xFFFFFFFF},
        {Kind::targetAs4, 0x0202FFFFFFFF0007, extCommClassificationRouteTarget, 0xFFFFFFFF, 7},
        {Kind::originAs2, 0x0003000100000002, extCommClassificationRouteOrigin, 1, 2},
        {Kind::originAs4, 0x0203000100000002, extCommClassificationRouteOrigin, 65536, 2},
    };
    for (auto const& c : cases) {
        auto comm = make(c.kind, c.value);
        EXPECT_EQ(c.classification, comm->classification());
        auto const* as = dynamic_cast<ExtCommAsNumber const*>(comm.ptr());
        ASSERT_NE(nullptr, as);
        EXPECT_EQ(c.asNumber, as->asNumber());
        EXPECT_EQ(c.localAdmin, as->localAdmin());
        EXPECT_TRUE(comm->isValid());
        EXPECT_FALSE(comm->isLinkBandwidthWithUnspecifiedAsNumber());
        EXPECT_FALSE(comm->policyMatchStrepUI());
    }
    auto rtIp = extCommRouteTargetIpv4AddressFactory(ExtCommContent(0x01020A0102030007));
    EXPECT_EQ(extCommClassificationRouteTarget, rtIp->classification());
    EXPECT_EQ(0x0A010203u, rtIp->ipv4Address());
    EXPECT_EQ(7u, rtIp->localAdmin());
    EXPECT_EQ(
        extCommClassificationRouteOrigin,
        extCommRouteOriginIpv4AddressFactory(ExtCommContent(0x01030A0102030007))->classification());
    EXPECT_EQ(extCommClassificationRouteTarget, ExtCommRouteTargetAs::ExtCommRouteTargetAsIs(
                                                    ExtCommContent(0x0002000100000001), false)
                                                    ->classification());
}

TEST(ExtCommRouteTargetDeathTest, AsFormWithAnotherTypeIsAProgramError) {
    auto rt = extCommRouteTargetAsFactory(ExtCommContent(0x4002FDE800000064), false);
    EXPECT_ASSERT_DEATH(rt->toStrep(), "unexpected type");
    auto ro = extCommRouteOriginAsFactory(ExtCommContent(0x0103000100000064), true);
    EXPECT_ASSERT_DEATH(ro->toStrep(), "unexpected type");
}

}  // namespace
}  // namespace Routing::Bgp
