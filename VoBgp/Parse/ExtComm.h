// The extended community parser: a two-level tree of rules that turns a
// received value into a typed, not yet interned community object, and the
// plug-in machinery that fills the tree.
//
//   BgpParseExtendedCommunityRule (root)
//     typeRule[type octet]     one type rule per known 8-octet type
//       subTypeRule[subtype]   at most one sub-type rule, from a plug-in
//     ip6TypeRule[type octet]  the two IPv6-address-specific type rules
//
// Parsing walks root -> type rule -> sub-type rule, whose inhale() builds the
// typed community (route target, link bandwidth, ...). Every miss on the way
// builds a generic fallback object instead, so parsing never fails.
//
// Typed communities are not wired in: each is a plug-in state machine
// (derived from BgpParseExtCommPluginBaseSm) that watches the rule
// collections. Every type rule registers a key for itself in the collections
// when it is built and removes it when it dies; each registration runs every
// plug-in's hook for that kind synchronously, and the hook adds the plug-in's
// sub-type rules to the rule behind the key. BgpParseExtCommContainerSm owns
// one collections object, the plug-ins, the root rule and the show-command
// cache, and builds them so that every plug-in listens before the first rule
// registers.
//
// The fourteen rule kinds (the root and thirteen type rules) are all alike;
// VOBGP_PARSE_EXT_COMM_RULE_KINDS lists them once, and every family of
// per-kind declarations below (keys, sets, rules, hooks, handlers) is
// generated from that list.
#pragma once

#include <cstddef>
#include <functional>
#include <iosfwd>
#include <map>
#include <string>
#include <type_traits>
#include <unordered_set>
#include <vector>

#include "Kiv/Assert.h"
#include "Kiv/Errors.h"
#include "Kiv/Hash.h"
#include "Kiv/Ptr.h"
#include "Kiv/String.h"
#include "Kiv/Types.h"
#include "Kiv/ValueText.h"
#include "VoBgp/ExtCommIp6.h"
#include "VoBgp/Parse/ExtCommCache.h"
#include "VoBgp/VoBgpCommunity.h"
#include "VoBgp/VoBgpCommunityPacketTypes.h"

