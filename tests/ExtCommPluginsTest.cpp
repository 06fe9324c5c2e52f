// The typed parser plug-ins at work in a real parser container: every known
// (type, subtype) pair, received as octets and interned, becomes the right
// class with the right classification and prints exactly. This table is the
// one place for the show-command (UI) and derived forms of every pair; the
// per-type tests only add what a single value cannot show. Also here: the
// show-command strings, and the "Mvpn" feature toggle (its JSON reader and
// directory) deciding about VRF route import.
#include <unistd.h>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <typeindex>

#include "ExtCommFormCheck.h"
#include "Toggle/Toggle.h"

namespace Routing::Bgp {
namespace {

using FormCheck::Parser;

std::string hex16(U64 value) {
    char text[17];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(value));
    return text;
}

// One received value: the class it must intern to (exactly), its
// show-command form, and its derived form without the brackets and the
// hexadecimal content that end every derived form.
struct Row {
    U64 value;
    std::type_info const* cls;
    std::string ui;
    std::string derived;
};

// Every (type, subtype) pair the packet vocabulary names, one value each,
// and a few it does not know. The VRF route import row depends on "Mvpn".
std::vector<Row> rows(bool mvpn) {
    auto const* plain = &typeid(ExtComm);
    auto const* sub = &typeid(ExtCommSubtyped);
    auto const* as = &typeid(ExtCommAsNumber);
    auto const* ip = &typeid(ExtCommIpv4Address);
    std::string const two = "extCommPktTypeTransTwoOctetAs extCommPktSubtypeTransTwoOctetAs";
    std::string const four = "extCommPktTypeTransFourOctetAs extCommPktSubtypeTransFourOctetAs";
    std::string const ip4 = "extCommPktTypeTransIpv4Address extCommPktSubtypeTransIpv4Address";
    std::string const opaque = "extCommPktTypeTransOpaque extCommPktSubtypeTransOpaque";
    std::string const gen = "extCommPktTypeTransGeneric extCommPktSubtypeTransGeneric";
    std::vector<Row> out = {
        // Two-octet AS (0x00), including a declared but invalid subtype and
        // one not declared at all.
        {0x0002FDE800000064, &typeid(ExtCommRouteTargetAs), "Route-Target-AS:65000:100",
         "RouteTarget2ByteASN 65000:100"},
        {0x0003FDE800000064, &typeid(ExtCommRouteOriginAs), "Route-Origin-AS:65000:100",
         "RouteOrigin2ByteASN 65000:100"},
        {0x0005FDE800000064, as, "0005-AS:65000:100", two + "OspfDomainIdentifier ASN=65000"},
        {0x0008FDE800000064, as, "0008-AS:65000:100", two + "BgpDataCollection ASN=65000"},
        {0x0009FDE800000064, as, "0009-AS:65000:100", two + "SourceAs ASN=65000"},
        {0x000AFDE800000064, as, "000a-AS:65000:100", two + "L2VpnIdentifier ASN=65000"},
        {0x0010FDE800000064, as, "0010-AS:65000:100", two + "CiscoVpnDistinguisher ASN=65000"},
        {0x0014FDE800000064, as, "0014-AS:65000:100",
         "extCommPktTypeTransTwoOctetAs subtype=20 ASN=65000"},
        {0x0001FDE800000064, as, "0001-AS:65000:100",
         "extCommPktTypeTransTwoOctetAs subtype=1 ASN=65000"},
        // IPv4 address (0x01).
        {0x01020A0102030007, &typeid(ExtCommRouteTargetIpv4Address), "Route-Target-IP:10.1.2.3:7",
         "RouteTarget 10.1.2.3:7"},
        {0x01030A0102030007, &typeid(ExtCommRouteOriginIpv4Address), "Route-Origin-IP:10.1.2.3:7",
         "RouteOrigin 10.1.2.3:7"},
        {0x01050A0102030007, ip, "0105-IP:10.1.2.3:7", ip4 + "OspfDomainIdentifier 10.1.2.3"},
        {0x01070A0102030007, ip, "0107-IP:10.1.2.3:7", ip4 + "OspfRouteId 10.1.2.3"},
        {0x010A0A0102030007, ip, "010a-IP:10.1.2.3:7", ip4 + "L2VpnIdentifier 10.1.2.3"},
        mvpn ? Row{0x010B0A0102030007, &typeid(ExtCommVrfRouteImportIpv4Address),
                   "VRF-Route-Import:10.1.2.3:7", "VrfRouteImport 10.1.2.3:7"}
             : Row{0x010B0A0102030007, ip, "010b-IP:10.1.2.3:7", ip4 + "VrfRouteImport 10.1.2.3"},
        {0x010C0A0102030007, ip, "010c-IP:10.1.2.3:7", ip4 + "FlowspecRedirectIp 10.1.2.3"},
        {0x01100A0102030007, ip, "0110-IP:10.1.2.3:7", ip4 + "CiscoVpnDistinguisher 10.1.2.3"},
        // Four-octet AS (0x02).
        {0x0202000100000064, &typeid(ExtCommRouteTargetAs), "Route-Target-AS4:65536:100",
         "RouteTarget4ByteASN 65536:100"},
        {0x0203000100000064, &typeid(ExtCommRouteOriginAs), "Route-Origin-AS4:65536:100",
         "RouteOrigin4ByteASN 65536:100"},
        {0x0204000100000064, as, "0204-AS4:65536:100", four + "Generic ASN=65536"},
        {0x0205000100000064, as, "0205-AS4:65536:100", four + "OspfDomainIdentifier ASN=65536"},
        {0x0208000100000064, as, "0208-AS4:65536:100", four + "BgpDataCollection ASN=65536"},
        {0x0209000100000064, as, "0209-AS4:65536:100", four + "SourceAs ASN=65536"},
        {0x0210000100000064, as, "0210-AS4:65536:100", four + "CiscoVpnDistinguisher ASN=65536"},
        // Opaque (0x03): three plug-ins share this type rule.
        {0x0301000000000064, sub, "0301000000000064", opaque + "CostCommunity"},
        {0x0303000000000064, sub, "0303000000000064", opaque + "OutboundRouteFilter"},
        {0x0306000000000064, sub, "0306000000000064", opaque + "OspfRouteType"},
        {0x030B000000000064, &typeid(ExtCommColor), "Color:CO(00):100", "Color: 100(00)"},
        {0x030C000000000008, &typeid(ExtCommTunnelEncap), "TunnelEncap:tunnelTypeVxlan",
         "TunnelEncap 8:tunnelTypeVxlan"},
        {0x030D000000000000, &typeid(ExtCommDefaultGateway), "DefaultGateway", "DefaultGateway"},
        // Types without a type rule: the root's plain fallback.
        {0x0401020304050607, plain, "0401020304050607", "extCommPktTypeTransQosMarking"},
        {0x0501020304050607, plain, "0501020304050607", "extCommPktTypeTransCosCapability"},
        {0x0701020304050607, plain, "0701020304050607", "extCommPktTypeUnknown"},
        {0x0800000000000001, plain, "0800000000000001",
         "extCommPktTypeTransFlowspecRedirectNexthop"},
        {0x4401020304050607, plain, "0401(NT)020304050607", "extCommPktTypeNonTransQosMarking"},
        // Generic (0x80-0x82).
        {0x8006000000000001, sub, "8006000000000001", gen + "FlowspecTrafficRate"},
        {0x8007000000000001, sub, "8007000000000001", gen + "FlowspecTrafficAction"},
        {0x8008000000000001, sub, "8008000000000001", gen + "FlowspecRedirectAs2Byte"},
        {0x8009000000000001, sub, "8009000000000001", gen + "FlowspecTrafficRemarking"},
        {0x800A000000000001, sub, "800a000000000001", gen + "Layer2InfoExtendedCommunity"},
        {0x800B000000000001, sub, "800b000000000001", gen + "EtreeInfo"},
        {0x8108000000000001, sub, "8108000000000001",
         "extCommPktTypeTransGenericPart2 extCommPktSubtypeTransGenericPart2FlowspecRedirectIpv4"},
        {0x8208000000000001, sub, "8208000000000001",
         "extCommPktTypeTransGenericPart3 "
         "extCommPktSubtypeTransGenericPart3FlowspecRedirectAs4Byte"},
        // Non-transitive.
        {0x4004FDE84E9502F9, &typeid(ExtCommLinkBandwidth), "Link-Bandwidth-AS:65000:10 Gbps",
         "LinkBandwidth 65000:1.25e+09"},
        {0x4080FDE800000064, as, "0080-AS(NT):65000:100",
         "extCommPktTypeNonTransTwoOctetAs "
         "extCommPktSubtypeNonTransTwoOctetAsVirtualNetworkIdentifier ASN=65000"},
        {0x41020A0102030007, ip, "0102-IP(NT):10.1.2.3:7",
         "extCommPktTypeNonTransIpv4Address subtype=2 10.1.2.3"},
        {0x4204000100000064, as, "0204-AS4(NT):65536:100",
         "extCommPktTypeNonTransFourOctetAs extCommPktSubtypeNonTransFourOctetAsGeneric ASN=65536"},
        {0x4300000000000002, &typeid(ExtCommOriginValidationState),
         "Origin-Validation-State:invalid", "OriginValidationState invalid"},
        {0x4301000000000064, sub, "0301(NT)000000000064",
         "extCommPktTypeNonTransOpaque extCommPktSubtypeNonTransCostCommunity"},
    };
    // EVPN (0x06) has no type rule: every named subtype takes the plain
    // fallback, which shows no subtype.
    for (U64 subtype : {0x00, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x08, 0x09, 0x0A, 0x0B, 0x0C}) {
        U64 const value = 0x0600000000000001 | subtype << 48;
        out.push_back({value, plain, hex16(value), "extCommPktTypeTransEvpn"});
    }
    return out;
}

// The classification of each typed class; the generic ones have none.
ExtCommClassification classificationOf(std::type_info const& cls) {
    static std::map<std::type_index, ExtCommClassification> const typed = {
        {typeid(ExtCommRouteTargetAs), extCommClassificationRouteTarget},
        {typeid(ExtCommRouteTargetIpv4Address), extCommClassificationRouteTarget},
        {typeid(ExtCommRouteOriginAs), extCommClassificationRouteOrigin},
        {typeid(ExtCommRouteOriginIpv4Address), extCommClassificationRouteOrigin},
        {typeid(ExtCommColor), extCommClassificationColor},
        {typeid(ExtCommTunnelEncap), extCommClassificationTunnelEncap},
        {typeid(ExtCommDefaultGateway), extCommClassificationDefaultGateway},
        {typeid(ExtCommLinkBandwidth), extCommClassificationLinkBandwidth},
        {typeid(ExtCommOriginValidationState), extCommClassificationOriginValidationState},
        {typeid(ExtCommVrfRouteImportIpv4Address), extCommClassificationVrfRouteImport},
    };
    auto it = typed.find(cls);
    return it == typed.end() ? extCommClassificationUnSpecified : it->second;
}

// What is wrong with the interned object of each row, one line per fault
// (empty when all is well): the toggle subprocesses can only report this way.
std::vector<std::string> rowFaults(Parser const& parser, bool mvpn) {
    std::vector<std::string> faults;
    for (Row const& row : rows(mvpn)) {
        auto fault = [&](std::string const& what) {
            faults.push_back(hex16(row.value) + ": " + what);
        };
        ExtComm::PtrConst comm = parser.intern(row.value);
        if (classOf(comm.ptr()) != *row.cls)
            fault(std::string("class ") + classOf(comm.ptr()).name() + ", not " + row.cls->name());
        if (comm->classification() != classificationOf(*row.cls))
            fault("classification " + valueToStrep(comm->classification()).str());
        if (!comm->isDeduped() || parser.intern(row.value) != comm)
            fault("not interned");
        // The AS layout follows the type octet.
        auto const* as = dynamic_cast<ExtCommAsNumber const*>(comm.ptr());
        if (as && as->fourOctetAs() != ((comm->getContent().typeOctet() & 0x3f) == 0x02))
            fault("wrong AS layout");
        if (comm->toStrepForUI().view() != row.ui)
            fault("UI form \"" + comm->toStrepForUI().str() + "\"");
        if (comm->toStrep().view() != "<" + row.derived + " 0x" + hex16(row.value) + ">")
            fault("derived form \"" + comm->toStrep().str() + "\"");
    }
    return faults;
}

TEST(ExtCommPlugins, EveryPairInternsToItsClassAndPrintsExactly) {
    Parser parser;
    for (auto const& fault : rowFaults(parser, bgpParseExtCommMvpnEnabled()))
        ADD_FAILURE() << fault;
}

// The show-command entry parses afresh and hands its flags on in order.
TEST(ExtCommPlugins, ShowStringsPassEachFlag) {
    Parser parser;
    for (auto [value, asdot, weighted, json, text] : Rows<U64, bool, bool, bool, char const*>{
             {0x0202000100000064, true, false, false, "Route-Target-AS4:1.0:100"},
             {0x0202000100000064, false, true, true, "Route-Target-AS4:65536:100"},
             {0x4004FDE84E9502F9, false, true, false, "Link-Bandwidth-AS:65000:1250000000"},
             {0x4004FDE84E9502F9, true, false, true, "Link-Bandwidth-AS:65000:10 Gbps"}})
        EXPECT_EQ(
            text,
            parser.container->extCommParser()->showString(value, asdot, weighted, json).str());
}

// The parser asks for "Mvpn" once per process and only the lowest bit of
// the answer counts, so each state runs in a process of its own
// (re-executed, so nothing this process cached leaks in), which changes the
// file after the first answer. It can only answer through its exit status
// and output.
void runParserWithMvpn(char const* toggleFile, char const* later, bool on) {
    char pattern[] = "/tmp/vobgp-plugins-XXXXXX";
    if (mkdtemp(pattern) == nullptr)
        std::_Exit(2);
    std::filesystem::path dir(pattern);
    std::ofstream(dir / "MvpnLib.json") << toggleFile;
    setenv(Toggle::toggleDirEnv, pattern, 1);
    std::vector<std::string> faults;
    if (bgpParseExtCommMvpnEnabled() != on)
        faults.push_back("toggle not read");
    std::ofstream(dir / "MvpnLib.json", std::ios::trunc) << later;
    if (bgpParseExtCommMvpnEnabled() != on)
        faults.push_back("toggle read again");
    {
        Parser parser;
        // The plug-ins in start-up order, VRF route import last and only with "Mvpn".
        std::vector<std::type_index> expected = {
            typeid(BgpParseExtCommRouteOriginSm),          typeid(BgpParseExtCommRouteTargetSm),
            typeid(BgpParseExtCommTunnelEncapSm),          typeid(BgpParseExtCommDefaultGatewaySm),
            typeid(BgpParseExtCommLinkBandwidthSm),        typeid(BgpParseExtCommColorSm),
            typeid(BgpParseExtCommOriginValidationStateSm)};
        if (on)
            expected.push_back(typeid(BgpParseExtCommVrfRouteImportSm));
        std::vector<std::type_index> started;
        for (auto it = parser.container->extCommParserSmsBegin();
             it != parser.container->extCommParserSmsEnd(); ++it)
            started.push_back(classOf(it->sm.ptr()));
        if (started != expected)
            faults.push_back("plug-ins not started in order");
        for (auto& fault : rowFaults(parser, on))
            faults.push_back(std::move(fault));
    }
    std::filesystem::remove_all(dir);
    for (auto const& fault : faults)
        std::fprintf(stderr, "%s\n", fault.c_str());
    std::_Exit(faults.empty() ? 0 : 1);
}

TEST(ExtCommPluginsMvpn, OffStartsSevenPluginsAndOnEight) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(runParserWithMvpn(R"({"Mvpn": 2})", R"({"Mvpn": 1})", false),
                ::testing::ExitedWithCode(0), "");
    EXPECT_EXIT(runParserWithMvpn(R"({"Mvpn": true})", R"({"Mvpn": false})", true),
                ::testing::ExitedWithCode(0), "");
}

