#include "VoBgp/Parse/ExtCommPluginSm.h"

#include <algorithm>
#include <type_traits>
#include <utility>

#include "Toggle/Toggle.h"
#include "VoBgp/Parse/ExtCommPlugins.h"

namespace Routing::Bgp {

// ---------------------------------------------------------------------------
// Plug-in base.

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
    // The key is of the type of the set that changed; other attributes pass.
    bgpParseExtCommForEachRuleKey([&]<class Key>(std::type_identity<Key>) {
        if (attribute == Key::attributeId)
            owner_->handleRuleInstance(*static_cast<Key const*>(key));
    });
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

void BgpParseExtCommPluginBaseSm::handleStartup() const {
    bgpParseExtCommForEachRuleKey(
        [this]<class Key>(std::type_identity<Key>) { forEachRuleInstance<Key>(); });
}

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
