#include <typeinfo>

#include "Kiv/Errors.h"
#include "ParseTestPlugins.h"
#include "TestUtil.h"
#include "VoBgp/Parse/ExtComm.h"

namespace Routing::Bgp {
namespace {

using ParseTest::asNumberAs;
using ParseTest::makeSubRule;
using ParseTest::TestSubRule;

using TwoOctetAsSubRule = TestSubRule<BgpParseExtComSubTypeTransTwoOctetAsRuleBase>;

// A rule tree of its own, without plug-ins.
class ParseRuleTest : public ::testing::Test {
  protected:
    ParseRuleTest()
        : collections_(bgpParseExtCommRuleCollectionsFactory()),
          control_(collections_),
          root_(bgpParseExtendedCommunityRuleFactory(control_)) {}

    template <class Rule>
    Rule* typeRule(BgpExtCommPktType type) {
        return const_cast<Rule*>(static_cast<Rule const*>(root_->typeRule(type).ptr()));
    }
    BgpParseExtCommTransTwoOctetAsRule* twoOctetAs() {
        return typeRule<BgpParseExtCommTransTwoOctetAsRule>(extCommPktTypeTransTwoOctetAs);
    }
    ExtComm::PtrConst parse(U64 value) {
        return root_->parseExtendedCommunity(ExtCommContent(value));
    }

