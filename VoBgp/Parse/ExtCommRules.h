// The extended community parse rules: the rule bases, the thirteen type rules
// and the root. Part of VoBgp/Parse/ExtComm.h, which users include.
//
//   BgpParseExtendedCommunityRule (root)
//     typeRule[type octet]     one type rule per known 8-octet type
//       subTypeRule[subtype]   at most one sub-type rule, from a plug-in
//     ip6TypeRule[type octet]  the two IPv6-address-specific type rules
//
// Parsing walks root -> type rule -> sub-type rule, whose inhale() builds the
// typed community. Every miss on the way builds a generic fallback object
// instead, so parsing never fails.
//
// Every rule but the root registers its key in the rule collections when it
// is built (which runs the plug-ins' hooks at once) and removes it when it
// dies. The type rules and their sub-type rule bases are declared from the
// rows of ExtCommRuleKinds.def.
#pragma once

#include "Kiv/Assert.h"
#include "Kiv/Ptr.h"
#include "Kiv/String.h"
#include "Kiv/Types.h"
#include "VoBgp/ExtCommIp6.h"
#include "VoBgp/Parse/ExtCommRuleCollections.h"
#include "VoBgp/Parse/internal/ExtCommRuleTemplates.h"
#include "VoBgp/VoBgpCommunity.h"
#include "VoBgp/VoBgpCommunityPacketTypes.h"

namespace Routing::Bgp {

// The base of the type rules of a family, by its packet-type enumeration: a
// template of internal/ExtCommRuleTemplates.h over BgpParseExtCommRuleBase
// (below).
template <class PktType>
using BgpParseExtCommTypeRuleBaseOf =
    BgpParseExtCommTypeRuleBaseT<typename BgpParseExtCommFamily<PktType>::Comm,
                                 typename BgpParseExtCommFamily<PktType>::Content, PktType>;
using BgpParseExtendedCommunityTypeRuleBase = BgpParseExtCommTypeRuleBaseOf<BgpExtCommPktType>;
using BgpParseExtendedCommunityIp6TypeRuleBase =
    BgpParseExtCommTypeRuleBaseOf<BgpExtCommIp6PktType>;

// The base of every rule: a framework object built with the parse control,
// through which it registers in the rule collections.
class BgpParseExtCommRuleBase : public Kiv::PtrInterface {
  public:
    using Ptr = Kiv::Ptr<BgpParseExtCommRuleBase>;
    using PtrConst = Kiv::Ptr<BgpParseExtCommRuleBase const>;

    ~BgpParseExtCommRuleBase() override;

    BgpParseExtCommControl const& parseControl() const { return parseControl_; }

  protected:
    explicit BgpParseExtCommRuleBase(BgpParseExtCommControl const& parseControl)
        : parseControl_(parseControl) {}

  private:
    BgpParseExtCommControl parseControl_;
};

// What every type rule with sub-type rules does, whoever builds it: hold at
// most one sub-type rule per subtype and dispatch by the subtype octet, to
// the sub-type rule when the octet is a member of the subtype enumeration,
// else (or when the sub-type rule rejects the value) to Fallback::make.
// BgpParseExtCommTypeRuleT below and the type rules that plug-ins add
// (ExtCommPluginTypeRules.h) are made of it.
template <class Base, class SubRuleT, class Fallback>
class BgpParseExtCommSubTypeDispatchT : public Base {
  public:
    using SubRule = SubRuleT;
    using Subtype = typename SubRule::Subtype;
    using Content = typename Base::Content;
    using Comm = typename Base::Comm;
    using SubTypeRuleMap = BgpParseRuleMap<Subtype, SubRule, &SubRule::pktSubType>;

    void subTypeRuleIs(typename SubRule::PtrConst const& rule) {
        subTypeRule_.is(rule, "subTypeRule");
    }
    typename SubRule::PtrConst subTypeRuleDel(Subtype subtype) { return subTypeRule_.del(subtype); }
    void subTypeRuleDelAll() { subTypeRule_.delAll(); }
    typename SubRule::PtrConst subTypeRule(Subtype subtype) const {
        return subTypeRule_.get(subtype);
    }
    SubTypeRuleMap const& subTypeRule() const { return subTypeRule_; }

