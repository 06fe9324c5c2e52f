// Plug-in state machines: when their hooks run (registration, catch-up,
// removal), with what, and how the container starts and owns them.

#include "ParseTestPlugins.h"
#include "VoBgp/Parse/ExtCommPlugins.h"

namespace Routing::Bgp {
namespace {

using ParseTest::TestRouteTargetSm;
using ParseTest::TwoOctetAsSubRule;

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
#define RECORD_HOOK_(Name, Key, id)                                                        \
    void instantiate##Name##SubRule(Key const& key, BgpParseExtCommControl const& control) \
        const override {                                                                   \
        log_->push_back({id, key.rule(), control});                                        \
    }
    PARSE_TEST_KINDS(RECORD_HOOK_)
#undef RECORD_HOOK_

  private:
    std::vector<Call>* log_;
};

// The attribute ids of the calls; with `sorted`, in ascending order.
std::vector<Kiv::AttributeId> attributes(std::vector<Call> const& log, bool sorted = false) {
    std::vector<Kiv::AttributeId> out;
    for (auto const& call : log)
        out.push_back(call.attribute);
    if (sorted)
        std::sort(out.begin(), out.end());
    return out;
}

// The type-level hook at work: a whole type rule for a type the tree does
// not know (EVPN, 0x06).
class EvpnTypeRule : public BgpParseExtendedCommunityTypeRuleBase {
  public:
    explicit EvpnTypeRule(BgpParseExtCommControl const& control)
        : BgpParseExtendedCommunityTypeRuleBase(control, extCommPktTypeTransEvpn) {}
    ExtComm::PtrConst inhale(ExtCommContent const& content) const override {
        return ExtCommSubtyped::ExtCommSubtypedIs(extCommClassificationEvpn, content);
    }
};
struct EvpnSm : BgpParseExtCommPluginBaseSm {
    explicit EvpnSm(BgpParseExtCommRuleCollections::PtrConst const& collections)
        : BgpParseExtCommPluginBaseSm(collections) {
        handleStartup();
    }
    void instantiateExtendedCommunityTypeSubRule(BgpParseExtendedCommunityRuleKey const& key,
                                                 BgpParseExtCommControl const& c) const override {
        addSubRule(key, Kiv::makeActive<EvpnTypeRule>(c));
    }
};

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
    auto root = bgpParseExtendedCommunityRuleFactory(control_);
    // The type rules in construction order, the IPv6 non-transitive one
    // never, the root last; each with the tree's control.
    EXPECT_EQ(std::vector<Kiv::AttributeId>({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 0}),
              attributes(log_));
    for (auto const& call : log_)
        EXPECT_EQ(control_, call.control);
    EXPECT_EQ(root.ptr(), log_.back().rule);
    EXPECT_EQ(root->typeRule(extCommPktTypeNonTransOpaque).ptr(), log_[10].rule);
    // A dying tree runs the hooks once more, for each rule that leaves.
    log_.clear();
    root = nullptr;
    EXPECT_EQ(std::vector<Kiv::AttributeId>({0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}),
              attributes(log_, true));
}

