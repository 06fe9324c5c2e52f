// Where the extended community parse rules and the parser plug-ins meet: the
// rule keys, the rule collections that hold them in one set per rule kind,
// and the parse control every rule is built with. Part of
// VoBgp/Parse/ExtComm.h, which users include.
//
// Every rule registers a key for itself in the collections when it is built
// and removes it when it dies; every plug-in watches the collections and
// hears each change synchronously, inside the call that made it.
//
// The kinds, their keys and their sets are listed in ExtCommRuleKinds.def.
#pragma once

#include <cstddef>
#include <functional>
#include <iosfwd>
#include <tuple>
#include <type_traits>
#include <utility>

#include "Kiv/Ptr.h"
#include "Kiv/String.h"
#include "Kiv/Types.h"
#include "Kiv/ValueText.h"
#include "VoBgp/Parse/internal/ExtCommRuleTemplates.h"

namespace Routing::Bgp {

// The collections' sets, one per rule kind, in attribute order; the value is
// the set's attribute id in notifications (extendedCommunityTypeRuleInstance
// is 0).
enum class BgpParseExtCommRuleSet : Kiv::AttributeId {
#define VOBGP_EXT_COMM_RULE_KIND(Name, Key, set, Rule) set,
#include "VoBgp/Parse/ExtCommRuleKinds.def"
    oneBeyondLast
};

inline constexpr std::size_t bgpParseExtCommRuleSetCount =
    static_cast<std::size_t>(BgpParseExtCommRuleSet::oneBeyondLast);

// The rule registered in `set`: a type rule, except for the root's set
// (specialized below). The type rules are defined in ExtCommRules.h.
template <BgpParseExtCommRuleSet set>
class BgpParseExtCommTypeRuleT;
template <BgpParseExtCommRuleSet set>
struct BgpParseExtCommRuleOf {
    using Type = BgpParseExtCommTypeRuleT<set>;
};

// ---------------------------------------------------------------------------
// Rule keys: a non-owning pointer to the rule that registered itself in set
// `set`.
//
// The rule keeps its key alive (it inserts the key when built and removes it
// when it dies), so a key found in a collection always designates a live
// rule. Inside a plug-in hook the rule may still be under construction or
// already under destruction: use key.rule() as the raw pointer it is and
// never take a counted reference from it.

template <BgpParseExtCommRuleSet setT>
class BgpParseRuleKeyT : public BgpParseRuleKeyBase<typename BgpParseExtCommRuleOf<setT>::Type> {
    using Base = BgpParseRuleKeyBase<typename BgpParseExtCommRuleOf<setT>::Type>;

  public:
    using typename Base::Rule;
    static constexpr BgpParseExtCommRuleSet set = setT;
    static constexpr Kiv::AttributeId attributeId = static_cast<Kiv::AttributeId>(setT);

    using Base::Base;
    // Reads the text form; a bad pointer text raises RangeError "rule".
    BgpParseRuleKeyT(Kiv::String::IteratorConst& it, Kiv::String::IteratorConst const& end)
        : Base(readRule<Rule>(it, end)) {}

