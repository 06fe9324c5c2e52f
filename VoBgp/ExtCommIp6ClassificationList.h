// ExtCommIp6ClassificationList: the IPv6-address-specific extended
// communities (RFC 5701) of one ExtCommIp6List that share one
// classification, interned on their own in ExtCommIp6ListDedupTable so that
// routes whose communities differ in one classification share the lists of
// the others. The 20-octet twin of ExtCommClassificationList, on the same
// member vector (ExtCommVectorMembers), without its specialities: every
// classification, route target and link bandwidth included, gets this one
// plain class, nothing is prunable, and classification and sorted flag are
// plain fields (the user-data word stays free).
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

    // A new private, empty list of `classification`.
    static Ptr ExtCommIp6ClassificationListIs(ExtCommClassification classification) {
        return Ptr(new ExtCommIp6ClassificationList(classification));
    }

    ExtCommClassification classification() const { return classification_; }
    bool commVectorSorted() const { return commVectorSorted_; }
    void commVectorSortedIs(bool sorted) { commVectorSorted_ = sorted; }

    // commIs, comm(content), comms, commVectorRawPtr: ExtCommVectorMembers.

    // Sorts the list and returns the interned one equal to it.
    PtrConst dedup(ExtCommIp6ListDedupTable const* table);
    U32 hash() const override;
    bool compare(Vok::DedupHandle::RawPtrConst other) const override;

    Kiv::Ptr<ExtCommIp6ClassificationListSnapshot> commSnapshot() const;
    Kiv::String toStrep() const;

  private:
    explicit ExtCommIp6ClassificationList(ExtCommClassification classification)
        : classification_(classification) {}

    ExtCommClassification const classification_;
    bool commVectorSorted_ = false;
};

inline ExtCommIp6ClassificationList::Ptr extCommIp6ClassificationListFactory(
    ExtCommClassification classification) {
    return ExtCommIp6ClassificationList::ExtCommIp6ClassificationListIs(classification);
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
