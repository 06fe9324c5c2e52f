// The rule tree on its own, without plug-ins (dispatch by type and subtype
// octet, fallbacks, the rule maps), and the rule keys, the rule collections
// with their announcements, and the parse control.

#include "ParseTestPlugins.h"

namespace Routing::Bgp {
namespace {

using ParseTest::asNumberAs;
using ParseTest::makeSubRule;
using ParseTest::TwoOctetAsSubRule;
using SubRuleBase = BgpParseExtComSubTypeTransTwoOctetAsRuleBase;

class ParseRuleTest : public ::testing::Test {
  protected:
    BgpParseExtCommTransTwoOctetAsRule* twoOctetAs() {
        return ParseTest::typeRuleOf<BgpParseExtCommTransTwoOctetAsRule>(
            *root_, extCommPktTypeTransTwoOctetAs);
    }
    ExtComm::PtrConst parse(U64 value) {
        return root_->parseExtendedCommunity(ExtCommContent(value));
    }
    ExtCommClassification classificationOf(U64 value) { return parse(value)->classification(); }
    // A route-target rule (or one with another classification) for `subtype`.
    Kiv::Ptr<TwoOctetAsSubRule> rule(
        BgpExtCommPktSubtypeTransTwoOctetAs subtype,
        ExtCommClassification classification = extCommClassificationRouteTarget) {
        return makeSubRule<SubRuleBase>(control_, subtype, asNumberAs(classification, false));
    }

