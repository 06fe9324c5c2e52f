// ExtCommIp6List: the interned list of the IPv6-address-specific extended
// communities (RFC 5701) of one route's IPV6 ADDRESS SPECIFIC EXTENDED
// COMMUNITY path attribute (type 25, IANA BGP path attributes). The 20-octet
// twin of ExtCommList on the same member vector (ExtCommVectorMembers):
// every community once, ascending by content (type, subtype, address, local
// administrator) once sorted, and the same communities split by
// classification into interned ExtCommIp6ClassificationLists.
//
// Where it differs from ExtCommList: the classification lists sit in a slot
// vector indexed by the classification's number (slot c holds the list of
// classification c or null; the vector is as long as the largest
// classification present plus one), and the list caches no attribute bits
// but whether it is sorted and how many of its communities are transitive.
//
// Lifecycle: private and appendable (commIs, append...) from its factory
// until dedup(table), which sorts it, counts its transitive communities and
// returns the one shared list with that content. Its identity, equality and
// placement are those of its values (interned communities), as for
// ExtCommList; the classification lists, interned in the table set, are
// built when something first asks for them (classificationList(s), hash(),
// snapshots and the forms that print them), once, and published atomically
// (ClassificationListsOnDemand.h). Once anyone can observe the table set's
// classification table (ExtCommIp6ListDedupTable), every list is split at
// once and every later one as it is interned. A private list has none.
// An interned list never changes.
#pragma once

#include <algorithm>
#include <atomic>
#include <span>
#include <vector>

#include "KivStash/StashAllocator.h"
#include "KivStash/StoreManager.h"
#include "VoBgp/ExtCommIp6ClassificationList.h"
#include "VoBgp/ExtCommIp6DedupTable.h"
#include "VoBgp/VoBgpSerialize.h"
#include "VoBgp/internal/ClassificationListsOnDemand.h"

