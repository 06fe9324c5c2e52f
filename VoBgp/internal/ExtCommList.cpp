#include <algorithm>
#include <array>

#include "VoBgp/VoBgpCommunityList.h"

namespace Routing::Bgp {

VOBGP_DENSE_SET_TEXT_DEFINITIONS(ExtCommList::CommVectorAttrs)
VOBGP_DENSE_SET_TEXT_DEFINITIONS(ExtCommList::Serialization)

namespace {

// What a list learns from its members, without splitting them.
struct CommunityNotes {
    U32 transitive = 0;
    U32 linkBandwidths = 0;
    bool policyMatchStrepUI = false;
    bool linkBandwidthWithUnspecifiedAsNumber = false;
    bool originValidationState = false;
    bool invalid = false;

    void note(ExtComm const& comm) {
        transitive += comm.isTransitive() ? 1 : 0;
        policyMatchStrepUI |= comm.policyMatchStrepUI();
        linkBandwidthWithUnspecifiedAsNumber |= comm.isLinkBandwidthWithUnspecifiedAsNumber();
        linkBandwidths += comm.classification() == extCommClassificationLinkBandwidth ? 1 : 0;
        originValidationState |=
            comm.classification() == extCommClassificationOriginValidationState;
        invalid |= !comm.isValid();
    }
    // What the classification lists will say (checkPrunable): an invalid
    // member anywhere, or more than the one link bandwidth that survives.
    bool prunable() const { return invalid || linkBandwidths >= 2; }
};

}  // namespace

ExtCommList::Ptr ExtCommList::ExtCommListIs() {
    return Ptr(new ExtCommList);
}

U32 ExtCommList::totalCommunities() const {
    KIV_ASSERT(commVectorSorted());
    return comms();
}

ExtCommList::CommVectorAttrs ExtCommList::commVectorAttrs() const {
    return denseSetFromOctet<CommVectorAttrs>(userData() & 0xFF);
}

ExtCommList::Serialization ExtCommList::serialization(bool includeNonTransitive,
                                                      bool includeLinkBandwidth,
                                                      bool includeOriginAsValidity) {
    Serialization serialization;
    if (includeNonTransitive) {
        serialization.allIs(true);
        return serialization;
    }
    serialization.transitiveIs(true);
    serialization.linkBandwidthIs(includeLinkBandwidth);
    serialization.originAsValidityIs(includeOriginAsValidity);
    return serialization;
}

bool ExtCommList::serializable(ExtComm::PtrConst const& comm, Serialization serialization) {
    return serialization.all() || (serialization.transitive() && comm->isTransitive()) ||
           (serialization.linkBandwidth() &&
            comm->classification() == extCommClassificationLinkBandwidth) ||
           (serialization.originAsValidity() &&
            comm->classification() == extCommClassificationOriginValidationState);
}

U32 ExtCommList::serializableCommunities(Serialization serialization) const {
    if (serialization.all())
        return totalCommunities();
    U32 count = serialization.transitive() ? totalTransitiveCommunities() : 0;
    if (serialization.linkBandwidth() && hasLinkBandwidth())
        ++count;
    if (serialization.originAsValidity() && hasOriginValidationState())
        ++count;
    return count;
}

U32 ExtCommList::serializedCommunities(Serialization serialization) const {
    if (serialization.all())
        return totalCommunities();
    // Counted by the very test that serialize writes by: an unpruned list
    // may hold several link bandwidths or origin validation states, and
    // received data must not stop the process.
    return static_cast<U32>(std::count_if(
        commVector_.begin(), commVector_.end(),
        [&](ExtComm::PtrConst const& comm) { return serializable(comm, serialization); }));
}

Kiv::String ExtCommList::serialize(Serialization serialization) const {
    U32 const count = serializedCommunities(serialization);
    if (count == 0)
        return Kiv::String("");
    SerializePathAttribute out(extCommunity, optionalTransitive, count * 8);
    for (ExtComm::PtrConst const& comm : commVector_)
        if (serializable(comm, serialization))
            out.addU64hton(comm->community());
    return out.serializedString();
}

void ExtCommList::noteMembers(bool forInterning) {
    ExtCommVectorSort(commVector_);
    CommunityNotes notes;
    for (ExtComm::PtrConst const& comm : commVector_)
        notes.note(*comm);
    CommVectorAttrs attrs = commVectorAttrs();
    attrs.sortedIs(true);
    attrs.hasLinkBandwidthIs(notes.linkBandwidths != 0);
    attrs.hasLinkBandwidthWithUnspecifiedAsNumberIs(notes.linkBandwidthWithUnspecifiedAsNumber);
    attrs.hasPolicyMatchStrepUICommunitiesIs(forInterning && notes.policyMatchStrepUI);
    if (forInterning) {
        attrs.hasOriginValidationStateIs(notes.originValidationState);
        attrs.hasPrunableValuesIs(notes.prunable());
    }
    commVectorAttrsIs(attrs);
    totalTransitiveCommunitiesIs(forInterning ? notes.transitive : 0);
}

void ExtCommList::createClassificationListVector(bool dedupMode) {
    createClassificationListVector(dedupMode, true);
}

void ExtCommList::createClassificationListVector(bool dedupMode, bool keepSplit) {
    noteMembers(dedupMode);
    if (ExtCommClassificationLists* const before =
            built_.exchange(nullptr, std::memory_order_acq_rel)) {
        // A split kept from an earlier call is dropped; one made for display
        // must not be about to be interned.
        for (ExtCommClassificationList::PtrConst const& _classificationList : *before)
            KIV_ASSERT(!dedupMode || _classificationList == nullptr ||
                           _classificationList->dedupState() == Vok::dedupHandleStateNeverDeduped(),
                       "__null == ( _classificationList ) || ( _classificationList )->dedupState() "
                       "== Vok::dedupHandleStateNeverDeduped()");
        delete before;
    }
    // Interned lists split on demand, from their table set's shared lists.
    if (keepSplit)
        built_.store(classificationListsOf(nullptr, !dedupMode), std::memory_order_release);
}

ExtCommClassificationLists* ExtCommList::classificationListsOf(ExtCommListDedupTable const* table,
                                                               bool forDisplay) const {
    KIV_ASSERT(commVectorSorted());
    std::array<U32, 256> counts{};
    std::size_t present = 0;
    for (ExtComm::PtrConst const& comm : commVector_)
        present += counts[comm->classification()]++ == 0 ? 1 : 0;
    using Part = ExtCommClassificationLists::Element;
    PendingMembers<Part, extCommClassificationOneBeyondLast> parts(present);
    for (std::size_t c = 0; c < counts.size(); ++c) {
        if (counts[c] == 0)
            continue;
        auto const classification = static_cast<ExtCommClassification>(c);
        auto const members = [&](auto&& visit) {
            for (ExtComm::PtrConst const& comm : commVector_)
                if (comm->classification() == classification)
                    visit(comm);
        };
        if (table != nullptr) {
            Part found = findClassificationList<ExtCommClassificationList>(
                table->classificationTable(classification), classification, counts[c]);
            if (found != nullptr) {
                parts.push_back(std::move(found));
                continue;
            }
        }
        ExtCommClassificationList::Ptr part =
            ExtCommClassificationList::ExtCommClassificationListIs(classification, counts[c]);
        // Members arrive in ascending order.
        part->commVectorSortedIs(true);
        members([&](ExtComm::PtrConst const& comm) {
            part->commIs(comm);
            part->checkPrunable(comm);
        });
        if (table == nullptr) {
            if (forDisplay)
                part->dedupStateNotToBeDedupedIs();
            parts.push_back(Part(std::move(part)));
        } else {
            parts.push_back(part->dedup(table));
        }
    }
    return ExtCommClassificationLists::created(parts.begin(), static_cast<U32>(parts.size()));
}

ExtCommClassificationLists const& ExtCommList::classificationListsFirst() const {
    static ExtCommClassificationLists const none;
    if (!isDeduped())
        return none;
    ExtCommClassificationLists* const mine =
        classificationListsOf(tableSetOf<ExtCommListDedupTable>(*this));
    KIV_ASSERT(std::any_of(mine->begin(), mine->end(), [](auto const& part) {
                   return part->hasPrunableValues();
               }) == hasPrunableValues());
    return publishClassificationListsOnce(built_, mine);
}

ExtCommList::~ExtCommList() {
    delete built_.load(std::memory_order_relaxed);
}

ExtCommList::PtrConst ExtCommList::dedup(ExtCommListDedupTable const* table) {
    KIV_ASSERT(table != nullptr, "table != __null");
    KIV_ASSERT(dedupState() == Vok::dedupHandleStateNeverDeduped(),
               "__null == ( this ) || ( this )->dedupState() == "
               "Vok::dedupHandleStateNeverDeduped()");
    createClassificationListVector(true, false);
    CommListDedupTableBase const* const base = table;
    PtrConst interned = insertInto(base->dedupTable().ptr());
    // Checked after the insert: either the table set's switch to eager
    // building sees this list in the table, or this sees the switch.
    if (table->classificationListsEager())
        interned->classificationLists();
    return interned;
}

ExtCommList::PtrConst ExtCommList::intern(ExtCommDedupTable const* extTable,
                                          ExtCommListDedupTable const* table,
                                          std::span<U64 const> values) {
    return internSorted(table, extTable, ReceivedValues<U64, receivedOnStack>(values));
}

ExtCommList::PtrConst ExtCommList::internReceived(ExtCommDedupTable const* extTable,
                                                  ExtCommListDedupTable const* table,
                                                  U8 const* octets, std::size_t size) {
    return internSorted(table, extTable, ReceivedValues<U64, receivedOnStack>(octets, size));
}

ExtCommList::PtrConst ExtCommList::prune(ExtCommListDedupTable const* table) const {
    if (!hasPrunableValues())
        return PtrConst(this);
    KIV_ASSERT(isDeduped());
    Ptr pruned = extCommListFactory();
    for (ExtCommClassificationList::PtrConst const& list : classificationLists()) {
        if (list->hasPrunableValues())
            pruned->appendVector(list->prune());
        else
            pruned->appendVector(*list->commVectorRawPtr());
    }
    if (pruned->empty())
        return nullptr;
    return pruned->dedup(table);
}

U32 ExtCommList::hash() const {
    if (!isDeduped()) {
        // A private list hashes what it was split into, if anything; its
        // classification lists are not interned, which the mix refuses.
        ExtCommClassificationLists const* const split = built_.load(std::memory_order_acquire);
        return split == nullptr ? 0 : hashIdentities(*split);
    }
    return hashIdentities(classificationLists());
}

bool ExtCommList::compare(Vok::DedupHandle const* other) const {
    return commVector_ == static_cast<ExtCommList const*>(other)->commVector_;
}

U32 ExtCommList::stash(KivStash::StoreManager* storeManager) const {
    KIV_ASSERT(commVectorSorted());
    return stashCommListRecord<U64>(
        storeManager, commVector_, [](ExtComm::PtrConst const& comm) { return comm->community(); });
}

ExtCommList::Ptr ExtCommList::destash(void const* image, KivStash::StoreManager* storeManager,
                                      ExtCommDedupTable const* extCommTable) {
    return destashExtCommList<U64>(extCommListFactory(), image, storeManager, extCommTable);
}

}  // namespace Routing::Bgp