    typename Comm::PtrConst inhale(Content const& content) const override {
        auto subtype = static_cast<Subtype>(Base::Family::subtypeOctet(content));
        if (bgpIsValidEnumMember(subtype)) {
            if (auto comm = inhaleSubType(subtype, content))
                return comm;
        }
        return Fallback::make(content);
    }

  protected:
    using Base::Base;

    // What the sub-type rule under `subtype` builds; null when there is none
    // or it rejects the value.
    typename Comm::PtrConst inhaleSubType(Subtype subtype, Content const& content) const {
        SubRule const* rule = subTypeRule_.find(subtype);
        return rule ? rule->inhale(content) : nullptr;
    }

  private:
    SubTypeRuleMap subTypeRule_;
};

// What a type rule is made of: its sub-type rule base, its type octet, its
// fallback and whether it registers. Specialized below for each type rule
// row of ExtCommRuleKinds.def.
template <BgpParseExtCommRuleSet set>
struct BgpParseExtCommTypeRuleKind;

template <BgpParseExtCommRuleSet set>
using BgpParseExtCommTypeRuleDispatchOf = BgpParseExtCommSubTypeDispatchT<
    BgpParseExtCommTypeRuleBaseOf<typename BgpParseExtCommTypeRuleKind<set>::PktType>,
    typename BgpParseExtCommTypeRuleKind<set>::SubTypeRuleBase,
    typename BgpParseExtCommTypeRuleKind<set>::FallbackObject>;

// The type rules of the rows, all this template: the dispatch above, plus the
// registration that lets plug-ins fill it. `set` is the collections' set the
// rule registers in, which names the kind.
template <BgpParseExtCommRuleSet setT>
class BgpParseExtCommTypeRuleT final : public BgpParseExtCommTypeRuleDispatchOf<setT> {
    using Kind = BgpParseExtCommTypeRuleKind<setT>;
    using Base = BgpParseExtCommTypeRuleDispatchOf<setT>;

  public:
    using Ptr = Kiv::Ptr<BgpParseExtCommTypeRuleT>;
    using PtrConst = Kiv::Ptr<BgpParseExtCommTypeRuleT const>;
    using Key = BgpParseRuleKeyT<setT>;

    explicit BgpParseExtCommTypeRuleT(BgpParseExtCommControl const& control)
        : Base(control, Kind::pktTypeValue) {
        handleInitialized();
    }
    ~BgpParseExtCommTypeRuleT() override {
        handleDel();
        this->subTypeRuleDelAll();
    }

  private:
    // Registers this rule's key, which runs the plug-ins' hooks at once. A
    // rule that is not listed withdraws its key instead, so that no plug-in
    // ever hears of it.
    void handleInitialized() {
        KIV_ASSERT(this->parseControl().ruleCollections() != nullptr,
                   "parseControl().ruleCollections()");
        if constexpr (Kind::isListed)
            this->parseControl().ruleCollections()->ruleInstanceIs(Key(this));
        else
            this->parseControl().ruleCollections()->ruleInstanceDel(Key(this));
    }
    void handleDel() { this->parseControl().ruleCollections()->ruleInstanceDel(Key(this)); }
};

// A sub-type rule base: the class over BgpParseExtCommSubTypeRuleBaseT that
// a family of sub-type rules derives from, keyed by `Subtype` under a type
// of enumeration `PktType`.
#define VOBGP_PARSE_SUB_RULE_BASE(SubRuleBase, Subtype, PktType)                   \
    class SubRuleBase : public BgpParseExtCommSubTypeRuleBaseT<Subtype, PktType> { \
      public:                                                                      \
        using Ptr = Kiv::Ptr<SubRuleBase>;                                         \
        using PtrConst = Kiv::Ptr<SubRuleBase const>;                              \
                                                                                   \
      protected:                                                                   \
        using BgpParseExtCommSubTypeRuleBaseT::BgpParseExtCommSubTypeRuleBaseT;    \
    }

// Per type rule row: the sub-type rule base, the kind and the type rule
// (BgpParseExtComSubTypeTransOpaqueRuleBase, BgpParseExtCommTransOpaqueRule,
// ...). The sub-type rule bases, leaves of the tree written by the plug-ins
// (BgpParseExtComSubTypeTransTwoOctetAsRouteTargetRule derives from
// BgpParseExtComSubTypeTransTwoOctetAsRuleBase), are classes rather than
// aliases so that messages and assertions name them as such.
#define VOBGP_EXT_COMM_TYPE_RULE_KIND(Name, Key, set, Rule, SubRuleBase, Subtype, pktType, \
                                      Fallback, listed)                                    \
    VOBGP_PARSE_SUB_RULE_BASE(SubRuleBase, Subtype, decltype(pktType));                    \
    template <>                                                                            \
    struct BgpParseExtCommTypeRuleKind<BgpParseExtCommRuleSet::set> {                      \
        using SubTypeRuleBase = SubRuleBase;                                               \
        using PktType = decltype(pktType);                                                 \
        static constexpr PktType pktTypeValue = pktType;                                   \
        using FallbackObject = Fallback;                                                   \
        static constexpr bool isListed = listed;                                           \
    };                                                                                     \
    using Rule = BgpParseExtCommTypeRuleT<BgpParseExtCommRuleSet::set>;
