#include <sstream>
#include <unordered_set>
#include <vector>

#include "Kiv/Errors.h"
#include "TestUtil.h"
#include "VoBgp/Parse/ExtComm.h"

namespace Routing::Bgp {
namespace {

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
#define VOBGP_EXT_COMM_RULE_KIND(Name, Key, set, Rule) \
    case Key::attributeId:                             \
        rule = static_cast<Key const*>(key)->rule();   \
        break;
#include "VoBgp/Parse/ExtCommRuleKinds.def"
            default:
                ADD_FAILURE() << "unexpected attribute " << attribute;
        }
        events.push_back({attribute, rule});
    }
    std::vector<Event> events;
};

template <class Rule>
Rule* fakeRule(std::uintptr_t address) {
    return reinterpret_cast<Rule*>(address);
}

using OpaqueKey = BgpParseExtCommSubTypeTransOpaqueRuleKey;

TEST(RuleKey, EqualityOrderAndHashFollowTheAddress) {
    OpaqueKey a(fakeRule<BgpParseExtCommTransOpaqueRule>(0x1000));
    OpaqueKey sameAddress(fakeRule<BgpParseExtCommTransOpaqueRule>(0x1000));
    OpaqueKey b(fakeRule<BgpParseExtCommTransOpaqueRule>(0x2000));
    OpaqueKey null;
    OpaqueKey copy = a;

    EXPECT_EQ(a, sameAddress);
    EXPECT_EQ(a, copy);
    EXPECT_EQ(a.hash(), sameAddress.hash());
    EXPECT_EQ(a.hash(), Kiv::hashPointer(a.rule()));
    EXPECT_NE(a, b);
    EXPECT_TRUE(a < b);
    EXPECT_FALSE(b < a);
    EXPECT_FALSE(a < sameAddress);
    // Null first.
    EXPECT_TRUE(null < a);
    EXPECT_FALSE(a < null);
    EXPECT_EQ(nullptr, null.rule());
    EXPECT_FALSE(static_cast<bool>(null));
    EXPECT_TRUE(static_cast<bool>(a));
    // Unsigned comparison of addresses.
    OpaqueKey high(fakeRule<BgpParseExtCommTransOpaqueRule>(~std::uintptr_t(0) - 7));
    EXPECT_TRUE(b < high);
}

TEST(RuleKey, TextFormRoundTrips) {
    OpaqueKey key(fakeRule<BgpParseExtCommTransOpaqueRule>(0xdeadbee0));
    EXPECT_EQ("0xdeadbee0", valueToStrep(key).str());
    std::ostringstream os;
    os << key;
    EXPECT_EQ("0xdeadbee0", os.str());
    EXPECT_EQ(key, strepToValue<OpaqueKey>(valueToStrep(key)));
    EXPECT_EQ(OpaqueKey(), strepToValue<OpaqueKey>(valueToStrep(OpaqueKey())));
    // Each key type reads its own rule type.
    BgpParseExtendedCommunityRuleKey rootKey =
        strepToValue<BgpParseExtendedCommunityRuleKey>("0x40");
    EXPECT_EQ(fakeRule<BgpParseExtendedCommunityRule>(0x40), rootKey.rule());

    for (char const* bad : {"deadbeef", "0x", "0xzz", "0x1ffffffffffffffff"}) {
        try {
            strepToValue<OpaqueKey>(bad);
            ADD_FAILURE() << "parsed " << bad;
        } catch (Kiv::RangeError const& error) {
            EXPECT_EQ("rule", error.attributeName()) << bad;
        }
    }
    // The whole string must be one key.
    EXPECT_THROW(strepToValue<OpaqueKey>("0x10 "), Kiv::ParseError);
}

