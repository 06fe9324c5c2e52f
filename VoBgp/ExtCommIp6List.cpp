#include "VoBgp/ExtCommIp6List.h"

#include <array>
#include <ostream>
#include <sstream>

#include "VoBgp/ExtCommIp6ListDedupTable.h"

namespace Routing::Bgp {

ExtCommIp6ClassificationList* ExtCommIp6ListFindOrCreateClassificationList(
    ExtCommIp6ClassificationListVector& vector, ExtCommClassification classification,
    std::size_t capacity) {
    std::size_t const slot = classification;
    if (slot < vector.size() && vector[slot] != nullptr) {
        // The slot holds the list being built, still private to its list.
        auto* const _classificationList =
            const_cast<ExtCommIp6ClassificationList*>(vector[slot].ptr());
        VOK_ASSERT_NEVER_DEDUPED(_classificationList);
        return _classificationList;
    }
    ExtCommIp6ClassificationList::Ptr created =
        extCommIp6ClassificationListFactory(classification, capacity);
    // dedup hands the members over in ascending order.
    created->commVectorSortedIs(true);
    ExtCommIp6ListClassificationListIs(vector, created);
    return created.ptr();
}

void ExtCommIp6ListClassificationListIs(ExtCommIp6ClassificationListVector& vector,
                                        ExtCommIp6ClassificationList::PtrConst const& list) {
    KIV_ASSERT(list != nullptr, "__null != list");
    std::size_t const slot = list->classification();
    if (vector.size() <= slot)
        vector.resize(slot + 1);
    vector[slot] = list;
}

U32 ExtCommIp6List::totalCommunities() const {
    KIV_ASSERT(commVectorSorted());
    return comms();
}

ExtCommIp6ClassificationList const* ExtCommIp6List::classificationList(
    ExtCommClassification classification) const {
    KIV_ASSERT(dedupState() != Vok::dedupHandleStateNeverDeduped(),
               "__null == ( this ) || ( this )->dedupState() != "
               "Vok::dedupHandleStateNeverDeduped()");
    std::size_t const slot = classification;
    return slot < classificationLists_.size() ? classificationLists_[slot].ptr() : nullptr;
}

Kiv::String ExtCommIp6List::serialize(bool sendNonTransExtComms) const {
    U32 const count = serializedCommunities(sendNonTransExtComms);
    if (count == 0)
        return Kiv::String("");
    // RFC 5701 section 2: type, subtype, global administrator, local
    // administrator; 20 octets each.
    SerializePathAttribute out(extCommunityIp6, optionalTransitive, count * 20);
    for (ExtCommIp6::PtrConst const& comm : commVector_) {
        if (!sendNonTransExtComms && !comm->isTransitive())
            continue;
        ExtCommIp6Content const& content = comm->getContent();
        out.addU8(content.type);
        out.addU8(content.subtype);
        out.addOctets(content.addr.octets().data(), 16);
        out.addU16hton(content.localAdmin);
    }
    return out.serializedString();
}

Kiv::String ExtCommIp6List::commsStringForm() const {
    ExtCommIp6::StrepFormat format;
    format.strepFormatClassificationIs(true);
    VoFmt::StackBackedBuffer<256, 1 << 20> buffer;
    for (ExtCommIp6::PtrConst const& comm : commVector_) {
        comm->formatPolicy(buffer, format);
        buffer.append(' ');
    }
    return buffer.kivString();
}

ExtCommIp6List::PtrConst ExtCommIp6List::dedup(ExtCommIp6ListDedupTable const* table) {
    KIV_ASSERT(table != nullptr, "table != __null");
    KIV_ASSERT(dedupState() == Vok::dedupHandleStateNeverDeduped(),
               "__null == ( this ) || ( this )->dedupState() == "
               "Vok::dedupHandleStateNeverDeduped()");
    ExtCommVectorSort(commVector_);
    commVectorSortedIs(true);
    // When its classification lists are interned already, nothing is built.
    CommListDedupTableBase const* const base = table;
    InternedClassificationLists<ExtCommIp6ClassificationList::PtrConst> parts;
    PtrConst existing;
    bool const partsInterned = findInterned(
        base->dedupTable().ptr(),
        [table](ExtCommClassification) {
            return table->extCommIp6ClassificationListDedupTable().ptr();
        },
        parts, existing);
    if (existing != nullptr)
        return existing;
    U32 transitive = 0;
    for (ExtCommIp6::PtrConst const& comm : commVector_)
        transitive += comm->isTransitive() ? 1 : 0;
    totalTransitiveCommunitiesIs(transitive);
    if (partsInterned) {
        for (U32 i = 0; i < parts.present; ++i)
            ExtCommIp6ListClassificationListIs(classificationLists_, parts.lists[i]);
        return insertInto(base->dedupTable().ptr());
    }

    // Members per classification first, so that each list is one block.
    std::array<U32, 256> counts{};
    for (ExtCommIp6::PtrConst const& comm : commVector_)
        ++counts[comm->classification()];
    for (ExtCommIp6::PtrConst const& comm : commVector_) {
        ExtCommClassification const classification = comm->classification();
        ExtCommIp6ListFindOrCreateClassificationList(classificationLists_, classification,
                                                     counts[classification])
            ->commIs(comm);
    }
    for (std::size_t slot = 0; slot < classificationLists_.size(); ++slot) {
        if (classificationLists_[slot] == nullptr)
            continue;
        // Still this list's own private one, until the line below.
        auto* const _classificationList =
            const_cast<ExtCommIp6ClassificationList*>(classificationLists_[slot].ptr());
        KIV_ASSERT(_classificationList->commVectorSorted());
        ExtCommIp6ListClassificationListIs(classificationLists_, _classificationList->dedup(table));
    }
    return insertInto(base->dedupTable().ptr());
}

ExtCommIp6List::PtrConst ExtCommIp6List::intern(ExtCommIp6DedupTable const* ip6Table,
                                                ExtCommIp6ListDedupTable const* table,
                                                std::span<ExtCommIp6Content const> values) {
    return internSorted(table, ip6Table,
                        ReceivedValues<ExtCommIp6Content, receivedOnStack>(values));
}

ExtCommIp6List::PtrConst ExtCommIp6List::internReceived(ExtCommIp6DedupTable const* ip6Table,
                                                        ExtCommIp6ListDedupTable const* table,
                                                        U8 const* octets, std::size_t size) {
    return internSorted(table, ip6Table,
                        ReceivedValues<ExtCommIp6Content, receivedOnStack>(octets, size));
}

U32 ExtCommIp6List::hash() const {
    return hashIdentities(classificationLists_);
}

bool ExtCommIp6List::compare(Vok::DedupHandle::RawPtrConst other) const {
    return classificationLists_ == static_cast<ExtCommIp6List const*>(other)->classificationLists_;
}

Kiv::Ptr<ExtCommIp6ListSnapshot> ExtCommIp6List::commSnapshot() const {
    Kiv::Ptr<ExtCommIp6ListSnapshot> snapshot(new ExtCommIp6ListSnapshot);
    snapshot->fill(classificationLists_, commVector_);
    return snapshot;
}

Kiv::String ExtCommIp6List::toStrep() const {
    std::ostringstream os;
    formatCommList(os, this);
    return Kiv::String(os.str());
}

std::ostream& operator<<(std::ostream& os, ExtCommIp6List const* list) {
    return formatCommList(os, list);
}

std::ostream& operator<<(std::ostream& os, ExtCommIp6List const& list) {
    return formatCommList(os, &list);
}

U32 ExtCommIp6List::stash(KivStash::StoreManager* storeManager) const {
    KIV_ASSERT(commVectorSorted());
    return stashCommListRecord<ExtCommIp6Content>(
        storeManager, commVector_,
        [](ExtCommIp6::PtrConst const& comm) -> ExtCommIp6Content const& {
            return comm->getContent();
        });
}

ExtCommIp6List::Ptr ExtCommIp6List::destash(void const* image, KivStash::StoreManager* storeManager,
                                            ExtCommIp6DedupTable const* extCommIp6Table) {
    return destashExtCommList<ExtCommIp6Content>(extCommIp6ListFactory(), image, storeManager,
                                                 extCommIp6Table);
}

}  // namespace Routing::Bgp
