#include "VoBgp/ExtCommIp6ListDedupTable.h"

#include "VoBgp/VoBgpGlobals.h"

namespace Routing::Bgp {

ExtCommIp6ListDedupTable::Ptr ExtCommIp6ListDedupTable::ExtCommIp6ListDedupTableIs() {
    return Kiv::makeActive<ExtCommIp6ListDedupTable>();
}

void ExtCommIp6ListDedupTable::handleInitialized() {
    extCommIp6ClassificationListDedupTable_ =
        Vok::DedupHashTableUnorderedSet::create(VoBgpGlobals::multiThreaded());
}

void ExtCommIp6ListDedupTable::split(Vok::DedupHandle const* list) {
    Vok::fromDedupHandle<ExtCommIp6List>(list)->classificationLists();
}

ExtCommIp6List::PtrConst ExtCommIp6ListDedupTable::dedup(ExtCommIp6List* list) const {
    KIV_ASSERT(list != nullptr, "list != __null");
    return list->dedup(this);
}

void ExtCommIp6ListDedupTable::dumpEntry(Vok::DumpContext const& dumpCtx, U32 indentCount,
                                         Vok::DedupHandle const* handle) const {
    dumpListEntry(dumpCtx, indentCount, "ExtCommIp6List",
                  Vok::fromDedupHandle<ExtCommIp6List>(handle));
}

void ExtCommIp6ListDedupTable::dumpState(Vok::DumpContext const& dumpCtx, U32 indentCount) const {
    classificationListsEagerIs();
    dumpCtx.print("%*sExtCommIp6ListDedupTable\n", static_cast<int>(indentCount), "");
    CommListDedupTableBase::dumpState(dumpCtx, indentCount + 2);
    dumpCtx.print("%*sextCommIp6Classification:\n", static_cast<int>(indentCount + 2), "");
    extCommIp6ClassificationListDedupTable_->dumpState(dumpCtx, indentCount + 4);
    extCommIp6ClassificationListDedupTable_->forEach([&](Vok::DedupHandle const* handle) {
        dumpListEntry(dumpCtx, indentCount + 4, "ExtCommIp6ClassificationList",
                      Vok::fromDedupHandle<ExtCommIp6ClassificationList>(handle));
    });
}

}  // namespace Routing::Bgp