TEST(RuleCollections, NamedSetsAreTheGenericSetsInAttributeOrder) {
    auto collections = bgpParseExtCommRuleCollectionsFactory();
    Recorder recorder(collections.ptr());
    std::vector<Recorder::Event> expected;
    std::uintptr_t address = 0x100;
    // Insert one key through every named operation; the announcement must
    // carry the set's position and the key.
#define VOBGP_EXT_COMM_RULE_KIND(Name, Key, set, Rule)                            \
    {                                                                             \
        Key key(fakeRule<Rule>(address));                                         \
        EXPECT_FALSE(collections->set##Has(key));                                 \
        collections->set##Is(key);                                                \
        EXPECT_TRUE(collections->set##Has(key));                                  \
        EXPECT_TRUE(collections->ruleInstanceHas(key));                           \
        EXPECT_EQ(1u, collections->set().size());                                 \
        EXPECT_EQ(&collections->set(), &collections->ruleInstances<Key>());       \
        expected.push_back({Key::attributeId, reinterpret_cast<void*>(address)}); \
        address += 0x100;                                                         \
    }
#include "VoBgp/Parse/ExtCommRuleKinds.def"
    ASSERT_EQ(14u, expected.size());
    for (Kiv::AttributeId i = 0; i < 14; ++i)
        EXPECT_EQ(i, expected[i].attribute);
    EXPECT_EQ(expected, recorder.events);
}

TEST(RuleCollections, OnlyRealChangesAreAnnounced) {
    auto collections = bgpParseExtCommRuleCollectionsFactory();
    Recorder recorder(collections.ptr());
    OpaqueKey a(fakeRule<BgpParseExtCommTransOpaqueRule>(0x1000));
    OpaqueKey b(fakeRule<BgpParseExtCommTransOpaqueRule>(0x2000));

    collections->extendedCommSubTypeTransOpaqueRuleInstanceIs(a);
    collections->extendedCommSubTypeTransOpaqueRuleInstanceIs(a);
    EXPECT_EQ(1u, recorder.events.size());
    EXPECT_FALSE(collections->extendedCommSubTypeTransOpaqueRuleInstanceDel(b));
    EXPECT_EQ(1u, recorder.events.size());
    EXPECT_TRUE(collections->extendedCommSubTypeTransOpaqueRuleInstanceDel(a));
    EXPECT_FALSE(collections->extendedCommSubTypeTransOpaqueRuleInstanceHas(a));
    ASSERT_EQ(2u, recorder.events.size());
    EXPECT_EQ((Recorder::Event{OpaqueKey::attributeId, a.rule()}), recorder.events[1]);

    // Switched off, the collections change silently.
    collections->hasNotificationActiveIs(false);
    collections->extendedCommSubTypeTransOpaqueRuleInstanceIs(b);
    EXPECT_EQ(2u, recorder.events.size());
    EXPECT_TRUE(collections->extendedCommSubTypeTransOpaqueRuleInstanceHas(b));
}

TEST(RuleCollections, DelAllAnnouncesEachKeyOnlyToListeners) {
    auto collections = bgpParseExtCommRuleCollectionsFactory();
    std::unordered_set<void const*> inserted;
    for (std::uintptr_t i = 1; i <= 3; ++i) {
        OpaqueKey key(fakeRule<BgpParseExtCommTransOpaqueRule>(i * 0x40));
        collections->extendedCommSubTypeTransOpaqueRuleInstanceIs(key);
        inserted.insert(key.rule());
    }
    // Another set is left alone.
    BgpParseExtCommSubTypeTransGenericRuleKey other(
        fakeRule<BgpParseExtCommTransGenericRule>(0x4000));
    collections->extendedCommSubTypeTransGenericRuleInstanceIs(other);
    {
        Recorder recorder(collections.ptr());
        collections->extendedCommSubTypeTransOpaqueRuleInstanceDelAll();
        EXPECT_TRUE(collections->extendedCommSubTypeTransOpaqueRuleInstance().empty());
        std::unordered_set<void const*> announced;
        for (auto const& event : recorder.events) {
            EXPECT_EQ(OpaqueKey::attributeId, event.attribute);
            announced.insert(event.rule);
        }
        EXPECT_EQ(3u, recorder.events.size());
        EXPECT_EQ(inserted, announced);
    }
    // No listener left: cleared at once, nobody told (the recorder is gone,
    // so a notification would touch freed memory).
    EXPECT_TRUE(collections->notifieeList().empty());
    collections->extendedCommSubTypeTransGenericRuleInstanceDelAll();
    EXPECT_TRUE(collections->extendedCommSubTypeTransGenericRuleInstance().empty());
}

TEST(RuleCollections, DyingCollectionsDetachTheirListenersSilently) {
    auto collections = bgpParseExtCommRuleCollectionsFactory();
    collections->extendedCommSubTypeTransOpaqueRuleInstanceIs(
        OpaqueKey(fakeRule<BgpParseExtCommTransOpaqueRule>(0x40)));
    Recorder recorder(collections.ptr());
    collections = nullptr;
    EXPECT_EQ(nullptr, recorder.notifier());
    EXPECT_TRUE(recorder.events.empty());
}

TEST(ParseControl, EqualityOnlyByCollections) {
    auto one = bgpParseExtCommRuleCollectionsFactory();
    auto other = bgpParseExtCommRuleCollectionsFactory();
    BgpParseExtCommControl a(one);
    BgpParseExtCommControl b(one);
    EXPECT_EQ(a, b);
    EXPECT_NE(a, BgpParseExtCommControl(other));
    EXPECT_NE(a, BgpParseExtCommControl());
    EXPECT_EQ(BgpParseExtCommControl(), BgpParseExtCommControl());
    EXPECT_THROW(a.hash(), Kiv::UnhashableValueError);

    // A control holds a reference to its collections.
    U32 before = one->references();
    {
        BgpParseExtCommControl copy = a;
        EXPECT_EQ(before + 1, one->references());
    }
    EXPECT_EQ(before, one->references());
}

TEST(ParseControl, TextFormRoundTrips) {
    auto collections = bgpParseExtCommRuleCollectionsFactory();
    BgpParseExtCommControl control(collections);
    Kiv::String text = valueToStrep(control);
    EXPECT_EQ(Kiv::pointerText(collections.ptr()), text.str());
    std::ostringstream os;
    os << control;
    EXPECT_EQ(text.str(), os.str());
    EXPECT_EQ(control, strepToValue<BgpParseExtCommControl>(text));

    try {
        strepToValue<BgpParseExtCommControl>("collections");
        ADD_FAILURE() << "parsed a bad pointer";
    } catch (Kiv::RangeError const& error) {
        EXPECT_EQ("ruleCollections", error.attributeName());
    }
}

TEST(RuleCollections, TheRuleTreeRegistersAllButTheIpv6NonTransitiveRule) {
    auto collections = bgpParseExtCommRuleCollectionsFactory();
    {
        auto root = bgpParseExtendedCommunityRuleFactory(BgpParseExtCommControl(collections));
        std::vector<std::size_t> sizes;
#define VOBGP_EXT_COMM_RULE_KIND(Name, Key, set, Rule) sizes.push_back(collections->set().size());
#include "VoBgp/Parse/ExtCommRuleKinds.def"
        EXPECT_EQ(std::vector<std::size_t>({1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0}), sizes);
        EXPECT_TRUE(collections->extendedCommunityTypeRuleInstanceHas(
            BgpParseExtendedCommunityRuleKey(root.ptr())));
        auto opaque = root->typeRule(extCommPktTypeTransOpaque);
        EXPECT_TRUE(collections->extendedCommSubTypeTransOpaqueRuleInstanceHas(
            OpaqueKey(const_cast<BgpParseExtCommTransOpaqueRule*>(
                static_cast<BgpParseExtCommTransOpaqueRule const*>(opaque.ptr())))));
    }
    // And every rule took its key with it.
#define VOBGP_EXT_COMM_RULE_KIND(Name, Key, set, Rule) \
    EXPECT_TRUE(collections->set().empty()) << #set;
#include "VoBgp/Parse/ExtCommRuleKinds.def"
}

}  // namespace
}  // namespace Routing::Bgp
