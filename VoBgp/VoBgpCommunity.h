// Extended communities (8 octets): the plain value ExtCommContent and the
// interned object ExtComm that every list, rule and show command shares.
//
// An ExtComm is created by a parse rule (through ExtComm::dedupContent, which
// interns it) as the class that knows its layout: ExtCommSubtyped for types
// with a subtype octet, typed contents (route target, link bandwidth, ...)
// deriving from these. Once interned it never changes.
//
// Text forms:
//   - derived form (operator<<, toStrep, formatDerivedType): for dumps, e.g.
//     <extCommPktTypeTransTwoOctetAs extCommPktSubtypeTransTwoOctetAsRouteTarget
//     0x0002fde800000064>
//   - policy form (toStrepForPolicy, chosen by StrepFormat flags) and the
//     show-command form toStrepForUI; typed contents override formatPolicy.
//   - the content alone: 0x0002fde800000064 (zero prints as 18 zeros).
#pragma once

#include <iosfwd>
#include <string_view>
#include <type_traits>
#include <utility>

#include "Kiv/DenseBoolSet.h"
#include "Kiv/Hash.h"
#include "Kiv/Ptr.h"
#include "Kiv/String.h"
#include "KivStash/ContentHandle.h"
#include "VoBgp/NotifyingRouteTargetList.h"
#include "VoBgp/VoBgpCommunityPacketTypes.h"
#include "VoFmt/StackBackedBuffer.h"
#include "Vok/DedupHashTable.h"
#include "Vok/DumpContext.h"
#include "Vok/PlacementHash.h"

namespace Routing::Bgp {

// The eight octets of an extended community as one number in wire order:
// octet 0 (type) in bits 63-56, octet 1 (subtype) in bits 55-48.
class ExtCommContent {
  public:
    static constexpr char const* typeName = "Routing::Bgp::ExtCommContent";
    // Stash record: kind 3, the value as two words, the high one first.
    static constexpr U32 stashKind = 3;
    static constexpr U32 stashWords = 2;

    constexpr ExtCommContent() = default;
    constexpr explicit ExtCommContent(U64 value) : value_(value) {}

    constexpr U64 value() const { return value_; }
    // Octet i (0 = type octet) as received.
    constexpr U8 octet(unsigned i) const { return static_cast<U8>(value_ >> (56 - 8 * i)); }
    constexpr U8 typeOctet() const { return octet(0); }
    constexpr U8 subtypeOctet() const { return octet(1); }
    // Bit 0x40 of the type octet clear.
    constexpr bool isTransitive() const { return (typeOctet() & 0x40) == 0; }
    // The interning hash: equal contents hash equally.
    constexpr U32 hash() const { return Kiv::hashU64(value_); }
    // Where interning tables place it: the content as one seeded word
    // (Vok/PlacementHash.h); hash() is public, so values sharing it can be
    // crafted, but not values sharing this.
    U32 placementHash() const { return Vok::placementHashOf(value_); }

    void stashWordsTo(U32* words) const {
        words[0] = static_cast<U32>(value_ >> 32);
        words[1] = static_cast<U32>(value_);
    }
    static ExtCommContent fromStashWords(U32 const* words) {
        return ExtCommContent(U64(words[0]) << 32 | words[1]);
    }

    friend constexpr bool operator==(ExtCommContent, ExtCommContent) = default;
    friend constexpr bool operator<(ExtCommContent a, ExtCommContent b) {
        return a.value_ < b.value_;
    }