    BgpParseExtCommRuleCollections::Ptr collections_ = bgpParseExtCommRuleCollectionsFactory();
    BgpParseExtCommControl control_{collections_};
    BgpParseExtendedCommunityRule::Ptr root_ = bgpParseExtendedCommunityRuleFactory(control_);
};

TEST_F(ParseRuleTest, SubTypeRuleAnswersOnlyForItsSubtypeAndType) {
    auto rt = rule(extCommPktSubtypeTransTwoOctetAsRouteTarget);
    twoOctetAs()->subTypeRuleIs(rt);
    EXPECT_EQ(extCommClassificationRouteTarget, classificationOf(0x0002fde800000064));
    EXPECT_EQ(extCommClassificationUnSpecified, classificationOf(0x0003fde800000064));
    EXPECT_EQ(extCommClassificationUnSpecified, classificationOf(0x0202fde800000064));
    EXPECT_EQ(1, rt->calls);
    // A rule that rejects the value leaves it to the fallback.
    auto rejecting =
        makeSubRule<SubRuleBase>(control_, extCommPktSubtypeTransTwoOctetAsSourceAs, nullptr);
    twoOctetAs()->subTypeRuleIs(rejecting);
    auto comm = parse(0x0009fde800000064);
    EXPECT_EQ(1, rejecting->calls);
    EXPECT_TRUE(typeid(ExtCommAsNumber) == classOf(comm.ptr()));
}

// Rules stored under numbers the family does not accept (0x01 is no
// member, 0x14 a member with a name only) are never asked.
TEST_F(ParseRuleTest, SubtypesOutsideTheFamilyNeverReachARule) {
    auto under1 = rule(static_cast<BgpExtCommPktSubtypeTransTwoOctetAs>(0x01));
    auto under14 = rule(extCommPktSubtypeNonTransTwoOctetAsLinkBandwidthAny);
    twoOctetAs()->subTypeRuleIs(under1);
    twoOctetAs()->subTypeRuleIs(under14);
    EXPECT_EQ(2u, twoOctetAs()->subTypeRule().size());
    EXPECT_EQ(extCommClassificationUnSpecified, classificationOf(0x0001000000000001));
    EXPECT_EQ(extCommClassificationUnSpecified, classificationOf(0x0014000000000001));
    EXPECT_EQ(0, under1->calls + under14->calls);
}

TEST_F(ParseRuleTest, SubTypeRuleMapOperations) {
    auto* type = twoOctetAs();
    auto first = rule(extCommPktSubtypeTransTwoOctetAsRouteTarget);
    auto second = rule(extCommPktSubtypeTransTwoOctetAsRouteTarget, extCommClassificationColor);
    type->subTypeRuleIs(first);
    U32 const held = first->references();
    type->subTypeRuleIs(first);
    EXPECT_EQ(held, first->references());
    // Same subtype: replaced, the old rule released.
    type->subTypeRuleIs(second);
    EXPECT_EQ(held - 1, first->references());
    EXPECT_EQ(extCommClassificationColor, classificationOf(0x0002fde800000064));
    // Null is refused and changes nothing.
    EXPECT_THROW(type->subTypeRuleIs(nullptr), Kiv::NullArgumentError);
    EXPECT_EQ(1u, type->subTypeRule().size());
    EXPECT_EQ(second, type->subTypeRuleDel(extCommPktSubtypeTransTwoOctetAsRouteTarget));
    EXPECT_EQ(nullptr, type->subTypeRuleDel(extCommPktSubtypeTransTwoOctetAsRouteTarget));
    EXPECT_EQ(extCommClassificationUnSpecified, classificationOf(0x0002fde800000064));
}

TEST_F(ParseRuleTest, TypeRuleMapOperations) {
    auto twoOctetAsRule = root_->typeRule(extCommPktTypeTransTwoOctetAs);
    EXPECT_THROW(root_->typeRuleIs(nullptr), Kiv::NullArgumentError);
    // Without its type rule, type 0x00 falls back at the root.
    EXPECT_EQ(twoOctetAsRule, root_->typeRuleDel(extCommPktTypeTransTwoOctetAs));
    EXPECT_TRUE(typeid(ExtComm) == classOf(parse(0x0002fde800000064).ptr()));
    EXPECT_EQ(nullptr, root_->typeRuleDel(extCommPktTypeTransTwoOctetAs));
    root_->typeRuleIs(twoOctetAsRule);
    twoOctetAsRule = nullptr;
    // A new type rule for the same type replaces the old one, which
    // deregisters as it goes.
    auto replacement = Kiv::makeActive<BgpParseExtCommTransTwoOctetAsRule>(control_);
    EXPECT_EQ(2u, collections_->extendedCommSubTypeTransTwoOctetAsRuleInstance().size());
    root_->typeRuleIs(replacement);
    EXPECT_TRUE(typeid(ExtCommAsNumber) == classOf(parse(0x0002fde800000064).ptr()));
    EXPECT_EQ(1u, collections_->extendedCommSubTypeTransTwoOctetAsRuleInstance().size());
    root_->ip6TypeRuleDelAll();
    root_->typeRuleDelAll();
    EXPECT_TRUE(root_->typeRule().empty() && root_->ip6TypeRule().empty());
    // Only the root and the replacement (held here) are still registered.
    EXPECT_EQ(std::vector<std::size_t>({1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}),
              ParseTest::setSizes(*collections_));
}

// IPv6 communities take their type rule's subtyped fallback, or the root's
// plain one for an unknown type, unless a sub-type rule answers.
TEST_F(ParseRuleTest, Ipv6CommunitiesAlwaysParse) {
    auto parse6 = [this](U8 type, U8 subtype) {
        return root_->parseExtendedCommunityIp6(ExtCommIp6Content{type, subtype, {}, 9});
    };
    EXPECT_TRUE(typeid(ExtCommIp6Subtyped) == classOf(parse6(0x40, 0x02).ptr()));
    EXPECT_TRUE(typeid(ExtCommIp6) == classOf(parse6(0x01, 0x02).ptr()));
    auto rt = makeSubRule<BgpParseExtCommIp6SubTypeTransRuleBase>(
        control_, extCommIp6PktSubtypeRouteTarget,
        [](ExtCommIp6Content const& c) -> ExtCommIp6::PtrConst {
            return extCommIp6SubtypedFactory(extCommClassificationRouteTarget, c);
        });
    const_cast<BgpParseExtCommIp6TransRule*>(
        static_cast<BgpParseExtCommIp6TransRule const*>(
            root_->ip6TypeRule(extCommIp6PktTypeTransIpv6Address).ptr()))
        ->subTypeRuleIs(rt);
    EXPECT_EQ(extCommClassificationRouteTarget, parse6(0x00, 0x02)->classification());
    EXPECT_EQ(extCommClassificationUnSpecified, parse6(0x00, 0x03)->classification());
    EXPECT_TRUE(typeid(ExtCommIp6Subtyped) == classOf(parse6(0x00, 0x03).ptr()));
    EXPECT_EQ(1, rt->calls);
}

TEST(ParseRuleDeathTest, RulesNeedCollections) {
    EXPECT_ASSERT_DEATH(bgpParseExtendedCommunityRuleFactory(BgpParseExtCommControl()),
                        "parseControl().ruleCollections()");
    EXPECT_ASSERT_DEATH(Kiv::makeActive<BgpParseExtCommTransOpaqueRule>(BgpParseExtCommControl()),
                        "parseControl().ruleCollections()");
}

// Records every change the collections announce.
class Recorder : public Kiv::Notifiee {
  public:
    struct Event {
        Kiv::AttributeId attribute;
        void const* rule;
        friend bool operator==(Event const&, Event const&) = default;
    };

