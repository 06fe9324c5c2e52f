// Sub-type rules and plug-ins for the parser tests: the real typed plug-ins
// live with their contents; these stand in for them with just enough
// behaviour to observe the machinery (how often a rule ran, how many exist).
#pragma once

#include <atomic>

#include <functional>
#include <vector>

#include "VoBgp/Parse/ExtComm.h"

namespace Routing::Bgp::ParseTest {

// A sub-type rule of any kind: builds what `build` returns and counts its
// calls and the live instances of its kind.
template <class Base>
class TestSubRule : public Base {
  public:
    using Comm = typename Base::Comm;
    using Content = typename Base::Content;
    using Build = std::function<typename Comm::PtrConst(Content const&)>;

    TestSubRule(BgpParseExtCommControl const& control, typename Base::Subtype subtype, Build build)
        : Base(control, subtype), build_(std::move(build)) {
        ++live();
    }
    ~TestSubRule() override { --live(); }

    typename Comm::PtrConst inhale(Content const& content) const override {
        ++calls;
        return build_ ? build_(content) : nullptr;
    }

    static int& live() {
        static int count = 0;
        return count;
    }
    // Parsing may run on several threads at once (interning stress tests).
    mutable std::atomic<int> calls{0};

  private:
    Build build_;
};

template <class Base, class Build>
Kiv::Ptr<TestSubRule<Base>> makeSubRule(BgpParseExtCommControl const& control,
                                        typename Base::Subtype subtype, Build build) {
    return Kiv::makeActive<TestSubRule<Base>>(control, subtype,
                                              typename TestSubRule<Base>::Build(build));
}

// Builds the generic AS-number form with a given classification.
inline auto asNumberAs(ExtCommClassification classification, bool fourOctetAs) {
    return [classification, fourOctetAs](ExtCommContent const& content) -> ExtComm::PtrConst {
        return ExtCommAsNumber::ExtCommAsNumberIs(classification, content, fourOctetAs);
    };
}

// Route targets of the two-octet-AS and four-octet-AS types, and the
// non-transitive link bandwidth: enough to intern communities of more than
// one classification.
class TestRouteTargetSm : public BgpParseExtCommPluginBaseSm {
  public:
    explicit TestRouteTargetSm(BgpParseExtCommRuleCollections::PtrConst const& collections)
        : BgpParseExtCommPluginBaseSm(collections) {
        handleStartup();
    }
    static Ptr TestRouteTargetSmIs(BgpParseExtCommRuleCollections::PtrConst const& collections) {
        return Kiv::makeActive<TestRouteTargetSm>(collections);
    }

    void instantiateExtCommSubTypeTransTwoOctetAsSubRule(
        BgpParseExtCommSubTypeTransTwoOctetAsRuleKey const& key,
        BgpParseExtCommControl const& control) const override {
        addSubRule(key, makeSubRule<BgpParseExtComSubTypeTransTwoOctetAsRuleBase>(
                            control, extCommPktSubtypeTransTwoOctetAsRouteTarget,
                            asNumberAs(extCommClassificationRouteTarget, false)));
    }
    void instantiateExtCommSubTypeTransFourOctetAsSubRule(
        BgpParseExtCommSubTypeTransFourOctetAsRuleKey const& key,
        BgpParseExtCommControl const& control) const override {
        addSubRule(key, makeSubRule<BgpParseExtComSubTypeTransFourOctetAsRuleBase>(
                            control, extCommPktSubtypeTransFourOctetAsRouteTarget,
                            asNumberAs(extCommClassificationRouteTarget, true)));
    }
    void instantiateExtCommSubTypeNonTransTwoOctetAsSubRule(
        BgpParseExtCommSubTypeNonTransTwoOctetAsRuleKey const& key,
        BgpParseExtCommControl const& control) const override {
        addSubRule(key, makeSubRule<BgpParseExtComSubTypeNonTransTwoOctetAsRuleBase>(
                            control, extCommPktSubtypeNonTransTwoOctetAsLinkBandwidth,
                            asNumberAs(extCommClassificationLinkBandwidth, false)));
    }
};

// The sub-type rule the route-target plug-in put under type 0x00.
inline TestSubRule<BgpParseExtComSubTypeTransTwoOctetAsRuleBase> const* twoOctetAsRouteTargetRule(
    BgpParseExtendedCommunityRule const& root) {
    auto typeRule = root.typeRule(extCommPktTypeTransTwoOctetAs);
    auto const* rule = static_cast<BgpParseExtCommTransTwoOctetAsRule const*>(typeRule.ptr())
                           ->subTypeRule()
                           .find(extCommPktSubtypeTransTwoOctetAsRouteTarget);
    return static_cast<TestSubRule<BgpParseExtComSubTypeTransTwoOctetAsRuleBase> const*>(rule);
}

}  // namespace Routing::Bgp::ParseTest
