// Color, tunnel encapsulation, default gateway, origin validation state and
// VRF route import communities.
#include <sstream>
#include <string>

#include "ExtCommFormCheck.h"
#include "Kiv/Errors.h"
#include "TestUtil.h"
#include "VoBgp/Parse/ExtCommColor.h"
#include "VoBgp/Parse/ExtCommDefaultGateway.h"
#include "VoBgp/Parse/ExtCommOriginValidationState.h"
#include "VoBgp/Parse/ExtCommTunnelEncap.h"
#include "VoBgp/Parse/ExtCommVrfRouteImport.h"

namespace Routing::Bgp {
namespace {

using FormCheck::byClassification;
using FormCheck::derived;
using FormCheck::expectEveryFormat;

ExtCommContent content(U64 value) {
    return ExtCommContent(value);
}

TEST(ExtCommColor, FormsShowColorAndColorOnlyBits) {
    struct Case {
        U64 value;
        char const* policy;
        char const* derivedForm;
    } const cases[] = {
        {0x030B000000000064, "Color:CO(00):100", "<Color: 100(00) 0x030b000000000064>"},
        {0x030BC00000000064, "Color:CO(11):100", "<Color: 100(11) 0x030bc00000000064>"},
        {0x030B8000FFFFFFFF, "Color:CO(10):4294967295",
         "<Color: 4294967295(10) 0x030b8000ffffffff>"},
        {0x030B400000000001, "Color:CO(01):1", "<Color: 1(01) 0x030b400000000001>"},
        // Only the top two bits of octet 2 are color-only bits; octet 3 is
        // reserved.
        {0x030B3FFF00000005, "Color:CO(00):5", "<Color: 5(00) 0x030b3fff00000005>"},
        {0x030B000000000000, "Color:CO(00):0", "<Color: 0(00) 0x030b000000000000>"},
    };
    for (auto const& c : cases) {
        auto comm = extCommColorFactory(content(c.value));
        expectEveryFormat(*comm, [&](ExtComm::StrepFormat) { return c.policy; });
        EXPECT_EQ(c.derivedForm, derived(*comm));
    }
    auto comm = ExtCommColor::ExtCommColorIs(content(0x030B800000000064));
    EXPECT_EQ(extCommClassificationColor, comm->classification());
    EXPECT_EQ(100u, comm->color());
    EXPECT_EQ(2u, comm->colorOnlyBits());
}

TEST(TunnelType, EnumerationOperations) {
    struct Case {
        U32 value;
        char const* name;
    } const members[] = {
        {1, "tunnelTypeL2tpv3OverIp"}, {2, "tunnelTypeGre"},       {7, "tunnelTypeIpInIp"},
        {8, "tunnelTypeVxlan"},        {9, "tunnelTypeNvgre"},     {10, "tunnelTypeMpls"},
        {11, "tunnelTypeMplsInGre"},   {12, "tunnelTypeVxlanGpe"},
    };
    for (auto const& m : members) {
        TunnelType type = TunnelTypeInstance(m.value);
        EXPECT_TRUE(bgpIsValidEnumMember(type)) << m.name;
        EXPECT_EQ(m.name, valueToStrep(type));
        EXPECT_EQ(m.name, stringValue(type));
        EXPECT_EQ(type, TunnelTypeInstance(Kiv::String(m.name)));
        std::ostringstream os;
        os << type;
        EXPECT_EQ(m.name, os.str());
        Kiv::String text(m.name);
        auto it = text.begin();
        TunnelType parsed = tunnelTypeUnknown;
        sequenceToValue(it, text.end(), &parsed);
        EXPECT_EQ(type, parsed);
    }
    EXPECT_EQ(65536u, U32(tunnelTypeUnknown));
    EXPECT_EQ("tunnelTypeUnknown", valueToStrep(tunnelTypeUnknown));
    for (U32 value : {0u, 3u, 6u, 13u, 65535u, 65536u})
        EXPECT_FALSE(bgpIsValidEnumMember(TunnelTypeInstance(value))) << value;
    EXPECT_EQ("3", valueToStrep(TunnelTypeInstance(3)));
    EXPECT_THROW(TunnelTypeInstance(Kiv::String("tunnelTypeFoo")), Kiv::RangeError);
    unsigned valid = 0;
    for (auto const& m : Kiv::enumTable<TunnelType>().members)
        valid += bgpIsValidEnumMember(m.value);
    EXPECT_EQ(8u, valid);
}

TEST(ExtCommTunnelEncap, FormsNameKnownTunnelTypes) {
    struct Case {
        U64 value;
        char const* name;
        char const* derivedForm;
    } const cases[] = {
        {0x030C000000000008, "tunnelTypeVxlan",
         "<TunnelEncap 8:tunnelTypeVxlan 0x030c000000000008>"},
        {0x030C000000000003, "tunnelTypeUnknown-3",
         "<TunnelEncap 3:tunnelTypeUnknown 0x030c000000000003>"},
        {0x030C000000000001, "tunnelTypeL2tpv3OverIp",
         "<TunnelEncap 1:tunnelTypeL2tpv3OverIp 0x030c000000000001>"},
        {0x030C00000000000C, "tunnelTypeVxlanGpe",
         "<TunnelEncap 12:tunnelTypeVxlanGpe 0x030c00000000000c>"},
        {0x030C00000000000D, "tunnelTypeUnknown-13",
         "<TunnelEncap 13:tunnelTypeUnknown 0x030c00000000000d>"},
        {0x030C000000000000, "tunnelTypeUnknown-0",
         "<TunnelEncap 0:tunnelTypeUnknown 0x030c000000000000>"},
        {0x030C00000000FFFF, "tunnelTypeUnknown-65535",
         "<TunnelEncap 65535:tunnelTypeUnknown 0x030c00000000ffff>"},
        // Only octets 6-7 carry the type.
        {0x030CFFFFFFFF0002, "tunnelTypeGre", "<TunnelEncap 2:tunnelTypeGre 0x030cffffffff0002>"},
        {0x030C000000010002, "tunnelTypeGre", "<TunnelEncap 2:tunnelTypeGre 0x030c000000010002>"},
    };
    for (auto const& c : cases) {
        auto comm = extCommTunnelEncapFactory(content(c.value));
        std::string name = c.name;
        expectEveryFormat(*comm, [&](ExtComm::StrepFormat f) {
            return (f.strepFormatClassification() ? "TunnelEncap:" : "") + name;
        });
        EXPECT_EQ(c.derivedForm, derived(*comm));
    }
    auto vxlan = ExtCommTunnelEncap::ExtCommTunnelEncapIs(content(0x030C000000000008));
    EXPECT_EQ("TunnelEncap:tunnelTypeVxlan", vxlan->toStrepForUI());
    EXPECT_EQ("TunnelEncap:tunnelTypeVxlan",
              vxlan->toStrepForPolicy(ExtComm::StrepFormat(2)).view());
    EXPECT_EQ("tunnelTypeVxlan", vxlan->toStrepForPolicy(ExtComm::StrepFormat(1)).view());
    EXPECT_EQ(tunnelTypeVxlan, vxlan->tunnelType());
    EXPECT_EQ(extCommClassificationTunnelEncap, vxlan->classification());
    EXPECT_EQ("TunnelEncap:tunnelTypeUnknown-3",
              extCommTunnelEncapFactory(content(0x030C000000000003))->toStrepForUI());
}

TEST(ExtCommDefaultGateway, FixedForms) {
    auto comm = extCommDefaultGatewayFactory(content(0x030D000000000000));
    expectEveryFormat(*comm, [](ExtComm::StrepFormat) { return "DefaultGateway"; });
    EXPECT_EQ("<DefaultGateway 0x030d000000000000>", derived(*comm));
    EXPECT_EQ(extCommClassificationDefaultGateway, comm->classification());
    auto twin = ExtCommDefaultGateway::ExtCommDefaultGatewayIs(content(0x030D000000000001));
    EXPECT_EQ("DefaultGateway", twin->toStrepForUI());
    EXPECT_EQ("<DefaultGateway 0x030d000000000001>", twin->toStrep());
}

TEST(ExtCommOriginValidationState, BuildsTheContentOfAState) {
    struct Case {
        U32 state;
        U64 value;
    } const cases[] = {
        {0, 0x4300000000000000}, {1, 0x4300000000000001},          {2, 0x4300000000000002},
        {3, 0x4300000000000003}, {0x01020304, 0x4300000001020304}, {0xFFFFFFFF, 0x43000000FFFFFFFF},
    };
    for (auto const& c : cases)
        EXPECT_EQ(content(c.value), ExtCommOriginValidationState::buildExtCommContent(c.state));
}

TEST(ExtCommOriginValidationState, FormsNameTheState) {
    struct Case {
        U64 value;
        char const* ui;
        char const* derivedForm;
    } const cases[] = {
        {0x4300000000000000, "Origin-Validation-State:valid",
         "<OriginValidationState valid 0x4300000000000000>"},
        {0x4300000000000001, "Origin-Validation-State:not-found",
         "<OriginValidationState not-found 0x4300000000000001>"},
        {0x4300000000000002, "Origin-Validation-State:invalid",
         "<OriginValidationState invalid 0x4300000000000002>"},
        {0x4300000000000003, "Origin-Validation-State:unknown",
         "<OriginValidationState unknown(3) 0x4300000000000003>"},
        {0x43000000000000FF, "Origin-Validation-State:unknown",
         "<OriginValidationState unknown(255) 0x43000000000000ff>"},
        // The state is octet 7 alone.
        {0x4300000000000100, "Origin-Validation-State:valid",
         "<OriginValidationState valid 0x4300000000000100>"},
    };
    for (auto const& c : cases) {
        auto comm = extCommOriginValidationStateFactory(content(c.value));
        expectEveryFormat(
            *comm, [&](ExtComm::StrepFormat f) { return byClassification(f, "", "", c.ui); });
        EXPECT_EQ(c.derivedForm, derived(*comm));
    }
    auto comm = ExtCommOriginValidationState::ExtCommOriginValidationStateIs(
        ExtCommOriginValidationState::buildExtCommContent(
            ExtCommOriginValidationState::stateInvalid));
    EXPECT_EQ("Origin-Validation-State:invalid", comm->toStrepForUI());
    EXPECT_EQ("", comm->toStrepForPolicy(ExtComm::StrepFormat(2)).view());
    EXPECT_EQ("", comm->toStrepForPolicy(ExtComm::StrepFormat(4)).view());
    EXPECT_EQ(extCommClassificationOriginValidationState, comm->classification());
    EXPECT_EQ(2u, comm->state());
    // Its only matchable text is the UI form.
    EXPECT_TRUE(comm->policyMatchStrepUI());
}

TEST(ExtCommVrfRouteImport, FormsByFlags) {
    struct Case {
        U64 value;
        char const* address;
        char const* derivedForm;
    } const cases[] = {
        {0x010B0A0102030007, "10.1.2.3:7", "<VrfRouteImport 10.1.2.3:7 0x010b0a0102030007>"},
        {0x010BFFFFFFFFFFFF, "255.255.255.255:65535",
         "<VrfRouteImport 255.255.255.255:65535 0x010bffffffffffff>"},
        {0x010B000000000000, "0.0.0.0:0", "<VrfRouteImport 0.0.0.0:0 0x010b000000000000>"},
        {0x010BC0A8000100FF, "192.168.0.1:255",
         "<VrfRouteImport 192.168.0.1:255 0x010bc0a8000100ff>"},
    };
    for (auto const& c : cases) {
        auto comm = extCommVrfRouteImportIpv4AddressFactory(content(c.value));
        std::string address = c.address;
        expectEveryFormat(*comm, [&](ExtComm::StrepFormat f) {
            return byClassification(f, "", "VRI:", "VRF-Route-Import:") + address;
        });
        EXPECT_EQ(c.derivedForm, derived(*comm));
    }
    auto comm = ExtCommVrfRouteImportIpv4Address::ExtCommVrfRouteImportIpv4AddressIs(
        content(0x010B0A0102030007));
    EXPECT_EQ("VRF-Route-Import:10.1.2.3:7", comm->toStrepForUI());
    EXPECT_EQ("VRF-Route-Import:10.1.2.3:7", comm->toStrepForUI(true, true, true));
    EXPECT_EQ("VRI:10.1.2.3:7", comm->toStrepForPolicy(ExtComm::StrepFormat(2)).view());
    EXPECT_EQ("10.1.2.3:7", comm->toStrepForPolicy(ExtComm::StrepFormat(1)).view());
    EXPECT_EQ(extCommClassificationVrfRouteImport, comm->classification());
    EXPECT_EQ(0x0A010203u, comm->ipv4Address());
    EXPECT_EQ(7u, comm->localAdmin());
}

// Typed contents add behaviour, never storage, and keep the base answers
// they do not override.
TEST(ExtCommTyped, SameSizeAndBaseAnswers) {
    ExtComm::PtrConst comms[] = {
        extCommColorFactory(content(0x030B000000000064)),
        extCommTunnelEncapFactory(content(0x030C000000000008)),
        extCommDefaultGatewayFactory(content(0x030D000000000000)),
        extCommVrfRouteImportIpv4AddressFactory(content(0x010B0A0102030007)),
    };
    for (auto const& comm : comms) {
        EXPECT_TRUE(comm->isValid());
        EXPECT_FALSE(comm->policyMatchStrepUI());
        EXPECT_FALSE(comm->isLinkBandwidthWithUnspecifiedAsNumber());
        EXPECT_FALSE(comm->pktSubtype().isUnspecified());
    }
    EXPECT_EQ(sizeof(ExtComm), sizeof(ExtCommColor));
    EXPECT_EQ(sizeof(ExtComm), sizeof(ExtCommTunnelEncap));
    EXPECT_EQ(sizeof(ExtComm), sizeof(ExtCommDefaultGateway));
    EXPECT_EQ(sizeof(ExtComm), sizeof(ExtCommOriginValidationState));
    EXPECT_EQ(sizeof(ExtComm), sizeof(ExtCommVrfRouteImportIpv4Address));
}

}  // namespace
}  // namespace Routing::Bgp
