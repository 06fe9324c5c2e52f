// ExtCommIp6ClassificationList: the IPv6-address-specific extended
// communities (RFC 5701) of one ExtCommIp6List that share one
// classification, interned on their own in ExtCommIp6ListDedupTable so that
// routes whose communities differ in one classification share the lists of
// the others. The 20-octet twin of ExtCommClassificationList, on the same
// member vector (ExtCommVectorMembers), without its specialities: every
// classification, route target and link bandwidth included, gets this one
// plain class, nothing is prunable, and classification and sorted flag
// share the handle's user-data word.
//
// Identity: the members' identities in order (Jenkins one-at-a-time over
// their addresses, 0 when empty); the classification follows from them.
// Text form: "<classification member name> : <members' derived forms>".
#pragma once

#include "VoBgp/ExtCommIp6.h"
#include "VoBgp/VoBgpCommunityList.h"

namespace Routing::Bgp {

class ExtCommIp6ListDedupTable;
class ExtCommIp6ClassificationListSnapshot;

class ExtCommIp6ClassificationList final
    : public Vok::DedupHandle,
      public ExtCommVectorMembers<ExtCommIp6ClassificationList, ExtCommIp6> {
  public:
    using Ptr = Kiv::Ptr<ExtCommIp6ClassificationList>;
    using PtrConst = Kiv::Ptr<ExtCommIp6ClassificationList const>;
    using RawPtrConst = ExtCommIp6ClassificationList const*;

    // A new private, empty list of `classification`; room for `capacity`
    // members in its own block, more go to the heap.
    static Ptr ExtCommIp6ClassificationListIs(ExtCommClassification classification,
                                              std::size_t capacity = 0) {
        return createWithTail<ExtCommIp6ClassificationList>(capacity, classification);
    }

    // Both in the handle's user-data word: the classification in the low
    // octet, the sorted flag above it.
    ExtCommClassification classification() const {
        return static_cast<ExtCommClassification>(userData() & 0xFF);
    }
    bool commVectorSorted() const { return (userData() & sortedBit) != 0; }
    void commVectorSortedIs(bool sorted) {
        userDataIs(sorted ? userData() | sortedBit : userData() & ~sortedBit);
    }

    // commIs, comm(content), comms, commVectorRawPtr: ExtCommVectorMembers.

    // Sorts the list and returns the interned one equal to it.
    PtrConst dedup(ExtCommIp6ListDedupTable const* table);
    U32 hash() const override;
    bool compare(Vok::DedupHandle::RawPtrConst other) const override;

    Kiv::Ptr<ExtCommIp6ClassificationListSnapshot> commSnapshot() const;
    Kiv::String toStrep() const;

  private:
    friend class ExtCommVectorMembers<ExtCommIp6ClassificationList, ExtCommIp6>;
    static constexpr U32 sortedBit = 0x100;

    explicit ExtCommIp6ClassificationList(ExtCommClassification classification) {
        userDataIs(classification);
    }
};

// On 64-bit hosts: the handle (24 octets) and the one-word member vector.
static_assert(sizeof(void*) != 8 || sizeof(ExtCommIp6ClassificationList) == 32);

inline ExtCommIp6ClassificationList::Ptr extCommIp6ClassificationListFactory(
    ExtCommClassification classification, std::size_t capacity = 0) {
    return ExtCommIp6ClassificationList::ExtCommIp6ClassificationListIs(classification, capacity);
}

// Nothing for a null list.
std::ostream& operator<<(std::ostream& os, ExtCommIp6ClassificationList const* list);

// The classification and the members by content (ordered as the list).
class ExtCommIp6ClassificationListSnapshot final
    : public ExtCommClassificationListSnapshotOf<ExtCommIp6> {
  public:
    using Ptr = Kiv::Ptr<ExtCommIp6ClassificationListSnapshot>;
    using PtrConst = Kiv::Ptr<ExtCommIp6ClassificationListSnapshot const>;

    static Ptr ExtCommIp6ClassificationListSnapshotIs(ExtCommClassification classification) {
        return Kiv::makeActive<ExtCommIp6ClassificationListSnapshot>(classification);
    }

  private:
    template <class T, class... Args>
    friend Kiv::Ptr<T> Kiv::makeActive(Args&&... args);
    using ExtCommClassificationListSnapshotOf::ExtCommClassificationListSnapshotOf;
};

inline ExtCommIp6ClassificationListSnapshot::Ptr extCommIp6ClassificationListSnapshotFactory(
    ExtCommClassification classification) {
    return ExtCommIp6ClassificationListSnapshot::ExtCommIp6ClassificationListSnapshotIs(
        classification);
}

}  // namespace Routing::Bgp
