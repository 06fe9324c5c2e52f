// What the parser tests share: the rule kinds written out, and sub-type
// rules and plug-ins that stand in for the typed ones with just enough
// behaviour to observe the machinery (how often a rule ran, how many exist).
#pragma once

#include <atomic>
#include <functional>
#include <vector>

#include "TestUtil.h"
#include "VoBgp/Parse/ExtComm.h"

// The fourteen rule kinds as the collections announce them, written out:
// X(hook name, key type, attribute id of its set).
#define PARSE_TEST_KINDS(X)                                                                    \
    X(ExtendedCommunityType, BgpParseExtendedCommunityRuleKey, 0)                              \
    X(ExtCommSubTypeTransTwoOctetAs, BgpParseExtCommSubTypeTransTwoOctetAsRuleKey, 1)          \
    X(ExtCommSubTypeTransIpv4Address, BgpParseExtCommSubTypeTransIpv4AddressRuleKey, 2)        \
    X(ExtCommSubTypeTransFourOctetAs, BgpParseExtCommSubTypeTransFourOctetAsRuleKey, 3)        \
    X(ExtCommSubTypeTransOpaque, BgpParseExtCommSubTypeTransOpaqueRuleKey, 4)                  \
    X(ExtCommSubTypeTransGeneric, BgpParseExtCommSubTypeTransGenericRuleKey, 5)                \
    X(ExtCommSubTypeTransGenericPart2, BgpParseExtCommSubTypeTransGenericPart2RuleKey, 6)      \
    X(ExtCommSubTypeTransGenericPart3, BgpParseExtCommSubTypeTransGenericPart3RuleKey, 7)      \
    X(ExtCommSubTypeNonTransTwoOctetAs, BgpParseExtCommSubTypeNonTransTwoOctetAsRuleKey, 8)    \
    X(ExtCommSubTypeNonTransIpv4Address, BgpParseExtCommSubTypeNonTransIpv4AddressRuleKey, 9)  \
    X(ExtCommSubTypeNonTransFourOctetAs, BgpParseExtCommSubTypeNonTransFourOctetAsRuleKey, 10) \
    X(ExtCommSubTypeNonTransOpaque, BgpParseExtCommSubTypeNonTransOpaqueRuleKey, 11)           \
    X(ExtCommIp6SubTypeTrans, BgpParseExtCommIp6SubTypeTransRuleKey, 12)                       \
    X(ExtCommIp6SubTypeNonTrans, BgpParseExtCommIp6SubTypeNonTransRuleKey, 13)

namespace Routing::Bgp::ParseTest {

// The size of each of the fourteen sets, in attribute order.
inline std::vector<std::size_t> setSizes(BgpParseExtCommRuleCollections const& collections) {
    std::vector<std::size_t> sizes;
#define PARSE_TEST_SIZE_(Name, Key, id) sizes.push_back(collections.ruleInstances<Key>().size());
    PARSE_TEST_KINDS(PARSE_TEST_SIZE_)
#undef PARSE_TEST_SIZE_
    return sizes;
}

// A sub-type rule of any kind: builds what `build` returns (null rejects)
// and counts its calls and the live instances of its kind.
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

using TwoOctetAsSubRule = TestSubRule<BgpParseExtComSubTypeTransTwoOctetAsRuleBase>;

// A plug-in for two-octet-AS route targets that builds the generic
// AS-number form: it can be told from the typed plug-in by the class.
class TestRouteTargetSm : public BgpParseExtCommPluginBaseSm {
  public:
    explicit TestRouteTargetSm(BgpParseExtCommRuleCollections::PtrConst const& collections)
        : BgpParseExtCommPluginBaseSm(collections) {
        handleStartup();
    }
    void instantiateExtCommSubTypeTransTwoOctetAsSubRule(
        BgpParseExtCommSubTypeTransTwoOctetAsRuleKey const& key,
        BgpParseExtCommControl const& control) const override {
        addSubRule(key, makeSubRule<BgpParseExtComSubTypeTransTwoOctetAsRuleBase>(
                            control, extCommPktSubtypeTransTwoOctetAsRouteTarget,
                            asNumberAs(extCommClassificationRouteTarget, false)));
    }
};

// The rule that serves `type` in `root`, as its class.
template <class Rule>
Rule* typeRuleOf(BgpParseExtendedCommunityRule const& root, BgpExtCommPktType type) {
    return const_cast<Rule*>(static_cast<Rule const*>(root.typeRule(type).ptr()));
}

}  // namespace Routing::Bgp::ParseTest