namespace Routing::Bgp {

// Every rule kind, in the order of the collections' sets (which is also the
// order in which plug-ins see them). The root is listed by ROOT, the thirteen
// type rules by TYPE:
//
//   ROOT(Name, Key, set, Rule)
//   TYPE(Name, Key, set, Rule, SubRuleBase, Subtype, pktType, Fallback, listed)
//
//   Name         the kind in plug-in operation names: instantiate<Name>SubRule,
//                handle<Name>RuleInstance, add<Name>SubRule
//   Key          the key type the rule registers under, in collections set `set`
//   Rule         the rule class
//   SubRuleBase  base of the sub-type rules the type rule holds, keyed by Subtype
//   pktType      the type octet the rule serves
//   Fallback     what the rule builds when no sub-type rule answers
//   listed       whether the rule registers its key (see BgpParseExtCommIp6NonTransRule)
//
// Consumers that treat all fourteen alike pass one variadic macro for both.
#define VOBGP_PARSE_EXT_COMM_RULE_KINDS(ROOT, TYPE)                                                \
    ROOT(ExtendedCommunityType, BgpParseExtendedCommunityRuleKey,                                  \
         extendedCommunityTypeRuleInstance, BgpParseExtendedCommunityRule)                         \
    TYPE(ExtCommSubTypeTransTwoOctetAs, BgpParseExtCommSubTypeTransTwoOctetAsRuleKey,              \
         extendedCommSubTypeTransTwoOctetAsRuleInstance, BgpParseExtCommTransTwoOctetAsRule,       \
         BgpParseExtComSubTypeTransTwoOctetAsRuleBase, BgpExtCommPktSubtypeTransTwoOctetAs,        \
         extCommPktTypeTransTwoOctetAs, BgpParseExtCommDefaultAsNumber<false>, true)               \
    TYPE(ExtCommSubTypeTransIpv4Address, BgpParseExtCommSubTypeTransIpv4AddressRuleKey,            \
         extendedCommSubTypeTransIpv4AddressRuleInstance, BgpParseExtCommTransIpv4AddressRule,     \
         BgpParseExtComSubTypeTransIpv4AddressRuleBase, BgpExtCommPktSubtypeTransIpv4Address,      \
         extCommPktTypeTransIpv4Address, BgpParseExtCommDefaultIpv4Address, true)                  \
    TYPE(ExtCommSubTypeTransFourOctetAs, BgpParseExtCommSubTypeTransFourOctetAsRuleKey,            \
         extendedCommSubTypeTransFourOctetAsRuleInstance, BgpParseExtCommTransFourOctetAsRule,     \
         BgpParseExtComSubTypeTransFourOctetAsRuleBase, BgpExtCommPktSubtypeTransFourOctetAs,      \
         extCommPktTypeTransFourOctetAs, BgpParseExtCommDefaultAsNumber<true>, true)               \
    TYPE(ExtCommSubTypeTransOpaque, BgpParseExtCommSubTypeTransOpaqueRuleKey,                      \
         extendedCommSubTypeTransOpaqueRuleInstance, BgpParseExtCommTransOpaqueRule,               \
         BgpParseExtComSubTypeTransOpaqueRuleBase, BgpExtCommPktSubtypeTransOpaque,                \
         extCommPktTypeTransOpaque, BgpParseExtCommDefaultSubtyped, true)                          \
    TYPE(ExtCommSubTypeTransGeneric, BgpParseExtCommSubTypeTransGenericRuleKey,                    \
         extendedCommSubTypeTransGenericRuleInstance, BgpParseExtCommTransGenericRule,             \
         BgpParseExtComSubTypeTransGenericRuleBase, BgpExtCommPktSubtypeTransGeneric,              \
         extCommPktTypeTransGeneric, BgpParseExtCommDefaultSubtyped, true)                         \
    TYPE(ExtCommSubTypeTransGenericPart2, BgpParseExtCommSubTypeTransGenericPart2RuleKey,          \
         extendedCommSubTypeTransGenericPart2RuleInstance, BgpParseExtCommTransGenericPart2Rule,   \
         BgpParseExtComSubTypeTransGenericPart2RuleBase, BgpExtCommPktSubtypeTransGenericPart2,    \
         extCommPktTypeTransGenericPart2, BgpParseExtCommDefaultSubtyped, true)                    \
    TYPE(ExtCommSubTypeTransGenericPart3, BgpParseExtCommSubTypeTransGenericPart3RuleKey,          \
         extendedCommSubTypeTransGenericPart3RuleInstance, BgpParseExtCommTransGenericPart3Rule,   \
         BgpParseExtComSubTypeTransGenericPart3RuleBase, BgpExtCommPktSubtypeTransGenericPart3,    \
         extCommPktTypeTransGenericPart3, BgpParseExtCommDefaultSubtyped, true)                    \
    TYPE(ExtCommSubTypeNonTransTwoOctetAs, BgpParseExtCommSubTypeNonTransTwoOctetAsRuleKey,        \
         extendedCommSubTypeNonTransTwoOctetAsRuleInstance, BgpParseExtCommNonTransTwoOctetAsRule, \
         BgpParseExtComSubTypeNonTransTwoOctetAsRuleBase, BgpExtCommPktSubtypeNonTransTwoOctetAs,  \
         extCommPktTypeNonTransTwoOctetAs, BgpParseExtCommDefaultAsNumber<false>, true)            \
    TYPE(ExtCommSubTypeNonTransIpv4Address, BgpParseExtCommSubTypeNonTransIpv4AddressRuleKey,      \
         extendedCommSubTypeNonTransIpv4AddressRuleInstance,                                       \
         BgpParseExtCommNonTransIpv4AddressRule, BgpParseExtComSubTypeNonTransIpv4AddressRuleBase, \
         BgpExtCommPktSubtypeNonTransIpv4Address, extCommPktTypeNonTransIpv4Address,               \
         BgpParseExtCommDefaultIpv4Address, true)                                                  \
    TYPE(ExtCommSubTypeNonTransFourOctetAs, BgpParseExtCommSubTypeNonTransFourOctetAsRuleKey,      \
         extendedCommSubTypeNonTransFourOctetAsRuleInstance,                                       \
         BgpParseExtCommNonTransFourOctetAsRule, BgpParseExtComSubTypeNonTransFourOctetAsRuleBase, \
         BgpExtCommPktSubtypeNonTransFourOctetAs, extCommPktTypeNonTransFourOctetAs,               \
         BgpParseExtCommDefaultAsNumber<true>, true)                                               \
    TYPE(ExtCommSubTypeNonTransOpaque, BgpParseExtCommSubTypeNonTransOpaqueRuleKey,                \
         extendedCommSubTypeNonTransOpaqueRuleInstance, BgpParseExtCommNonTransOpaqueRule,         \
         BgpParseExtComSubTypeNonTransOpaqueRuleBase, BgpExtCommPktSubtypeNonTransOpaque,          \
         extCommPktTypeNonTransOpaque, BgpParseExtCommDefaultSubtyped, true)                       \
    TYPE(ExtCommIp6SubTypeTrans, BgpParseExtCommIp6SubTypeTransRuleKey,                            \
         extendedCommIp6SubTypeTransRuleInstance, BgpParseExtCommIp6TransRule,                     \
         BgpParseExtCommIp6SubTypeTransRuleBase, BgpExtCommIp6PktSubtypeTransIpv6Address,          \
         extCommIp6PktTypeTransIpv6Address, BgpParseExtCommDefaultIp6Subtyped, true)               \
    TYPE(ExtCommIp6SubTypeNonTrans, BgpParseExtCommIp6SubTypeNonTransRuleKey,                      \
         extendedCommIp6SubTypeNonTransRuleInstance, BgpParseExtCommIp6NonTransRule,               \
         BgpParseExtCommIp6SubTypeNonTransRuleBase, BgpExtCommIp6PktSubtypeNonTransIpv6Address,    \
         extCommIp6PktTypeNonTransIpv6Address, BgpParseExtCommDefaultIp6Subtyped, false)

#define VOBGP_PARSE_IGNORE_KIND_(...)

// ---------------------------------------------------------------------------
// Rule keys: a non-owning pointer to the rule that registered itself.
//
// The rule keeps its key alive (it inserts the key when built and removes it
// when it dies), so a key found in a collection always designates a live
// rule. Inside a plug-in hook the rule may still be under construction or
// already under destruction: use key.rule() as the raw pointer it is and
// never take a counted reference from it.

class BgpParseExtCommRuleCollections;

// Attribute ids of the collections' sets, in attribute order
// (extendedCommunityTypeRuleInstanceId = 0, ...).
enum BgpParseExtCommRuleSetId : Kiv::AttributeId {
#define VOBGP_PARSE_SET_ID_(Name, Key, set, ...) set##Id,
    VOBGP_PARSE_EXT_COMM_RULE_KINDS(VOBGP_PARSE_SET_ID_, VOBGP_PARSE_SET_ID_)
#undef VOBGP_PARSE_SET_ID_
        bgpParseExtCommRuleSetCount
};

template <class RuleT>
class BgpParseRuleKeyBase {
  public:
    using Rule = RuleT;