  private:
    U64 value_ = 0;
};

// "0x" and 16 lower-case hex digits; zero is 18 zero digits without prefix
// (the way a stream shows a zero with its base).
void formatExtCommContent(VoFmt::TextBuffer& out, ExtCommContent content);
std::ostream& operator<<(std::ostream& os, ExtCommContent content);
Kiv::String valueToStrep(ExtCommContent content);
// Reads either form back (strepToValue<ExtCommContent> for a whole string);
// Kiv::ParseError when there are no hex digits, Kiv::RangeError when they do
// not fit 64 bits.
void sequenceToValue(Kiv::String::IteratorConst& it, Kiv::String::IteratorConst const& end,
                     ExtCommContent* out);

class ExtCommDedupTable;

#define VOBGP_EXT_COMM_STREP_FORMAT_FLAGS(X) \
    X(strepFormatDefault)                    \
    X(strepFormatClassification)             \
    X(strepFormatUI)                         \
    X(strepFormatJson)                       \
    X(strepFormatAsdot)                      \
    X(strepFormatLinkBwWeighted)

// Accessor, type member and subtype enumeration of each subtype family.
#define VOBGP_EXT_COMM_SUBTYPE_ACCESSORS(X)                                                       \
    X(pktSubtypeTransTwoOctetAsString, extCommPktTypeTransTwoOctetAs,                             \
      BgpExtCommPktSubtypeTransTwoOctetAs)                                                        \
    X(pktSubtypeTransIpv4AddressString, extCommPktTypeTransIpv4Address,                           \
      BgpExtCommPktSubtypeTransIpv4Address)                                                       \
    X(pktSubtypeTransFourOctetAsString, extCommPktTypeTransFourOctetAs,                           \
      BgpExtCommPktSubtypeTransFourOctetAs)                                                       \
    X(pktSubtypeTransOpaqueString, extCommPktTypeTransOpaque, BgpExtCommPktSubtypeTransOpaque)    \
    X(pktSubtypeEvpnString, extCommPktTypeTransEvpn, BgpExtCommPktSubtypeEvpn)                    \
    X(pktSubtypeFlowspecRedirectNexthopString, extCommPktTypeTransFlowspecRedirectNexthop,        \
      BgpExtCommPktSubtypeTransFlowspecRedirectNexthop)                                           \
    X(pktSubtypeTransGenericString, extCommPktTypeTransGeneric, BgpExtCommPktSubtypeTransGeneric) \
    X(pktSubtypeTransGenericPart2String, extCommPktTypeTransGenericPart2,                         \
      BgpExtCommPktSubtypeTransGenericPart2)                                                      \
    X(pktSubtypeTransGenericPart3String, extCommPktTypeTransGenericPart3,                         \
      BgpExtCommPktSubtypeTransGenericPart3)                                                      \
    X(pktSubtypeNonTransTwoOctetAsString, extCommPktTypeNonTransTwoOctetAs,                       \
      BgpExtCommPktSubtypeNonTransTwoOctetAs)                                                     \
    X(pktSubtypeNonTransIpv4AddressString, extCommPktTypeNonTransIpv4Address,                     \
      BgpExtCommPktSubtypeNonTransIpv4Address)                                                    \
    X(pktSubtypeNonTransFourOctetAsString, extCommPktTypeNonTransFourOctetAs,                     \
      BgpExtCommPktSubtypeNonTransFourOctetAs)                                                    \
    X(pktSubtypeNonTransOpaqueString, extCommPktTypeNonTransOpaque,                               \
      BgpExtCommPktSubtypeNonTransOpaque)

class ExtComm : public KivStash::ContentHandle<ExtCommContent> {
  public:
    using Ptr = Kiv::Ptr<ExtComm>;
    using PtrConst = Kiv::Ptr<ExtComm const>;
    using RawPtrConst = ExtComm const*;

    KIV_DENSE_BOOL_SET(StrepFormat, "Routing::Bgp::ExtComm::StrepFormat",
                       VOBGP_EXT_COMM_STREP_FORMAT_FLAGS)

    // Creates a plain (not subtyped, not typed) community; normally only the
    // parse rules create communities, through dedupContent.
    static Ptr ExtCommIs(ExtCommClassification classification, ExtCommContent const& content);

