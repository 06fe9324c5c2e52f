#include "VoBgp/Parse/ExtCommRules.h"

#include <type_traits>

namespace Routing::Bgp {

BgpParseExtCommRuleBase::~BgpParseExtCommRuleBase() = default;

namespace {

void installTypeRule(BgpParseExtendedCommunityRule& root,
                     BgpParseExtendedCommunityTypeRuleBase::PtrConst const& rule) {
    root.typeRuleIs(rule);
}
void installTypeRule(BgpParseExtendedCommunityRule& root,
                     BgpParseExtendedCommunityIp6TypeRuleBase::PtrConst const& rule) {
    root.ip6TypeRuleIs(rule);
}

}  // namespace

BgpParseExtendedCommunityRule::BgpParseExtendedCommunityRule(BgpParseExtCommControl const& control)
    : BgpParseExtCommRuleBase(control) {
    handleInitialized();
}

BgpParseExtendedCommunityRule::~BgpParseExtendedCommunityRule() {
    handleDel();
    ip6TypeRuleDelAll();
    typeRuleDelAll();
}

BgpParseExtendedCommunityRule::Ptr bgpParseExtendedCommunityRuleFactory(
    BgpParseExtCommControl const& control) {
    return Kiv::makeActive<BgpParseExtendedCommunityRule>(control);
}

BgpParseExtendedCommunityRule::Ptr BgpParseExtendedCommunityRule::BgpParseExtendedCommunityRuleIs(
    BgpParseExtCommControl const& control) {
    return bgpParseExtendedCommunityRuleFactory(control);
}

void BgpParseExtendedCommunityRule::handleInitialized() {
    KIV_ASSERT(parseControl().ruleCollections() != nullptr, "parseControl().ruleCollections()");
    // Each type rule registers as it is built, so the plug-ins fill it
    // before the next one exists; the root registers last.
    bgpParseExtCommForEachRuleKey([this]<class RuleKey>(std::type_identity<RuleKey>) {
        using Rule = typename RuleKey::Rule;
        if constexpr (!std::is_same_v<Rule, BgpParseExtendedCommunityRule>)
            installTypeRule(*this, Kiv::makeActive<Rule>(parseControl()));
    });
    parseControl().ruleCollections()->extendedCommunityTypeRuleInstanceIs(Key(this));
}

void BgpParseExtendedCommunityRule::handleDel() {
    parseControl().ruleCollections()->extendedCommunityTypeRuleInstanceDel(Key(this));
}

ExtComm::PtrConst BgpParseExtendedCommunityRule::parseExtendedCommunity(
    ExtCommContent const& content) const {
    auto type = static_cast<BgpExtCommPktType>(content.typeOctet());
    if (bgpIsValidEnumMember(type)) {
        if (auto const* rule = typeRule_.find(type)) {
            if (auto comm = rule->inhale(content))
                return comm;
        }
    }
    return ExtComm::ExtCommIs(extCommClassificationUnSpecified, content);
}

ExtCommIp6::PtrConst BgpParseExtendedCommunityRule::parseExtendedCommunityIp6(
    ExtCommIp6Content const& content) const {
    auto type = static_cast<BgpExtCommIp6PktType>(content.type);
    if (bgpIsValidEnumMember(type)) {
        if (auto const* rule = ip6TypeRule_.find(type)) {
            if (auto comm = rule->inhale(content))
                return comm;
        }
    }
    return ExtCommIp6::ExtCommIp6Is(extCommClassificationUnSpecified, content);
}

Kiv::String BgpParseExtendedCommunityRule::showString(U64 value, bool asdot, bool linkBwWeighted,
                                                      bool json) const {
    return parseExtendedCommunity(ExtCommContent(value))->toStrepForUI(asdot, linkBwWeighted, json);
}

}  // namespace Routing::Bgp
