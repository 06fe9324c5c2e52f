// The parser's state machines: the plug-in base, from which every typed
// extended community's plug-in derives, and the container that owns the
// whole parser. Part of VoBgp/Parse/ExtComm.h, which users include.
//
// A plug-in watches the rule collections through its reactor. Whenever a
// rule registers (or leaves), the plug-in's hook for that kind,
// instantiate<Name>SubRule, runs synchronously with the rule's key and
// control; the hook adds the plug-in's sub-type rules to the rule behind the
// key. A plug-in derives from BgpParseExtCommPluginBaseSm, overrides the
// hooks of the type rules it serves, and ends its constructor with
// handleStartup() so that rules registered before it existed are served too:
//
//   class BgpParseExtCommColorSm : public BgpParseExtCommPluginBaseSm {
//     public:
//       explicit BgpParseExtCommColorSm(BgpParseExtCommRuleCollections::PtrConst const& c)
//           : BgpParseExtCommPluginBaseSm(c) { handleStartup(); }
//       void instantiateExtCommSubTypeTransOpaqueSubRule(
//           BgpParseExtCommSubTypeTransOpaqueRuleKey const& key,
//           BgpParseExtCommControl const& control) const override {
//           addSubRule(key, Kiv::makeActive<BgpParseExtComSubTypeTransOpaqueColorRule>(control));
//       }
//   };
//
// Hooks run on registration and on removal alike, so they must be idempotent
// (adding a rule for a subtype replaces the previous one). The typed plug-ins
// are declared with the templates of ExtCommTypedPlugin.h.
//
// BgpParseExtCommContainerSm owns one collections object, the plug-ins, the
// root rule and the show-command cache, and builds them so that every
// plug-in listens before the first rule registers.
#pragma once

#include <cstddef>
#include <vector>

#include "Kiv/Assert.h"
#include "Kiv/Ptr.h"
#include "Kiv/Types.h"
#include "VoBgp/Parse/ExtCommCache.h"
#include "VoBgp/Parse/ExtCommRuleCollections.h"
#include "VoBgp/Parse/ExtCommRules.h"

namespace Routing::Bgp {

// The "Mvpn" feature toggle, read once per process (the first call decides):
// whether the container starts the plug-ins that need it.
bool bgpParseExtCommMvpnEnabled();

// The base of every parser plug-in; on its own it serves nothing.
class BgpParseExtCommPluginBaseSm : public Kiv::PtrInterface {
  public:
    using Ptr = Kiv::Ptr<BgpParseExtCommPluginBaseSm>;
    using PtrConst = Kiv::Ptr<BgpParseExtCommPluginBaseSm const>;

    static constexpr char const* typeName = "Routing::Bgp::BgpParseExtCommPluginBaseSm";

    // The reactor: listens to the collections on behalf of its owner. It
    // holds the counted reference to the collections and a plain back
    // pointer to the owner, which the owner clears when it dies.
    class KivRuleCollections : public Kiv::PtrInterface, public Kiv::Notifiee {
      public:
        using Ptr = Kiv::Ptr<KivRuleCollections>;

        KivRuleCollections(BgpParseExtCommRuleCollections::PtrConst const& notifier,
                           BgpParseExtCommPluginBaseSm* owner);
        ~KivRuleCollections() override;

        // Passes a change of one of the fourteen sets to the owner's handler
        // for that set; ignores other attributes and everything while a zombie.
        void onAttribute(Kiv::AttributeId attribute, void const* key) override;
        virtual void kivDoZombieReactors(bool zombie) { zombie_ = zombie; }

        bool isZombie() const { return zombie_; }
        BgpParseExtCommRuleCollections::PtrConst const& ruleCollections() const {
            return ruleCollections_;
        }
        BgpParseExtCommPluginBaseSm* owner() const { return owner_; }
        void ownerIs(BgpParseExtCommPluginBaseSm* owner) { owner_ = owner; }

        // Both bases have the switch; the reactor keeps them together.
        bool hasNotificationActive() const { return Kiv::Notifiee::hasNotificationActive(); }
        void hasNotificationActiveIs(bool active) override {
            Kiv::PtrInterface::hasNotificationActiveIs(active);
            Kiv::Notifiee::hasNotificationActiveIs(active);
        }

      private:
        BgpParseExtCommRuleCollections::PtrConst ruleCollections_;
        BgpParseExtCommPluginBaseSm* owner_;
        bool zombie_ = false;
    };

