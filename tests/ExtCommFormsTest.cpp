// The policy forms of every kind of extended community under all 64 format
// flag sets, at the boundaries of their values, with the derived form where
// the value shows in it. (One ordinary value of each pair, in its UI and
// derived forms, is in the parser table of ExtCommPluginsTest.)
#include <string_view>

#include "ExtCommFormCheck.h"

namespace Routing::Bgp {
namespace {

// Part `index` of a text of parts separated by '|'; missing parts are empty.
std::string part(std::string_view text, int index) {
    for (; index > 0; --index) {
        auto bar = text.find('|');
        text = bar == std::string_view::npos ? std::string_view() : text.substr(bar + 1);
    }
    return std::string(text.substr(0, text.find('|')));
}

// A community's forms: the prefix chosen by classification and UI
// ("plain|classification|classification+UI"), then the body ("body|asdot
// body"), which the UI form may replace ("UI body|weighted UI body"). The
// derived form, when given, is checked without its bracket and content.
struct FormRow {
    U64 value;
    char const* prefixes;
    char const* body;
    char const* ui;
    char const* derived;
};

std::string expectedForm(FormRow const& row, ExtComm::StrepFormat f) {
    int const level = !f.strepFormatClassification() ? 0 : f.strepFormatUI() ? 2 : 1;
    std::string body = part(row.body, 0);
    if (f.strepFormatAsdot() && !part(row.body, 1).empty())
        body = part(row.body, 1);
    if (level == 2 && *row.ui)
        body = part(row.ui, f.strepFormatLinkBwWeighted() && !part(row.ui, 1).empty() ? 1 : 0);
    return part(row.prefixes, level) + body;
}

TEST(ExtCommForms, EveryFormatOfEveryKind) {
    FormRow const rows[] = {
        // Route targets and origins: only classification, UI and asdot
        // count; a two-octet AS never dots, its administrator has 32 bits.
        {0x0202000100000064, "|RT:|Route-Target-AS4:", "65536:100|1.0:100", "", ""},
        {0x02020000FFFF0064, "|RT:|Route-Target-AS4:", "65535:100", "", ""},
        {0x020200010001FFFF, "|RT:|Route-Target-AS4:", "65537:65535|1.1:65535", "", ""},
        {0x0002FFFFFFFFFFFF, "|RT:|Route-Target-AS:", "65535:4294967295", "",
         "RouteTarget2ByteASN 65535:4294967295"},
        {0x0203FFFFFFFFFFFF, "|SoO:|Route-Origin-AS4:", "4294967295:65535|65535.65535:65535", "",
         "RouteOrigin4ByteASN 4294967295:65535"},
        {0x0203FFFF00000064, "|SoO:|Route-Origin-AS4:", "4294901760:100|65535.0:100", "", ""},
        {0x0003000000000000, "|SoO:|Route-Origin-AS:", "0:0", "", "RouteOrigin2ByteASN 0:0"},
        {0x0102FFFFFFFFFFFF, "|RT:|Route-Target-IP:", "255.255.255.255:65535", "",
         "RouteTarget 255.255.255.255:65535"},
        {0x0103000000000000, "|SoO:|Route-Origin-IP:", "0.0.0.0:0", "", "RouteOrigin 0.0.0.0:0"},
        // Generic forms: the type only with classification and UI.
        {0x0005FDE8FFFFFFFF, "||0005-AS:", "65000:4294967295", "", ""},
        {0x4205FFFFFFFF0064, "||0205-AS4(NT):", "4294967295:100|65535.65535:100", "", ""},
        {0x41050A0102030007, "||0105-IP(NT):", "10.1.2.3:7", "", ""},
        {0x4401020304050607, "||0401(NT)020304050607", "", "", ""},
        {0x0301000000000064, "||0301000000000064", "", "", ""},
        // Color: one form for all; only the top two bits of octet 2 are
        // color-only bits, octet 3 is reserved.
        {0x030BC00000000064, "", "Color:CO(11):100", "", "Color: 100(11)"},
        {0x030B8000FFFFFFFF, "", "Color:CO(10):4294967295", "", "Color: 4294967295(10)"},
        {0x030B3FFF00000000, "", "Color:CO(00):0", "", "Color: 0(00)"},
        // Tunnel encapsulation: octets 6-7 are the type.
        {0x030C000000000003, "|TunnelEncap:|TunnelEncap:", "tunnelTypeUnknown-3", "",
         "TunnelEncap 3:tunnelTypeUnknown"},
        {0x030C000000000001, "|TunnelEncap:|TunnelEncap:", "tunnelTypeL2tpv3OverIp", "",
         "TunnelEncap 1:tunnelTypeL2tpv3OverIp"},
        {0x030C00000000000C, "|TunnelEncap:|TunnelEncap:", "tunnelTypeVxlanGpe", "",
         "TunnelEncap 12:tunnelTypeVxlanGpe"},
        {0x030C00000000000D, "|TunnelEncap:|TunnelEncap:", "tunnelTypeUnknown-13", "", ""},
        {0x030C00000000FFFF, "|TunnelEncap:|TunnelEncap:", "tunnelTypeUnknown-65535", "",
         "TunnelEncap 65535:tunnelTypeUnknown"},
        {0x030CFFFFFFFF0002, "|TunnelEncap:|TunnelEncap:", "tunnelTypeGre", "",
         "TunnelEncap 2:tunnelTypeGre"},
        {0x030D0000000000FF, "", "DefaultGateway", "", "DefaultGateway"},
        // Origin validation state: octet 7, shown in the UI form only.
        {0x4300000000000000, "||Origin-Validation-State:valid", "", "",
         "OriginValidationState valid"},
        {0x4300000000000001, "||Origin-Validation-State:not-found", "", "",
         "OriginValidationState not-found"},
        {0x4300000000000003, "||Origin-Validation-State:unknown", "", "",
         "OriginValidationState unknown(3)"},
        {0x43000000000000FF, "||Origin-Validation-State:unknown", "", "",
         "OriginValidationState unknown(255)"},
        {0x4300000000000100, "||Origin-Validation-State:valid", "", "", ""},
        // Link bandwidth: the float as a stream prints it, but in the UI
        // form as a rate, or with weighted as a weight.
        {0x4004FDE84E9502F9, "|lbw |Link-Bandwidth-AS:", "65000:1.25e+09",
         "65000:10 Gbps|65000:1250000000", ""},
        {0x4004000000000000, "|lbw |Link-Bandwidth-AS:", "0:0", "0:0 bps|0:0", "LinkBandwidth 0:0"},
        {0x4004FFFF3F800000, "|lbw |Link-Bandwidth-AS:", "65535:1", "65535:8 bps|65535:1",
         "LinkBandwidth 65535:1"},
        {0x400400077FC00000, "|lbw |Link-Bandwidth-AS:", "7:nan", "7:invalid|7:invalid",
         "LinkBandwidth 7:nan"},
        {0x40040007FF800000, "|lbw |Link-Bandwidth-AS:", "7:-inf", "7:invalid|7:invalid",
         "LinkBandwidth 7:-inf"},
        // VRF route import (built by its factory: the parser types it only
        // with "Mvpn").
        {0x010BFFFFFFFFFFFF, "|VRI:|VRF-Route-Import:", "255.255.255.255:65535", "",
         "VrfRouteImport 255.255.255.255:65535"},
        {0x010B000000000000, "|VRI:|VRF-Route-Import:", "0.0.0.0:0", "",
         "VrfRouteImport 0.0.0.0:0"},
    };
    FormCheck::Parser parser;
    for (auto const& row : rows) {
        ExtCommContent const content(row.value);
        ExtComm::PtrConst comm = content.typeOctet() == 0x01 && content.subtypeOctet() == 0x0B
                                     ? extCommVrfRouteImportIpv4AddressFactory(content)
                                     : parser.intern(row.value);
        // Every one of the 64 formats, and the show-command entry against the
        // format it stands for (classification 2 + UI 4 + json 8 + asdot 16 +
        // weighted 32).
        for (U8 bits = 0; bits < 64; ++bits) {
            ExtComm::StrepFormat const format(bits);
            EXPECT_EQ(expectedForm(row, format), comm->toStrepForPolicy(format).view())
                << streamed(*comm) << " format " << int(bits);
            if ((bits & 7) == 6) {
                EXPECT_EQ(comm->toStrepForPolicy(format),
                          comm->toStrepForUI(bits & 16, bits & 32, bits & 8))
                    << streamed(*comm) << " format " << int(bits);
            }
        }
        if (*row.derived) {
            EXPECT_EQ("<" + std::string(row.derived) + " " + streamed(content) + ">",
                      streamed(*comm));
        }
        // Only the origin validation state is matched by its UI form.
        EXPECT_EQ(content.typeOctet() == 0x43, comm->policyMatchStrepUI()) << streamed(*comm);
    }
}

}  // namespace
}  // namespace Routing::Bgp
