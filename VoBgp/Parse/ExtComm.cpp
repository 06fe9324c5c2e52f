#include "VoBgp/Parse/ExtComm.h"

#include <algorithm>
#include <ostream>
#include <utility>

#include "Toggle/Toggle.h"
#include "VoBgp/Parse/ExtCommPlugins.h"

namespace Routing::Bgp {

// ---------------------------------------------------------------------------
// Keys, collections, control.

namespace BgpParseDetail {

void const* readRulePointer(Kiv::String::IteratorConst& it, Kiv::String::IteratorConst const& end) {
    try {
        return Kiv::parsePointer(it, end);
    } catch (Kiv::RangeError const& error) {
        Kiv::rethrowWithAttribute(error, "rule");
    }
}

}  // namespace BgpParseDetail

BgpParseExtCommRuleCollections::Ptr bgpParseExtCommRuleCollectionsFactory() {
    return Kiv::makeActive<BgpParseExtCommRuleCollections>();
}

BgpParseExtCommRuleCollections::Ptr
BgpParseExtCommRuleCollections::BgpParseExtCommRuleCollectionsIs() {
    return bgpParseExtCommRuleCollectionsFactory();
}

BgpParseExtCommRuleCollections::~BgpParseExtCommRuleCollections() {
    // Reactors first, so that nobody hears the sets go; the members then
    // die in reverse attribute order.
    notifieeListClear();
}

BgpParseExtCommControl::BgpParseExtCommControl(Kiv::String::IteratorConst& it,
                                               Kiv::String::IteratorConst const& end) {
    void const* collections;
    try {
        collections = Kiv::parsePointer(it, end);
    } catch (Kiv::RangeError const& error) {
        Kiv::rethrowWithAttribute(error, "ruleCollections");
    }
    ruleCollections_ = BgpParseExtCommRuleCollections::Ptr(
        static_cast<BgpParseExtCommRuleCollections*>(const_cast<void*>(collections)));
}

U32 BgpParseExtCommControl::hash() const {
    throw Kiv::UnhashableValueError("Routing::Bgp::BgpParseExtCommControl is not hashable");
}

Kiv::String valueToStrep(BgpParseExtCommControl const& control) {
    return Kiv::String(Kiv::pointerText(control.ruleCollections().ptr()));
}

std::ostream& operator<<(std::ostream& os, BgpParseExtCommControl const& control) {
    return os << Kiv::pointerText(control.ruleCollections().ptr());
}

void sequenceToValue(Kiv::String::IteratorConst& it, Kiv::String::IteratorConst const& end,
                     BgpParseExtCommControl* out) {
    *out = BgpParseExtCommControl(it, end);
}

// ---------------------------------------------------------------------------
// Rules.

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
#define VOBGP_PARSE_BUILD_TYPE_RULE_(Name, Key, set, Rule, ...) \
    installTypeRule(*this, Kiv::makeActive<Rule>(parseControl()));
    VOBGP_PARSE_EXT_COMM_RULE_KINDS(VOBGP_PARSE_IGNORE_KIND_, VOBGP_PARSE_BUILD_TYPE_RULE_)
#undef VOBGP_PARSE_BUILD_TYPE_RULE_
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

// ---------------------------------------------------------------------------
// Plug-in state machines.

BgpParseExtCommPluginBaseSm::KivRuleCollections::KivRuleCollections(
    BgpParseExtCommRuleCollections::PtrConst const& notifier, BgpParseExtCommPluginBaseSm* owner)
    : ruleCollections_(notifier), owner_(owner) {
    notifierIs(ruleCollections_.ptr());
}

BgpParseExtCommPluginBaseSm::KivRuleCollections::~KivRuleCollections() {
    // Detach before the reference goes: it may be the collections' last.
    notifierIs(nullptr);
}

void BgpParseExtCommPluginBaseSm::KivRuleCollections::onAttribute(Kiv::AttributeId attribute,
                                                                  void const* key) {
    if (zombie_ || owner_ == nullptr)
        return;
    switch (attribute) {
#define VOBGP_PARSE_REACT_(Name, Key, set, ...)                            \
    case set##Id:                                                          \
        owner_->handle##Name##RuleInstance(*static_cast<Key const*>(key)); \
        return;
        VOBGP_PARSE_EXT_COMM_RULE_KINDS(VOBGP_PARSE_REACT_, VOBGP_PARSE_REACT_)
#undef VOBGP_PARSE_REACT_
        default:
            return;
    }
}

BgpParseExtCommPluginBaseSm::BgpParseExtCommPluginBaseSm(
    BgpParseExtCommRuleCollections::PtrConst const& ruleCollections) {
    if (ruleCollections)
        reactor_ = Kiv::makeActive<KivRuleCollections>(ruleCollections, this);
}

BgpParseExtCommPluginBaseSm::~BgpParseExtCommPluginBaseSm() {
    if (!reactor_)
        return;
    BgpParseExtCommPluginBaseSm::kivDoZombieReactors(true);
    reactor_->ownerIs(nullptr);
    reactor_ = nullptr;
}

BgpParseExtCommPluginBaseSm::Ptr bgpParseExtCommPluginBaseSmFactory(
    BgpParseExtCommRuleCollections::PtrConst const& ruleCollections) {
    return Kiv::makeActive<BgpParseExtCommPluginBaseSm>(ruleCollections);
}

BgpParseExtCommPluginBaseSm::Ptr BgpParseExtCommPluginBaseSm::BgpParseExtCommPluginBaseSmIs(
    BgpParseExtCommRuleCollections::PtrConst const& ruleCollections) {
    return bgpParseExtCommPluginBaseSmFactory(ruleCollections);
}

BgpParseExtCommRuleCollections::PtrConst BgpParseExtCommPluginBaseSm::ruleCollections() const {
    return reactor_ ? reactor_->ruleCollections() : nullptr;
}

void BgpParseExtCommPluginBaseSm::kivDoZombieReactors(bool zombie) {
    if (zombie == zombie_)
        return;
    zombie_ = zombie;
    if (!reactor_)
        return;
    if (reactor_->notifier() != nullptr)
        reactor_->hasNotificationActiveIs(!zombie);
    reactor_->kivDoZombieReactors(zombie);
}

void BgpParseExtCommPluginBaseSm::hasNotificationActiveIs(bool active) {
    Kiv::PtrInterface::hasNotificationActiveIs(active);
    if (reactor_)
        reactor_->hasNotificationActiveIs(active);
}

template <class Key, class Handle>
void BgpParseExtCommPluginBaseSm::forEachRuleInstance(Handle&& handle) const {
    auto collections = ruleCollections();
    if (!collections)
        return;
    auto const& keys = collections->ruleInstances<Key>();
    // A hook may build or drop rules, which changes the sets: walk a copy.
    std::vector<Key> const snapshot(keys.begin(), keys.end());
    for (Key const& key : snapshot) {
        if (keys.has(key))
            handle(key);
    }
}

void BgpParseExtCommPluginBaseSm::handleStartup() const {
#define VOBGP_PARSE_STARTUP_(Name, ...) handle##Name##RuleInstance();
    VOBGP_PARSE_EXT_COMM_RULE_KINDS(VOBGP_PARSE_STARTUP_, VOBGP_PARSE_STARTUP_)
#undef VOBGP_PARSE_STARTUP_
}

#define VOBGP_PARSE_DEFINE_HANDLERS_(Name, Key, ...)                                           \
    void BgpParseExtCommPluginBaseSm::handle##Name##RuleInstance() const {                     \
        forEachRuleInstance<Key>([this](Key const& key) { handle##Name##RuleInstance(key); }); \
    }                                                                                          \
    void BgpParseExtCommPluginBaseSm::handle##Name##RuleInstance(Key const& key) const {       \
        KIV_ASSERT(key.rule() != nullptr, "key.rule()");                                       \
        BgpParseExtCommControl const control = key.rule()->parseControl();                     \
        instantiate##Name##SubRule(key, control);                                              \
    }
VOBGP_PARSE_EXT_COMM_RULE_KINDS(VOBGP_PARSE_DEFINE_HANDLERS_, VOBGP_PARSE_DEFINE_HANDLERS_)
#undef VOBGP_PARSE_DEFINE_HANDLERS_

void BgpParseExtCommPluginBaseSm::addExtendedCommunityTypeSubRule(
    BgpParseExtendedCommunityRuleKey const& key,
    BgpParseExtendedCommunityTypeRuleBase::PtrConst const& rule) const {
    KIV_ASSERT(rule != nullptr, "__null != rule");
    key.rule()->typeRuleIs(rule);
}

#define VOBGP_PARSE_DEFINE_ADD_(Name, Key, set, Rule, SubRuleBase, ...) \
    void BgpParseExtCommPluginBaseSm::add##Name##SubRule(               \
        Key const& key, SubRuleBase::PtrConst const& rule) const {      \
        KIV_ASSERT(rule != nullptr, "rule != __null");                  \
        key.rule()->subTypeRuleIs(rule);                                \
    }