namespace Routing::Bgp {

class ExtCommIp6ListSnapshot;

// A std::vector-like sequence (TailVector).
using ExtCommIp6ClassificationListVector = TailVector<ExtCommIp6ClassificationList::PtrConst>;

// The list in slot `classification`, created (plain, private, with room
// for `capacity` members in its block) when the slot is empty or beyond the
// vector. Only for a list being built: the slot's list must not be interned
// yet.
ExtCommIp6ClassificationList* ExtCommIp6ListFindOrCreateClassificationList(
    ExtCommIp6ClassificationListVector& vector, ExtCommClassification classification,
    std::size_t capacity = 0);
// Stores `list` into the slot of its own classification, growing the vector
// with null slots as far as needed.
void ExtCommIp6ListClassificationListIs(ExtCommIp6ClassificationListVector& vector,
                                        ExtCommIp6ClassificationList::PtrConst const& list);

class ExtCommIp6List final : public ExtCommListHandle,
                             public ExtCommVectorMembers<ExtCommIp6List, ExtCommIp6> {
  public:
    using Ptr = Kiv::Ptr<ExtCommIp6List>;
    using PtrConst = Kiv::Ptr<ExtCommIp6List const>;
    using RawPtrConst = ExtCommIp6List const*;

    // A new private, empty list.
    static Ptr ExtCommIp6ListIs() { return Ptr(new ExtCommIp6List); }
    ~ExtCommIp6List() override { delete built_.load(std::memory_order_relaxed); }

    // commIs, expectedCommunityCountIs, appendVector, comm(content),
    // lookupExtComm, comms, empty, commVectorRawPtr: ExtCommVectorMembers.

    // Append every community of the other list (nothing for null), unsorted.
    void append(PtrConst const& otherList) { appendMembersOf(otherList.ptr()); }
    void appendClassificationList(
        ExtCommIp6ClassificationList::PtrConst const& otherClassificationList) {
        appendMembersOf(otherClassificationList.ptr());
    }

    bool commVectorSorted() const { return (userData() & sortedBit) != 0; }
    void commVectorSortedIs(bool sorted) {
        userDataIs(sorted ? userData() | sortedBit : userData() & ~sortedBit);
    }
    U32 totalCommunities() const;
    // totalTransitiveCommunities: ExtCommListHandle.
    // Built on first demand (see above); empty for a private list.
    ExtCommIp6ClassificationListVector const& classificationLists() const {
        if (Split const* built = built_.load(std::memory_order_acquire))
            return built->lists;
        return classificationListsFirst();
    }
    // Whether they are built already (asking builds nothing).
    bool classificationListsSplit() const {
        return built_.load(std::memory_order_acquire) != nullptr;
    }
    // The list of that classification, or null; interned lists only.
    ExtCommIp6ClassificationList const* classificationList(
        ExtCommClassification classification) const;

    // The attribute (flags 0xC0, type 25), its communities in list order,
    // the non-transitive ones only when asked; the empty string when none
    // is to go. A list that does not fit one attribute (over 3,276
    // communities) stops the process: one merged from several peers' values
    // (aggregation) is checked with fitsOneAttribute first.
    Kiv::String serialize(bool sendNonTransExtComms) const;
    // Exactly what serialize writes: the communities, and the attribute's
    // octets (header included, 0 when nothing is to go).
    U32 serializedCommunities(bool sendNonTransExtComms) const {
        return sendNonTransExtComms ? totalCommunities() : totalTransitiveCommunities();
    }
    std::size_t serializedSize(bool sendNonTransExtComms) const {
        U32 const count = serializedCommunities(sendNonTransExtComms);
        return count == 0 ? 0 : pathAttributeSize(std::size_t(count) * 20);
    }
    bool fitsOneAttribute(bool sendNonTransExtComms) const {
        return pathAttributeValueFits(std::size_t(serializedCommunities(sendNonTransExtComms)) *
                                      20);
    }
    // Each community's policy form without the type prefix
    // ("<address>:<local admin>") followed by one blank, the last included.
    Kiv::String commsStringForm() const;

    PtrConst dedup(ExtCommIp6ListDedupTable const* table);
    // The interned list of `table` holding exactly the communities `values`
    // (any order, duplicates allowed) as interned in `ip6Table`: when it
    // exists, found by one lookup that builds nothing; else built and
    // interned by dedup. internReceived reads the values from an
    // attribute's value octets (20 each, RFC 5701 section 2).
    static PtrConst intern(ExtCommIp6DedupTable const* ip6Table,
                           ExtCommIp6ListDedupTable const* table,
                           std::span<ExtCommIp6Content const> values);
    static PtrConst internReceived(ExtCommIp6DedupTable const* ip6Table,
                                   ExtCommIp6ListDedupTable const* table, U8 const* octets,
                                   std::size_t size);
    // internReceivedInto(held, ip6Table, table, octets, size): see
    // ExtCommVectorMembers.
    // Jenkins one-at-a-time over the identities of the non-null slots
    // (builds them).
    U32 hash() const override;
    // The same members (identities) in the same order: the same values, and
    // so the same classification lists.
    bool compare(Vok::DedupHandle::RawPtrConst other) const override;
    // By the members' contents (ListPlacement), as a lookup from received
    // values computes it.
    U32 placementHashCompute() const override { return membersPlacement(); }

    Kiv::Ptr<ExtCommIp6ListSnapshot> commSnapshot() const;
    // "[ <derived forms> ]".
    Kiv::String toStrep() const;

    // Writes the list (sorted) into `storeManager`'s image (record kind 6);
    // the record index.
    U32 stash(KivStash::StoreManager* storeManager) const;
    // A private, sorted list equal to the one stashed at `image`, its
    // communities interned in `extCommIp6Table` (an image holds values, not
    // objects). Kiv::ParseError for a record of another kind or order.
    static Ptr destash(void const* image, KivStash::StoreManager* storeManager,
                       ExtCommIp6DedupTable const* extCommIp6Table);

  private:
    friend class ExtCommVectorMembers<ExtCommIp6List, ExtCommIp6>;
    // Received values sorted on the stack; longer lists use the heap.
    static constexpr std::size_t receivedOnStack = 16;
    // In the handle's user data.
    static constexpr U32 sortedBit = 1;

    // The published slot vector, its slots in the container's own block.
    struct Split {
        VOBGP_LIST_TAIL_DELETE
        ExtCommIp6ClassificationListVector lists;
    };

    ExtCommIp6List() = default;
    // The first build of an interned list's classification lists, published
    // once; an empty vector for a private list.
    ExtCommIp6ClassificationListVector const& classificationListsFirst() const;
    // A new container of the members' classification lists: found or
    // interned in `table`, or private ones (never to be interned) for null.
    Split* classificationListsOf(ExtCommIp6ListDedupTable const* table) const;
    // Null until built; then owned, freed with the list.
    mutable std::atomic<Split*> built_{nullptr};
};

// On 64-bit hosts: the handle (24 octets), the member vector and the
// classification lists' container (a word each, the latter null until
// built); the sorted flag lives in the handle's user data, the transitive
// count in its tail padding (ExtCommListHandle).
static_assert(sizeof(void*) != 8 || sizeof(ExtCommIp6List) == 40);
// One attribute carries 3,276 IPv6-address-specific communities at most.
static_assert(pathAttributeValueFits(3276 * 20) && !pathAttributeValueFits(3277 * 20));

inline ExtCommIp6List::Ptr extCommIp6ListFactory() {
    return ExtCommIp6List::ExtCommIp6ListIs();
}

// "NULL" for a null list.
std::ostream& operator<<(std::ostream& os, ExtCommIp6List const* list);
std::ostream& operator<<(std::ostream& os, ExtCommIp6List const& list);

// How an ExtCommIp6List record of a stash image spells its members: each
// content as its five wire words (see ExtCommIp6Content).
template <>
struct CommListTraits<ExtCommIp6Content> : CommListValueShape<ExtCommIp6Content::stashWords, 6> {
    static constexpr char const* listName = "ExtCommIp6List";

    static U32 word(ExtCommIp6Content const& content, U32 index) {
        U32 words[ExtCommIp6Content::stashWords];
        content.stashWordsTo(words);
        return words[index];
    }
    static ExtCommIp6Content fromWords(U32 const* words) {
        return ExtCommIp6Content::fromStashWords(words);
    }
    // RFC 5701 section 2: type, subtype, the 16-octet global administrator,
    // the 2-octet local administrator.
    static ExtCommIp6Content fromWire(U8 const* p) {
        ExtCommIp6Content content;
        content.type = p[0];
        content.subtype = p[1];
        Vonet::Ip6Addr::Octets octets;
        std::copy(p + 2, p + 18, octets.begin());
        content.addr = Vonet::Ip6Addr(octets);
        content.localAdmin = static_cast<U16>(p[18] << 8 | p[19]);
        return content;
    }
};

// The classification lists by classification, the members by content.
class ExtCommIp6ListSnapshot final
    : public ExtCommListSnapshotOf<ExtCommIp6, ExtCommIp6ClassificationList> {
  public:
    using Ptr = Kiv::Ptr<ExtCommIp6ListSnapshot>;
    using PtrConst = Kiv::Ptr<ExtCommIp6ListSnapshot const>;

    ExtCommIp6ListSnapshot() = default;

  private:
    friend class ExtCommIp6List;
};

}  // namespace Routing::Bgp