    constexpr BgpParseRuleKeyBase() = default;
    constexpr explicit BgpParseRuleKeyBase(Rule* rule) : rule_(rule) {}

    constexpr Rule* rule() const { return rule_; }
    constexpr explicit operator bool() const { return rule_ != nullptr; }
    // The framework's single-attribute hash of the pointer value; a
    // collection salts it with its own seed.
    U32 hash(U32 seed = Kiv::hashSeed) const { return Kiv::hashPointer(rule_, seed); }

  private:
    Rule* rule_ = nullptr;
};

namespace BgpParseDetail {
// Reads a raw rule pointer; a range error names the attribute "rule".
void const* readRulePointer(Kiv::String::IteratorConst& it, Kiv::String::IteratorConst const& end);
}  // namespace BgpParseDetail

// A rule pointer read from text (the key types' text form).
template <class Rule>
Rule* readRule(Kiv::String::IteratorConst& it, Kiv::String::IteratorConst const& end) {
    return static_cast<Rule*>(const_cast<void*>(BgpParseDetail::readRulePointer(it, end)));
}

#define VOBGP_PARSE_DECLARE_KEY_(Name, Key, set, Rule, ...)                        \
    class Rule;                                                                    \
    class Key : public BgpParseRuleKeyBase<Rule> {                                 \
      public:                                                                      \
        static constexpr char const* typeName = "Routing::Bgp::" #Key;             \
        static constexpr Kiv::AttributeId attributeId = set##Id;                   \
        using BgpParseRuleKeyBase::BgpParseRuleKeyBase;                            \
        /* Reads the text form; a bad pointer text raises RangeError "rule". */    \
        Key(Kiv::String::IteratorConst& it, Kiv::String::IteratorConst const& end) \
            : BgpParseRuleKeyBase(readRule<Rule>(it, end)) {}                      \
    };
VOBGP_PARSE_EXT_COMM_RULE_KINDS(VOBGP_PARSE_DECLARE_KEY_, VOBGP_PARSE_DECLARE_KEY_)
#undef VOBGP_PARSE_DECLARE_KEY_

// The value operations every key type shares.
template <class K>
concept BgpParseRuleKey = std::is_base_of_v<BgpParseRuleKeyBase<typename K::Rule>, K> && requires {
    K::attributeId;
};

template <BgpParseRuleKey K>
constexpr bool operator==(K const& a, K const& b) {
    return a.rule() == b.rule();
}
// By address, unsigned: a null key sorts first.
template <BgpParseRuleKey K>
constexpr bool operator<(K const& a, K const& b) {
    return std::less<void const*>()(a.rule(), b.rule());
}
template <BgpParseRuleKey K>
Kiv::String valueToStrep(K const& key) {
    return Kiv::String(Kiv::pointerText(key.rule()));
}
template <BgpParseRuleKey K>
std::ostream& operator<<(std::ostream& os, K const& key) {
    return os << valueToStrep(key);
}
template <BgpParseRuleKey K>
void sequenceToValue(Kiv::String::IteratorConst& it, Kiv::String::IteratorConst const& end,
                     K* out) {
    *out = K(it, end);
}

// One set of keys of the collections. Each set salts the key hash with its
// own seed, so the fourteen sets do not share collision patterns.
template <class Key>
class BgpParseRuleKeySet {
    struct Hash {
        std::size_t operator()(Key const& key) const {
            return key.hash(Kiv::hashSeed ^ (0x9e3779b1u * (Key::attributeId + 1)));
        }
    };
    using Container = std::unordered_set<Key, Hash>;