namespace fs = std::filesystem;

TEST(ToggleJson, StatesOfWellFormedAndMalformedFiles) {
    for (auto [json, state] : Rows<char const*, U32>{
             {R"({"Mvpn": true})", 1},
             {R"({"Mvpn": 7})", 7},
             {"  {\n\t\"Other\": true,\r\n \"Mvpn\" : 1 }\n", 1},
             {R"({"Mvpn": 99999999999})", 0xffffffffu},
             // Later duplicates win, as in most readers.
             {R"({"Mvpn": false, "Mvpn": 3})", 3},
             // Nested values are read past, never taken for the toggle.
             {R"({"Lib": {"Mvpn": true}, "List": [1, [true], {"a": "b"}], "Mvpn": true})", 1},
             // Escapes in names are decoded before comparing.
             {R"({"\u004dvpn": true})", 1}})
        EXPECT_EQ(state, Toggle::toggleStateFromJson(json, "Mvpn")) << json;
    // Off: other values and members, and every malformed file.
    for (auto const& jsons :
         {std::initializer_list<char const*>{
              R"({"Mvpn": false})", R"({"Mvpn": null})", R"({"Mvpn": "true"})", R"({"Mvpn": -1})",
              R"({"Mvpn": 1.5})", R"({"Mvpn": 1e3})", R"({"Other": true})", R"({})",
              R"({"Mvpn": true, "Mvpn": false})", R"({"Lib": {"Mvpn": true}})",
              R"({"Mv\"pn": true})", "", "true", "[1]"},
          {R"({"Mvpn": true)", R"({"Mvpn": true,})", R"({"Mvpn" true})", R"({Mvpn: true})",
           R"({"Mvpn": tru})", R"({"Mvpn": 01})", R"({"Mvpn": 1.})", R"({"Mvpn": -})",
           R"({"Mvpn": "unterminated})", R"({"Mvpn": "bad \q escape"})",
           R"({"Mvpn": true} trailing)", "{\"Mvpn\": \"control\x01char\", \"Mvpn\": true}",
           R"({"a": [1, 2,], "Mvpn": true})"}})
        for (char const* json : jsons)
            EXPECT_EQ(0u, Toggle::toggleStateFromJson(json, "Mvpn")) << json;
    // Deep nesting is refused rather than followed down the stack.
    auto nested = [](std::size_t depth) {
        return "{\"a\": " + std::string(depth, '[') + std::string(depth, ']') + ", \"Mvpn\": true}";
    };
    EXPECT_EQ(0u, Toggle::toggleStateFromJson(nested(100000), "Mvpn"));
    EXPECT_EQ(1u, Toggle::toggleStateFromJson(nested(20), "Mvpn"));
}