#include "VoBgp/Parse/ExtCommRuleKinds.def"

// The root: holds the type rules, builds them all when it is built, and is
// the entry point for parsing.
class BgpParseExtendedCommunityRule final : public BgpParseExtCommRuleBase {
  public:
    using Ptr = Kiv::Ptr<BgpParseExtendedCommunityRule>;
    using PtrConst = Kiv::Ptr<BgpParseExtendedCommunityRule const>;
    using Key = BgpParseExtendedCommunityRuleKey;
    using TypeRuleMap = BgpParseRuleMap<BgpExtCommPktType, BgpParseExtendedCommunityTypeRuleBase,
                                        &BgpParseExtendedCommunityTypeRuleBase::pktType>;
    using Ip6TypeRuleMap =
        BgpParseRuleMap<BgpExtCommIp6PktType, BgpParseExtendedCommunityIp6TypeRuleBase,
                        &BgpParseExtendedCommunityIp6TypeRuleBase::pktType>;

    static constexpr char const* typeName = "Routing::Bgp::BgpParseExtendedCommunityRule";

    explicit BgpParseExtendedCommunityRule(BgpParseExtCommControl const& control);
    ~BgpParseExtendedCommunityRule() override;
    static Ptr BgpParseExtendedCommunityRuleIs(BgpParseExtCommControl const& control);

    void typeRuleIs(BgpParseExtendedCommunityTypeRuleBase::PtrConst const& rule) {
        typeRule_.is(rule, "typeRule");
    }
    BgpParseExtendedCommunityTypeRuleBase::PtrConst typeRuleDel(BgpExtCommPktType type) {
        return typeRule_.del(type);
    }
    void typeRuleDelAll() { typeRule_.delAll(); }
    BgpParseExtendedCommunityTypeRuleBase::PtrConst typeRule(BgpExtCommPktType type) const {
        return typeRule_.get(type);
    }
    TypeRuleMap const& typeRule() const { return typeRule_; }

    void ip6TypeRuleIs(BgpParseExtendedCommunityIp6TypeRuleBase::PtrConst const& rule) {
        ip6TypeRule_.is(rule, "ip6TypeRule");
    }
    BgpParseExtendedCommunityIp6TypeRuleBase::PtrConst ip6TypeRuleDel(BgpExtCommIp6PktType type) {
        return ip6TypeRule_.del(type);
    }
    void ip6TypeRuleDelAll() { ip6TypeRule_.delAll(); }
    BgpParseExtendedCommunityIp6TypeRuleBase::PtrConst ip6TypeRule(
        BgpExtCommIp6PktType type) const {
        return ip6TypeRule_.get(type);
    }
    Ip6TypeRuleMap const& ip6TypeRule() const { return ip6TypeRule_; }

    // A new, not yet interned community for `content`; never null.
    ExtComm::PtrConst parseExtendedCommunity(ExtCommContent const& content) const;
    ExtCommIp6::PtrConst parseExtendedCommunityIp6(ExtCommIp6Content const& content) const;
    // The show-command text of the community `value` would parse to.
    Kiv::String showString(U64 value, bool asdot, bool linkBwWeighted, bool json) const;

  private:
    void handleInitialized();
    void handleDel();

    TypeRuleMap typeRule_;
    Ip6TypeRuleMap ip6TypeRule_;
};

BgpParseExtendedCommunityRule::Ptr bgpParseExtendedCommunityRuleFactory(
    BgpParseExtCommControl const& control);

}  // namespace Routing::Bgp
