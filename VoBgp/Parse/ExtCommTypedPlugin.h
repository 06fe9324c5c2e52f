// The parse rule and the parser plug-in of a typed extended community, written
// once for all of them.
//
// Every typed content (route target, link bandwidth, color, ...) plugs into
// the parser the same way: a sub-type rule whose inhale() is one call of the
// content's factory, and a plug-in whose hooks add those rules to the type
// rules that serve them. Only the names, the subtype and the factory differ,
// so each content declares its rule and its plug-in with one line each, next
// to the content:
//
//   VOBGP_PARSE_TYPED_SUB_RULE(BgpParseExtComSubTypeTransOpaqueColorRule,
//                              BgpParseExtComSubTypeTransOpaqueRuleBase,
//                              extCommPktSubtypeTransOpaqueColorExtendedCommunity,
//                              extCommColorFactory);
//   VOBGP_PARSE_TYPED_PLUGIN(BgpParseExtCommColorSm, bgpParseExtCommColorSmFactory,
//                            BgpParseExtComSubTypeTransOpaqueColorRule);
//
// Further arguments after the factory are passed to it after the content
// (the AS-number route targets pass whether the AS is four-octet).
//
// A plug-in overrides exactly the hooks of the kinds its rules belong to (the
// kind is read off the rule's sub-type rule base), so the hooks it leaves
// alone stay the base's no-ops. Rules of one kind are added in the order
// listed. Hooks also run when a type rule leaves the collections; adding a
// rule again then only replaces the one under the same subtype. A whole
// type rule may be listed too (ExtCommPluginTypeRules.h): the root's,
// type-level, hook adds it to the root.
#pragma once

#include <concepts>

#include "Kiv/Ptr.h"
#include "VoBgp/Parse/ExtComm.h"

namespace Routing::Bgp {

// A sub-type rule whose inhale() returns factory(content, factoryArgs...).
// It never rejects a value: what reaches it has the subtype it serves, and
// the typed content accepts any value of its layout.
template <class SubRuleBaseT, auto subtype, auto factory, auto... factoryArgs>
class BgpParseExtCommFactorySubRule : public SubRuleBaseT {
  public:
    using SubRuleBase = SubRuleBaseT;
    using Comm = typename SubRuleBase::Comm;
    using Content = typename SubRuleBase::Content;

    explicit BgpParseExtCommFactorySubRule(BgpParseExtCommControl const& control)
        : SubRuleBase(control, subtype) {}

    typename Comm::PtrConst inhale(Content const& content) const override {
        return factory(content, factoryArgs...);
    }
};

#define VOBGP_PARSE_TYPED_SUB_RULE(Rule, SubRuleBase, subtype, factory, ...)                       \
    class Rule final : public BgpParseExtCommFactorySubRule<SubRuleBase, subtype,                  \
                                                            &factory __VA_OPT__(, ) __VA_ARGS__> { \
      public:                                                                                      \
        using Ptr = Kiv::Ptr<Rule>;                                                                \
        using PtrConst = Kiv::Ptr<Rule const>;                                                     \
        static constexpr char const* typeName = "Routing::Bgp::" #Rule;                            \
        using BgpParseExtCommFactorySubRule::BgpParseExtCommFactorySubRule;                        \
    }

// One layer of a plug-in: overrides the hook of SubRule's kind, told by the
// subtype enumeration of its sub-type rule base, so that it first does what
// the layers below do, then adds a new SubRule.
template <class Subtype, class SubRule, class Below>
class BgpParseExtCommHookLayer;

#define VOBGP_EXT_COMM_TYPE_RULE_KIND(Name, Key, set, Rule, SubRuleBase, Subtype, pktType,      \
                                      Fallback, listed)                                         \
    template <class SubRule, class Below>                                                       \
    class BgpParseExtCommHookLayer<Subtype, SubRule, Below> : public Below {                    \
      public:                                                                                   \
        using Below::Below;                                                                     \
        void instantiate##Name##SubRule(Key const& key,                                         \
                                        BgpParseExtCommControl const& control) const override { \
            Below::instantiate##Name##SubRule(key, control);                                    \
            this->addSubRule(key, Kiv::makeActive<SubRule>(control));                           \
        }                                                                                       \
    };
#include "VoBgp/Parse/ExtCommRuleKinds.def"

// The type-level layer: SubRule is a whole type rule (ExtCommPluginTypeRules.h),
// which the root's hook adds to the root.
template <class SubRule, class Below>
class BgpParseExtCommHookLayer<BgpExtCommPktType, SubRule, Below> : public Below {
  public:
    using Below::Below;
    void instantiateExtendedCommunityTypeSubRule(
        BgpParseExtendedCommunityRuleKey const& key,
        BgpParseExtCommControl const& control) const override {
        Below::instantiateExtendedCommunityTypeSubRule(key, control);
        this->addSubRule(key, SubRule::typeRuleFor(*key.rule(), control));
    }
};

// Which hook a rule a plug-in lists belongs to: a sub-type rule's is told by
// its subtype enumeration, a type rule's is the root's.
template <class Rule>
struct BgpParseExtCommHookOf {
    using Type = typename Rule::Subtype;
};
template <class Rule>
requires std::derived_from<Rule, BgpParseExtendedCommunityTypeRuleBase>
struct BgpParseExtCommHookOf<Rule> {
    using Type = BgpExtCommPktType;
};

// The layers for SubRules over Below, the first listed innermost.
template <class Below, class... SubRules>
struct BgpParseExtCommHookLayers {
    using Type = Below;
};
template <class Below, class First, class... Rest>
struct BgpParseExtCommHookLayers<Below, First, Rest...> {
    using Type = typename BgpParseExtCommHookLayers<
        BgpParseExtCommHookLayer<typename BgpParseExtCommHookOf<First>::Type, First, Below>,
        Rest...>::Type;
};

// A plug-in that adds SubRules, each to the type rules of its kind.
template <class... SubRules>
using BgpParseExtCommTypedPluginSm =
    typename BgpParseExtCommHookLayers<BgpParseExtCommPluginBaseSm, SubRules...>::Type;

// The plug-in class `Plugin` with its two factories; its constructor serves
// the rules registered before it, as every plug-in's must.
#define VOBGP_PARSE_TYPED_PLUGIN(Plugin, factory, ...)                                            \
    class Plugin final : public BgpParseExtCommTypedPluginSm<__VA_ARGS__> {                       \
      public:                                                                                     \
        using Ptr = Kiv::Ptr<Plugin>;                                                             \
        using PtrConst = Kiv::Ptr<Plugin const>;                                                  \
        static constexpr char const* typeName = "Routing::Bgp::" #Plugin;                         \
        using Layers = BgpParseExtCommTypedPluginSm<__VA_ARGS__>;                                 \
                                                                                                  \
        explicit Plugin(BgpParseExtCommRuleCollections::PtrConst const& ruleCollections)          \
            : Layers(ruleCollections) {                                                           \
            handleStartup();                                                                      \
        }                                                                                         \
        static Ptr Plugin##Is(BgpParseExtCommRuleCollections::PtrConst const& ruleCollections) {  \
            return Kiv::makeActive<Plugin>(ruleCollections);                                      \
        }                                                                                         \
    };                                                                                            \
    inline Plugin::Ptr factory(BgpParseExtCommRuleCollections::PtrConst const& ruleCollections) { \
        return Plugin::Plugin##Is(ruleCollections);                                               \
    }

}  // namespace Routing::Bgp