    explicit BgpParseExtCommPluginBaseSm(
        BgpParseExtCommRuleCollections::PtrConst const& ruleCollections);
    ~BgpParseExtCommPluginBaseSm() override;
    static Ptr BgpParseExtCommPluginBaseSmIs(
        BgpParseExtCommRuleCollections::PtrConst const& ruleCollections);

    // The watched collections (null without a reactor).
    BgpParseExtCommRuleCollections::PtrConst ruleCollections() const;
    KivRuleCollections::Ptr const& kivRuleCollections() const { return reactor_; }

    // Per kind, in attribute order:
    //   instantiate<Name>SubRule(key, control)  the hook; the base does nothing
    //   handle<Name>RuleInstance()      the bulk handler: every key of the set
    //   handle<Name>RuleInstance(key)   the per-key handler: runs the hook with
    //                                   a copy of the rule's control
    //   add<Name>SubRule(key, rule)     puts `rule` into the rule behind the key,
    //                                   replacing one with the same (sub)type
    //   addSubRule(key, rule)           the add operation chosen by the key type
    // The hooks are the only virtual operations among them, in row order.
    //
    // The sub-type rule parameter of the add operations is spelled from the
    // namespace down so that both compilers name it alike in the assertion.
#define VOBGP_PARSE_PLUGIN_HANDLERS_(Name, Key)                                                 \
    virtual void instantiate##Name##SubRule(Key const&, BgpParseExtCommControl const&) const {} \
    void handle##Name##RuleInstance() const {                                                   \
        forEachRuleInstance<Key>();                                                             \
    }                                                                                           \
    void handle##Name##RuleInstance(Key const& key) const {                                     \
        KIV_ASSERT(key.rule() != nullptr, "key.rule()");                                        \
        BgpParseExtCommControl const control = key.rule()->parseControl();                      \
        instantiate##Name##SubRule(key, control);                                               \
    }                                                                                           \
    void handleRuleInstance(Key const& key) const {                                             \
        handle##Name##RuleInstance(key);                                                        \
    }
#define VOBGP_EXT_COMM_ROOT_RULE_KIND(Name, Key, set, Rule)                                      \
    VOBGP_PARSE_PLUGIN_HANDLERS_(Name, Key)                                                      \
    void add##Name##SubRule(Key const& key,                                                      \
                            BgpParseExtendedCommunityTypeRuleBase::PtrConst const& rule) const { \
        KIV_ASSERT(rule != nullptr, "__null != rule");                                           \
        key.rule()->typeRuleIs(rule);                                                            \
    }                                                                                            \
    void addSubRule(Key const& key, BgpParseExtendedCommunityTypeRuleBase::PtrConst const& rule) \
        const {                                                                                  \
        add##Name##SubRule(key, rule);                                                           \
    }
#define VOBGP_EXT_COMM_TYPE_RULE_KIND(Name, Key, set, Rule, SubRuleBase, Subtype, pktType,   \
                                      Fallback, listed)                                      \
    VOBGP_PARSE_PLUGIN_HANDLERS_(Name, Key)                                                  \
    void add##Name##SubRule(Key const& key, Routing::Bgp::SubRuleBase::PtrConst const& rule) \
        const {                                                                              \
        KIV_ASSERT(rule != nullptr, "rule != __null",                                        \
                   "void Routing::Bgp::BgpParseExtCommPluginBaseSm::add" #Name               \
                   "SubRule(const Routing::Bgp::" #Key "&, const PtrConst&) const");         \
        key.rule()->subTypeRuleIs(rule);                                                     \
    }                                                                                        \
    void addSubRule(Key const& key, Routing::Bgp::SubRuleBase::PtrConst const& rule) const { \
        add##Name##SubRule(key, rule);                                                       \
    }
#include "VoBgp/Parse/ExtCommRuleKinds.def"
#undef VOBGP_PARSE_PLUGIN_HANDLERS_

    // Zombie: listening stopped before the state machine goes away.
    virtual void kivDoZombieReactors(bool zombie);
    bool isZombie() const {
        return zombie_;
    }
    // Switches this state machine's notification, then its reactor's.
    void hasNotificationActiveIs(bool active) override;

    // Serves every rule already registered: the fourteen bulk handlers in
    // attribute order.
    void handleStartup() const;

  private:
    // Runs the per-key handler for every key of the set; keys removed by an
    // earlier call are skipped.
    template <class Key>
    void forEachRuleInstance() const {
        auto collections = ruleCollections();
        if (!collections)
            return;
        auto const& keys = collections->ruleInstances<Key>();
        // A hook may build or drop rules, which changes the sets: walk a copy.
        std::vector<Key> const snapshot(keys.begin(), keys.end());
        for (Key const& key : snapshot) {
            if (keys.has(key))
                handleRuleInstance(key);
        }
    }

    KivRuleCollections::Ptr reactor_;
    bool zombie_ = false;
};

