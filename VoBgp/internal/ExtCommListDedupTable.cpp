#include <ostream>
#include <sstream>

#include "VoBgp/VoBgpCommunityList.h"
#include "VoBgp/VoBgpGlobals.h"

namespace Routing::Bgp {

namespace {

using Lock = std::lock_guard<std::recursive_mutex>;

// A dump line `depth` blanks below `indentCount`; at indent 0 every line of
// a dump is written plain.
void dumpLine(Vok::DumpContext const& dumpCtx, U32 indentCount, U32 depth, char const* text) {
    if (indentCount == 0)
        dumpCtx.print("%s\n", text);
    else
        dumpCtx.print("%*c%s\n", static_cast<int>(indentCount + depth), ' ', text);
}

}  // namespace

ExtComm::PtrConst RtExtCommListLifeTimeNotifier::comm(U64 community) const {
    return withDedupHandle([&](Vok::DedupHandle const* handle) -> ExtComm::PtrConst {
        if (handle == nullptr)
            return nullptr;
        return static_cast<RtExtCommClassificationList const*>(handle)->comm(community);
    });
}

Kiv::String RtExtCommListLifeTimeNotifier::toStrep() const {
    std::ostringstream os;
    os << this;
    return Kiv::String(os.str());
}

std::ostream& operator<<(std::ostream& os, RtExtCommListLifeTimeNotifier const* notifier) {
    if (notifier == nullptr)
        return os << "NULL";
    // Printed under the notifier's lock: the list cannot go meanwhile.
    return notifier->withDedupHandle([&](Vok::DedupHandle const* handle) -> std::ostream& {
        if (handle == nullptr)
            return os << "NULL";
        return os << static_cast<ExtCommClassificationList const*>(
                   static_cast<RtExtCommClassificationList const*>(handle));
    });
}

NotifyingRtExtCommListCollection::Ptr
NotifyingRtExtCommListCollection::NotifyingRtExtCommListCollectionIs() {
    return Kiv::makeActive<NotifyingRtExtCommListCollection>();
}

void NotifyingRtExtCommListCollection::rtExtCommListIs(Member const& lifeTimeNotifier) {
    KIV_ASSERT(lifeTimeNotifier != nullptr, "__null != lifeTimeNotifier");
    Lock lock(mutex_);
    if (rtExtCommList_.insert(lifeTimeNotifier.ptr())) {
        RtExtCommListLifeTimeNotifier const* const key = lifeTimeNotifier.ptr();
        notifyChange(rtExtCommListAttributeId, Kiv::CollectionChange::insert, key);
    }
}

bool NotifyingRtExtCommListCollection::rtExtCommListDel(
    RtExtCommListLifeTimeNotifier const* notifier) {
    Lock lock(mutex_);
    // Released only after the observers have seen it go.
    Member const member = rtExtCommList_.take(notifier);
    if (member == nullptr)
        return false;
    RtExtCommListLifeTimeNotifier const* const key = member.ptr();
    notifyChange(rtExtCommListAttributeId, Kiv::CollectionChange::erase, key);
    return true;
}

void NotifyingRtExtCommListCollection::rtExtCommListDelAll() {
    Lock lock(mutex_);
    // Members an observer adds meanwhile go too.
    while (!rtExtCommList_.empty())
        for (Member const& member : rtExtCommListMembers())
            rtExtCommListDel(member.ptr());
}

bool NotifyingRtExtCommListCollection::rtExtCommListHas(
    RtExtCommListLifeTimeNotifier const* notifier) const {
    Lock lock(mutex_);
    return rtExtCommList_.contains(notifier);
}

std::size_t NotifyingRtExtCommListCollection::rtExtCommLists() const {
    Lock lock(mutex_);
    return rtExtCommList_.size();
}

std::vector<NotifyingRtExtCommListCollection::Member>
NotifyingRtExtCommListCollection::rtExtCommListMembers() const {
    Lock lock(mutex_);
    std::vector<Member> members;
    members.reserve(rtExtCommList_.size());
    rtExtCommList_.forEach(
        [&](RtExtCommListLifeTimeNotifier const* notifier) { members.emplace_back(notifier); });
    return members;
}

void NotifyingRtExtCommListCollection::dumpState(Vok::DumpContext const& dumpCtx,
                                                 U32 indentCount) const {
    Lock lock(mutex_);
    auto const count = static_cast<unsigned>(rtExtCommList_.size());
    if (indentCount == 0)
        dumpCtx.print("NotifyingRtExtCommListCollection rtExtCommLists #%u;\n", count);
    else
        dumpCtx.print("%*cNotifyingRtExtCommListCollection rtExtCommLists #%u;\n",
                      static_cast<int>(indentCount), ' ', count);
    rtExtCommList_.forEach([&](RtExtCommListLifeTimeNotifier const* notifier) {
        Kiv::String const text = notifier->toStrep();
        if (indentCount == 0)
            dumpCtx.print("rtExtCommList %s\n", text.c_str());
        else
            dumpCtx.print("%*crtExtCommList %s\n", static_cast<int>(indentCount + 2), ' ',
                          text.c_str());
    });
}

RtExtCommListLifeTimeNotifiee::Ptr RtExtCommListLifeTimeNotifiee::RtExtCommListLifeTimeNotifieeIs(
    NotifyingRtExtCommListCollection::Ptr const& collection) {
    return Kiv::makeActive<RtExtCommListLifeTimeNotifiee>(collection);
}

void RtExtCommListLifeTimeNotifiee::handleInsert(Vok::DedupHandle const* handle) {
    auto const* rtExtCommList = static_cast<RtExtCommClassificationList const*>(handle);
    KIV_ASSERT(nullptr == rtExtCommList->notifierRaw(),
               "__null == rtExtCommList->lifeTimeNotifier()");
    RtExtCommListLifeTimeNotifier::Ptr const notifier(
        new RtExtCommListLifeTimeNotifier(Vok::DedupHandle::PtrConst(handle)));
    notifier->hasNotificationActiveIs(true);
    rtExtCommList->lifeTimeNotifierIs(notifier);
    collection_->rtExtCommListIs(notifier);
}

void RtExtCommListLifeTimeNotifiee::handleRemove(Vok::DedupHandle const* handle) {
    // No counted reference to `handle` here: its last one is being dropped.
    auto const* rtExtCommList = static_cast<RtExtCommClassificationList const*>(handle);
    // The list's own reference keeps the notifier until it is taken below:
    // no counted copy (two atomic operations on every such release).
    RtExtCommListLifeTimeNotifier const* const lifeTimeNotifier = rtExtCommList->notifierRaw();
    if (lifeTimeNotifier == nullptr)
        return;
    // The observers see the list go while it is still whole and names its
    // notifier; then holders of the notifier elsewhere must stop reaching it
    // before it is freed.
    collection_->rtExtCommListDel(lifeTimeNotifier);
    RtExtCommListLifeTimeNotifier::Ptr const taken = rtExtCommList->lifeTimeNotifierTake();
    taken->dedupHandleDel();
}

void RtExtCommListLifeTimeNotifiee::handleNotificationStop(Vok::DedupHashTable const*) {
    // No handleRemove will follow for these lists: forget them now.
    for (auto const& member : collection_->rtExtCommListMembers()) {
        collection_->rtExtCommListDel(member.ptr());
        auto const* rtExtCommList = member->rtExtCommListRawPtr();
        if (rtExtCommList == nullptr)
            continue;
        RtExtCommListLifeTimeNotifier::Ptr const lifeTimeNotifier =
            rtExtCommList->lifeTimeNotifierTake();
        if (lifeTimeNotifier != nullptr)
            lifeTimeNotifier->dedupHandleDel();
    }
}

ExtCommListDedupTable::Ptr ExtCommListDedupTable::ExtCommListDedupTableIs() {
    return Kiv::makeActive<ExtCommListDedupTable>();
}

void ExtCommListDedupTable::handleInitialized() {
    bool const multiThreaded = VoBgpGlobals::multiThreaded();
    extCommClassificationListDedupTable_ = Vok::DedupHashTableUnorderedSet::create(multiThreaded);
    rtExtCommClassificationListDedupTable_ = Vok::DedupHashTableUnorderedSet::create(multiThreaded);
    // Set up directly: building the set is not watching it.
    notifyingRtExtCommListCollection_ = notifyingRtExtCommListCollectionFactory();
    rtExtCommListLifeTimeNotifiee_ =
        rtExtCommListLifeTimeNotifieeFactory(notifyingRtExtCommListCollection_);
    rtExtCommClassificationListDedupTable_->lifeTimeNotifieeIs(rtExtCommListLifeTimeNotifiee_);
    // A route-target list reaches this set from itself (its notifier's
    // accessors switch to eager building).
    rtExtCommClassificationListDedupTable_->ownerIs(
        static_cast<ExtCommListDedupTable const*>(this));
}

void ExtCommListDedupTable::split(Vok::DedupHandle const* list) {
    Vok::fromDedupHandle<ExtCommList>(list)->classificationLists();
}

void ExtCommListDedupTable::notifyingRtExtCommListCollectionIs() {
    classificationListsEagerIs();
    notifyingRtExtCommListCollection_ = notifyingRtExtCommListCollectionFactory();
}

void ExtCommListDedupTable::rtExtCommListLifeTimeNotifieeIs(
    NotifyingRtExtCommListCollection::Ptr const& collection) {
    classificationListsEagerIs();
    rtExtCommListLifeTimeNotifiee_ = rtExtCommListLifeTimeNotifieeFactory(collection);
    rtExtCommClassificationListDedupTable_->lifeTimeNotifieeIs(rtExtCommListLifeTimeNotifiee_);
}

void ExtCommListDedupTable::rtExtCommListLifeTimeNotifieeDel() {
    classificationListsEagerIs();
    rtExtCommClassificationListDedupTable_->lifeTimeNotifieeIs(nullptr);
    rtExtCommListLifeTimeNotifiee_ = nullptr;
}

ExtCommList::PtrConst ExtCommListDedupTable::dedup(ExtCommList* list) const {
    KIV_ASSERT(list != nullptr, "list != __null");
    return list->dedup(this);
}

void ExtCommListDedupTable::dumpEntry(Vok::DumpContext const& dumpCtx, U32 indentCount,
                                      Vok::DedupHandle const* handle) const {
    dumpListEntry(dumpCtx, indentCount, "ExtCommList", Vok::fromDedupHandle<ExtCommList>(handle));
}

void ExtCommListDedupTable::dumpState(Vok::DumpContext const& dumpCtx, U32 indentCount) const {
    classificationListsEagerIs();
    U32 const tableIndent = indentCount == 0 ? 0 : indentCount + 4;
    dumpLine(dumpCtx, indentCount, 0, "ExtCommListDedupTable");
    dumpLine(dumpCtx, indentCount, 2, "extComm");
    dedupTable()->dumpState(dumpCtx, tableIndent);
    dedupTable()->forEach(
        [&](Vok::DedupHandle const* handle) { dumpEntry(dumpCtx, tableIndent, handle); });
    auto dumpClassificationTable = [&](char const* label, Vok::DedupHashTable const& table) {
        dumpLine(dumpCtx, indentCount, 2, label);
        table.dumpState(dumpCtx, tableIndent);
        table.forEach([&](Vok::DedupHandle const* handle) {
            dumpListEntry(dumpCtx, tableIndent, "ExtCommClassificationList",
                          Vok::fromDedupHandle<ExtCommClassificationList>(handle));
        });
    };
    dumpClassificationTable("extCommClassification", *extCommClassificationListDedupTable_);
    dumpClassificationTable("rtExtCommClassification", *rtExtCommClassificationListDedupTable_);
}

}  // namespace Routing::Bgp