    friend constexpr bool operator==(BgpParseRuleKeyT const& a, BgpParseRuleKeyT const& b) {
        return a.rule() == b.rule();
    }
    // By address, unsigned: a null key sorts first.
    friend constexpr bool operator<(BgpParseRuleKeyT const& a, BgpParseRuleKeyT const& b) {
        return std::less<void const*>()(a.rule(), b.rule());
    }
};

// The key types, one per row of ExtCommRuleKinds.def
// (BgpParseExtendedCommunityRuleKey, BgpParseExtCommSubTypeTransOpaqueRuleKey, ...).
#define VOBGP_EXT_COMM_ROOT_RULE_KIND(Name, Key, set, Rule)     \
    class Rule;                                                 \
    template <>                                                 \
    struct BgpParseExtCommRuleOf<BgpParseExtCommRuleSet::set> { \
        using Type = Rule;                                      \
    };                                                          \
    using Key = BgpParseRuleKeyT<BgpParseExtCommRuleSet::set>;
#define VOBGP_EXT_COMM_RULE_KIND(Name, Key, set, Rule) \
    using Key = BgpParseRuleKeyT<BgpParseExtCommRuleSet::set>;
#include "VoBgp/Parse/ExtCommRuleKinds.def"

// Plug-ins and notification watchers address sets by these ids, and a key is
// stored by value in every set: both are fixed.
static_assert(bgpParseExtCommRuleSetCount == 14, "the root and thirteen type rules");
static_assert(BgpParseExtendedCommunityRuleKey::attributeId == 0);
static_assert(BgpParseExtCommSubTypeTransOpaqueRuleKey::attributeId == 4);
static_assert(BgpParseExtCommIp6SubTypeNonTransRuleKey::attributeId == 13);
static_assert(sizeof(BgpParseExtCommSubTypeTransOpaqueRuleKey) == sizeof(void*),
              "a key is the pointer to its rule");

// The key of set number `index`.
template <std::size_t index>
using BgpParseRuleKeyAt = BgpParseRuleKeyT<static_cast<BgpParseExtCommRuleSet>(index)>;

// Calls visit(std::type_identity<Key>()) for every key type, in attribute
// order: code written once for all kinds.
template <class Visit>
constexpr void bgpParseExtCommForEachRuleKey(Visit&& visit) {
    [&]<std::size_t... index>(std::index_sequence<index...>) {
        (visit(std::type_identity<BgpParseRuleKeyAt<index>>()), ...);
    }
    (std::make_index_sequence<bgpParseExtCommRuleSetCount>());
}

template <BgpParseExtCommRuleSet set>
Kiv::String valueToStrep(BgpParseRuleKeyT<set> const& key) {
    return Kiv::String(Kiv::pointerText(key.rule()));
}
template <BgpParseExtCommRuleSet set>
std::ostream& operator<<(std::ostream& os, BgpParseRuleKeyT<set> const& key) {
    return os << valueToStrep(key);
}
template <BgpParseExtCommRuleSet set>
void sequenceToValue(Kiv::String::IteratorConst& it, Kiv::String::IteratorConst const& end,
                     BgpParseRuleKeyT<set>* out) {
    *out = BgpParseRuleKeyT<set>(it, end);
}

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
    // Detaches every reactor first, then empties the sets in reverse order,
    // announcing nothing.
    ~BgpParseExtCommRuleCollections() override;

    // Generic access by key type, for code written once for all kinds.
    template <class Key>
    BgpParseRuleKeySet<Key> const& ruleInstances() const {
        return std::get<Key::attributeId>(sets_);
    }
    // Inserts `key`; announces only when it was absent.
    template <class Key>
    void ruleInstanceIs(Key const& key) {
        if (setOf<Key>().keys_.insert(key).second)
            notify(Key::attributeId, &key);
    }
    // Removes `key`; announces and returns true only when it was present.
    template <class Key>
    bool ruleInstanceDel(Key const& key) {
        Key const copy = key;  // `key` may be the very member erased
        if (setOf<Key>().keys_.erase(copy) == 0)
            return false;
        notify(Key::attributeId, &copy);
        return true;
    }
    // Empties the set: at once without notifiees, else key by key so that
    // each removal is announced.
    template <class Key>
    void ruleInstanceDelAll() {
        auto& keys = setOf<Key>().keys_;
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
    // <set>DelAll, <set>Has (extendedCommunityTypeRuleInstanceIs, ...).
#define VOBGP_EXT_COMM_RULE_KIND(Name, Key, set, Rule) \
    BgpParseRuleKeySet<Key> const& set() const {       \
        return ruleInstances<Key>();                   \
    }                                                  \
    void set##Is(Key const& key) {                     \
        ruleInstanceIs(key);                           \
    }                                                  \
    bool set##Del(Key const& key) {                    \
        return ruleInstanceDel(key);                   \
    }                                                  \
    void set##DelAll() {                               \
        ruleInstanceDelAll<Key>();                     \
    }                                                  \
    bool set##Has(Key const& key) const {              \
        return ruleInstanceHas(key);                   \
    }
#include "VoBgp/Parse/ExtCommRuleKinds.def"

  private:
    template <class T, class... Args>
    friend Kiv::Ptr<T> Kiv::makeActive(Args&&... args);
    BgpParseExtCommRuleCollections() = default;

    template <class Key>
    BgpParseRuleKeySet<Key>& setOf() {
        return std::get<Key::attributeId>(sets_);
    }

    // One set per key type, indexed by attribute id.
    template <class Index>
    struct Sets;
    template <std::size_t... index>
    struct Sets<std::index_sequence<index...>> {
        using Type = std::tuple<BgpParseRuleKeySet<BgpParseRuleKeyAt<index>>...>;
    };
    typename Sets<std::make_index_sequence<bgpParseExtCommRuleSetCount>>::Type sets_;
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

}  // namespace Routing::Bgp
