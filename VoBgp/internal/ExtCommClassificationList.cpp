#include <algorithm>
#include <ostream>
#include <sstream>

#include "VoBgp/VoBgpCommunityList.h"

namespace Routing::Bgp {

VOBGP_DENSE_SET_TEXT_DEFINITIONS(ExtCommClassificationList::CommVectorAttrs)

ExtCommClassificationList::Ptr ExtCommClassificationList::ExtCommClassificationListIs(
    ExtCommClassification classification, std::size_t capacity) {
    switch (classification) {
        case extCommClassificationRouteTarget:
            return createWithTail<RtExtCommClassificationList>(capacity, classification);
        case extCommClassificationLinkBandwidth:
            return createWithTail<LinkBandwidthExtCommClassificationList>(capacity);
        default:
            return createWithTail<ExtCommClassificationList>(capacity, classification);
    }
}

void ExtCommClassificationList::handleInit(ExtCommClassification classification) {
    KIV_ASSERT(userData() == 0);
    userDataIs(U32(classification) << classificationShift);
}

ExtCommClassificationList::CommVectorAttrs ExtCommClassificationList::commVectorAttrs() const {
    return denseSetFromOctet<CommVectorAttrs>((userData() & commVectorAttrsMask) >>
                                              commVectorAttrsShift);
}

void ExtCommClassificationList::commVectorSortedIs(bool sorted) {
    CommVectorAttrs attrs = commVectorAttrs();
    attrs.sortedIs(sorted);
    commVectorAttrsIs(attrs);
}

void ExtCommClassificationList::hasPrunableValuesIs(bool prunable) {
    CommVectorAttrs attrs = commVectorAttrs();
    attrs.hasPrunableValuesIs(prunable);
    commVectorAttrsIs(attrs);
}

ExtCommClassificationList::PtrConst ExtCommClassificationList::dedup(
    ExtCommListDedupTable const* table) {
    KIV_ASSERT(table != nullptr, "table != __null");
    ExtCommVectorSort(commVector_);
    commVectorSortedIs(true);
    return insertInto(table->classificationTable(classification()));
}

U32 ExtCommClassificationList::hash() const {
    KIV_ASSERT(commVectorSorted());
    return hashIdentities(commVector_);
}

bool ExtCommClassificationList::compare(Vok::DedupHandle const* other) const {
    KIV_ASSERT(commVectorSorted());
    CommVector const& theirs = static_cast<ExtCommClassificationList const*>(other)->commVector_;
    return theirs == commVector_;
}

void ExtCommClassificationList::checkPrunable(ExtComm::PtrConst const& comm) {
    if (!comm->isValid())
        hasPrunableValuesIs(true);
}

ExtCommClassificationList::CommVector ExtCommClassificationList::prune() const {
    CommVector valid;
    for (ExtComm::PtrConst const& comm : commVector_)
        if (comm->isValid())
            valid.push_back(comm);
    return valid;
}

Kiv::String ExtCommClassificationList::toStrep() const {
    std::ostringstream os;
    os << this;
    return Kiv::String(os.str());
}

std::ostream& operator<<(std::ostream& os, ExtCommClassificationList const* list) {
    return formatClassificationList(os, list);
}

std::ostream& operator<<(std::ostream& os, ExtCommClassificationList const& list) {
    return os << &list;
}

RtExtCommClassificationList::Ptr RtExtCommClassificationList::RtExtCommClassificationListIs(
    ExtCommClassification classification) {
    return Ptr(new RtExtCommClassificationList(classification));
}

RtExtCommClassificationList::~RtExtCommClassificationList() = default;

void RtExtCommClassificationList::lifeTimeNotifierIs(NotifierPtr const& notifier) const {
    lifeTimeNotifier_ = notifier;
}

void RtExtCommClassificationList::watched() const {
    if (Vok::DedupHashTable const* const table = dedupTable())
        if (void const* const owner = table->owner())
            static_cast<ExtCommListDedupTable const*>(owner)->classificationListsEagerIs();
}

RtExtCommListLifeTimeNotifier const* RtExtCommClassificationList::lifeTimeNotifier() const {
    watched();
    return lifeTimeNotifier_.ptr();
}

RtExtCommClassificationList::NotifierPtr RtExtCommClassificationList::getLifeTimeNotifier() const {
    watched();
    return lifeTimeNotifier_;
}

LinkBandwidthExtCommClassificationList::Ptr
LinkBandwidthExtCommClassificationList::LinkBandwidthExtCommClassificationListIs() {
    return Ptr(new LinkBandwidthExtCommClassificationList());
}

void LinkBandwidthExtCommClassificationList::checkPrunable(ExtComm::PtrConst const& comm) {
    if (!comm->isValid()) {
        hasPrunableValuesIs(true);
        return;
    }
    if (best_ == nullptr || comm->isBetterThan(best_))
        best_ = comm;
    if (comms() >= 2)
        hasPrunableValuesIs(true);
}

ExtCommClassificationList::CommVector LinkBandwidthExtCommClassificationList::prune() const {
    CommVector best;
    if (best_ != nullptr)
        best.push_back(best_);
    return best;
}

void ExtCommClassificationLists::insert(Element const& classificationList) {
    KIV_ASSERT(classificationList != nullptr);
    ExtCommClassification const classification = classificationList->classification();
    U32 existing = 0;
    for (; existing < size(); ++existing) {
        ExtCommClassification const existingElementClassification =
            lists_[existing]->classification();
        KIV_ASSERT(existingElementClassification != classification);
        if (existingElementClassification > classification)
            break;
    }
    // One more place, exactly: a tail has its room already.
    U32 const count = size();
    lists_.reserve(count + 1);
    lists_.push_back(classificationList);
    // Behind the new list every existing one moves up by exactly one place:
    // the new list goes in once.
    for (U32 from = count; from-- > existing;) {
        U32 const out = from + 1;
        U32 const insertOffsetExistingElements = out - from - 1;
        KIV_ASSERT(insertOffsetExistingElements == 0);
        std::swap(lists_[out], lists_[from]);
    }
}

void ExtCommClassificationLists::replace(Iterator const& iter, Element&& classificationList) {
    KIV_ASSERT(classificationList != nullptr);
    KIV_ASSERT(iter != cend());
    KIV_ASSERT((*iter)->classification() == classificationList->classification(),
               "( *iter )->classification() == classificationList->classification()");
    lists_[static_cast<std::size_t>(iter - begin())] = std::move(classificationList);
}

ExtCommClassificationList const* ExtCommClassificationLists::lookup(
    ExtCommClassification classification) const {
    for (Element const& list : *this)
        if (list->classification() == classification)
            return list.ptr();
    return nullptr;
}

ExtCommClassificationLists* ExtCommClassificationLists::created(Element const* lists, U32 count) {
    auto* const raw =
        ::new (tailBlock<ExtCommClassificationLists, Element>(count)) ExtCommClassificationLists;
    raw->lists_.tailIs(tailOf<Element>(raw), count);
    for (U32 i = 0; i < count; ++i) {
        KIV_ASSERT(i == 0 || lists[i - 1]->classification() < lists[i]->classification());
        raw->lists_.push_back(lists[i]);
    }
    return raw;
}

bool operator==(ExtCommClassificationLists const& lhs, ExtCommClassificationLists const& rhs) {
    if (lhs.size() != rhs.size())
        return false;
    auto rhsIter = rhs.begin();
    auto const rhsEnd = rhs.end();
    for (auto const& list : lhs) {
        KIV_ASSERT(rhsIter != rhsEnd);
        if (list != *rhsIter)
            return false;
        ++rhsIter;
    }
    KIV_ASSERT(rhsIter == rhsEnd);
    return true;
}

}  // namespace Routing::Bgp
