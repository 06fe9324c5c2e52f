#include <algorithm>
#include <array>

#include "VoBgp/VoBgpCommunityList.h"

namespace Routing::Bgp {

VOBGP_DENSE_SET_TEXT_DEFINITIONS(ExtCommList::CommVectorAttrs)
VOBGP_DENSE_SET_TEXT_DEFINITIONS(ExtCommList::Serialization)

namespace {

constexpr std::size_t classificationCount = extCommClassificationOneBeyondLast;

// What a list learns from its communities one by one while it is built.
struct CommunityNotes {
    U32 transitive = 0;
    bool policyMatchStrepUI = false;
    bool linkBandwidthWithUnspecifiedAsNumber = false;

    void note(ExtComm const& comm, bool forInterning) {
        if (forInterning) {
            transitive += comm.isTransitive() ? 1 : 0;
            policyMatchStrepUI |= comm.policyMatchStrepUI();
        }
        linkBandwidthWithUnspecifiedAsNumber |= comm.isLinkBandwidthWithUnspecifiedAsNumber();
    }
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

void ExtCommList::createClassificationListVector(bool dedupMode) {
    ExtCommVectorSort(commVector_);
    commVectorSortedIs(true);
    totalTransitiveCommunitiesIs(0);
    if (commVector_.empty()) {
        hasLinkBandwidthIs(false);
        hasLinkBandwidthWithUnspecifiedAsNumberIs(false);
        hasPolicyMatchStrepUICommunitiesIs(false);
        return;
    }
    // Members per classification first, so that each list is one block.
    std::array<U32, classificationCount> counts{};
    for (ExtComm::PtrConst const& comm : commVector_)
        if (comm->classification() < classificationCount)
            ++counts[comm->classification()];
    CommunityNotes notes;
    bool linkBandwidth = false;
    for (ExtComm::PtrConst const& comm : commVector_) {
        ExtCommClassification const classification = comm->classification();
        // The lists are this list's own private ones until they are
        // interned below, so changing them through the container is sound.
        auto* _classificationList =
            const_cast<ExtCommClassificationList*>(classificationLists_.lookup(classification));
        if (_classificationList != nullptr) {
            if (dedupMode)
                VOK_ASSERT_NEVER_DEDUPED(_classificationList);
        } else {
            ExtCommClassificationList::Ptr created =
                ExtCommClassificationList::ExtCommClassificationListIs(
                    classification,
                    classification < classificationCount ? counts[classification] : 0);
            linkBandwidth |= classification == extCommClassificationLinkBandwidth;
            if (!dedupMode)
                created->dedupStateNotToBeDedupedIs();
            // Members arrive in ascending order.
            created->commVectorSortedIs(true);
            classificationLists_.insert(created);
            _classificationList = created.ptr();
        }
        _classificationList->commIs(comm);
        _classificationList->checkPrunable(comm);
        notes.note(*comm, dedupMode);
    }
    totalTransitiveCommunitiesIs(notes.transitive);
    hasPolicyMatchStrepUICommunitiesIs(notes.policyMatchStrepUI);
    hasLinkBandwidthWithUnspecifiedAsNumberIs(notes.linkBandwidthWithUnspecifiedAsNumber);
    hasLinkBandwidthIs(linkBandwidth);
}

ExtCommList::PtrConst ExtCommList::dedup(ExtCommListDedupTable const* table) {
    KIV_ASSERT(table != nullptr, "table != __null");
    KIV_ASSERT(dedupState() == Vok::dedupHandleStateNeverDeduped(),
               "__null == ( this ) || ( this )->dedupState() == "
               "Vok::dedupHandleStateNeverDeduped()");
    if (PtrConst interned = dedupFromInterned(table))
        return interned;

    createClassificationListVector(true);
    bool prunable = false;
    bool linkBandwidth = false;
    bool originValidationState = false;
    for (auto it = classificationLists_.begin(); it != classificationLists_.end(); ++it) {
        auto* const _classificationList = const_cast<ExtCommClassificationList*>(it->ptr());
        prunable |= _classificationList->hasPrunableValues();
        linkBandwidth |=
            _classificationList->classification() == extCommClassificationLinkBandwidth;
        originValidationState |=
            _classificationList->classification() == extCommClassificationOriginValidationState;
        KIV_ASSERT(_classificationList->commVectorSorted());
        classificationLists_.replace(it, _classificationList->dedup(table));
    }
    hasPrunableValuesIs(hasPrunableValues() || prunable);
    hasLinkBandwidthIs(hasLinkBandwidth() || linkBandwidth);
    hasOriginValidationStateIs(hasOriginValidationState() || originValidationState);
    CommListDedupTableBase const* const base = table;
    return insertInto(base->dedupTable().ptr());
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

ExtCommList::PtrConst ExtCommList::dedupFromInterned(ExtCommListDedupTable const* table) {
    ExtCommVectorSort(commVector_);
    InternedClassificationLists<ExtCommClassificationList::PtrConst> parts;
    PtrConst existing;
    CommListDedupTableBase const* const base = table;
    bool const partsInterned = findInterned(
        base->dedupTable().ptr(),
        [table](ExtCommClassification classification) {
            return classification == extCommClassificationRouteTarget
                       ? table->rtExtCommClassificationListDedupTableRaw()
                       : table->extCommClassificationListDedupTableRaw();
        },
        parts, existing);
    if (!partsInterned)
        return nullptr;
    if (existing != nullptr)
        return existing;

    classificationLists_.assignSorted(parts.lists.data(), parts.present);
    CommunityNotes notes;
    for (ExtComm::PtrConst const& comm : commVector_)
        notes.note(*comm, true);
    CommVectorAttrs attrs;
    attrs.sortedIs(true);
    attrs.hasLinkBandwidthIs(parts.counts[extCommClassificationLinkBandwidth] != 0);
    attrs.hasLinkBandwidthWithUnspecifiedAsNumberIs(notes.linkBandwidthWithUnspecifiedAsNumber);
    attrs.hasOriginValidationStateIs(parts.counts[extCommClassificationOriginValidationState] != 0);
    attrs.hasPolicyMatchStrepUICommunitiesIs(notes.policyMatchStrepUI);
    attrs.hasPrunableValuesIs(
        std::any_of(parts.lists.begin(), parts.lists.begin() + parts.present,
                    [](auto const& list) { return list->hasPrunableValues(); }));
    commVectorAttrsIs(attrs);
    totalTransitiveCommunitiesIs(notes.transitive);
    return insertInto(base->dedupTable().ptr());
}

ExtCommList::PtrConst ExtCommList::prune(ExtCommListDedupTable const* table) const {
    if (!hasPrunableValues())
        return PtrConst(this);
    KIV_ASSERT(isDeduped());
    Ptr pruned = extCommListFactory();
    for (ExtCommClassificationList::PtrConst const& list : classificationLists_) {
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
    return hashIdentities(classificationLists_);
}

bool ExtCommList::compare(Vok::DedupHandle const* other) const {
    return classificationLists_ == static_cast<ExtCommList const*>(other)->classificationLists_;
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