BgpParseExtCommPluginBaseSm::Ptr bgpParseExtCommPluginBaseSmFactory(
    BgpParseExtCommRuleCollections::PtrConst const& ruleCollections);

// The parser as a whole: collections, plug-ins, root rule and show cache.
class BgpParseExtCommContainerSm : public Kiv::PtrInterface {
  public:
    using Ptr = Kiv::Ptr<BgpParseExtCommContainerSm>;
    using PtrConst = Kiv::Ptr<BgpParseExtCommContainerSm const>;

    static constexpr char const* typeName = "Routing::Bgp::BgpParseExtCommContainerSm";

    // One plug-in in the queue, addressed by its index.
    struct KivExtCommParserSms {
        U32 index;
        BgpParseExtCommPluginBaseSm::PtrConst sm;
    };
    using ExtCommParserSmsQueue = std::vector<KivExtCommParserSms>;
    using ExtCommParserSmsIteratorConst = ExtCommParserSmsQueue::const_iterator;

    static Ptr BgpParseExtCommContainerSmIs();
    // Releases the collections, the root rule and the cache, then the plug-ins.
    ~BgpParseExtCommContainerSm() override;

    BgpParseExtCommRuleCollections::Ptr const& parseExtCommRuleCollections() const {
        return parseExtCommRuleCollections_;
    }
    // The collections, created empty when there are none.
    BgpParseExtCommRuleCollections::Ptr parseExtCommRuleCollectionsIs();
    BgpParseExtCommRuleCollections::Ptr parseExtCommRuleCollectionsDel();

    BgpParseExtendedCommunityRule::Ptr const& extCommParser() const { return extCommParser_; }
    // Keeps a root rule built on the same collections as `control`; else
    // builds a new rule tree with `control` in place of the old one.
    BgpParseExtendedCommunityRule::Ptr extCommParserIs(BgpParseExtCommControl const& control);
    BgpParseExtendedCommunityRule::Ptr extCommParserDel();

    // The plug-in queue, ordered by index.
    // Appends at index max(counter, last index + 1) and returns that index.
    U32 extCommParserSmsEnq(BgpParseExtCommPluginBaseSm::PtrConst const& sm);
    // Sets the entry `index` (created in index order when absent); a null
    // `sm` deletes it.
    void extCommParserSmsIs(U32 index, BgpParseExtCommPluginBaseSm::PtrConst const& sm);
    BgpParseExtCommPluginBaseSm::PtrConst extCommParserSmsDel(U32 index);
    ExtCommParserSmsIteratorConst extCommParserSmsDel(ExtCommParserSmsIteratorConst position);
    BgpParseExtCommPluginBaseSm::PtrConst extCommParserSmsDeq();
    void extCommParserSmsDelAll();
    BgpParseExtCommPluginBaseSm::PtrConst extCommParserSms(U32 index) const;
    BgpParseExtCommPluginBaseSm::PtrConst extCommParserSmsFront() const;
    BgpParseExtCommPluginBaseSm::PtrConst extCommParserSmsBack() const;
    std::size_t extCommParserSmsCount() const { return extCommParserSms_.size(); }
    ExtCommParserSmsIteratorConst extCommParserSmsBegin() const {
        return extCommParserSms_.begin();
    }
    ExtCommParserSmsIteratorConst extCommParserSmsEnd() const { return extCommParserSms_.end(); }

    BgpShowCli::ExtCommCache::Ptr const& extCommCache() const { return extCommCache_; }

  private:
    template <class T, class... Args>
    friend Kiv::Ptr<T> Kiv::makeActive(Args&&... args);
    BgpParseExtCommContainerSm();
    void handleInitialized();

    BgpParseExtCommRuleCollections::Ptr parseExtCommRuleCollections_;
    BgpParseExtendedCommunityRule::Ptr extCommParser_;
    ExtCommParserSmsQueue extCommParserSms_;
    U32 extCommParserSmsCounter_ = 0;
    BgpShowCli::ExtCommCache::Ptr extCommCache_;
};

BgpParseExtCommContainerSm::Ptr bgpParseExtCommContainerSmFactory();

}  // namespace Routing::Bgp
