// The typed parser plug-ins at work in a real parser container: every known
// (type, subtype) pair, received as octets and interned, becomes the right
// class with the right classification and prints exactly; the show-command
// strings agree with the interned objects; the route-target list follows the
// interned route targets; and the "Mvpn" toggle decides about VRF route
// import.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <sstream>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

#include "TestUtil.h"
#include "Toggle/Toggle.h"
#include "VoBgp/Parse/ExtComm.h"
#include "VoBgp/Parse/ExtCommPlugins.h"
#include "VoBgp/VoBgpCommunity.h"

namespace Routing::Bgp {
namespace {

// A parser as the agent starts it, with an interning table on its root.
struct Parser {
    BgpParseExtCommContainerSm::Ptr container = bgpParseExtCommContainerSmFactory();
    ExtCommDedupTable::Ptr table = extCommDedupTableFactory(container->extCommParser());

    ExtComm::PtrConst intern(U64 value) const {
        return ExtComm::dedupContent(table.ptr(), ExtCommContent(value));
    }
};

std::string hex(U64 value) {
    std::ostringstream os;
    os << ExtCommContent(value);
    return os.str();
}

// One received value: the class it must intern to (exactly), its
// classification, its show-command form and its derived form.
struct Row {
    U64 value;
    std::type_info const* cls;
    ExtCommClassification classification;
    char const* ui;
    char const* derived;
};

// Every (type, subtype) pair the packet vocabulary names, one value each,
// and a few the vocabulary does not know. The VRF route import row depends
// on the "Mvpn" toggle.
std::vector<Row> rows(bool mvpn) {
    auto const* plain = &typeid(ExtComm);
    auto const* subtyped = &typeid(ExtCommSubtyped);
    auto const* asNumber = &typeid(ExtCommAsNumber);
    auto const* ipv4 = &typeid(ExtCommIpv4Address);
    auto const none = extCommClassificationUnSpecified;
    Row const vri =
        mvpn
            ? Row{0x010B0A0102030007, &typeid(ExtCommVrfRouteImportIpv4Address),
                  extCommClassificationVrfRouteImport, "VRF-Route-Import:10.1.2.3:7",
                  "<VrfRouteImport 10.1.2.3:7 0x010b0a0102030007>"}
            : Row{0x010B0A0102030007, ipv4, none, "010b-IP:10.1.2.3:7",
                  "<extCommPktTypeTransIpv4Address extCommPktSubtypeTransIpv4AddressVrfRouteImport "
                  "10.1.2.3 0x010b0a0102030007>"};
    return {
        // Two-octet AS (0x00).
        {0x0002FDE800000064, &typeid(ExtCommRouteTargetAs), extCommClassificationRouteTarget,
         "Route-Target-AS:65000:100", "<RouteTarget2ByteASN 65000:100 0x0002fde800000064>"},
        {0x0003FDE800000064, &typeid(ExtCommRouteOriginAs), extCommClassificationRouteOrigin,
         "Route-Origin-AS:65000:100", "<RouteOrigin2ByteASN 65000:100 0x0003fde800000064>"},
        {0x0005FDE800000064, asNumber, none, "0005-AS:65000:100",
         "<extCommPktTypeTransTwoOctetAs extCommPktSubtypeTransTwoOctetAsOspfDomainIdentifier "
         "ASN=65000 0x0005fde800000064>"},
        {0x0008FDE800000064, asNumber, none, "0008-AS:65000:100",
         "<extCommPktTypeTransTwoOctetAs extCommPktSubtypeTransTwoOctetAsBgpDataCollection "
         "ASN=65000 0x0008fde800000064>"},
        {0x0009FDE800000064, asNumber, none, "0009-AS:65000:100",
         "<extCommPktTypeTransTwoOctetAs extCommPktSubtypeTransTwoOctetAsSourceAs ASN=65000 "
         "0x0009fde800000064>"},
        {0x000AFDE800000064, asNumber, none, "000a-AS:65000:100",
         "<extCommPktTypeTransTwoOctetAs extCommPktSubtypeTransTwoOctetAsL2VpnIdentifier "
         "ASN=65000 0x000afde800000064>"},
        {0x0010FDE800000064, asNumber, none, "0010-AS:65000:100",
         "<extCommPktTypeTransTwoOctetAs extCommPktSubtypeTransTwoOctetAsCiscoVpnDistinguisher "
         "ASN=65000 0x0010fde800000064>"},
        // Declared but not a valid member, and not declared at all.
        {0x0014FDE800000064, asNumber, none, "0014-AS:65000:100",
         "<extCommPktTypeTransTwoOctetAs subtype=20 ASN=65000 0x0014fde800000064>"},
        {0x0001FDE800000064, asNumber, none, "0001-AS:65000:100",
         "<extCommPktTypeTransTwoOctetAs subtype=1 ASN=65000 0x0001fde800000064>"},
        // IPv4 address (0x01).
        {0x01020A0102030007, &typeid(ExtCommRouteTargetIpv4Address),
         extCommClassificationRouteTarget, "Route-Target-IP:10.1.2.3:7",
         "<RouteTarget 10.1.2.3:7 0x01020a0102030007>"},
        {0x01030A0102030007, &typeid(ExtCommRouteOriginIpv4Address),
         extCommClassificationRouteOrigin, "Route-Origin-IP:10.1.2.3:7",
         "<RouteOrigin 10.1.2.3:7 0x01030a0102030007>"},
        {0x01050A0102030007, ipv4, none, "0105-IP:10.1.2.3:7",
         "<extCommPktTypeTransIpv4Address extCommPktSubtypeTransIpv4AddressOspfDomainIdentifier "
         "10.1.2.3 0x01050a0102030007>"},
        {0x01070A0102030007, ipv4, none, "0107-IP:10.1.2.3:7",
         "<extCommPktTypeTransIpv4Address extCommPktSubtypeTransIpv4AddressOspfRouteId 10.1.2.3 "
         "0x01070a0102030007>"},
        {0x010A0A0102030007, ipv4, none, "010a-IP:10.1.2.3:7",
         "<extCommPktTypeTransIpv4Address extCommPktSubtypeTransIpv4AddressL2VpnIdentifier "
         "10.1.2.3 0x010a0a0102030007>"},
        vri,
        {0x010C0A0102030007, ipv4, none, "010c-IP:10.1.2.3:7",
         "<extCommPktTypeTransIpv4Address extCommPktSubtypeTransIpv4AddressFlowspecRedirectIp "
         "10.1.2.3 0x010c0a0102030007>"},
        {0x01100A0102030007, ipv4, none, "0110-IP:10.1.2.3:7",
         "<extCommPktTypeTransIpv4Address extCommPktSubtypeTransIpv4AddressCiscoVpnDistinguisher "
         "10.1.2.3 0x01100a0102030007>"},
        // Four-octet AS (0x02).
        {0x0202000100000064, &typeid(ExtCommRouteTargetAs), extCommClassificationRouteTarget,
         "Route-Target-AS4:65536:100", "<RouteTarget4ByteASN 65536:100 0x0202000100000064>"},
        {0x0203000100000064, &typeid(ExtCommRouteOriginAs), extCommClassificationRouteOrigin,
         "Route-Origin-AS4:65536:100", "<RouteOrigin4ByteASN 65536:100 0x0203000100000064>"},
        {0x0204000100000064, asNumber, none, "0204-AS4:65536:100",
         "<extCommPktTypeTransFourOctetAs extCommPktSubtypeTransFourOctetAsGeneric ASN=65536 "
         "0x0204000100000064>"},
        {0x0205000100000064, asNumber, none, "0205-AS4:65536:100",
         "<extCommPktTypeTransFourOctetAs extCommPktSubtypeTransFourOctetAsOspfDomainIdentifier "
         "ASN=65536 0x0205000100000064>"},
        {0x0208000100000064, asNumber, none, "0208-AS4:65536:100",
         "<extCommPktTypeTransFourOctetAs extCommPktSubtypeTransFourOctetAsBgpDataCollection "
         "ASN=65536 0x0208000100000064>"},
        {0x0209000100000064, asNumber, none, "0209-AS4:65536:100",
         "<extCommPktTypeTransFourOctetAs extCommPktSubtypeTransFourOctetAsSourceAs ASN=65536 "
         "0x0209000100000064>"},
        {0x0210000100000064, asNumber, none, "0210-AS4:65536:100",
         "<extCommPktTypeTransFourOctetAs extCommPktSubtypeTransFourOctetAsCiscoVpnDistinguisher "
         "ASN=65536 0x0210000100000064>"},
        // Opaque (0x03): three plug-ins share this type rule.
        {0x0301000000000064, subtyped, none, "0301000000000064",
         "<extCommPktTypeTransOpaque extCommPktSubtypeTransOpaqueCostCommunity "
         "0x0301000000000064>"},
        {0x0303000000000064, subtyped, none, "0303000000000064",
         "<extCommPktTypeTransOpaque extCommPktSubtypeTransOpaqueOutboundRouteFilter "
         "0x0303000000000064>"},
        {0x0306000000000064, subtyped, none, "0306000000000064",
         "<extCommPktTypeTransOpaque extCommPktSubtypeTransOpaqueOspfRouteType "
         "0x0306000000000064>"},
        {0x030B000000000064, &typeid(ExtCommColor), extCommClassificationColor, "Color:CO(00):100",
         "<Color: 100(00) 0x030b000000000064>"},
        {0x030C000000000008, &typeid(ExtCommTunnelEncap), extCommClassificationTunnelEncap,
         "TunnelEncap:tunnelTypeVxlan", "<TunnelEncap 8:tunnelTypeVxlan 0x030c000000000008>"},
        {0x030D000000000000, &typeid(ExtCommDefaultGateway), extCommClassificationDefaultGateway,
         "DefaultGateway", "<DefaultGateway 0x030d000000000000>"},
        // Types without a type rule: the root's plain fallback.
        {0x0401020304050607, plain, none, "0401020304050607",
         "<extCommPktTypeTransQosMarking 0x0401020304050607>"},
        {0x0501020304050607, plain, none, "0501020304050607",
         "<extCommPktTypeTransCosCapability 0x0501020304050607>"},
        {0x0600000000000001, plain, none, "0600000000000001",
         "<extCommPktTypeTransEvpn 0x0600000000000001>"},
        {0x0601000000000001, plain, none, "0601000000000001",
         "<extCommPktTypeTransEvpn 0x0601000000000001>"},
        {0x0602000000000001, plain, none, "0602000000000001",
         "<extCommPktTypeTransEvpn 0x0602000000000001>"},
        {0x0603000000000001, plain, none, "0603000000000001",
         "<extCommPktTypeTransEvpn 0x0603000000000001>"},
        {0x0604000000000001, plain, none, "0604000000000001",
         "<extCommPktTypeTransEvpn 0x0604000000000001>"},
        {0x0605000000000001, plain, none, "0605000000000001",
         "<extCommPktTypeTransEvpn 0x0605000000000001>"},
        {0x0606000000000001, plain, none, "0606000000000001",
         "<extCommPktTypeTransEvpn 0x0606000000000001>"},
        {0x0608000000000001, plain, none, "0608000000000001",
         "<extCommPktTypeTransEvpn 0x0608000000000001>"},
        {0x0609000000000001, plain, none, "0609000000000001",
         "<extCommPktTypeTransEvpn 0x0609000000000001>"},
        {0x060A000000000001, plain, none, "060a000000000001",
         "<extCommPktTypeTransEvpn 0x060a000000000001>"},
        {0x060B000000000001, plain, none, "060b000000000001",
         "<extCommPktTypeTransEvpn 0x060b000000000001>"},
        {0x060C000000000001, plain, none, "060c000000000001",
         "<extCommPktTypeTransEvpn 0x060c000000000001>"},
        {0x0701020304050607, plain, none, "0701020304050607",
         "<extCommPktTypeUnknown 0x0701020304050607>"},
        {0x0800000000000001, plain, none, "0800000000000001",
         "<extCommPktTypeTransFlowspecRedirectNexthop 0x0800000000000001>"},
        {0x4401020304050607, plain, none, "0401(NT)020304050607",
         "<extCommPktTypeNonTransQosMarking 0x4401020304050607>"},
        // Generic (0x80-0x82).
        {0x8006000000000001, subtyped, none, "8006000000000001",
         "<extCommPktTypeTransGeneric extCommPktSubtypeTransGenericFlowspecTrafficRate "
         "0x8006000000000001>"},
        {0x8007000000000001, subtyped, none, "8007000000000001",
         "<extCommPktTypeTransGeneric extCommPktSubtypeTransGenericFlowspecTrafficAction "
         "0x8007000000000001>"},
        {0x8008000000000001, subtyped, none, "8008000000000001",
         "<extCommPktTypeTransGeneric extCommPktSubtypeTransGenericFlowspecRedirectAs2Byte "
         "0x8008000000000001>"},
        {0x8009000000000001, subtyped, none, "8009000000000001",
         "<extCommPktTypeTransGeneric extCommPktSubtypeTransGenericFlowspecTrafficRemarking "
         "0x8009000000000001>"},
        {0x800A000000000001, subtyped, none, "800a000000000001",
         "<extCommPktTypeTransGeneric extCommPktSubtypeTransGenericLayer2InfoExtendedCommunity "
         "0x800a000000000001>"},
        {0x800B000000000001, subtyped, none, "800b000000000001",
         "<extCommPktTypeTransGeneric extCommPktSubtypeTransGenericEtreeInfo "
         "0x800b000000000001>"},
        {0x8108000000000001, subtyped, none, "8108000000000001",
         "<extCommPktTypeTransGenericPart2 extCommPktSubtypeTransGenericPart2FlowspecRedirectIpv4 "
         "0x8108000000000001>"},
        {0x8208000000000001, subtyped, none, "8208000000000001",
         "<extCommPktTypeTransGenericPart3 "
         "extCommPktSubtypeTransGenericPart3FlowspecRedirectAs4Byte 0x8208000000000001>"},
        // Non-transitive.
        {0x4004FDE84E9502F9, &typeid(ExtCommLinkBandwidth), extCommClassificationLinkBandwidth,
         "Link-Bandwidth-AS:65000:10 Gbps", "<LinkBandwidth 65000:1.25e+09 0x4004fde84e9502f9>"},
        {0x4080FDE800000064, asNumber, none, "0080-AS(NT):65000:100",
         "<extCommPktTypeNonTransTwoOctetAs "
         "extCommPktSubtypeNonTransTwoOctetAsVirtualNetworkIdentifier ASN=65000 "
         "0x4080fde800000064>"},
        {0x41020A0102030007, ipv4, none, "0102-IP(NT):10.1.2.3:7",
         "<extCommPktTypeNonTransIpv4Address subtype=2 10.1.2.3 0x41020a0102030007>"},
        {0x4204000100000064, asNumber, none, "0204-AS4(NT):65536:100",
         "<extCommPktTypeNonTransFourOctetAs extCommPktSubtypeNonTransFourOctetAsGeneric "
         "ASN=65536 0x4204000100000064>"},
        {0x4300000000000002, &typeid(ExtCommOriginValidationState),
         extCommClassificationOriginValidationState, "Origin-Validation-State:invalid",
         "<OriginValidationState invalid 0x4300000000000002>"},
        {0x4301000000000064, subtyped, none, "0301(NT)000000000064",
         "<extCommPktTypeNonTransOpaque extCommPktSubtypeNonTransCostCommunity "
         "0x4301000000000064>"},
    };
}

// What is wrong with the interned object of each row, one line per fault
// (empty when all is well). Used both here and in the toggle subprocesses,
// which can only report through their exit status and output.
std::vector<std::string> rowFaults(Parser const& parser, bool mvpn) {
    std::vector<std::string> faults;
    auto fault = [&faults](Row const& row, std::string const& what) {
        faults.push_back(hex(row.value) + ": " + what);
    };
    for (Row const& row : rows(mvpn)) {
        ExtComm::PtrConst comm = parser.intern(row.value);
        if (!comm) {
            fault(row, "null");
            continue;
        }
        ExtComm const& object = *comm;
        if (typeid(object) != *row.cls)
            fault(row, std::string("class ") + typeid(object).name() + ", not " + row.cls->name());
        if (comm->classification() != row.classification)
            fault(row,
                  "classification " + std::string(valueToStrep(comm->classification()).view()));
        if (!comm->isDeduped() || parser.intern(row.value) != comm)
            fault(row, "not interned");
        // The AS layout follows the type octet.
        if (auto const* as = dynamic_cast<ExtCommAsNumber const*>(comm.ptr())) {
            if (as->fourOctetAs() != ((comm->getContent().typeOctet() & 0x3f) == 0x02))
                fault(row, "wrong AS layout");
        }
        if (comm->toStrepForUI().view() != row.ui)
            fault(row, "UI form \"" + std::string(comm->toStrepForUI().view()) + "\"");
        if (comm->toStrep().view() != row.derived)
            fault(row, "derived form \"" + std::string(comm->toStrep().view()) + "\"");
    }
    return faults;
}

// Every (type, subtype) pair the packet vocabulary names: the members of
// each type's subtype enumeration (the unknown members aside), or the type
// alone (subtype -1) when it has none.
template <class Subtype>
void addSubtypes(int type, std::set<std::pair<int, int>>& out) {
    for (auto const& member : Kiv::enumTable<Subtype>().members)
        if (member.value < 0x100)
            out.insert({type, int(member.value)});
}

std::set<std::pair<int, int>> vocabularyPairs() {
    std::set<std::pair<int, int>> out;
    for (auto const& type : Kiv::enumTable<BgpExtCommPktType>().members) {
        if (type.value >= 0x100)
            continue;
        bool hasFamily = false;
#define ADD_FAMILY_(accessor, typeMember, Subtype) \
    if (type.value == typeMember) {                \
        addSubtypes<Subtype>(type.value, out);     \
        hasFamily = true;                          \
    }
        VOBGP_EXT_COMM_SUBTYPE_ACCESSORS(ADD_FAMILY_)
#undef ADD_FAMILY_
        if (!hasFamily)
            out.insert({int(type.value), -1});
    }
    return out;
}

bool hasSubtypeFamily(U8 type) {
    for (auto pair : vocabularyPairs())
        if (pair.first == type && pair.second >= 0)
            return true;
    return false;
}

TEST(ExtCommPluginsTable, CoversEveryNamedPair) {
    std::set<std::pair<int, int>> covered;
    for (Row const& row : rows(false)) {
        ExtCommContent content(row.value);
        U8 type = content.typeOctet();
        covered.insert({type, hasSubtypeFamily(type) ? content.subtypeOctet() : -1});
    }
    for (auto const& pair : vocabularyPairs())
        EXPECT_TRUE(covered.contains(pair)) << pair.first << "/" << pair.second;
}

TEST(ExtCommPlugins, EveryPairInternsToItsClassAndPrintsExactly) {
    Parser parser;
    for (auto const& fault : rowFaults(parser, bgpParseExtCommMvpnEnabled()))
        ADD_FAILURE() << fault;
}

TEST(ExtCommPlugins, FourOctetAsAsdotBoundaries) {
    struct Case {
        U64 value;
        char const* asdot;
        char const* plain;
    } const cases[] = {
        {0x02020000FFFF0064, "Route-Target-AS4:65535:100", "Route-Target-AS4:65535:100"},
        {0x0202000100000064, "Route-Target-AS4:1.0:100", "Route-Target-AS4:65536:100"},
        {0x020200010001FFFF, "Route-Target-AS4:1.1:65535", "Route-Target-AS4:65537:65535"},
        {0x0202FFFFFFFF0064, "Route-Target-AS4:65535.65535:100", "Route-Target-AS4:4294967295:100"},
        {0x0202000000000000, "Route-Target-AS4:0:0", "Route-Target-AS4:0:0"},
        {0x02030000FFFF0064, "Route-Origin-AS4:65535:100", "Route-Origin-AS4:65535:100"},
        {0x0203000100000064, "Route-Origin-AS4:1.0:100", "Route-Origin-AS4:65536:100"},
        // Generic four-octet-AS forms dot alike.
        {0x0205000100000064, "0205-AS4:1.0:100", "0205-AS4:65536:100"},
        {0x4204FFFF00000064, "0204-AS4(NT):65535.0:100", "0204-AS4(NT):4294901760:100"},
        // A two-octet AS never dots, and its administrator has 32 bits.
        {0x0002FFFFFFFFFFFF, "Route-Target-AS:65535:4294967295",
         "Route-Target-AS:65535:4294967295"},
        {0x0003FFFF00000001, "Route-Origin-AS:65535:1", "Route-Origin-AS:65535:1"},
    };
    Parser parser;
    for (auto const& c : cases) {
        auto comm = parser.intern(c.value);
        EXPECT_EQ(std::string(c.asdot), comm->toStrepForUI(true).view()) << hex(c.value);
        EXPECT_EQ(std::string(c.plain), comm->toStrepForUI(false).view()) << hex(c.value);
    }
}

// One value of each typed kind.
constexpr U64 typedValues[] = {
    0x0002FDE800000064,  // route target, two-octet AS
    0x0202000100000064,  // route target, four-octet AS
    0x01020A0102030007,  // route target, IPv4 address
    0x0003FDE800000064,  // route origin, two-octet AS
    0x0203000100000064,  // route origin, four-octet AS
    0x01030A0102030007,  // route origin, IPv4 address
    0x4004FDE84E9502F9,  // link bandwidth
    0x030BC00000000064,  // color
    0x030C000000000003,  // tunnel encapsulation, unknown tunnel type
    0x030D000000000000,  // default gateway
    0x4300000000000001,  // origin validation state
    0x010B0A0102030007,  // VRF route import (typed only with "Mvpn")
};

TEST(ExtCommPlugins, ShowStringAndCacheMatchTheInternedUiForm) {
    Parser parser;
    auto const& root = *parser.container->extCommParser();
    auto const& cache = parser.container->extCommCache();
    for (bool weighted : {false, true})
        for (bool json : {false, true}) {
            // One show command: its weighted and JSON choice is fixed, the
            // cache keeps both AS renderings.
            cache->extCommToStringDelAll();
            cache->extCommToAsdotStringDelAll();
            for (int pass = 0; pass < 2; ++pass)
                for (bool asdot : {false, true})
                    for (U64 value : typedValues) {
                        std::string const expected(
                            parser.intern(value)->toStrepForUI(asdot, weighted, json).view());
                        std::string const shown(
                            root.showString(value, asdot, weighted, json).view());
                        EXPECT_EQ(expected, shown) << hex(value) << " asdot " << asdot
                                                   << " weighted " << weighted << " json " << json;
                        if (cache->lookup(value, asdot).isNull())
                            cache->insert(value, Kiv::String(shown), asdot);
                        EXPECT_EQ(expected, cache->lookup(value, asdot).view())
                            << hex(value) << " asdot " << asdot << " weighted " << weighted
                            << " json " << json;
                    }
            EXPECT_EQ(std::size(typedValues), cache->extCommToString().size());
            EXPECT_EQ(std::size(typedValues), cache->extCommToAsdotString().size());
        }
    // The flags reach the typed forms.
    EXPECT_EQ("Route-Target-AS4:1.0:100",
              root.showString(0x0202000100000064, true, false, false).str());
    EXPECT_EQ("Link-Bandwidth-AS:65000:1250000000",
              root.showString(0x4004FDE84E9502F9, false, true, false).str());
    EXPECT_EQ("TunnelEncap:tunnelTypeUnknown-3",
              root.showString(0x030C000000000003, true, true, true).str());
}

TEST(ExtCommPlugins, RouteTargetListHoldsInternedRouteTargetsOnly) {
    U64 const targets[] = {0x0002FDE800000064, 0x0202000100000064, 0x01020A0102030007};
    U64 const others[] = {0x0003FDE800000064, 0x0203000100000064, 0x01030A0102030007,
                          0x0005FDE800000064, 0x4004FDE84E9502F9, 0x010B0A0102030007};
    Parser parser;
    auto const& rtList = *parser.table->producerRtList();
    std::vector<ExtComm::PtrConst> held;
    for (U64 value : others)
        held.push_back(parser.intern(value));
    EXPECT_EQ(0u, rtList.rtCount());
    for (U64 value : targets)
        held.push_back(parser.intern(value));
    EXPECT_EQ(3u, rtList.rtCount());
    for (U64 value : targets)
        EXPECT_TRUE(rtList.rtHas(RouteTarget(value))) << hex(value);
    for (U64 value : others)
        EXPECT_FALSE(rtList.rtHas(RouteTarget(value))) << hex(value);

    // A route target leaves the list with its last holder, and comes back.
    auto again = parser.intern(targets[2]);
    held.pop_back();
    EXPECT_TRUE(rtList.rtHas(RouteTarget(targets[2])));
    again = nullptr;
    EXPECT_FALSE(rtList.rtHas(RouteTarget(targets[2])));
    EXPECT_EQ(2u, rtList.rtCount());
    again = parser.intern(targets[2]);
    EXPECT_TRUE(rtList.rtHas(RouteTarget(targets[2])));
    held.clear();
    again = nullptr;
    EXPECT_EQ(0u, rtList.rtCount());
}

// Every (type, subtype) pair the tree holds a sub-type rule for, and
// whether each of those rules was built with the tree's control.
struct SubRules {
    std::set<std::pair<int, int>> pairs;
    bool controlsMatch = true;
};

template <class Rule, auto pktType>
void collectSubRules(BgpParseExtendedCommunityRule const& root, SubRules& out) {
    if constexpr (std::is_same_v<decltype(pktType), BgpExtCommPktType>) {
        if (auto type = root.typeRule(pktType)) {
            for (auto const& entry : static_cast<Rule const*>(type.ptr())->subTypeRule()) {
                out.pairs.insert({int(pktType), int(entry.first)});
                out.controlsMatch &= entry.second->parseControl() == root.parseControl();
            }
        }
    }
}

SubRules subRules(BgpParseExtendedCommunityRule const& root) {
    SubRules out;
#define VOBGP_EXT_COMM_TYPE_RULE_KIND(Name, Key, set, Rule, SubRuleBase, Subtype, pktType, \
                                      Fallback, listed)                                    \
    collectSubRules<Rule, pktType>(root, out);
#include "VoBgp/Parse/ExtCommRuleKinds.def"
    return out;
}

// Each plug-in alone serves exactly its pairs, whether it starts before the
// rules register or after.
TEST(ExtCommPlugins, EachPluginServesExactlyItsPairs) {
    using Make = std::function<BgpParseExtCommPluginBaseSm::Ptr(
        BgpParseExtCommRuleCollections::PtrConst const&)>;
    struct Case {
        char const* name;
        Make make;
        std::set<std::pair<int, int>> pairs;
    } const cases[] = {
        {"route origin",
         bgpParseExtCommRouteOriginSmFactory,
         {{0x00, 0x03}, {0x01, 0x03}, {0x02, 0x03}}},
        {"route target",
         bgpParseExtCommRouteTargetSmFactory,
         {{0x00, 0x02}, {0x01, 0x02}, {0x02, 0x02}}},
        {"tunnel encapsulation", bgpParseExtCommTunnelEncapSmFactory, {{0x03, 0x0c}}},
        {"default gateway", bgpParseExtCommDefaultGatewaySmFactory, {{0x03, 0x0d}}},
        {"link bandwidth", bgpParseExtCommLinkBandwidthSmFactory, {{0x40, 0x04}}},
        {"color", bgpParseExtCommColorSmFactory, {{0x03, 0x0b}}},
        {"origin validation state", bgpParseExtCommOriginValidationStateSmFactory, {{0x43, 0x00}}},
        {"VRF route import", bgpParseExtCommVrfRouteImportSmFactory, {{0x01, 0x0b}}},
    };
    for (auto const& c : cases)
        for (bool pluginFirst : {true, false}) {
            auto collections = bgpParseExtCommRuleCollectionsFactory();
            BgpParseExtCommPluginBaseSm::Ptr plugin;
            if (pluginFirst)
                plugin = c.make(collections);
            auto root = bgpParseExtendedCommunityRuleFactory(BgpParseExtCommControl(collections));
            if (!pluginFirst)
                plugin = c.make(collections);
            SubRules const found = subRules(*root);
            EXPECT_EQ(c.pairs, found.pairs) << c.name << (pluginFirst ? " first" : " late");
            EXPECT_TRUE(found.controlsMatch) << c.name;
        }
}

TEST(ExtCommPlugins, SubRulesAreTheNamedRuleClasses) {
    Parser parser;
    auto const& root = *parser.container->extCommParser();
    auto ruleAt = [&root]<class TypeRule>(TypeRule const*, BgpExtCommPktType type,
                                          auto subtype) -> BgpParseExtCommRuleBase const* {
        auto rule = root.typeRule(type);
        return static_cast<TypeRule const*>(rule.ptr())->subTypeRule().find(subtype);
    };
    auto const* twoOctetAs = static_cast<BgpParseExtCommTransTwoOctetAsRule const*>(nullptr);
    auto const* ipv4 = static_cast<BgpParseExtCommTransIpv4AddressRule const*>(nullptr);
    auto const* fourOctetAs = static_cast<BgpParseExtCommTransFourOctetAsRule const*>(nullptr);
    auto const* opaque = static_cast<BgpParseExtCommTransOpaqueRule const*>(nullptr);
    auto const* nonTransTwoOctetAs =
        static_cast<BgpParseExtCommNonTransTwoOctetAsRule const*>(nullptr);
    auto const* nonTransOpaque = static_cast<BgpParseExtCommNonTransOpaqueRule const*>(nullptr);
    struct Case {
        BgpParseExtCommRuleBase const* rule;
        std::type_info const& cls;
    } const cases[] = {
        {ruleAt(twoOctetAs, extCommPktTypeTransTwoOctetAs,
                extCommPktSubtypeTransTwoOctetAsRouteTarget),
         typeid(BgpParseExtComSubTypeTransTwoOctetAsRouteTargetRule)},
        {ruleAt(twoOctetAs, extCommPktTypeTransTwoOctetAs,
                extCommPktSubtypeTransTwoOctetAsRouteOrigin),
         typeid(BgpParseExtComSubTypeTransTwoOctetAsRouteOriginRule)},
        {ruleAt(fourOctetAs, extCommPktTypeTransFourOctetAs,
                extCommPktSubtypeTransFourOctetAsRouteTarget),
         typeid(BgpParseExtComSubTypeTransFourOctetAsRouteTargetRule)},
        {ruleAt(fourOctetAs, extCommPktTypeTransFourOctetAs,
                extCommPktSubtypeTransFourOctetAsRouteOrigin),
         typeid(BgpParseExtComSubTypeTransFourOctetAsRouteOriginRule)},
        {ruleAt(ipv4, extCommPktTypeTransIpv4Address, extCommPktSubtypeTransIpv4AddressRouteTarget),
         typeid(BgpParseExtComSubTypeTransIpv4AddressRouteTargetRule)},
        {ruleAt(ipv4, extCommPktTypeTransIpv4Address, extCommPktSubtypeTransIpv4AddressRouteOrigin),
         typeid(BgpParseExtComSubTypeTransIpv4AddressRouteOriginRule)},
        {ruleAt(opaque, extCommPktTypeTransOpaque,
                extCommPktSubtypeTransOpaqueColorExtendedCommunity),
         typeid(BgpParseExtComSubTypeTransOpaqueColorRule)},
        {ruleAt(opaque, extCommPktTypeTransOpaque,
                extCommPktSubtypeTransOpaqueEncapsulationExtendedCommunity),
         typeid(BgpParseExtComSubTypeTransOpaqueTunnelEncapRule)},
        {ruleAt(opaque, extCommPktTypeTransOpaque, extCommPktSubtypeTransOpaqueDefaultGateway),
         typeid(BgpParseExtComSubTypeTransOpaqueDefaultGatewayRule)},
        {ruleAt(nonTransTwoOctetAs, extCommPktTypeNonTransTwoOctetAs,
                extCommPktSubtypeNonTransTwoOctetAsLinkBandwidth),
         typeid(BgpParseExtComSubTypeNonTransTwoOctetAsLinkBandwidthRule)},
        {ruleAt(nonTransOpaque, extCommPktTypeNonTransOpaque,
                extCommPktSubtypeNonTransOriginValidationState),
         typeid(BgpParseExtComSubTypeNonTransOpaqueOriginValidationStateRule)},
    };
    for (auto const& c : cases) {
        ASSERT_NE(nullptr, c.rule) << c.cls.name();
        EXPECT_TRUE(c.cls == typeid(*c.rule)) << typeid(*c.rule).name() << ", not " << c.cls.name();
    }
}

// The toggle is read once per process, so each state runs in a process of
// its own (re-executed, so nothing this process cached leaks in). It can
// only answer through its exit status and output.
void runParserWithMvpn(char const* toggleFile, bool on) {
    char pattern[] = "/tmp/vobgp-plugins-XXXXXX";
    if (mkdtemp(pattern) == nullptr)
        std::_Exit(2);
    std::filesystem::path dir(pattern);
    std::ofstream(dir / "MvpnLib.json") << toggleFile;
    setenv(Toggle::toggleDirEnv, pattern, 1);

    std::vector<std::string> faults;
    if (bgpParseExtCommMvpnEnabled() != on)
        faults.push_back("toggle not read");
    {
        Parser parser;
        std::vector<std::type_info const*> expected = {
            &typeid(BgpParseExtCommRouteOriginSm),
            &typeid(BgpParseExtCommRouteTargetSm),
            &typeid(BgpParseExtCommTunnelEncapSm),
            &typeid(BgpParseExtCommDefaultGatewaySm),
            &typeid(BgpParseExtCommLinkBandwidthSm),
            &typeid(BgpParseExtCommColorSm),
            &typeid(BgpParseExtCommOriginValidationStateSm)};
        if (on)
            expected.push_back(&typeid(BgpParseExtCommVrfRouteImportSm));
        std::vector<std::type_info const*> started;
        for (auto it = parser.container->extCommParserSmsBegin();
             it != parser.container->extCommParserSmsEnd(); ++it) {
            BgpParseExtCommPluginBaseSm const& sm = *it->sm;
            started.push_back(&typeid(sm));
        }
        if (started.size() != expected.size())
            faults.push_back(std::to_string(started.size()) + " plug-ins");
        for (std::size_t i = 0; i < std::min(started.size(), expected.size()); ++i)
            if (*started[i] != *expected[i])
                faults.push_back("plug-in " + std::to_string(i) + " is " + started[i]->name());
        for (auto& fault : rowFaults(parser, on))
            faults.push_back(std::move(fault));
    }
    std::filesystem::remove_all(dir);
    for (auto const& fault : faults)
        std::fprintf(stderr, "%s\n", fault.c_str());
    std::_Exit(faults.empty() ? 0 : 1);
}

TEST(ExtCommPluginsMvpn, OffStartsSevenPluginsAndVrfRouteImportStaysGeneric) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(runParserWithMvpn(R"({"Mvpn": false})", false), ::testing::ExitedWithCode(0), "");
}

TEST(ExtCommPluginsMvpn, OnStartsEightPluginsAndTypesVrfRouteImport) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(runParserWithMvpn(R"({"Mvpn": true})", true), ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace Routing::Bgp
