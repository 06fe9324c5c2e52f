#include <algorithm>
#include <set>
#include <typeinfo>
#include <utility>
#include <vector>

#include "ParseTestPlugins.h"
#include "TestUtil.h"
#include "VoBgp/Parse/ExtComm.h"
#include "VoBgp/Parse/ExtCommPlugins.h"

namespace Routing::Bgp {
namespace {

using ParseTest::makeSubRule;
using ParseTest::TestRouteTargetSm;

// One hook call: which set, which rule, with which control.
struct Call {
    Kiv::AttributeId attribute;
    void const* rule;
    BgpParseExtCommControl control;
};

// Overrides every hook and only records; the log may outlive the plug-in.
class RecordingSm : public BgpParseExtCommPluginBaseSm {
  public:
    RecordingSm(BgpParseExtCommRuleCollections::PtrConst const& collections, std::vector<Call>* log)
        : BgpParseExtCommPluginBaseSm(collections), log_(log) {
        handleStartup();
    }
#define VOBGP_EXT_COMM_RULE_KIND(Name, Key, set, Rule)                                     \
    void instantiate##Name##SubRule(Key const& key, BgpParseExtCommControl const& control) \
        const override {                                                                   \
        log_->push_back({Key::attributeId, key.rule(), control});                          \
    }
#include "VoBgp/Parse/ExtCommRuleKinds.def"

  private:
    std::vector<Call>* log_;
};

std::vector<Kiv::AttributeId> attributes(std::vector<Call> const& log) {
    std::vector<Kiv::AttributeId> out;
    for (auto const& call : log)
        out.push_back(call.attribute);
    return out;
}

// Adds one sub-rule under type 0x03 with the given subtype and classification.
class OpaqueSm : public BgpParseExtCommPluginBaseSm {
  public:
    OpaqueSm(BgpParseExtCommRuleCollections::PtrConst const& collections,
             BgpExtCommPktSubtypeTransOpaque subtype, ExtCommClassification classification)
        : BgpParseExtCommPluginBaseSm(collections),
          subtype_(subtype),
          classification_(classification) {
        handleStartup();
    }
    void instantiateExtCommSubTypeTransOpaqueSubRule(
        BgpParseExtCommSubTypeTransOpaqueRuleKey const& key,
        BgpParseExtCommControl const& control) const override {
        ExtCommClassification classification = classification_;
        addSubRule(key, makeSubRule<BgpParseExtComSubTypeTransOpaqueRuleBase>(
                            control, subtype_, [classification](ExtCommContent const& c) {
                                return ExtComm::PtrConst(
                                    ExtCommSubtyped::ExtCommSubtypedIs(classification, c));
                            }));
    }