VOBGP_PARSE_EXT_COMM_RULE_KINDS(VOBGP_PARSE_IGNORE_KIND_, VOBGP_PARSE_DEFINE_ADD_)
#undef VOBGP_PARSE_DEFINE_ADD_

bool bgpParseExtCommMvpnEnabled() {
    // Asked once: the plug-in set of a running agent never changes.
    static bool const enabled = (Toggle::getToggleState("Mvpn", "MvpnLib.json", 1) & 1) != 0;
    return enabled;
}

// ---------------------------------------------------------------------------
// Container.

BgpParseExtCommContainerSm::BgpParseExtCommContainerSm() {
    handleInitialized();
}

BgpParseExtCommContainerSm::~BgpParseExtCommContainerSm() {
    // The root rule dies after the collections reference goes, while the
    // plug-ins still listen: its type rules announce their removal and the
    // hooks add sub-rules to rules about to empty them. Harmless, and the
    // plug-ins go last.
    parseExtCommRuleCollections_ = nullptr;
    extCommParser_ = nullptr;
    extCommCache_ = nullptr;
    extCommParserSmsDelAll();
}

BgpParseExtCommContainerSm::Ptr bgpParseExtCommContainerSmFactory() {
    return Kiv::makeActive<BgpParseExtCommContainerSm>();
}