  public:
    using IteratorConst = typename Container::const_iterator;

    bool has(Key const& key) const { return keys_.contains(key); }
    std::size_t size() const { return keys_.size(); }
    bool empty() const { return keys_.empty(); }
    IteratorConst begin() const { return keys_.begin(); }
    IteratorConst end() const { return keys_.end(); }

  private:
    friend class BgpParseExtCommRuleCollections;
    Container keys_;
};

// ---------------------------------------------------------------------------
// Rule collections: where rules register and plug-ins listen.
//
// Every change to a set is announced to the notifiees (the plug-ins'
// reactors) with the set's attribute id and the key, synchronously, inside
// the call that made it. Insertion and removal are announced alike.

class BgpParseExtCommRuleCollections : public Kiv::PtrInterface {
  public:
    using Ptr = Kiv::Ptr<BgpParseExtCommRuleCollections>;
    using PtrConst = Kiv::Ptr<BgpParseExtCommRuleCollections const>;

    static constexpr char const* typeName = "Routing::Bgp::BgpParseExtCommRuleCollections";

    static Ptr BgpParseExtCommRuleCollectionsIs();
    // Detaches every reactor first, then drops the sets in reverse order,
    // announcing nothing.
    ~BgpParseExtCommRuleCollections() override;

    // Generic access by key type, for code written once for all kinds.
    template <class Key>
    BgpParseRuleKeySet<Key> const& ruleInstances() const {
        return setOf(static_cast<Key const*>(nullptr));
    }
    // Inserts `key`; announces only when it was absent.
    template <class Key>
    void ruleInstanceIs(Key const& key) {
        if (setOf(&key).keys_.insert(key).second)
            notify(Key::attributeId, &key);
    }
    // Removes `key`; announces and returns true only when it was present.
    template <class Key>
    bool ruleInstanceDel(Key const& key) {
        Key const copy = key;  // `key` may be the very member erased
        if (setOf(&copy).keys_.erase(copy) == 0)
            return false;
        notify(Key::attributeId, &copy);
        return true;
    }
    // Empties the set: at once without notifiees, else key by key so that
    // each removal is announced.
    template <class Key>
    void ruleInstanceDelAll() {
        auto& keys = setOf(static_cast<Key const*>(nullptr)).keys_;
        if (notifieeList().empty()) {
            keys.clear();
            return;
        }
        while (!keys.empty())
            ruleInstanceDel(*keys.begin());
    }
    template <class Key>
    bool ruleInstanceHas(Key const& key) const {
        return ruleInstances<Key>().has(key);
    }