    // The one interned community for `content`, built by the table's parse
    // rule on first sight (the rule runs once per distinct content).
    static PtrConst dedupContent(ExtCommDedupTable const* table, ExtCommContent const& content);

    // Writes the content and the classification into `storeManager`'s image
    // as one record; returns the record index.
    U32 stash(KivStash::StoreManager* storeManager) const {
        return stashWithTag(storeManager, classification());
    }
    // A fresh, private, plain ExtComm with the content and classification
    // stashed at `image`. The typed class (route target, link bandwidth, ...)
    // is the parse rules' to choose: dedupContent with getContent() interns
    // the typed community. Kiv::ParseError for a record of another kind or
    // with no valid classification.
    static Ptr destash(void const* image, KivStash::StoreManager* storeManager);

    U64 community() const { return content_.value(); }
    ExtCommClassification classification() const {
        return static_cast<ExtCommClassification>(userData() & 0xff);
    }
    BgpExtCommPktType pktType() const { return extCommPktTypeFromOctet(content_.typeOctet()); }
    bool isTransitive() const { return content_.isTransitive(); }
    // Unspecified here; the subtype octet on ExtCommSubtyped.
    virtual BgpExtCommPktSubtype pktSubtype() const;

#define VOBGP_DECLARE_SUBTYPE_ACCESSOR_(accessor, typeMember, Subtype) Kiv::String accessor() const;
    VOBGP_EXT_COMM_SUBTYPE_ACCESSORS(VOBGP_DECLARE_SUBTYPE_ACCESSOR_)
#undef VOBGP_DECLARE_SUBTYPE_ACCESSOR_

    // The derived form (what operator<< writes). Every form is written as
    // one finished text, its numbers in decimal or fixed hex whatever base
    // the stream is set to.
    virtual void formatDerivedType(std::ostream& os) const;
    void formatCommunityValue(std::ostream& os) const;
    // "unspecified", the family's subtype text, or "none" for a type without
    // a subtype family.
    void formatSubtype(std::ostream& os) const;
    void formatSubtypeToBuffer(VoFmt::TextBuffer& out) const;
    Kiv::String toStrep() const;

    // The policy form under `format`; typed contents override formatPolicy.
    virtual void formatPolicy(VoFmt::TextBuffer& out, StrepFormat format) const;
    Kiv::String toStrepForPolicy(StrepFormat format) const;
    // The show-command form: classification + UI, plus asdot, weighted link
    // bandwidth and JSON as asked.
    Kiv::String toStrepForUI(bool asdot = false, bool linkBwWeighted = false,
                             bool json = false) const;
    static StrepFormat uiFormat(bool asdot, bool linkBwWeighted, bool json);

    virtual bool isValid() const {
        return true;
    }
    // The numerically lower community is the better one.
    virtual bool isBetterThan(PtrConst const& other) const;
    // Whether policy matching also tries the UI form of this community.
    virtual bool policyMatchStrepUI() const {
        return false;
    }
    virtual bool isLinkBandwidthWithUnspecifiedAsNumber() const {
        return false;
    }

  protected:
    ExtComm(ExtCommClassification classification, ExtCommContent const& content);
    template <class T, class... Args>
    friend Kiv::Ptr<T> makeExtComm(Args&&... args);
};

// Interned by the million: a handle header and the content, no more.
static_assert(sizeof(ExtComm) <= 32);

// Types with a subtype octet.
class ExtCommSubtyped : public ExtComm {
  public:
    using Ptr = Kiv::Ptr<ExtCommSubtyped>;
    using PtrConst = Kiv::Ptr<ExtCommSubtyped const>;

    static Ptr ExtCommSubtypedIs(ExtCommClassification classification,
                                 ExtCommContent const& content);

    BgpExtCommPktSubtype pktSubtype() const override;