    explicit Recorder(Kiv::PtrInterface const* notifier) {
        notifierIs(notifier);
        hasNotificationActiveIs(true);
    }
    void onAttribute(Kiv::AttributeId attribute, void const* key) override {
        // Every key type is one rule pointer; read it through the key type
        // of the attribute to check that the two agree.
        void const* rule = nullptr;
        switch (attribute) {
#define RECORD_KEY_(Name, Key, id)                   \
    case id:                                         \
        rule = static_cast<Key const*>(key)->rule(); \
        break;
            PARSE_TEST_KINDS(RECORD_KEY_)
#undef RECORD_KEY_
            default:
                ADD_FAILURE() << "unexpected attribute " << attribute;
        }
        events.push_back({attribute, rule});
    }
    std::vector<Event> events;
};

template <class Key>
Key fakeKey(std::uintptr_t address) {
    return Key(reinterpret_cast<typename Key::Rule*>(address));
}

using OpaqueKey = BgpParseExtCommSubTypeTransOpaqueRuleKey;

// Keys order by address, null first; their text is the address, and a bad
// one names the attribute "rule".
TEST(RuleKey, OrderAndText) {
    auto key = fakeKey<OpaqueKey>(0xdeadbee0);
    EXPECT_TRUE(OpaqueKey() < key && !(key < OpaqueKey()) && !(key < key));
    EXPECT_TRUE(key < fakeKey<OpaqueKey>(~std::uintptr_t(0) - 7));
    EXPECT_EQ("0xdeadbee0", streamed(key));
    EXPECT_EQ(fakeKey<BgpParseExtendedCommunityRuleKey>(0x40),
              strepToValue<BgpParseExtendedCommunityRuleKey>("0x40"));
    for (char const* bad : {"deadbeef", "0xzz", "0x1ffffffffffffffff"})
        EXPECT_EQ("rule", rangeErrorAttribute([&] { strepToValue<OpaqueKey>(bad); })) << bad;
    EXPECT_THROW(strepToValue<OpaqueKey>("0x10 "), Kiv::ParseError);
}

// The named operations of a set (one set: they are generated alike)
// announce only real changes, only while switched on; emptying a set
// announces each key to listeners, and nothing without any.
TEST(RuleCollections, NamedOperationsAnnounceOnlyRealChanges) {
    auto collections = bgpParseExtCommRuleCollectionsFactory();
    auto a = fakeKey<OpaqueKey>(0x1000);
    auto b = fakeKey<OpaqueKey>(0x2000);
    {
        Recorder recorder(collections.ptr());
        collections->extendedCommSubTypeTransOpaqueRuleInstanceIs(a);
        collections->extendedCommSubTypeTransOpaqueRuleInstanceIs(a);
        EXPECT_FALSE(collections->extendedCommSubTypeTransOpaqueRuleInstanceDel(b));
        EXPECT_TRUE(collections->extendedCommSubTypeTransOpaqueRuleInstanceDel(a));
        EXPECT_FALSE(collections->extendedCommSubTypeTransOpaqueRuleInstanceHas(a));
        EXPECT_EQ((std::vector<Recorder::Event>{{4, a.rule()}, {4, a.rule()}}), recorder.events);
        collections->hasNotificationActiveIs(false);
        collections->extendedCommSubTypeTransOpaqueRuleInstanceIs(b);
        EXPECT_EQ(2u, recorder.events.size());
        collections->hasNotificationActiveIs(true);
        collections->extendedCommSubTypeTransOpaqueRuleInstanceIs(a);
        collections->extendedCommSubTypeTransGenericRuleInstanceIs(
            fakeKey<BgpParseExtCommSubTypeTransGenericRuleKey>(0x4000));
        recorder.events.clear();
        collections->extendedCommSubTypeTransOpaqueRuleInstanceDelAll();
        std::sort(recorder.events.begin(), recorder.events.end(),
                  [](auto const& x, auto const& y) { return x.rule < y.rule; });
        EXPECT_EQ((std::vector<Recorder::Event>{{4, a.rule()}, {4, b.rule()}}), recorder.events);
        EXPECT_EQ(1u, collections->extendedCommSubTypeTransGenericRuleInstance().size());
    }
    // No listener left: cleared at once, nobody told (the recorder is gone,
    // so a notification would touch freed memory).
    collections->extendedCommSubTypeTransGenericRuleInstanceDelAll();
    EXPECT_TRUE(collections->extendedCommSubTypeTransGenericRuleInstance().empty());
    // Dying collections detach their listeners silently.
    collections->extendedCommSubTypeTransOpaqueRuleInstanceIs(a);
    Recorder recorder(collections.ptr());
    collections = nullptr;
    EXPECT_EQ(nullptr, recorder.notifier());
    EXPECT_TRUE(recorder.events.empty());
}

// A control is equal by its collections, holds a reference to them, has no
// hash, and reads its text back.
TEST(ParseControl, EqualityReferenceAndText) {
    auto one = bgpParseExtCommRuleCollectionsFactory();
    BgpParseExtCommControl a(one);
    EXPECT_EQ(2u, one->references());
    EXPECT_NE(a, BgpParseExtCommControl());
    EXPECT_THROW(a.hash(), Kiv::UnhashableValueError);
    EXPECT_EQ(Kiv::pointerText(one.ptr()), streamed(a));
    EXPECT_EQ(a, strepToValue<BgpParseExtCommControl>(valueToStrep(a)));
    EXPECT_EQ("ruleCollections",
              rangeErrorAttribute([] { strepToValue<BgpParseExtCommControl>("collections"); }));
}

}  // namespace
}  // namespace Routing::Bgp