  private:
    BgpExtCommPktSubtypeTransOpaque subtype_;
    ExtCommClassification classification_;
};

// A type rule for a type the tree does not know (EVPN, 0x06).
class EvpnTypeRule : public BgpParseExtendedCommunityTypeRuleBase {
  public:
    explicit EvpnTypeRule(BgpParseExtCommControl const& control)
        : BgpParseExtendedCommunityTypeRuleBase(control, extCommPktTypeTransEvpn) {}
    ExtComm::PtrConst inhale(ExtCommContent const& content) const override {
        return ExtCommSubtyped::ExtCommSubtypedIs(extCommClassificationEvpn, content);
    }
};

class EvpnSm : public BgpParseExtCommPluginBaseSm {
  public:
    explicit EvpnSm(BgpParseExtCommRuleCollections::PtrConst const& collections)
        : BgpParseExtCommPluginBaseSm(collections) {
        handleStartup();
    }
    void instantiateExtendedCommunityTypeSubRule(
        BgpParseExtendedCommunityRuleKey const& key,
        BgpParseExtCommControl const& control) const override {
        addSubRule(key, Kiv::makeActive<EvpnTypeRule>(control));
    }
};

// Every (type, subtype) pair the tree holds a sub-type rule for.
template <class Rule, auto pktType>
void collectSubRules(BgpParseExtendedCommunityRule const& root,
                     std::set<std::pair<int, int>>& out) {
    if constexpr (std::is_same_v<decltype(pktType), BgpExtCommPktType>) {
        if (auto type = root.typeRule(pktType)) {
            for (auto const& entry : static_cast<Rule const*>(type.ptr())->subTypeRule())
                out.insert({int(pktType), int(entry.first)});
        }
    }
}

std::set<std::pair<int, int>> subRules(BgpParseExtendedCommunityRule const& root) {
    std::set<std::pair<int, int>> out;
#define VOBGP_EXT_COMM_TYPE_RULE_KIND(Name, Key, set, Rule, SubRuleBase, Subtype, pktType, \
                                      Fallback, listed)                                    \
    collectSubRules<Rule, pktType>(root, out);
#include "VoBgp/Parse/ExtCommRuleKinds.def"
    return out;
}

ExtCommClassification classificationOf(BgpParseExtendedCommunityRule const& root, U64 value) {
    return root.parseExtendedCommunity(ExtCommContent(value))->classification();
}

class PluginSmTest : public ::testing::Test {
  protected:
    BgpParseExtCommRuleCollections::Ptr collections_ = bgpParseExtCommRuleCollectionsFactory();
    BgpParseExtCommControl control_{collections_};
    std::vector<Call> log_;
};

TEST_F(PluginSmTest, ListeningPluginHearsEachRegistrationAsItHappens) {
    auto sm = Kiv::makeActive<RecordingSm>(collections_, &log_);
    EXPECT_TRUE(log_.empty());
    auto root = bgpParseExtendedCommunityRuleFactory(control_);
    // The type rules in construction order, the IPv6 non-transitive one
    // never, the root last.
    EXPECT_EQ(std::vector<Kiv::AttributeId>({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 0}),
              attributes(log_));
    for (auto const& call : log_)
        EXPECT_EQ(control_, call.control);
    EXPECT_EQ(root.ptr(), log_.back().rule);
    EXPECT_EQ(root->typeRule(extCommPktTypeTransTwoOctetAs).ptr(), log_[0].rule);
    EXPECT_EQ(root->typeRule(extCommPktTypeNonTransOpaque).ptr(), log_[10].rule);
    EXPECT_EQ(root->ip6TypeRule(extCommIp6PktTypeTransIpv6Address).ptr(), log_[11].rule);
}

TEST_F(PluginSmTest, LatePluginCatchesUpInAttributeOrder) {
    auto root = bgpParseExtendedCommunityRuleFactory(control_);
    auto sm = Kiv::makeActive<RecordingSm>(collections_, &log_);
    EXPECT_EQ(std::vector<Kiv::AttributeId>({0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}),
              attributes(log_));
    EXPECT_EQ(root.ptr(), log_.front().rule);
    // Catching up again serves every rule again.
    log_.clear();
    sm->handleStartup();
    EXPECT_EQ(13u, log_.size());
    log_.clear();
    sm->handleExtCommSubTypeTransOpaqueRuleInstance();
    ASSERT_EQ(1u, log_.size());
    EXPECT_EQ(root->typeRule(extCommPktTypeTransOpaque).ptr(), log_[0].rule);
}

TEST_F(PluginSmTest, BothOrdersBuildTheSameTree) {
    auto early = Kiv::makeActive<TestRouteTargetSm>(collections_);
    auto earlyOpaque =
        Kiv::makeActive<OpaqueSm>(collections_, extCommPktSubtypeTransOpaqueColorExtendedCommunity,
                                  extCommClassificationColor);
    auto first = bgpParseExtendedCommunityRuleFactory(control_);

    auto otherCollections = bgpParseExtCommRuleCollectionsFactory();
    auto second = bgpParseExtendedCommunityRuleFactory(BgpParseExtCommControl(otherCollections));
    auto late = Kiv::makeActive<TestRouteTargetSm>(otherCollections);
    auto lateOpaque = Kiv::makeActive<OpaqueSm>(otherCollections,
                                                extCommPktSubtypeTransOpaqueColorExtendedCommunity,
                                                extCommClassificationColor);

    std::set<std::pair<int, int>> const expected = {
        {0x00, 0x02}, {0x02, 0x02}, {0x40, 0x04}, {0x03, 0x0b}};
    EXPECT_EQ(expected, subRules(*first));
    EXPECT_EQ(expected, subRules(*second));
    EXPECT_EQ(extCommClassificationRouteTarget, classificationOf(*second, 0x0002fde800000064));
    EXPECT_EQ(extCommClassificationLinkBandwidth, classificationOf(*second, 0x4004fde800000064));
}

TEST_F(PluginSmTest, PluginsServingOneTypeCoexistAndTheLastReplaces) {
    auto color =
        Kiv::makeActive<OpaqueSm>(collections_, extCommPktSubtypeTransOpaqueColorExtendedCommunity,
                                  extCommClassificationColor);
    auto encap = Kiv::makeActive<OpaqueSm>(
        collections_, extCommPktSubtypeTransOpaqueEncapsulationExtendedCommunity,
        extCommClassificationTunnelEncap);
    auto gateway =
        Kiv::makeActive<OpaqueSm>(collections_, extCommPktSubtypeTransOpaqueDefaultGateway,
                                  extCommClassificationDefaultGateway);
    auto root = bgpParseExtendedCommunityRuleFactory(control_);
    EXPECT_EQ(extCommClassificationColor, classificationOf(*root, 0x030b000000000001));
    EXPECT_EQ(extCommClassificationTunnelEncap, classificationOf(*root, 0x030c000000000001));
    EXPECT_EQ(extCommClassificationDefaultGateway, classificationOf(*root, 0x030d000000000001));

    // A later plug-in for a subtype already served replaces its rule.
    auto evpnColor =
        Kiv::makeActive<OpaqueSm>(collections_, extCommPktSubtypeTransOpaqueColorExtendedCommunity,
                                  extCommClassificationEvpn);
    EXPECT_EQ(extCommClassificationEvpn, classificationOf(*root, 0x030b000000000001));
    EXPECT_EQ(3u, subRules(*root).size());

    // Dropping plug-ins leaves their rules in place.
    evpnColor = nullptr;
    color = nullptr;
    encap = nullptr;
    EXPECT_EQ(extCommClassificationEvpn, classificationOf(*root, 0x030b000000000001));
    EXPECT_EQ(extCommClassificationTunnelEncap, classificationOf(*root, 0x030c000000000001));
    EXPECT_TRUE(collections_->notifieeList().size() == 1);
}

TEST_F(PluginSmTest, TypeLevelHookAddsWholeTypeRules) {
    auto evpn = Kiv::makeActive<EvpnSm>(collections_);
    auto root = bgpParseExtendedCommunityRuleFactory(control_);
    EXPECT_EQ(12u, root->typeRule().size());
    EXPECT_EQ(extCommClassificationEvpn, classificationOf(*root, 0x0600000000000001));

    // Late, through start-up, with the same effect.
    auto otherCollections = bgpParseExtCommRuleCollectionsFactory();
    auto other = bgpParseExtendedCommunityRuleFactory(BgpParseExtCommControl(otherCollections));
    EXPECT_EQ(extCommClassificationUnSpecified, classificationOf(*other, 0x0600000000000001));
    auto lateEvpn = Kiv::makeActive<EvpnSm>(otherCollections);
    EXPECT_EQ(extCommClassificationEvpn, classificationOf(*other, 0x0600000000000001));
}

TEST_F(PluginSmTest, ZombiePluginHearsNothing) {
    auto sm = Kiv::makeActive<RecordingSm>(collections_, &log_);
    auto const& reactor = sm->kivRuleCollections();
    ASSERT_NE(nullptr, reactor);
    EXPECT_EQ(collections_.ptr(), reactor->notifier());
    EXPECT_EQ(sm.ptr(), reactor->owner());
    EXPECT_TRUE(reactor->hasNotificationActive());

    sm->kivDoZombieReactors(true);
    EXPECT_TRUE(sm->isZombie());
    EXPECT_TRUE(reactor->isZombie());
    EXPECT_FALSE(reactor->hasNotificationActive());
    auto root = bgpParseExtendedCommunityRuleFactory(control_);
    EXPECT_TRUE(log_.empty());
    // Even switched on from outside, a zombie reactor ignores changes.
    reactor->hasNotificationActiveIs(true);
    root = nullptr;
    EXPECT_TRUE(log_.empty());

    sm->kivDoZombieReactors(false);
    EXPECT_FALSE(sm->isZombie());
    EXPECT_TRUE(reactor->hasNotificationActive());
    root = bgpParseExtendedCommunityRuleFactory(control_);
    EXPECT_EQ(13u, log_.size());

    // Switching the state machine's notification switches its reactor's.
    sm->hasNotificationActiveIs(false);
    EXPECT_FALSE(reactor->hasNotificationActive());
    log_.clear();
    auto another = bgpParseExtendedCommunityRuleFactory(control_);
    EXPECT_TRUE(log_.empty());
}

TEST_F(PluginSmTest, DeadPluginLeavesNoListenerBehind) {
    {
        auto sm = Kiv::makeActive<RecordingSm>(collections_, &log_);
        EXPECT_EQ(1u, collections_->notifieeList().size());
        EXPECT_EQ(collections_, sm->ruleCollections());
    }
    EXPECT_TRUE(collections_->notifieeList().empty());
    auto root = bgpParseExtendedCommunityRuleFactory(control_);
    EXPECT_TRUE(log_.empty());

    // The reactor keeps the collections alive; they die with the last one.
    std::vector<Call> log;
    auto sm = Kiv::makeActive<RecordingSm>(bgpParseExtCommRuleCollectionsFactory(), &log);
    auto held = sm->ruleCollections();
    EXPECT_EQ(2u, held->references());
}

TEST_F(PluginSmTest, DyingTreeRunsTheHooksOnceMore) {
    auto sm = Kiv::makeActive<RecordingSm>(collections_, &log_);
    auto rt = Kiv::makeActive<TestRouteTargetSm>(collections_);
    int const liveBefore =
        ParseTest::TestSubRule<BgpParseExtComSubTypeTransTwoOctetAsRuleBase>::live();
    auto root = bgpParseExtendedCommunityRuleFactory(control_);
    log_.clear();
    root = nullptr;
    // Every registered rule announced its removal: root and twelve type rules.
    auto removed = attributes(log_);
    std::sort(removed.begin(), removed.end());
    EXPECT_EQ(std::vector<Kiv::AttributeId>({0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}), removed);
    // The sub-rules added to the dying rules died with them.
    EXPECT_EQ(liveBefore,
              ParseTest::TestSubRule<BgpParseExtComSubTypeTransTwoOctetAsRuleBase>::live());
}

TEST_F(PluginSmTest, PluginWithoutCollectionsHasNoReactor) {
    auto sm = BgpParseExtCommPluginBaseSm::BgpParseExtCommPluginBaseSmIs(nullptr);
    EXPECT_EQ(nullptr, sm->kivRuleCollections());
    EXPECT_EQ(nullptr, sm->ruleCollections());
    sm->handleStartup();
    sm->kivDoZombieReactors(true);
    EXPECT_TRUE(sm->isZombie());
}

// __PRETTY_FUNCTION__ of the two compilers differs in blanks only.
#ifdef __clang__
#define VOBGP_REF " &"
#else
#define VOBGP_REF "&"
#endif

TEST(PluginSmDeathTest, AddingNullRuleStopsTheProcess) {
    auto sm = bgpParseExtCommPluginBaseSmFactory(nullptr);
    BgpParseExtCommSubTypeTransOpaqueRuleKey opaqueKey;
    // The whole function: the message has ": " on either side of it.
    EXPECT_ASSERT_DEATH_IN(
        sm->addExtCommSubTypeTransOpaqueSubRule(opaqueKey, nullptr), "rule != __null",
        ": void Routing::Bgp::BgpParseExtCommPluginBaseSm::addExtCommSubTypeTransOpaqueSubRule("
        "const Routing::Bgp::BgpParseExtCommSubTypeTransOpaqueRuleKey&, const PtrConst&) const");
    EXPECT_ASSERT_DEATH_IN(
        sm->addExtCommIp6SubTypeNonTransSubRule(BgpParseExtCommIp6SubTypeNonTransRuleKey(),
                                                nullptr),
        "rule != __null",
        ": void Routing::Bgp::BgpParseExtCommPluginBaseSm::addExtCommIp6SubTypeNonTransSubRule("
        "const Routing::Bgp::BgpParseExtCommIp6SubTypeNonTransRuleKey&, const PtrConst&) const");
    EXPECT_ASSERT_DEATH(
        sm->addExtendedCommunityTypeSubRule(BgpParseExtendedCommunityRuleKey(), nullptr),
        "__null != rule");
}

// The container, with whatever typed plug-ins are registered.
TEST(ParseContainerSm, StartUpBuildsTheWholeParser) {
    auto container = bgpParseExtCommContainerSmFactory();
    auto const& collections = container->parseExtCommRuleCollections();
    ASSERT_NE(nullptr, collections);
    ASSERT_NE(nullptr, container->extCommParser());
    EXPECT_EQ(BgpParseExtCommControl(collections), container->extCommParser()->parseControl());
    EXPECT_NE(nullptr, container->extCommCache());

    // The registered plug-ins, in their order, the Mvpn ones as toggled.
    std::vector<std::type_info const*> expected;
#define EXPECTED_PLUGIN_(Plugin, needsMvpn)           \
    if (!(needsMvpn) || bgpParseExtCommMvpnEnabled()) \
        expected.push_back(&typeid(Plugin));
    VOBGP_PARSE_EXT_COMM_PLUGINS(EXPECTED_PLUGIN_)
#undef EXPECTED_PLUGIN_
    std::vector<std::type_info const*> started;
    for (auto it = container->extCommParserSmsBegin(); it != container->extCommParserSmsEnd();
         ++it) {
        BgpParseExtCommPluginBaseSm const* sm = it->sm.ptr();
        started.push_back(&typeid(*sm));
    }
    EXPECT_EQ(expected.size(), started.size());
    for (std::size_t i = 0; i < std::min(expected.size(), started.size()); ++i)
        EXPECT_STREQ(expected[i]->name(), started[i]->name()) << i;
    EXPECT_EQ(expected.size(), collections->notifieeList().size());

    std::vector<std::size_t> sizes;
#define VOBGP_EXT_COMM_RULE_KIND(Name, Key, set, Rule) sizes.push_back(collections->set().size());
#include "VoBgp/Parse/ExtCommRuleKinds.def"
    EXPECT_EQ(std::vector<std::size_t>({1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0}), sizes);
}

TEST(ParseContainerSm, ParserAndCollectionsAttributes) {
    auto container = BgpParseExtCommContainerSm::BgpParseExtCommContainerSmIs();
    auto collections = container->parseExtCommRuleCollections();
    EXPECT_EQ(collections, container->parseExtCommRuleCollectionsIs());

    auto root = container->extCommParser();
    EXPECT_EQ(root, container->extCommParserIs(BgpParseExtCommControl(collections)));

    // Other collections: a new tree, and the old one deregistered.
    auto other = bgpParseExtCommRuleCollectionsFactory();
    auto fresh = container->extCommParserIs(BgpParseExtCommControl(other));
    EXPECT_NE(root, fresh);
    EXPECT_EQ(fresh, container->extCommParser());
    EXPECT_EQ(1u, other->extendedCommunityTypeRuleInstance().size());
    root = nullptr;
    EXPECT_TRUE(collections->extendedCommunityTypeRuleInstance().empty());

    EXPECT_EQ(fresh, container->extCommParserDel());
    EXPECT_EQ(nullptr, container->extCommParser());
    EXPECT_EQ(collections, container->parseExtCommRuleCollectionsDel());
    EXPECT_EQ(nullptr, container->parseExtCommRuleCollections());
    auto created = container->parseExtCommRuleCollectionsIs();
    EXPECT_NE(nullptr, created);
    EXPECT_NE(collections, created);
    EXPECT_TRUE(created->hasNotificationActive());
}

TEST(ParseContainerSm, PluginQueueIsOrderedByIndex) {
    auto container = bgpParseExtCommContainerSmFactory();
    auto const& collections = container->parseExtCommRuleCollections();
    container->extCommParserSmsDelAll();
    EXPECT_EQ(0u, container->extCommParserSmsCount());
    EXPECT_EQ(nullptr, container->extCommParserSmsFront());
    EXPECT_EQ(nullptr, container->extCommParserSmsDeq());

    auto a = bgpParseExtCommPluginBaseSmFactory(collections);
    auto b = bgpParseExtCommPluginBaseSmFactory(collections);
    auto c = bgpParseExtCommPluginBaseSmFactory(collections);
    container->extCommParserSmsIs(10, a);
    EXPECT_EQ(11u, container->extCommParserSmsEnq(b));
    EXPECT_EQ(12u, container->extCommParserSmsEnq(c));
    // Set in the middle, before the front, replaced in place.
    container->extCommParserSmsIs(5, c);
    container->extCommParserSmsIs(11, a);
    EXPECT_EQ(c, container->extCommParserSmsFront());
    EXPECT_EQ(c, container->extCommParserSmsBack());
    std::vector<U32> indexes;
    for (auto it = container->extCommParserSmsBegin(); it != container->extCommParserSmsEnd(); ++it)
        indexes.push_back(it->index);
    EXPECT_EQ(std::vector<U32>({5, 10, 11, 12}), indexes);
    EXPECT_EQ(a, container->extCommParserSms(11));
    EXPECT_EQ(nullptr, container->extCommParserSms(7));

    // Null deletes; deleting an absent index is nothing.
    container->extCommParserSmsIs(10, nullptr);
    container->extCommParserSmsIs(99, nullptr);
    EXPECT_EQ(3u, container->extCommParserSmsCount());
    EXPECT_EQ(a, container->extCommParserSmsDel(11));
    EXPECT_EQ(nullptr, container->extCommParserSmsDel(11));
    EXPECT_EQ(c, container->extCommParserSmsDeq());
    EXPECT_EQ(1u, container->extCommParserSmsCount());
    // After the last index, past the counter.
    EXPECT_EQ(13u, container->extCommParserSmsEnq(b));
    auto next = container->extCommParserSmsDel(container->extCommParserSmsBegin());
    EXPECT_EQ(13u, next->index);
    container->extCommParserSmsDelAll();
    // The counter alone on an empty queue.
    EXPECT_EQ(13u, container->extCommParserSmsEnq(a));
}

TEST(ParseContainerSm, EnqueuedPluginServesTheExistingTree) {
    auto container = bgpParseExtCommContainerSmFactory();
    auto const& root = *container->extCommParser();
    using FourOctetAsSubRule =
        ParseTest::TestSubRule<BgpParseExtComSubTypeTransFourOctetAsRuleBase>;
    auto const* type = static_cast<BgpParseExtCommTransFourOctetAsRule const*>(
        root.typeRule(extCommPktTypeTransFourOctetAs).ptr());
    auto ruleOf = [type] {
        return type->subTypeRule().find(extCommPktSubtypeTransFourOctetAsRouteTarget);
    };
    EXPECT_EQ(nullptr, dynamic_cast<FourOctetAsSubRule const*>(ruleOf()));
    container->extCommParserSmsEnq(
        TestRouteTargetSm::TestRouteTargetSmIs(container->parseExtCommRuleCollections()));
    // The late plug-in's rule took the place of whatever served that subtype.
    auto const* rule = dynamic_cast<FourOctetAsSubRule const*>(ruleOf());
    ASSERT_NE(nullptr, rule);
    EXPECT_EQ(extCommClassificationRouteTarget, classificationOf(root, 0x0202000100000064));
    EXPECT_EQ(1, rule->calls);
}

TEST(ParseContainerSm, TeardownReleasesEverything) {
    std::vector<Call> log;
    int const liveBefore =
        ParseTest::TestSubRule<BgpParseExtComSubTypeTransTwoOctetAsRuleBase>::live();
    BgpParseExtCommRuleCollections::PtrConst collections;
    {
        auto container = bgpParseExtCommContainerSmFactory();
        collections = container->parseExtCommRuleCollections();
        container->extCommParserSmsEnq(Kiv::makeActive<RecordingSm>(collections, &log));
        container->extCommParserSmsEnq(TestRouteTargetSm::TestRouteTargetSmIs(collections));
        log.clear();
    }
    // The rules announced their removal to the plug-ins still listening, and
    // everything is gone but the reference held here.
    EXPECT_EQ(13u, log.size());
    log.clear();  // its calls hold controls
    EXPECT_EQ(liveBefore,
              ParseTest::TestSubRule<BgpParseExtComSubTypeTransTwoOctetAsRuleBase>::live());
    EXPECT_EQ(1u, collections->references());
    EXPECT_TRUE(collections->notifieeList().empty());
    EXPECT_TRUE(collections->extendedCommunityTypeRuleInstance().empty());
}

}  // namespace
}  // namespace Routing::Bgp