  protected:
    using ExtComm::ExtComm;
    template <class T, class... Args>
    friend Kiv::Ptr<T> makeExtComm(Args&&... args);
};

// The AS-number layout of a subtyped community (types 0x00, 0x02, 0x40,
// 0x42): a two-octet AS with a four-octet local administrator, or a
// four-octet AS with a two-octet one. Generic form for AS-number communities
// that have no typed content, and base of those that do.
class ExtCommAsNumber : public ExtCommSubtyped {
  public:
    using Ptr = Kiv::Ptr<ExtCommAsNumber>;
    using PtrConst = Kiv::Ptr<ExtCommAsNumber const>;

    static Ptr ExtCommAsNumberIs(ExtCommClassification classification,
                                 ExtCommContent const& content, bool fourOctetAs);

    bool fourOctetAs() const { return (userData() & fourOctetAsFlag) != 0; }
    U32 asNumber() const;
    U32 localAdmin4Octets() const { return static_cast<U32>(community()); }
    U16 localAdmin2Octets() const { return static_cast<U16>(community()); }
    // Whichever of the two the layout has.
    U32 localAdmin() const { return fourOctetAs() ? localAdmin2Octets() : localAdmin4Octets(); }

    // The AS number in decimal; with asdot, one above 65535 as high.low.
    void formatAsNumberToBuffer(VoFmt::TextBuffer& out, bool asdot) const;
    Kiv::String formatAsNumber(bool asdot) const;

    void formatPolicy(VoFmt::TextBuffer& out, StrepFormat format) const override;
    void formatDerivedType(std::ostream& os) const override;

  protected:
    ExtCommAsNumber(ExtCommClassification classification, ExtCommContent const& content,
                    bool fourOctetAs);
    template <class T, class... Args>
    friend Kiv::Ptr<T> makeExtComm(Args&&... args);
    // "<AS>:<local administrator>", the AS in asdot when asked.
    void formatAsAndAdmin(VoFmt::TextBuffer& out, bool asdot) const;

  private:
    // Kept beside the classification in the user-data word, so the typed
    // community is no larger than its base.
    static constexpr U32 fourOctetAsFlag = 0x100;
};

// The IPv4-address layout (types 0x01, 0x41): an address in octets 2-5 and a
// two-octet local administrator.
class ExtCommIpv4Address : public ExtCommSubtyped {
  public:
    using Ptr = Kiv::Ptr<ExtCommIpv4Address>;
    using PtrConst = Kiv::Ptr<ExtCommIpv4Address const>;

    static Ptr ExtCommIpv4AddressIs(ExtCommClassification classification,
                                    ExtCommContent const& content);

    U32 ipv4Address() const { return static_cast<U32>(community() >> 16); }
    U16 localAdmin() const { return static_cast<U16>(community()); }

    void formatPolicy(VoFmt::TextBuffer& out, StrepFormat format) const override;
    void formatDerivedType(std::ostream& os) const override;