BgpParseExtCommContainerSm::Ptr BgpParseExtCommContainerSm::BgpParseExtCommContainerSmIs() {
    return bgpParseExtCommContainerSmFactory();
}

void BgpParseExtCommContainerSm::handleInitialized() {
    BgpParseExtCommRuleCollections::Ptr collections = parseExtCommRuleCollectionsIs();
    // Every plug-in listens before the first rule registers.
#define VOBGP_PARSE_START_PLUGIN_(Plugin, needsMvpn)  \
    if (!(needsMvpn) || bgpParseExtCommMvpnEnabled()) \
        extCommParserSmsEnq(Plugin::Plugin##Is(collections));
    VOBGP_PARSE_EXT_COMM_PLUGINS(VOBGP_PARSE_START_PLUGIN_)
#undef VOBGP_PARSE_START_PLUGIN_
    extCommParserIs(BgpParseExtCommControl(collections));
    extCommCache_ = BgpShowCli::ExtCommCache::ExtCommCacheIs();
}

BgpParseExtCommRuleCollections::Ptr BgpParseExtCommContainerSm::parseExtCommRuleCollectionsIs() {
    if (!parseExtCommRuleCollections_)
        parseExtCommRuleCollections_ = bgpParseExtCommRuleCollectionsFactory();
    return parseExtCommRuleCollections_;
}

BgpParseExtCommRuleCollections::Ptr BgpParseExtCommContainerSm::parseExtCommRuleCollectionsDel() {
    return std::exchange(parseExtCommRuleCollections_, nullptr);
}

BgpParseExtendedCommunityRule::Ptr BgpParseExtCommContainerSm::extCommParserIs(
    BgpParseExtCommControl const& control) {
    if (extCommParser_ && extCommParser_->parseControl() == control)
        return extCommParser_;
    auto fresh = bgpParseExtendedCommunityRuleFactory(control);
    // The old tree dies after the new one is in place.
    auto old = std::exchange(extCommParser_, fresh);
    return fresh;
}

BgpParseExtendedCommunityRule::Ptr BgpParseExtCommContainerSm::extCommParserDel() {
    return std::exchange(extCommParser_, nullptr);
}

namespace {

// The first entry whose index is not below `index`.
template <class Queue>
auto byIndex(Queue& queue, U32 index) {
    return std::lower_bound(queue.begin(), queue.end(), index,
                            [](BgpParseExtCommContainerSm::KivExtCommParserSms const& entry,
                               U32 wanted) { return entry.index < wanted; });
}

}  // namespace

U32 BgpParseExtCommContainerSm::extCommParserSmsEnq(
    BgpParseExtCommPluginBaseSm::PtrConst const& sm) {
    U32 index = extCommParserSmsCounter_;
    if (!extCommParserSms_.empty())
        index = std::max(index, extCommParserSms_.back().index + 1);
    extCommParserSms_.push_back({index, sm});
    extCommParserSmsCounter_ = index;
    return index;
}

void BgpParseExtCommContainerSm::extCommParserSmsIs(
    U32 index, BgpParseExtCommPluginBaseSm::PtrConst const& sm) {
    if (!sm) {
        extCommParserSmsDel(index);
        return;
    }
    auto it = byIndex(extCommParserSms_, index);
    if (it != extCommParserSms_.end() && it->index == index) {
        auto old =
            std::exchange(extCommParserSms_[std::size_t(it - extCommParserSms_.begin())].sm, sm);
        return;
    }
    extCommParserSms_.insert(it, {index, sm});
}

BgpParseExtCommPluginBaseSm::PtrConst BgpParseExtCommContainerSm::extCommParserSmsDel(U32 index) {
    auto it = byIndex(extCommParserSms_, index);
    if (it == extCommParserSms_.end() || it->index != index)
        return nullptr;
    auto removed = it->sm;
    extCommParserSms_.erase(it);
    return removed;
}

BgpParseExtCommContainerSm::ExtCommParserSmsIteratorConst
BgpParseExtCommContainerSm::extCommParserSmsDel(ExtCommParserSmsIteratorConst position) {
    return extCommParserSms_.erase(position);
}

BgpParseExtCommPluginBaseSm::PtrConst BgpParseExtCommContainerSm::extCommParserSmsDeq() {
    if (extCommParserSms_.empty())
        return nullptr;
    auto removed = extCommParserSms_.front().sm;
    extCommParserSms_.erase(extCommParserSms_.begin());
    return removed;
}

void BgpParseExtCommContainerSm::extCommParserSmsDelAll() {
    // Released outside the queue, which is already empty then.
    ExtCommParserSmsQueue dying;
    dying.swap(extCommParserSms_);
}

BgpParseExtCommPluginBaseSm::PtrConst BgpParseExtCommContainerSm::extCommParserSms(
    U32 index) const {
    auto it = byIndex(extCommParserSms_, index);
    return it != extCommParserSms_.end() && it->index == index ? it->sm : nullptr;
}

BgpParseExtCommPluginBaseSm::PtrConst BgpParseExtCommContainerSm::extCommParserSmsFront() const {
    return extCommParserSms_.empty() ? nullptr : extCommParserSms_.front().sm;
}

BgpParseExtCommPluginBaseSm::PtrConst BgpParseExtCommContainerSm::extCommParserSmsBack() const {
    return extCommParserSms_.empty() ? nullptr : extCommParserSms_.back().sm;
}

}  // namespace Routing::Bgp