    // The named operations of each set: <set>(), <set>Is, <set>Del,
    // <set>DelAll, <set>Has.
#define VOBGP_PARSE_SET_OPERATIONS_(Name, Key, set, ...) \
    BgpParseRuleKeySet<Key> const& set() const {         \
        return ruleInstances<Key>();                     \
    }                                                    \
    void set##Is(Key const& key) {                       \
        ruleInstanceIs(key);                             \
    }                                                    \
    bool set##Del(Key const& key) {                      \
        return ruleInstanceDel(key);                     \
    }                                                    \
    void set##DelAll() {                                 \
        ruleInstanceDelAll<Key>();                       \
    }                                                    \
    bool set##Has(Key const& key) const {                \
        return ruleInstanceHas(key);                     \
    }
    VOBGP_PARSE_EXT_COMM_RULE_KINDS(VOBGP_PARSE_SET_OPERATIONS_, VOBGP_PARSE_SET_OPERATIONS_)
#undef VOBGP_PARSE_SET_OPERATIONS_

  private:
    template <class T, class... Args>
    friend Kiv::Ptr<T> Kiv::makeActive(Args&&... args);
    BgpParseExtCommRuleCollections() = default;

    // One member per set, in attribute order (so that they are destroyed in
    // reverse order), each reached by its key type.
#define VOBGP_PARSE_SET_MEMBER_(Name, Key, set, ...)         \
    BgpParseRuleKeySet<Key> set##_;                          \
    BgpParseRuleKeySet<Key> const& setOf(Key const*) const { \
        return set##_;                                       \
    }                                                        \
    BgpParseRuleKeySet<Key>& setOf(Key const*) {             \
        return set##_;                                       \
    }
    VOBGP_PARSE_EXT_COMM_RULE_KINDS(VOBGP_PARSE_SET_MEMBER_, VOBGP_PARSE_SET_MEMBER_)
#undef VOBGP_PARSE_SET_MEMBER_
};

BgpParseExtCommRuleCollections::Ptr bgpParseExtCommRuleCollectionsFactory();

// ---------------------------------------------------------------------------
// Parse control: what every rule is built with; it carries the collections
// the rule registers in. Equality only: controls have no order and no hash.

class BgpParseExtCommControl {
  public:
    static constexpr char const* typeName = "Routing::Bgp::BgpParseExtCommControl";

    BgpParseExtCommControl() = default;
    explicit BgpParseExtCommControl(BgpParseExtCommRuleCollections::Ptr ruleCollections)
        : ruleCollections_(std::move(ruleCollections)) {}
    // Reads the text form; a bad pointer text raises RangeError
    // "ruleCollections". The pointer must designate a live collections object.
    BgpParseExtCommControl(Kiv::String::IteratorConst& it, Kiv::String::IteratorConst const& end);

    BgpParseExtCommRuleCollections::Ptr const& ruleCollections() const { return ruleCollections_; }

    // The same collections object.
    friend bool operator==(BgpParseExtCommControl const& a, BgpParseExtCommControl const& b) {
        return a.ruleCollections_ == b.ruleCollections_;
    }
    friend bool operator<(BgpParseExtCommControl const&, BgpParseExtCommControl const&) = delete;
    // Raises Kiv::UnhashableValueError: a control is not a key of anything.
    [[noreturn]] U32 hash() const;

  private:
    BgpParseExtCommRuleCollections::Ptr ruleCollections_;
};

Kiv::String valueToStrep(BgpParseExtCommControl const& control);
std::ostream& operator<<(std::ostream& os, BgpParseExtCommControl const& control);
void sequenceToValue(Kiv::String::IteratorConst& it, Kiv::String::IteratorConst const& end,
                     BgpParseExtCommControl* out);

// ---------------------------------------------------------------------------
// Rules.

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

// Base of the type rules, one shape for the 8-octet and the 20-octet
// communities: a type octet and the inhale that dispatches by subtype.
template <class CommT, class ContentT, class PktTypeT>
class BgpParseExtCommTypeRuleBaseT : public BgpParseExtCommRuleBase {
  public:
    using Ptr = Kiv::Ptr<BgpParseExtCommTypeRuleBaseT>;
    using PtrConst = Kiv::Ptr<BgpParseExtCommTypeRuleBaseT const>;

    PktTypeT pktType() const { return pktType_; }
    virtual typename CommT::PtrConst inhale(ContentT const& content) const = 0;

  protected:
    BgpParseExtCommTypeRuleBaseT(BgpParseExtCommControl const& control, PktTypeT pktType)
        : BgpParseExtCommRuleBase(control), pktType_(pktType) {}

  private:
    PktTypeT pktType_;
};

using BgpParseExtendedCommunityTypeRuleBase =
    BgpParseExtCommTypeRuleBaseT<ExtComm, ExtCommContent, BgpExtCommPktType>;
using BgpParseExtendedCommunityIp6TypeRuleBase =
    BgpParseExtCommTypeRuleBaseT<ExtCommIp6, ExtCommIp6Content, BgpExtCommIp6PktType>;