  protected:
    using ExtCommSubtyped::ExtCommSubtyped;
    template <class T, class... Args>
    friend Kiv::Ptr<T> makeExtComm(Args&&... args);
    // "<a.b.c.d>:<local administrator>".
    void formatAddressAndAdmin(VoFmt::TextBuffer& out) const;
};

// Shared number forms.
// An AS number: decimal, or with asdot and above 65535, high "." low.
void formatAsNumber(VoFmt::TextBuffer& out, U32 asNumber, bool asdot);
// An IPv4 address (most significant octet first) in dotted decimal.
void formatIpv4Address(VoFmt::TextBuffer& out, U32 address);

// Allocates a community of class T (constructors stay protected so that
// communities are only made this way).
template <class T, class... Args>
Kiv::Ptr<T> makeExtComm(Args&&... args) {
    return Kiv::Ptr<T>(new T(std::forward<Args>(args)...));
}

inline ExtCommAsNumber::Ptr extCommAsNumberFactory(ExtCommClassification classification,
                                                   ExtCommContent const& content,
                                                   bool fourOctetAs) {
    return ExtCommAsNumber::ExtCommAsNumberIs(classification, content, fourOctetAs);
}
inline ExtCommIpv4Address::Ptr extCommIpv4AddressFactory(ExtCommClassification classification,
                                                         ExtCommContent const& content) {
    return ExtCommIpv4Address::ExtCommIpv4AddressIs(classification, content);
}
inline ExtComm::Ptr extCommFactory(ExtCommClassification classification,
                                   ExtCommContent const& content) {
    return ExtComm::ExtCommIs(classification, content);
}
inline ExtCommSubtyped::Ptr extCommSubtypedFactory(ExtCommClassification classification,
                                                   ExtCommContent const& content) {
    return ExtCommSubtyped::ExtCommSubtypedIs(classification, content);
}

// "NULL" for a null pointer, else the derived form (stream flags preserved).
std::ostream& operator<<(std::ostream& os, ExtComm const* comm);
std::ostream& operator<<(std::ostream& os, ExtComm const& comm);
inline std::ostream& operator<<(std::ostream& os, ExtComm::PtrConst const& comm) {
    return os << comm.ptr();
}

std::ostream& operator<<(std::ostream& os, ExtComm::StrepFormat format);
inline Kiv::String valueToStrep(ExtComm::StrepFormat format) {
    return format.toStrep();
}
void sequenceToValue(Kiv::String::IteratorConst& it, Kiv::String::IteratorConst const& end,
                     ExtComm::StrepFormat* out);

class BgpParseExtendedCommunityRule;

// Keeps a NotifyingRouteTargetList equal to the set of route targets
// interned in one table: a community classified as route target adds its
// value when it enters the table and removes it when it leaves.
class ExtCommLifeTimeNotifiee : public Vok::DedupHashTableLifeTimeNotifiee {
  public:
    using Ptr = Kiv::Ptr<ExtCommLifeTimeNotifiee>;
    using PtrConst = Kiv::Ptr<ExtCommLifeTimeNotifiee const>;

    static constexpr char const* typeName = "Routing::Bgp::ExtCommLifeTimeNotifiee";

    static Ptr ExtCommLifeTimeNotifieeIs(NotifyingRouteTargetList::Ptr const& rtList);

    void handleInsert(Vok::DedupHandle const* handle) override;
    void handleRemove(Vok::DedupHandle const* handle) override;
    // The table no longer reports: nothing it holds counts any more.
    void handleNotificationStop(Vok::DedupHashTable const* table) override;

    NotifyingRouteTargetList::Ptr const& rtList() const { return rtList_; }

  private:
    template <class T, class... Args>
    friend Kiv::Ptr<T> Kiv::makeActive(Args&&... args);
    explicit ExtCommLifeTimeNotifiee(NotifyingRouteTargetList::Ptr rtList)
        : rtList_(std::move(rtList)) {}

    NotifyingRouteTargetList::Ptr rtList_;
};

ExtCommLifeTimeNotifiee::Ptr extCommLifeTimeNotifieeFactory(
    NotifyingRouteTargetList::Ptr const& rtList);

// What the interning tables of the 8-octet and the 20-octet extended
// communities share: the hash set of interned communities (created
// thread-safe when the agent runs multi-threaded, VoBgpGlobals at creation)
// and the parse rule that builds a community on first sight. Comm is ExtComm
// or ExtCommIp6; Comm::dedupContent is intern() of its table.
template <class Comm>
class ExtCommDedupTableOf : public Kiv::PtrInterface {
  public:
    using CommPtrConst = Kiv::Ptr<Comm const>;
    using Content = std::decay_t<decltype(std::declval<Comm const&>().getContent())>;
    using ParseRulePtrConst = Kiv::Ptr<BgpParseExtendedCommunityRule const>;

    Vok::DedupHashTableUnorderedSet::Ptr const& dedupTable() const { return dedupTable_; }
    // The rule that builds a community on first sight.
    ParseRulePtrConst const& parseExtCommRule() const { return parseExtCommRule_; }