// The named file of a private toggle directory (named by VOBGP_TOGGLE_DIR
// while the test runs), read on every call; everything unreadable is off.
TEST(ToggleDir, ReadsTheNamedFileOnEveryCall) {
    char pattern[] = "/tmp/vobgp-toggle-XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(pattern));
    fs::path const dir = pattern;
    char const* old = std::getenv(Toggle::toggleDirEnv);
    std::string const saved = old ? old : "";
    setenv(Toggle::toggleDirEnv, pattern, 1);
    auto write = [&dir](std::string const& file, std::string const& text) {
        std::ofstream(dir / file, std::ios::binary) << text;
    };
    auto state = [](char const* file, char const* name = "Mvpn", U32 version = 1) {
        return Toggle::getToggleState(name, file, version);
    };
    write("MvpnLib.json", R"({"Mvpn": true})");
    EXPECT_EQ(1u, state("MvpnLib.json"));
    // Not cached here: the caller decides whether to keep the answer.
    write("MvpnLib.json", R"({"Mvpn": false})");
    EXPECT_EQ(0u, state("MvpnLib.json"));
    // A trailing slash in the directory name is fine.
    setenv(Toggle::toggleDirEnv, (dir.string() + "/").c_str(), 1);
    write("MvpnLib.json", R"({"Mvpn": 1})");
    EXPECT_EQ(1u, state("MvpnLib.json"));
    // Another toggle of the same file, another file, another format version.
    EXPECT_EQ(0u, state("MvpnLib.json", "Other"));
    EXPECT_EQ(0u, state("Missing.json"));
    EXPECT_EQ(0u, state("MvpnLib.json", "Mvpn", 2));
    // Only plain file names inside the directory.
    fs::create_directory(dir / "sub");
    write("sub/MvpnLib.json", R"({"Mvpn": true})");
    EXPECT_EQ(0u, state("sub/MvpnLib.json"));
    EXPECT_EQ(0u, state(""));
    // A file too large to be a toggle file, even with the toggle at its start.
    write("Big.json", R"({"Mvpn": true, "pad": ")" + std::string(70000, 'x') + "\"}");
    EXPECT_EQ(0u, state("Big.json"));
    setenv(Toggle::toggleDirEnv, "", 1);
    EXPECT_EQ(0u, state("MvpnLib.json"));
    unsetenv(Toggle::toggleDirEnv);
    EXPECT_EQ(0u, state("MvpnLib.json"));
    if (old)
        setenv(Toggle::toggleDirEnv, saved.c_str(), 1);
    fs::remove_all(dir);
}

}  // namespace
}  // namespace Routing::Bgp