// What goes with each packet-type enumeration: the value parsed, the object
// built, the base of its type rules.
template <class PktType>
struct BgpParseExtCommFamily;
template <>
struct BgpParseExtCommFamily<BgpExtCommPktType> {
    using Content = ExtCommContent;
    using Comm = ExtComm;
    using TypeRuleBase = BgpParseExtendedCommunityTypeRuleBase;
    static U8 subtypeOctet(ExtCommContent const& content) { return content.subtypeOctet(); }
};
template <>
struct BgpParseExtCommFamily<BgpExtCommIp6PktType> {
    using Content = ExtCommIp6Content;
    using Comm = ExtCommIp6;
    using TypeRuleBase = BgpParseExtendedCommunityIp6TypeRuleBase;
    static U8 subtypeOctet(ExtCommIp6Content const& content) { return content.subtype; }
};

// The objects a type rule builds when no sub-type rule answers: generic,
// with classification unspecified, and never looked up in a dedup table.
template <bool fourOctetAs>
struct BgpParseExtCommDefaultAsNumber {
    static ExtComm::PtrConst make(ExtCommContent const& content) {
        return ExtCommAsNumber::ExtCommAsNumberIs(extCommClassificationUnSpecified, content,
                                                  fourOctetAs);
    }
};
struct BgpParseExtCommDefaultIpv4Address {
    static ExtComm::PtrConst make(ExtCommContent const& content) {
        return ExtCommIpv4Address::ExtCommIpv4AddressIs(extCommClassificationUnSpecified, content);
    }
};
struct BgpParseExtCommDefaultSubtyped {
    static ExtComm::PtrConst make(ExtCommContent const& content) {
        return ExtCommSubtyped::ExtCommSubtypedIs(extCommClassificationUnSpecified, content);
    }
};
struct BgpParseExtCommDefaultIp6Subtyped {
    static ExtCommIp6::PtrConst make(ExtCommIp6Content const& content) {
        return ExtCommIp6Subtyped::ExtCommIp6SubtypedIs(extCommClassificationUnSpecified, content);
    }
};

// A map of rules keyed by an attribute of the rule itself (its pktType or
// pktSubType): at most one rule per key. The three rule collections of the
// tree (typeRule, ip6TypeRule, subTypeRule) are all this map.
template <class KeyT, class Value, auto keyOf>
class BgpParseRuleMap {
  public:
    using Key = KeyT;
    using ValuePtrConst = Kiv::Ptr<Value const>;
    using Container = std::map<Key, ValuePtrConst>;
    using IteratorConst = typename Container::const_iterator;

    // Inserts `rule` under its own key, replacing a different rule there;
    // the same rule again changes nothing. Null raises NullArgumentError.
    void is(ValuePtrConst const& rule, char const* attribute) {
        if (!rule)
            throw Kiv::NullArgumentError(std::string("null rule passed to ") + attribute);
        auto [it, inserted] = rules_.try_emplace((rule.ptr()->*keyOf)(), rule);
        if (!inserted && it->second != rule) {
            // Released after the map is consistent: a dying rule may run
            // plug-in hooks.
            ValuePtrConst old = std::exchange(it->second, rule);
        }
    }
    // Removes and returns the rule under `key` (null when none).
    ValuePtrConst del(Key key) {
        auto it = rules_.find(key);
        if (it == rules_.end())
            return nullptr;
        ValuePtrConst removed = std::move(it->second);
        rules_.erase(it);
        return removed;
    }
    void delAll() {
        Container dying;
        dying.swap(rules_);
        // `dying` releases the rules here, with the map already empty.
    }
    Value const* find(Key key) const {
        auto it = rules_.find(key);
        return it == rules_.end() ? nullptr : it->second.ptr();
    }
    ValuePtrConst get(Key key) const { return ValuePtrConst(const_cast<Value*>(find(key))); }

    std::size_t size() const { return rules_.size(); }
    bool empty() const { return rules_.empty(); }
    IteratorConst begin() const { return rules_.begin(); }
    IteratorConst end() const { return rules_.end(); }

  private:
    Container rules_;
};

// The sub-type rule bases: leaves of the tree, written by the plug-ins (for
// example BgpParseExtComSubTypeTransTwoOctetAsRouteTargetRule derives from
// BgpParseExtComSubTypeTransTwoOctetAsRuleBase). inhale() builds the typed
// community, or returns null to reject the value (the type rule then falls
// back).
template <class SubtypeT, class PktType>
class BgpParseExtCommSubTypeRuleBaseT : public BgpParseExtCommRuleBase {
  public:
    using Subtype = SubtypeT;
    using Family = BgpParseExtCommFamily<PktType>;
    using Content = typename Family::Content;
    using Comm = typename Family::Comm;