    // The one interned community for `content`: a lookup by the content's
    // hash; on a miss the parse rule builds it (once per distinct content)
    // and it is inserted, unless an equal one got in first.
    CommPtrConst intern(Content const& content) const {
        if (auto hit = dedupTable_->template lookup<Comm>(
                content.placementHash(),
                [&content](Comm const* comm) { return comm->getContent() == content; }))
            return hit;
        return internFresh(content);
    }

  protected:
    explicit ExtCommDedupTableOf(ParseRulePtrConst const& parseExtCommRule);
    ~ExtCommDedupTableOf() override;
    // "<name>", then "dedupTable" and the hash table's own dump below it.
    void dumpTable(Vok::DumpContext const& dumpCtx, U32 indentCount, char const* name) const;
    static void dumpLine(Vok::DumpContext const& dumpCtx, U32 indent, char const* text);

  private:
    // The miss: the parse rule builds the community and it is inserted.
    CommPtrConst internFresh(Content const& content) const;

    Vok::DedupHashTableUnorderedSet::Ptr dedupTable_;
    ParseRulePtrConst parseExtCommRule_;
};

extern template class ExtCommDedupTableOf<ExtComm>;

// The interning table of extended communities (see ExtComm::dedupContent).
// Besides the shared part it keeps producerRtList filled with every route
// target currently interned.
//
// dumpState writes, each line indented by `indentCount` (no indent at 0):
//   ExtCommDedupTable
//     dedupTable
//       <the hash table's own dump>
//     producerRtList
//       <the route-target list's own dump>
class ExtCommDedupTable final : public ExtCommDedupTableOf<ExtComm> {
  public:
    using Ptr = Kiv::Ptr<ExtCommDedupTable>;
    using PtrConst = Kiv::Ptr<ExtCommDedupTable const>;
    using RawPtrConst = ExtCommDedupTable const*;

    static constexpr char const* typeName = "Routing::Bgp::ExtCommDedupTable";

    static Ptr ExtCommDedupTableIs(ParseRulePtrConst const& parseExtCommRule);
    ~ExtCommDedupTable() override;

    NotifyingRouteTargetList::Ptr const& producerRtList() const { return producerRtList_; }
    ExtCommLifeTimeNotifiee::Ptr const& lifeTimeNotifiee() const { return lifeTimeNotifiee_; }

    void dumpState(Vok::DumpContext const& dumpCtx, U32 indentCount) const;

  private:
    template <class T, class... Args>
    friend Kiv::Ptr<T> Kiv::makeActive(Args&&... args);
    explicit ExtCommDedupTable(ParseRulePtrConst const& parseExtCommRule);
    void handleInitialized();

    NotifyingRouteTargetList::Ptr producerRtList_;
    ExtCommLifeTimeNotifiee::Ptr lifeTimeNotifiee_;
};

ExtCommDedupTable::Ptr extCommDedupTableFactory(
    ExtCommDedupTable::ParseRulePtrConst const& parseExtCommRule);

// Inline, as intern's hit path is: interning a value already there is the
// common case on every received route.
inline ExtComm::PtrConst ExtComm::dedupContent(ExtCommDedupTable const* table,
                                               ExtCommContent const& content) {
    return table->intern(content);
}

// The classification stored in a stash record; Kiv::ParseError when the word
// names none.
ExtCommClassification extCommClassificationFromStash(U32 word);

// Type and subtype as four hex digits (the type without its 0x40 bit), then
// `name`, then "(NT)" for a non-transitive type. Shared by every policy form.
void addExtCommTypeAsString(VoFmt::TextBuffer& out, std::string_view name, U8 type, U8 subtype,
                            bool transitive);
Kiv::String extCommTypeAsString(std::string_view name, U8 type, U8 subtype, bool transitive);

}  // namespace Routing::Bgp
