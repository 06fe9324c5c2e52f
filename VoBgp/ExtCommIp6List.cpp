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
    ExtCommIp6ClassificationListVector const& lists = classificationLists();
    return slot < lists.size() ? lists[slot].ptr() : nullptr;
}

ExtCommIp6ClassificationListVector const& ExtCommIp6List::classificationListsFirst() const {
    static ExtCommIp6ClassificationListVector const none;
    if (!isDeduped())
        return none;
    return publishClassificationListsOnce(
               built_, classificationListsOf(tableSetOf<ExtCommIp6ListDedupTable>(*this)))
        .lists;
}

ExtCommIp6List::Split* ExtCommIp6List::classificationListsOf(
    ExtCommIp6ListDedupTable const* table) const {
    KIV_ASSERT(commVectorSorted());
    std::array<U32, 256> counts{};
    std::size_t slots = 0;
    for (ExtCommIp6::PtrConst const& comm : commVector_) {
        std::size_t const classification = comm->classification();
        ++counts[classification];
        slots = std::max(slots, classification + 1);
    }
    using Element = ExtCommIp6ClassificationList::PtrConst;
    auto* const split = ::new (tailBlock<Split, Element>(slots)) Split;
    split->lists.tailIs(tailOf<Element>(split), slots);
    split->lists.resize(slots);
    for (std::size_t c = 0; c < slots; ++c) {
        if (counts[c] == 0)
            continue;
        auto const classification = static_cast<ExtCommClassification>(c);
        if (table != nullptr) {
            if (Element found = findClassificationList<ExtCommIp6ClassificationList>(
                    table->classificationTable(), classification, counts[c])) {
                split->lists[c] = std::move(found);
                continue;
            }
        }
        ExtCommIp6ClassificationList::Ptr part =
            extCommIp6ClassificationListFactory(classification, counts[c]);
        // Members arrive in ascending order.
        part->commVectorSortedIs(true);
        for (ExtCommIp6::PtrConst const& comm : commVector_)
            if (comm->classification() == classification)
                part->commIs(comm);
        if (table == nullptr) {
            part->dedupStateNotToBeDedupedIs();
            split->lists[c] = std::move(part);
        } else {
            split->lists[c] = part->dedup(table);
        }
    }
    return split;
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
    U32 transitive = 0;
    for (ExtCommIp6::PtrConst const& comm : commVector_)
        transitive += comm->isTransitive() ? 1 : 0;
    totalTransitiveCommunitiesIs(transitive);
    CommListDedupTableBase const* const base = table;
    PtrConst interned = insertInto(base->dedupTable().ptr());
    // Checked after the insert (see ClassificationListsEagerSwitch).
    if (table->classificationListsEager())
        interned->classificationLists();
    return interned;
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
    return hashIdentities(classificationLists());
}

bool ExtCommIp6List::compare(Vok::DedupHandle::RawPtrConst other) const {
    return commVector_ == static_cast<ExtCommIp6List const*>(other)->commVector_;
}

Kiv::Ptr<ExtCommIp6ListSnapshot> ExtCommIp6List::commSnapshot() const {
    Kiv::Ptr<ExtCommIp6ListSnapshot> snapshot(new ExtCommIp6ListSnapshot);
    snapshot->fill(classificationLists(), commVector_);
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