    Subtype pktSubType() const { return pktSubType_; }
    virtual typename Comm::PtrConst inhale(Content const& content) const = 0;

  protected:
    BgpParseExtCommSubTypeRuleBaseT(BgpParseExtCommControl const& control, Subtype pktSubType)
        : BgpParseExtCommRuleBase(control), pktSubType_(pktSubType) {}

  private:
    Subtype pktSubType_;
};

#define VOBGP_PARSE_DECLARE_SUBTYPE_RULE_BASE_(Name, Key, set, Rule, SubRuleBase, Subtype,   \
                                               pktType, ...)                                 \
    class SubRuleBase : public BgpParseExtCommSubTypeRuleBaseT<Subtype, decltype(pktType)> { \
      public:                                                                                \
        using Ptr = Kiv::Ptr<SubRuleBase>;                                                   \
        using PtrConst = Kiv::Ptr<SubRuleBase const>;                                        \
        static constexpr char const* typeName = "Routing::Bgp::" #SubRuleBase;               \
                                                                                             \
      protected:                                                                             \
        using BgpParseExtCommSubTypeRuleBaseT::BgpParseExtCommSubTypeRuleBaseT;              \
    };
VOBGP_PARSE_EXT_COMM_RULE_KINDS(VOBGP_PARSE_IGNORE_KIND_, VOBGP_PARSE_DECLARE_SUBTYPE_RULE_BASE_)
#undef VOBGP_PARSE_DECLARE_SUBTYPE_RULE_BASE_

// The type rules, one class per kind, all this template: dispatch by the
// subtype octet to the sub-type rule, else the kind's fallback.
template <class Self, class KeyT, class SubRuleT, auto pktTypeValue, class Fallback, bool listed>
class BgpParseExtCommTypeRuleT
    : public BgpParseExtCommFamily<decltype(pktTypeValue)>::TypeRuleBase {
    using Family = BgpParseExtCommFamily<decltype(pktTypeValue)>;
    using Base = typename Family::TypeRuleBase;

  public:
    using Key = KeyT;
    using SubRule = SubRuleT;
    using Subtype = typename SubRule::Subtype;
    using Content = typename Family::Content;
    using Comm = typename Family::Comm;
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
        auto subtype = static_cast<Subtype>(Family::subtypeOctet(content));
        if (bgpIsValidEnumMember(subtype)) {
            if (SubRule const* rule = subTypeRule_.find(subtype)) {
                if (auto comm = rule->inhale(content))
                    return comm;
            }
        }
        return Fallback::make(content);
    }

  protected:
    explicit BgpParseExtCommTypeRuleT(BgpParseExtCommControl const& control)
        : Base(control, pktTypeValue) {}

    // Registers this rule's key, which runs the plug-ins' hooks at once. A
    // rule that is not listed withdraws its key instead, so that no plug-in
    // ever hears of it.
    void handleInitialized() {
        KIV_ASSERT(this->parseControl().ruleCollections() != nullptr,
                   "parseControl().ruleCollections()");
        Key key(static_cast<Self*>(this));
        if constexpr (listed)
            this->parseControl().ruleCollections()->ruleInstanceIs(key);
        else
            this->parseControl().ruleCollections()->ruleInstanceDel(key);
    }
    void handleDel() {
        this->parseControl().ruleCollections()->ruleInstanceDel(Key(static_cast<Self*>(this)));
    }

  private:
    SubTypeRuleMap subTypeRule_;
};

// BgpParseExtCommIp6NonTransRule is deliberately never listed: IPv6
// non-transitive communities always take its fallback.
#define VOBGP_PARSE_DECLARE_TYPE_RULE_(Name, Key, set, Rule, SubRuleBase, Subtype, pktType,        \
                                       Fallback, listed)                                           \
    class Rule final                                                                               \
        : public BgpParseExtCommTypeRuleT<Rule, Key, SubRuleBase, pktType, Fallback, listed> {     \
      public:                                                                                      \
        using Ptr = Kiv::Ptr<Rule>;                                                                \
        using PtrConst = Kiv::Ptr<Rule const>;                                                     \
        static constexpr char const* typeName = "Routing::Bgp::" #Rule;                            \
                                                                                                   \
        explicit Rule(BgpParseExtCommControl const& control) : BgpParseExtCommTypeRuleT(control) { \
            handleInitialized();                                                                   \
        }                                                                                          \
        ~Rule() override {                                                                         \
            handleDel();                                                                           \
            subTypeRuleDelAll();                                                                   \
        }                                                                                          \
        static Ptr Rule##Is(BgpParseExtCommControl const& control) {                               \
            return Kiv::makeActive<Rule>(control);                                                 \
        }                                                                                          \
    };
