// The generic templates of the extended community parser: the key base, the
// key set, the rule map, the rule bases of a family and the fallback objects.
// None of them knows a particular rule kind; the kinds are made of them in
// the public headers.
//
// Convention: VoBgp/Parse/internal/ holds the building blocks of the public
// headers beside it (VoBgp/Parse/ExtComm*.h), which include them. Users
// include VoBgp/Parse/ExtComm.h and never name a file from here; the names
// declared here stay in namespace Routing::Bgp, since the public types are
// aliases of them.
//
// The rule templates derive from BgpParseExtCommRuleBase (ExtCommRules.h),
// which holds the parse control; they reach it through
// BgpParseExtCommFamily, so that this header needs only its declaration.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <unordered_set>
#include <utility>

#include "Kiv/Errors.h"
#include "Kiv/Hash.h"
#include "Kiv/Ptr.h"
#include "Kiv/String.h"
#include "Kiv/Types.h"
#include "VoBgp/ExtCommIp6.h"
#include "VoBgp/VoBgpCommunity.h"
#include "VoBgp/VoBgpCommunityPacketTypes.h"

namespace Routing::Bgp {

class BgpParseExtCommRuleBase;         // ExtCommRules.h
class BgpParseExtCommControl;          // ExtCommRuleCollections.h
class BgpParseExtCommRuleCollections;  // ExtCommRuleCollections.h

// ---------------------------------------------------------------------------
// Keys: a non-owning pointer to a rule.

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

// ---------------------------------------------------------------------------
// Rule bases.

// What goes with each packet-type enumeration: where the subtype octet is,
// the value parsed, the object built, and the base of every rule.
template <class PktType>
struct BgpParseExtCommFamily;
template <>
struct BgpParseExtCommFamily<BgpExtCommPktType> {
    static U8 subtypeOctet(ExtCommContent const& content) { return content.subtypeOctet(); }
    using Content = ExtCommContent;
    using Comm = ExtComm;
    using RuleBase = BgpParseExtCommRuleBase;
};
template <>
struct BgpParseExtCommFamily<BgpExtCommIp6PktType> {
    static U8 subtypeOctet(ExtCommIp6Content const& content) { return content.subtype; }
    using Content = ExtCommIp6Content;
    using Comm = ExtCommIp6;
    using RuleBase = BgpParseExtCommRuleBase;
};

// What the type and the sub-type rule bases share: the octet under which
// their parent holds them (the type, or the subtype) and the contents of
// their family that they inhale.
template <class KeyT, class PktType>
class BgpParseExtCommKeyedRuleBaseT : public BgpParseExtCommFamily<PktType>::RuleBase {
    using RuleBase = typename BgpParseExtCommFamily<PktType>::RuleBase;

  public:
    using Family = BgpParseExtCommFamily<PktType>;
    using Content = typename Family::Content;
    using Comm = typename Family::Comm;

  protected:
    BgpParseExtCommKeyedRuleBaseT(BgpParseExtCommControl const& control, KeyT key)
        : RuleBase(control), key_(key) {}
    KeyT key() const { return key_; }

  private:
    KeyT key_;
};

// Base of the type rules, one shape for the 8-octet and the 20-octet
// communities: a type octet and the inhale that dispatches by subtype.
template <class CommT, class ContentT, class PktTypeT>
class BgpParseExtCommTypeRuleBaseT : public BgpParseExtCommKeyedRuleBaseT<PktTypeT, PktTypeT> {
  public:
    using Ptr = Kiv::Ptr<BgpParseExtCommTypeRuleBaseT>;
    using PtrConst = Kiv::Ptr<BgpParseExtCommTypeRuleBaseT const>;

    PktTypeT pktType() const { return this->key(); }
    virtual typename CommT::PtrConst inhale(ContentT const& content) const = 0;

  protected:
    using BgpParseExtCommKeyedRuleBaseT<PktTypeT, PktTypeT>::BgpParseExtCommKeyedRuleBaseT;
};

// Base of the sub-type rule bases (one per kind), the leaves of the tree,
// which the plug-ins write. inhale() builds the typed community, or returns
// null to reject the value (the type rule then falls back).
template <class SubtypeT, class PktType>
class BgpParseExtCommSubTypeRuleBaseT : public BgpParseExtCommKeyedRuleBaseT<SubtypeT, PktType> {
  public:
    using Subtype = SubtypeT;
    using typename BgpParseExtCommKeyedRuleBaseT<SubtypeT, PktType>::Comm;
    using typename BgpParseExtCommKeyedRuleBaseT<SubtypeT, PktType>::Content;

    Subtype pktSubType() const { return this->key(); }
    virtual typename Comm::PtrConst inhale(Content const& content) const = 0;

  protected:
    using BgpParseExtCommKeyedRuleBaseT<SubtypeT, PktType>::BgpParseExtCommKeyedRuleBaseT;
};

// ---------------------------------------------------------------------------
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

}  // namespace Routing::Bgp
