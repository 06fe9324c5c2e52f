// The opt-in parser plug-ins (EVPN, flowspec, transitive link bandwidth):
// with them each value becomes its typed content and prints its fields in
// every form, malformed fields included; without them the same octets give
// exactly the default fallback object. Also how the plug-ins' type rules sit
// in the tree: added through the type-level hook in either order of building,
// and overlays that stay single and keep serving the rule below.
#include "ExtCommFormCheck.h"
#include "VoBgp/Parse/ExtCommOptInPlugins.h"

namespace Routing::Bgp {
namespace {

using FormCheck::Parser;

// A container with every opt-in plug-in appended, as a user would.
struct OptInParser : Parser {
    OptInParser() { bgpParseExtCommOptInPluginsEnq(*container); }
};

std::string policyForm(ExtComm const& comm, U8 flags) {
    return comm.toStrepForPolicy(ExtComm::StrepFormat(flags)).str();
}
constexpr U8 classificationOnly = 2;
constexpr U8 plainOnly = 1;

constexpr auto evpn = extCommClassificationEvpn;
constexpr auto flowspec = extCommClassificationFlowspec;

// value, classification, UI form, classification form, plain form, derived
// form without the hexadecimal content and ">".
using Typed = Rows<U64, ExtCommClassification, char const*, char const*, char const*, char const*>;
Typed const typedRows = {
    // MAC mobility: sticky, not sticky, and flags / reserved octet misused.
    {0x0600010000000005, evpn, "EVPN-MAC-Mobility:5:sticky", "MM:5:sticky", "5:sticky",
     "<EvpnMacMobility 5:sticky"},
    {0x06000000ffffffff, evpn, "EVPN-MAC-Mobility:4294967295", "MM:4294967295", "4294967295",
     "<EvpnMacMobility 4294967295"},
    {0x0600810200000001, evpn, "EVPN-MAC-Mobility:1:sticky,0x80:reserved=0x200000000",
     "MM:1:sticky,0x80:rsv=0x200000000", "1:sticky,0x80:rsv=0x200000000",
     "<EvpnMacMobility 1:sticky,0x80:rsv=0x200000000"},
    // ESI label: the label field whole; an unnamed flag and reserved octets.
    {0x0601010000000064, evpn, "EVPN-ESI-Label:single-active:100", "ESI-label:SA:100", "SA:100",
     "<EvpnEsiLabel SA:100"},
    {0x0601000000ffffff, evpn, "EVPN-ESI-Label:all-active:16777215", "ESI-label:AA:16777215",
     "AA:16777215", "<EvpnEsiLabel AA:16777215"},
    {0x0601020001000064, evpn, "EVPN-ESI-Label:0x2:100:reserved=0x1000000",
     "ESI-label:0x2:100:rsv=0x1000000", "0x2:100:rsv=0x1000000",
     "<EvpnEsiLabel 0x2:100:rsv=0x1000000"},
    {0x0602001122334455, evpn, "EVPN-ES-Import-RT:00:11:22:33:44:55", "ES-import:00:11:22:33:44:55",
     "00:11:22:33:44:55", "<EvpnEsImportRouteTarget 00:11:22:33:44:55"},
    {0x06030a0b0c0d0eff, evpn, "EVPN-Router-MAC:0a:0b:0c:0d:0e:ff", "rmac:0a:0b:0c:0d:0e:ff",
     "0a:0b:0c:0d:0e:ff", "<EvpnRouterMac 0a:0b:0c:0d:0e:ff"},
    // Layer-2 attributes: flags, none, and a must-be-zero flag with reserved.
    {0x0604000605dc0000, evpn, "EVPN-L2-Attributes:primary,control-word:1500", "L2attr:P,C:1500",
     "P,C:1500", "<EvpnLayer2Attributes P,C:1500"},
    {0x0604000100000000, evpn, "EVPN-L2-Attributes:backup:0", "L2attr:B:0", "B:0",
     "<EvpnLayer2Attributes B:0"},
    {0x0604000000000000, evpn, "EVPN-L2-Attributes:none:0", "L2attr:none:0", "none:0",
     "<EvpnLayer2Attributes none:0"},
    {0x0604800000000001, evpn, "EVPN-L2-Attributes:0x8000:0:reserved=0x1",
     "L2attr:0x8000:0:rsv=0x1", "0x8000:0:rsv=0x1", "<EvpnLayer2Attributes 0x8000:0:rsv=0x1"},
    // DF election: named algorithms and capabilities, then an unknown
    // algorithm, an unnamed capability and the reserved bits all set.
    {0x0606014000000000, evpn, "EVPN-DF-Election:highest-random-weight:AC-DF", "DF:HRW:AC",
     "HRW:AC", "<EvpnDfElection HRW:AC"},
    {0x060602c000000000, evpn, "EVPN-DF-Election:preference:AC-DF,dont-preempt", "DF:pref:AC,DP",
     "pref:AC,DP", "<EvpnDfElection pref:AC,DP"},
    {0x0606000000000000, evpn, "EVPN-DF-Election:default:none", "DF:default:none", "default:none",
     "<EvpnDfElection default:none"},
    {0x0606ff0001ffffff, evpn, "EVPN-DF-Election:31:0x1:reserved=0xe00000ffffff",
     "DF:31:0x1:rsv=0xe00000ffffff", "31:0x1:rsv=0xe00000ffffff",
     "<EvpnDfElection 31:0x1:rsv=0xe00000ffffff"},
    // ARP/ND flags.
    {0x0608130000000000, evpn, "EVPN-ND-Flags:router,override,immutable", "ND:R,O,I", "R,O,I",
     "<EvpnNdFlags R,O,I"},
    {0x0608000000000000, evpn, "EVPN-ND-Flags:none", "ND:none", "none", "<EvpnNdFlags none"},
    {0x0608240000000100, evpn, "EVPN-ND-Flags:0x24:reserved=0x100", "ND:0x24:rsv=0x100",
     "0x24:rsv=0x100", "<EvpnNdFlags 0x24:rsv=0x100"},
    // Traffic rate in bytes (1e6 B/s is 8 Mbps; 0 discards), and rates no
    // speaker should send: NaN, negative, infinite.
    {0x8006fde849742400, flowspec, "Flowspec-Traffic-Rate:65000:8 Mbps", "FS-rate:65000:1e+06",
     "65000:1e+06", "<FlowspecTrafficRate 65000:1e+06"},
    {0x8006000000000000, flowspec, "Flowspec-Traffic-Rate:0:0 bps", "FS-rate:0:0", "0:0",
     "<FlowspecTrafficRate 0:0"},
    {0x800600017fc00000, flowspec, "Flowspec-Traffic-Rate:1:invalid", "FS-rate:1:nan", "1:nan",
     "<FlowspecTrafficRate 1:nan"},
    {0x80060001c0a00000, flowspec, "Flowspec-Traffic-Rate:1:invalid", "FS-rate:1:-5", "1:-5",
     "<FlowspecTrafficRate 1:-5"},
    {0x800600017f800000, flowspec, "Flowspec-Traffic-Rate:1:invalid", "FS-rate:1:inf", "1:inf",
     "<FlowspecTrafficRate 1:inf"},
    // Traffic rate in packets: a subtype the 0x80 enumeration lacks.
    {0x800cfde8447a0000, flowspec, "Flowspec-Traffic-Rate-Packets:65000:1000 pps",
     "FS-rate-pps:65000:1000", "65000:1000", "<FlowspecTrafficRatePackets 65000:1000"},
    {0x800c0000ff800000, flowspec, "Flowspec-Traffic-Rate-Packets:0:invalid", "FS-rate-pps:0:-inf",
     "0:-inf", "<FlowspecTrafficRatePackets 0:-inf"},
    // Traffic action.
    {0x8007000000000003, flowspec, "Flowspec-Traffic-Action:terminal,sample", "FS-action:T,S",
     "T,S", "<FlowspecTrafficAction T,S"},
    {0x8007000000000000, flowspec, "Flowspec-Traffic-Action:none", "FS-action:none", "none",
     "<FlowspecTrafficAction none"},
    {0x8007010000000006, flowspec, "Flowspec-Traffic-Action:sample,0x4:reserved=0x10000000000",
     "FS-action:S,0x4:rsv=0x10000000000", "S,0x4:rsv=0x10000000000",
     "<FlowspecTrafficAction S,0x4:rsv=0x10000000000"},
    // Redirects.
    {0x8008fde800000064, flowspec, "Flowspec-Redirect-AS:65000:100", "FS-redirect:65000:100",
     "65000:100", "<FlowspecRedirectAs 65000:100"},
    {0x8108c00002010064, flowspec, "Flowspec-Redirect-IP:192.0.2.1:100",
     "FS-redirect:192.0.2.1:100", "192.0.2.1:100", "<FlowspecRedirectIp 192.0.2.1:100"},
    {0x8208000100000064, flowspec, "Flowspec-Redirect-AS4:65536:100", "FS-redirect:65536:100",
     "65536:100", "<FlowspecRedirectAs4 65536:100"},
    {0x0800000000000001, flowspec, "Flowspec-Redirect-Next-Hop:copy", "FS-redirect-nh:copy", "copy",
     "<FlowspecRedirectNextHop copy"},
    {0x0800000000000000, flowspec, "Flowspec-Redirect-Next-Hop", "FS-redirect-nh", "",
     "<FlowspecRedirectNextHop"},
    {0x0800000100000003, flowspec, "Flowspec-Redirect-Next-Hop:copy,0x2:reserved=0x100000000",
     "FS-redirect-nh:copy,0x2:rsv=0x100000000", "copy,0x2:rsv=0x100000000",
     "<FlowspecRedirectNextHop copy,0x2:rsv=0x100000000"},
    // Traffic marking: the DSCP, then the two high bits of its octet set.
    {0x800900000000002e, flowspec, "Flowspec-Traffic-Marking:46", "FS-mark:46", "46",
     "<FlowspecTrafficMarking 46"},
    {0x80090000000000ee, flowspec, "Flowspec-Traffic-Marking:46:reserved=0xc0",
     "FS-mark:46:rsv=0xc0", "46:rsv=0xc0", "<FlowspecTrafficMarking 46:rsv=0xc0"},
    // The transitive link bandwidth, 1.25e8 B/s: told apart from the
    // non-transitive one (Link-Bandwidth-AS:, lbw) and kept out of its
    // classification.
    {0x0004fdeb4cee6b28, extCommClassificationUnSpecified, "Link-Bandwidth-Trans-AS:65003:1 Gbps",
     "lbw-trans 65003:1.25e+08", "65003:1.25e+08", "<TransLinkBandwidth 65003:1.25e+08"},
};

TEST(ExtCommOptInPlugins, EveryKindPrintsItsFieldsInEveryForm) {
    OptInParser parser;
    for (auto [value, classification, ui, cls, plain, derived] : typedRows) {
        SCOPED_TRACE(testing::Message() << std::hex << value);
        ExtComm::PtrConst comm = parser.intern(value);
        EXPECT_EQ(comm->classification(), classification);
        EXPECT_EQ(comm->toStrepForUI().str(), ui);
        EXPECT_EQ(policyForm(*comm, classificationOnly), cls);
        EXPECT_EQ(policyForm(*comm, plainOnly), plain);
        EXPECT_EQ(comm->toStrep().str(),
                  std::string(derived) + " " + streamed(comm->getContent()) + ">");
    }
}

// The flags that only some forms read: asdot in the policy forms (never the
// derived one), weighted link bandwidth and JSON nowhere but in the
// bandwidth's own text.
TEST(ExtCommOptInPlugins, FormatFlags) {
    OptInParser parser;
    ExtComm::PtrConst as4 = parser.intern(0x8208000100000064);
    EXPECT_EQ(as4->toStrepForUI(true).str(), "Flowspec-Redirect-AS4:1.0:100");
    EXPECT_EQ(policyForm(*as4, classificationOnly | 16), "FS-redirect:1.0:100");
    EXPECT_EQ(as4->toStrep().str(), "<FlowspecRedirectAs4 65536:100 0x8208000100000064>");
    ExtComm::PtrConst rate = parser.intern(0x8006fde849742400);
    EXPECT_EQ(rate->toStrepForUI(true, true, true).str(), "Flowspec-Traffic-Rate:65000:8 Mbps");
    ExtComm::PtrConst lbw = parser.intern(0x0004fdeb4cee6b28);
    EXPECT_EQ(lbw->toStrepForUI(false, true).str(), "Link-Bandwidth-Trans-AS:65003:125000000");
}

// What the default container builds for a value: the fallback of its type
// rule, or the root's where there is none, written out here.
ExtComm::PtrConst expectedFallback(U64 value) {
    ExtCommContent const content(value);
    switch (content.typeOctet()) {
        case 0x00:
            return ExtCommAsNumber::ExtCommAsNumberIs(extCommClassificationUnSpecified, content,
                                                      false);
        case 0x80:
        case 0x81:
        case 0x82:
            return ExtCommSubtyped::ExtCommSubtypedIs(extCommClassificationUnSpecified, content);
        default:  // 0x06 and 0x08 have no type rule
            return ExtComm::ExtCommIs(extCommClassificationUnSpecified, content);
    }
}

TEST(ExtCommOptInPlugins, WithoutThemEveryValueIsTheDefaultFallback) {
    Parser parser;
    for (auto [value, classification, ui, cls, plain, derived] : typedRows) {
        SCOPED_TRACE(testing::Message() << std::hex << value);
        ExtComm::PtrConst comm = parser.intern(value);
        ExtComm::PtrConst expected = expectedFallback(value);
        EXPECT_EQ(classOf(comm.ptr()), classOf(expected.ptr()));
        EXPECT_EQ(comm->classification(), extCommClassificationUnSpecified);
        EXPECT_EQ(comm->toStrepForUI().str(), expected->toStrepForUI().str());
        EXPECT_EQ(comm->toStrep().str(), expected->toStrep().str());
    }
    // The transitive link bandwidth of the issue: the float's bits as an
    // administrator.
    EXPECT_EQ(parser.intern(0x0004fdeb4cee6b28)->toStrepForUI().str(), "0004-AS:65003:1290693416");
}

// With the plug-ins, what they do not type stays as it was: other EVPN
// subtypes take the EVPN rule's subtyped fallback; the overlays pass the
// rest of 0x00 and 0x80 to the rules below, typed or not.
TEST(ExtCommOptInPlugins, WhatTheyDoNotTypeKeepsItsForm) {
    OptInParser parser;
    for (
        auto [value, cls, ui, derived] : Rows<U64, std::type_info const*, char const*, char const*>{
            {0x0605000000000001, &typeid(ExtCommSubtyped), "0605000000000001",
             "<extCommPktTypeTransEvpn extCommPktSubtypeEvpnEtree 0x0605000000000001>"},
            {0x0607000000000001, &typeid(ExtCommSubtyped), "0607000000000001",
             "<extCommPktTypeTransEvpn subtype=7 0x0607000000000001>"},
            {0x800a000000000001, &typeid(ExtCommSubtyped), "800a000000000001",
             "<extCommPktTypeTransGeneric extCommPktSubtypeTransGenericLayer2InfoExtendedCommunity "
             "0x800a000000000001>"},
            {0x0002fde800000064, &typeid(ExtCommRouteTargetAs), "Route-Target-AS:65000:100",
             "<RouteTarget2ByteASN 65000:100 0x0002fde800000064>"},
            {0x0005fde800000064, &typeid(ExtCommAsNumber), "0005-AS:65000:100",
             "<extCommPktTypeTransTwoOctetAs extCommPktSubtypeTransTwoOctetAsOspfDomainIdentifier "
             "ASN=65000 0x0005fde800000064>"},
        }) {
        SCOPED_TRACE(testing::Message() << std::hex << value);
        ExtComm::PtrConst comm = parser.intern(value);
        EXPECT_EQ(classOf(comm.ptr()), *cls);
        EXPECT_EQ(comm->toStrepForUI().str(), ui);
        EXPECT_EQ(comm->toStrep().str(), derived);
    }
}

// The plug-ins built before the rule tree: the root's registration runs the
// type-level hooks, and the tree is the one a late plug-in gets.
TEST(ExtCommOptInPlugins, PluginsBuiltBeforeTheTreeServeItToo) {
    auto collections = bgpParseExtCommRuleCollectionsFactory();
    auto evpnSm = BgpParseExtCommEvpnSm::BgpParseExtCommEvpnSmIs(collections);
    auto flowspecSm = bgpParseExtCommFlowspecSmFactory(collections);
    auto root = bgpParseExtendedCommunityRuleFactory(BgpParseExtCommControl(collections));
    EXPECT_EQ(
        root->parseExtendedCommunity(ExtCommContent(0x0603001122334455))->toStrepForUI().str(),
        "EVPN-Router-MAC:00:11:22:33:44:55");
    EXPECT_EQ(
        root->parseExtendedCommunity(ExtCommContent(0x800cfde8447a0000))->toStrepForUI().str(),
        "Flowspec-Traffic-Rate-Packets:65000:1000 pps");
    EXPECT_EQ(
        root->parseExtendedCommunity(ExtCommContent(0x8007000000000001))->toStrepForUI().str(),
        "Flowspec-Traffic-Action:terminal");
}

// Hooks run again (a plug-in restarted, a second plug-in of the kind): an
// overlay replaces its own kind rather than stacking, and the registered
// rule below it keeps being filled by the ordinary hooks.
TEST(ExtCommOptInPlugins, OverlaysStaySingleOverTheRegisteredRule) {
    using Overlay = BgpParseExtCommTransTwoOctetAsLinkBandwidthOverlayRule;
    OptInParser parser;
    auto const& root = parser.container->extCommParser();
    auto overlayNow = [&] {
        return dynamic_cast<Overlay const*>(root->typeRule(extCommPktTypeTransTwoOctetAs).ptr());
    };
    ASSERT_NE(overlayNow(), nullptr);
    auto const* registered = overlayNow()->below().ptr();
    ASSERT_NE(dynamic_cast<BgpParseExtCommTransTwoOctetAsRule const*>(registered), nullptr);

    auto again =
        bgpParseExtCommTransLinkBandwidthSmFactory(parser.container->parseExtCommRuleCollections());
    again->handleStartup();
    ASSERT_NE(overlayNow(), nullptr);
    EXPECT_EQ(overlayNow()->below().ptr(), registered);
    // Route target and route origin, added to the registered rule.
    EXPECT_EQ(
        static_cast<BgpParseExtCommTransTwoOctetAsRule const*>(registered)->subTypeRule().size(),
        2u);
    EXPECT_EQ(classOf(root->parseExtendedCommunity(ExtCommContent(0x0004fdeb4cee6b28)).ptr()),
              typeid(ExtCommLinkBandwidth));
}

}  // namespace
}  // namespace Routing::Bgp