VOBGP_PARSE_EXT_COMM_RULE_KINDS(VOBGP_PARSE_IGNORE_KIND_, VOBGP_PARSE_DECLARE_TYPE_RULE_)
#undef VOBGP_PARSE_DECLARE_TYPE_RULE_

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

// ---------------------------------------------------------------------------
// Plug-in state machines.
//
// A plug-in derives from BgpParseExtCommPluginBaseSm, overrides the
// instantiate<Name>SubRule hooks of the type rules it serves, and ends its
// constructor with handleStartup() so that rules registered before it
// existed are served too:
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
// (adding a rule for a subtype replaces the previous one).

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

    // The hooks, one per kind, in attribute order; the base does nothing.
#define VOBGP_PARSE_DECLARE_HOOK_(Name, Key, ...) \
    virtual void instantiate##Name##SubRule(Key const&, BgpParseExtCommControl const&) const {}
    VOBGP_PARSE_EXT_COMM_RULE_KINDS(VOBGP_PARSE_DECLARE_HOOK_, VOBGP_PARSE_DECLARE_HOOK_)
#undef VOBGP_PARSE_DECLARE_HOOK_

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

    // Per kind: the bulk handler (every key of the set), the per-key
    // handler (runs the hook with the rule's control) and the add operation
    // (puts a sub-rule into the rule behind the key, replacing one with the
    // same subtype).
#define VOBGP_PARSE_DECLARE_HANDLERS_(Name, Key, ...) \
    void handle##Name##RuleInstance() const;          \
    void handle##Name##RuleInstance(Key const& key) const;
    VOBGP_PARSE_EXT_COMM_RULE_KINDS(VOBGP_PARSE_DECLARE_HANDLERS_, VOBGP_PARSE_DECLARE_HANDLERS_)
#undef VOBGP_PARSE_DECLARE_HANDLERS_

    void addExtendedCommunityTypeSubRule(
        BgpParseExtendedCommunityRuleKey const& key,
        BgpParseExtendedCommunityTypeRuleBase::PtrConst const& rule) const;
#define VOBGP_PARSE_DECLARE_ADD_(Name, Key, set, Rule, SubRuleBase, ...) \
    void add##Name##SubRule(Key const& key, SubRuleBase::PtrConst const& rule) const;
    VOBGP_PARSE_EXT_COMM_RULE_KINDS(VOBGP_PARSE_IGNORE_KIND_, VOBGP_PARSE_DECLARE_ADD_)
#undef VOBGP_PARSE_DECLARE_ADD_

    // The add operation of the key's kind, chosen by the key type.
    void addSubRule(BgpParseExtendedCommunityRuleKey const& key,
                    BgpParseExtendedCommunityTypeRuleBase::PtrConst const& rule) const {
        addExtendedCommunityTypeSubRule(key, rule);
    }
#define VOBGP_PARSE_DECLARE_ADD_BY_KEY_(Name, Key, set, Rule, SubRuleBase, ...) \
    void addSubRule(Key const& key, SubRuleBase::PtrConst const& rule) const {  \
        add##Name##SubRule(key, rule);                                          \
    }
    VOBGP_PARSE_EXT_COMM_RULE_KINDS(VOBGP_PARSE_IGNORE_KIND_, VOBGP_PARSE_DECLARE_ADD_BY_KEY_)
#undef VOBGP_PARSE_DECLARE_ADD_BY_KEY_

  private:
    // Calls `handle` for every key of the set; keys removed by an earlier
    // call are skipped.
    template <class Key, class Handle>
    void forEachRuleInstance(Handle&& handle) const;

    KivRuleCollections::Ptr reactor_;
    bool zombie_ = false;
};

BgpParseExtCommPluginBaseSm::Ptr bgpParseExtCommPluginBaseSmFactory(
    BgpParseExtCommRuleCollections::PtrConst const& ruleCollections);

// The "Mvpn" feature toggle, read once per process (the first call decides).
bool bgpParseExtCommMvpnEnabled();

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