    BgpParseExtCommRuleCollections::Ptr collections_;
    BgpParseExtCommControl control_;
    BgpParseExtendedCommunityRule::Ptr root_;
};

enum class Shape { plain, subtyped, asNumber2, asNumber4, ipv4Address };

Shape shapeOf(ExtComm const* comm) {
    if (auto const* asNumber = dynamic_cast<ExtCommAsNumber const*>(comm))
        return asNumber->fourOctetAs() ? Shape::asNumber4 : Shape::asNumber2;
    if (dynamic_cast<ExtCommIpv4Address const*>(comm))
        return Shape::ipv4Address;
    if (typeid(*comm) == typeid(ExtCommSubtyped))
        return Shape::subtyped;
    EXPECT_TRUE(typeid(ExtComm) == typeid(*comm)) << typeid(*comm).name();
    return Shape::plain;
}

TEST_F(ParseRuleTest, EveryTypeOctetFallsBackToItsGenericShape) {
    struct Case {
        U8 type;
        Shape shape;
    } const cases[] = {
        {0x00, Shape::asNumber2},
        {0x01, Shape::ipv4Address},
        {0x02, Shape::asNumber4},
        {0x03, Shape::subtyped},
        {0x80, Shape::subtyped},
        {0x81, Shape::subtyped},
        {0x82, Shape::subtyped},
        {0x40, Shape::asNumber2},
        {0x41, Shape::ipv4Address},
        {0x42, Shape::asNumber4},
        {0x43, Shape::subtyped},
        // Known types without a type rule, and octets that are no type.
        {0x04, Shape::plain},
        {0x05, Shape::plain},
        {0x06, Shape::plain},
        {0x08, Shape::plain},
        {0x44, Shape::plain},
        {0x07, Shape::plain},
        {0xff, Shape::plain},
    };
    for (auto const& c : cases) {
        U64 value = U64(c.type) << 56 | 0x0002fde800000064ull;
        auto comm = parse(value);
        ASSERT_NE(nullptr, comm);
        EXPECT_EQ(c.shape, shapeOf(comm.ptr())) << int(c.type);
        EXPECT_EQ(extCommClassificationUnSpecified, comm->classification());
        EXPECT_EQ(value, comm->community());
        // A fresh object each time: interning is the table's business.
        EXPECT_FALSE(comm->isDeduped());
        EXPECT_NE(comm, parse(value));
    }
    EXPECT_EQ(11u, root_->typeRule().size());
    EXPECT_EQ(2u, root_->ip6TypeRule().size());
}

TEST_F(ParseRuleTest, SubTypeRuleAnswersForItsSubtype) {
    auto rule = makeSubRule<BgpParseExtComSubTypeTransTwoOctetAsRuleBase>(
        control_, extCommPktSubtypeTransTwoOctetAsRouteTarget,
        asNumberAs(extCommClassificationRouteTarget, false));
    twoOctetAs()->subTypeRuleIs(rule);

    auto rt = parse(0x0002fde800000064);
    EXPECT_EQ(extCommClassificationRouteTarget, rt->classification());
    EXPECT_EQ(1, rule->calls);
    // Another subtype of the same type falls back.
    auto origin = parse(0x0003fde800000064);
    EXPECT_EQ(extCommClassificationUnSpecified, origin->classification());
    EXPECT_EQ(Shape::asNumber2, shapeOf(origin.ptr()));
    // The same subtype under another type is not this rule's business.
    EXPECT_EQ(extCommClassificationUnSpecified, parse(0x0202fde800000064)->classification());
    EXPECT_EQ(1, rule->calls);
}

TEST_F(ParseRuleTest, SubtypesOutsideTheFamilyNeverReachARule) {
    // Rules stored under numbers the family does not accept: 0x01 is no
    // member, 0x14 a member with a name only.
    auto under1 = makeSubRule<BgpParseExtComSubTypeTransTwoOctetAsRuleBase>(
        control_, static_cast<BgpExtCommPktSubtypeTransTwoOctetAs>(0x01),
        asNumberAs(extCommClassificationRouteTarget, false));
    auto under14 = makeSubRule<BgpParseExtComSubTypeTransTwoOctetAsRuleBase>(
        control_, extCommPktSubtypeNonTransTwoOctetAsLinkBandwidthAny,
        asNumberAs(extCommClassificationRouteTarget, false));
    twoOctetAs()->subTypeRuleIs(under1);
    twoOctetAs()->subTypeRuleIs(under14);
    EXPECT_EQ(2u, twoOctetAs()->subTypeRule().size());
    EXPECT_EQ(extCommClassificationUnSpecified, parse(0x0001000000000001)->classification());
    EXPECT_EQ(extCommClassificationUnSpecified, parse(0x0014000000000001)->classification());
    EXPECT_EQ(0, under1->calls);
    EXPECT_EQ(0, under14->calls);
}

TEST_F(ParseRuleTest, RuleThatRejectsFallsBack) {
    auto rejecting = makeSubRule<BgpParseExtComSubTypeTransTwoOctetAsRuleBase>(
        control_, extCommPktSubtypeTransTwoOctetAsRouteTarget, nullptr);
    twoOctetAs()->subTypeRuleIs(rejecting);
    auto comm = parse(0x0002fde800000064);
    EXPECT_EQ(1, rejecting->calls);
    EXPECT_EQ(Shape::asNumber2, shapeOf(comm.ptr()));
    EXPECT_EQ(extCommClassificationUnSpecified, comm->classification());
}

TEST_F(ParseRuleTest, SubTypeRuleCollectionOperations) {
    auto* type = twoOctetAs();
    auto first = makeSubRule<BgpParseExtComSubTypeTransTwoOctetAsRuleBase>(
        control_, extCommPktSubtypeTransTwoOctetAsRouteTarget,
        asNumberAs(extCommClassificationRouteTarget, false));
    auto second = makeSubRule<BgpParseExtComSubTypeTransTwoOctetAsRuleBase>(
        control_, extCommPktSubtypeTransTwoOctetAsRouteTarget,
        asNumberAs(extCommClassificationRouteOrigin, false));
    auto other = makeSubRule<BgpParseExtComSubTypeTransTwoOctetAsRuleBase>(
        control_, extCommPktSubtypeTransTwoOctetAsSourceAs,
        asNumberAs(extCommClassificationUnSpecified, false));

    type->subTypeRuleIs(first);
    type->subTypeRuleIs(first);
    EXPECT_EQ(1u, type->subTypeRule().size());
    U32 held = first->references();
    type->subTypeRuleIs(first);
    EXPECT_EQ(held, first->references());

    // Same subtype: replaced, the old rule released.
    type->subTypeRuleIs(second);
    EXPECT_EQ(1u, type->subTypeRule().size());
    EXPECT_EQ(held - 1, first->references());
    EXPECT_EQ(second, type->subTypeRule(extCommPktSubtypeTransTwoOctetAsRouteTarget));
    EXPECT_EQ(extCommClassificationRouteOrigin, parse(0x0002fde800000064)->classification());

    type->subTypeRuleIs(other);
    EXPECT_EQ(2u, type->subTypeRule().size());

    // Null is refused and changes nothing.
    EXPECT_THROW(type->subTypeRuleIs(nullptr), Kiv::NullArgumentError);
    EXPECT_EQ(2u, type->subTypeRule().size());

    EXPECT_EQ(second, type->subTypeRuleDel(extCommPktSubtypeTransTwoOctetAsRouteTarget));
    EXPECT_EQ(nullptr, type->subTypeRuleDel(extCommPktSubtypeTransTwoOctetAsRouteTarget));
    EXPECT_EQ(nullptr, type->subTypeRule(extCommPktSubtypeTransTwoOctetAsRouteTarget));
    EXPECT_EQ(extCommClassificationUnSpecified, parse(0x0002fde800000064)->classification());

    type->subTypeRuleDelAll();
    EXPECT_TRUE(type->subTypeRule().empty());
}

TEST_F(ParseRuleTest, TypeRuleCollectionOperations) {
    auto twoOctetAsRule = root_->typeRule(extCommPktTypeTransTwoOctetAs);
    EXPECT_EQ(extCommPktTypeTransTwoOctetAs, twoOctetAsRule->pktType());
    EXPECT_THROW(root_->typeRuleIs(nullptr), Kiv::NullArgumentError);
    EXPECT_THROW(root_->ip6TypeRuleIs(nullptr), Kiv::NullArgumentError);
    EXPECT_EQ(11u, root_->typeRule().size());

    // Without its type rule, type 0x00 falls back at the root.
    EXPECT_EQ(twoOctetAsRule, root_->typeRuleDel(extCommPktTypeTransTwoOctetAs));
    EXPECT_EQ(Shape::plain, shapeOf(parse(0x0002fde800000064).ptr()));
    EXPECT_EQ(nullptr, root_->typeRuleDel(extCommPktTypeTransTwoOctetAs));
    root_->typeRuleIs(twoOctetAsRule);
    EXPECT_EQ(Shape::asNumber2, shapeOf(parse(0x0002fde800000064).ptr()));

    // A new type rule for the same type replaces the old one, which
    // deregisters as it goes.
    twoOctetAsRule = nullptr;
    auto replacement = Kiv::makeActive<BgpParseExtCommTransTwoOctetAsRule>(control_);
    EXPECT_EQ(2u, collections_->extendedCommSubTypeTransTwoOctetAsRuleInstance().size());
    root_->typeRuleIs(replacement);
    EXPECT_EQ(1u, collections_->extendedCommSubTypeTransTwoOctetAsRuleInstance().size());
    EXPECT_TRUE(collections_->extendedCommSubTypeTransTwoOctetAsRuleInstanceHas(
        BgpParseExtCommSubTypeTransTwoOctetAsRuleKey(replacement.ptr())));

    root_->ip6TypeRuleDelAll();
    root_->typeRuleDelAll();
    EXPECT_TRUE(root_->typeRule().empty());
    EXPECT_EQ(Shape::plain, shapeOf(parse(0x0102fde800000064).ptr()));
    // Only the root and the replacement (held here) are still registered.
    EXPECT_EQ(1u, collections_->extendedCommSubTypeTransTwoOctetAsRuleInstance().size());
    EXPECT_TRUE(collections_->extendedCommSubTypeTransIpv4AddressRuleInstance().empty());
    EXPECT_EQ(1u, collections_->extendedCommunityTypeRuleInstance().size());
}

TEST_F(ParseRuleTest, Ipv6CommunitiesAlwaysParse) {
    auto content = [](U8 type, U8 subtype) {
        ExtCommIp6Content c;
        c.type = type;
        c.subtype = subtype;
        c.localAdmin = 9;
        return c;
    };
    for (U8 type : {0x00, 0x40}) {
        auto comm = root_->parseExtendedCommunityIp6(content(type, 0x02));
        ExtCommIp6 const* raw = comm.ptr();
        EXPECT_TRUE(typeid(ExtCommIp6Subtyped) == typeid(*raw)) << int(type);
        EXPECT_EQ(extCommClassificationUnSpecified, comm->classification());
        EXPECT_EQ(content(type, 0x02), comm->getContent());
    }
    // Not an IPv6 type octet: the plain object.
    auto unknown = root_->parseExtendedCommunityIp6(content(0x01, 0x02));
    ExtCommIp6 const* rawUnknown = unknown.ptr();
    EXPECT_TRUE(typeid(ExtCommIp6) == typeid(*rawUnknown));

    auto* trans =
        const_cast<BgpParseExtCommIp6TransRule*>(static_cast<BgpParseExtCommIp6TransRule const*>(
            root_->ip6TypeRule(extCommIp6PktTypeTransIpv6Address).ptr()));
    auto rule = makeSubRule<BgpParseExtCommIp6SubTypeTransRuleBase>(
        control_, extCommIp6PktSubtypeRouteTarget,
        [](ExtCommIp6Content const& c) -> ExtCommIp6::PtrConst {
            return extCommIp6SubtypedFactory(extCommClassificationRouteTarget, c);
        });
    trans->subTypeRuleIs(rule);
    EXPECT_EQ(extCommClassificationRouteTarget,
              root_->parseExtendedCommunityIp6(content(0x00, 0x02))->classification());
    EXPECT_EQ(extCommClassificationUnSpecified,
              root_->parseExtendedCommunityIp6(content(0x00, 0x03))->classification());
    EXPECT_EQ(1, rule->calls);
}

TEST_F(ParseRuleTest, ShowStringIsTheParsedCommunitysUiForm) {
    EXPECT_EQ("0002-AS:65000:100", root_->showString(0x0002fde800000064, false, false, false));
    EXPECT_EQ("0202-AS4:1.0:100", root_->showString(0x0202000100000064, true, false, false));
    EXPECT_EQ("0202-AS4:65536:100", root_->showString(0x0202000100000064, false, false, false));
    // With a sub-type rule, its object's form.
    twoOctetAs()->subTypeRuleIs(makeSubRule<BgpParseExtComSubTypeTransTwoOctetAsRuleBase>(
        control_, extCommPktSubtypeTransTwoOctetAsRouteTarget,
        [](ExtCommContent const& c) -> ExtComm::PtrConst {
            return ExtCommIpv4Address::ExtCommIpv4AddressIs(extCommClassificationRouteTarget, c);
        }));
    EXPECT_EQ("0002-IP:253.232.0.0:100",
              root_->showString(0x0002fde800000064, false, false, false));
}

TEST(ParseRuleTeardown, DyingTreeReleasesEveryRuleAndKey) {
    auto collections = bgpParseExtCommRuleCollectionsFactory();
    BgpParseExtCommControl control(collections);
    int const liveBefore = TwoOctetAsSubRule::live();
    {
        auto root = bgpParseExtendedCommunityRuleFactory(control);
        auto const* type = static_cast<BgpParseExtCommTransTwoOctetAsRule const*>(
            root->typeRule(extCommPktTypeTransTwoOctetAs).ptr());
        const_cast<BgpParseExtCommTransTwoOctetAsRule*>(type)->subTypeRuleIs(
            makeSubRule<BgpParseExtComSubTypeTransTwoOctetAsRuleBase>(
                control, extCommPktSubtypeTransTwoOctetAsRouteTarget, nullptr));
        EXPECT_EQ(liveBefore + 1, TwoOctetAsSubRule::live());
        // The control of every rule is the one the root was built with.
        EXPECT_EQ(control, type->parseControl());
        // Held here twice, by the root, the thirteen type rules and the sub-rule.
        EXPECT_EQ(2u + 1 + 13 + 1, collections->references());
    }
    EXPECT_EQ(liveBefore, TwoOctetAsSubRule::live());
    EXPECT_EQ(2u, collections->references());
#define VOBGP_EXT_COMM_RULE_KIND(Name, Key, set, Rule) \
    EXPECT_TRUE(collections->set().empty()) << #set;
#include "VoBgp/Parse/ExtCommRuleKinds.def"
}

TEST(ParseRuleDeathTest, RulesNeedCollections) {
    EXPECT_ASSERT_DEATH(bgpParseExtendedCommunityRuleFactory(BgpParseExtCommControl()),
                        "parseControl().ruleCollections()");
    EXPECT_ASSERT_DEATH(Kiv::makeActive<BgpParseExtCommTransOpaqueRule>(BgpParseExtCommControl()),
                        "parseControl().ruleCollections()");
}

}  // namespace
}  // namespace Routing::Bgp