// Three plug-ins serve type 0x03; their rules outlive them and die with
// the tree.
TEST_F(PluginSmTest, PluginsServingOneTypeCoexist) {
    auto color = bgpParseExtCommColorSmFactory(collections_);
    auto encap = bgpParseExtCommTunnelEncapSmFactory(collections_);
    auto root = bgpParseExtendedCommunityRuleFactory(control_);
    auto gateway = bgpParseExtCommDefaultGatewaySmFactory(collections_);
    auto rt = Kiv::makeActive<TestRouteTargetSm>(collections_);
    color = nullptr;
    encap = nullptr;
    gateway = nullptr;
    EXPECT_EQ(1u, collections_->notifieeList().size());
    EXPECT_EQ(extCommClassificationColor, classificationOf(*root, 0x030b000000000001));
    EXPECT_EQ(extCommClassificationTunnelEncap, classificationOf(*root, 0x030c000000000001));
    EXPECT_EQ(extCommClassificationDefaultGateway, classificationOf(*root, 0x030d000000000001));
    EXPECT_EQ(extCommClassificationRouteTarget, classificationOf(*root, 0x0002000100000001));
    int const liveBefore = TwoOctetAsSubRule::live();
    root = nullptr;
    EXPECT_EQ(liveBefore - 1, TwoOctetAsSubRule::live());
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

TEST_F(PluginSmTest, ZombieOrDeadPluginHearsNothing) {
    auto sm = Kiv::makeActive<RecordingSm>(collections_, &log_);
    auto const& reactor = sm->kivRuleCollections();
    ASSERT_NE(nullptr, reactor);
    sm->kivDoZombieReactors(true);
    EXPECT_TRUE(sm->isZombie() && reactor->isZombie());
    EXPECT_FALSE(reactor->hasNotificationActive());
    auto root = bgpParseExtendedCommunityRuleFactory(control_);
    // Even switched on from outside, a zombie reactor ignores changes.
    reactor->hasNotificationActiveIs(true);
    root = nullptr;
    EXPECT_TRUE(log_.empty());
    sm->kivDoZombieReactors(false);
    EXPECT_FALSE(sm->isZombie() || reactor->isZombie());
    EXPECT_TRUE(reactor->hasNotificationActive());
    root = bgpParseExtendedCommunityRuleFactory(control_);
    EXPECT_EQ(13u, log_.size());
    // Switching the state machine's notification switches its reactor's.
    sm->hasNotificationActiveIs(false);
    EXPECT_FALSE(reactor->hasNotificationActive());
    log_.clear();
    root = bgpParseExtendedCommunityRuleFactory(control_);
    EXPECT_TRUE(log_.empty());
    // A dead plug-in leaves no listener behind.
    sm->hasNotificationActiveIs(true);
    sm = nullptr;
    EXPECT_TRUE(collections_->notifieeList().empty());
    root = nullptr;
    EXPECT_TRUE(log_.empty());
    // Without collections there is no reactor, and nothing to serve.
    auto lonely = BgpParseExtCommPluginBaseSm::BgpParseExtCommPluginBaseSmIs(nullptr);
    EXPECT_EQ(nullptr, lonely->kivRuleCollections());
    EXPECT_EQ(nullptr, lonely->ruleCollections());
    lonely->handleStartup();
}

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

// The container, with whatever typed plug-ins are registered (their order
// and the "Mvpn" toggle are checked in ExtCommPluginsTest).
TEST(ParseContainerSm, StartUpAndTheParserAttributes) {
    auto container = BgpParseExtCommContainerSm::BgpParseExtCommContainerSmIs();
    auto collections = container->parseExtCommRuleCollections();
    auto root = container->extCommParser();
    EXPECT_NE(nullptr, container->extCommCache());
    EXPECT_EQ(container->extCommParserSmsCount(), collections->notifieeList().size());
    EXPECT_EQ(std::vector<std::size_t>({1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0}),
              ParseTest::setSizes(*collections));
    // The same collections keep the tree; others get a new one, and the old
    // one deregisters.
    EXPECT_EQ(root, container->extCommParserIs(BgpParseExtCommControl(collections)));
    auto other = bgpParseExtCommRuleCollectionsFactory();
    EXPECT_NE(root, container->extCommParserIs(BgpParseExtCommControl(other)));
    EXPECT_EQ(1u, other->extendedCommunityTypeRuleInstance().size());
    root = nullptr;
    EXPECT_TRUE(collections->extendedCommunityTypeRuleInstance().empty());
    // Collections are created when there are none.
    EXPECT_EQ(collections, container->parseExtCommRuleCollectionsIs());
    EXPECT_EQ(collections, container->parseExtCommRuleCollectionsDel());
    auto created = container->parseExtCommRuleCollectionsIs();
    EXPECT_TRUE(created && created != collections && created->hasNotificationActive());
}

// The plug-in queue is ordered by index: enqueuing takes the index after the
// last one or the counter, whichever is higher; setting an index inserts it
// in order or replaces it, a null plug-in deletes it.
TEST(ParseContainerSm, PluginQueueIsOrderedByIndex) {
    auto container = bgpParseExtCommContainerSmFactory();
    container->extCommParserSmsDelAll();
    EXPECT_EQ(nullptr, container->extCommParserSmsDeq());
    auto a = bgpParseExtCommPluginBaseSmFactory(nullptr);
    auto b = bgpParseExtCommPluginBaseSmFactory(nullptr);
    container->extCommParserSmsIs(10, a);
    EXPECT_EQ(11u, container->extCommParserSmsEnq(b));
    container->extCommParserSmsIs(5, b);
    container->extCommParserSmsIs(11, a);
    container->extCommParserSmsIs(10, nullptr);
    container->extCommParserSmsIs(99, nullptr);
    std::vector<U32> indexes;
    for (auto it = container->extCommParserSmsBegin(); it != container->extCommParserSmsEnd(); ++it)
        indexes.push_back(it->index);
    EXPECT_EQ(std::vector<U32>({5, 11}), indexes);
    EXPECT_EQ(a, container->extCommParserSmsBack());
    EXPECT_EQ(nullptr, container->extCommParserSms(7));
    EXPECT_EQ(a, container->extCommParserSmsDel(11));
    EXPECT_EQ(nullptr, container->extCommParserSmsDel(11));
    // The counter (11), being past the last index (5).
    EXPECT_EQ(11u, container->extCommParserSmsEnq(a));
    EXPECT_EQ(b, container->extCommParserSmsDeq());
    EXPECT_EQ(12u, container->extCommParserSmsEnq(b));
}

// A plug-in enqueued late catches up with the tree there is; at teardown the rules
// announce their removal to the plug-ins still listening, and everything goes
// but the reference held here.
TEST(ParseContainerSm, LatePluginAndTeardown) {
    std::vector<Call> log;
    int const liveBefore = TwoOctetAsSubRule::live();
    BgpParseExtCommRuleCollections::PtrConst collections;
    {
        auto container = bgpParseExtCommContainerSmFactory();
        collections = container->parseExtCommRuleCollections();
        container->extCommParserSmsEnq(Kiv::makeActive<RecordingSm>(collections, &log));
        // It catches up in attribute order, the root first.
        EXPECT_EQ(std::vector<Kiv::AttributeId>({0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}),
                  attributes(log));
        EXPECT_EQ(container->extCommParser().ptr(), log.front().rule);
        EXPECT_EQ(collections.ptr(), log.front().control.ruleCollections().ptr());
        container->extCommParserSmsEnq(Kiv::makeActive<TestRouteTargetSm>(collections));
        // The late rule took the place of the typed one: its objects are the
        // generic AS-number form.
        auto comm =
            container->extCommParser()->parseExtendedCommunity(ExtCommContent(0x0002000100000064));
        EXPECT_EQ(extCommClassificationRouteTarget, comm->classification());
        EXPECT_TRUE(typeid(ExtCommAsNumber) == classOf(comm.ptr()));
        log.clear();
    }
    EXPECT_EQ(13u, log.size());
    log.clear();  // its calls hold controls
    EXPECT_EQ(liveBefore, TwoOctetAsSubRule::live());
    EXPECT_EQ(1u, collections->references());
    EXPECT_TRUE(collections->notifieeList().empty());
}

}  // namespace
}  // namespace Routing::Bgp
