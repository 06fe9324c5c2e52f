#include "VoBgp/NotifyingRouteTargetList.h"

namespace Routing::Bgp {

using Lock = std::lock_guard<std::recursive_mutex>;

NotifyingRouteTargetList::Ptr notifyingRouteTargetListFactory() {
    return Kiv::makeActive<NotifyingRouteTargetList>();
}

NotifyingRouteTargetList::Ptr NotifyingRouteTargetList::NotifyingRouteTargetListIs() {
    return notifyingRouteTargetListFactory();
}

void NotifyingRouteTargetList::rtIs(RouteTarget const& rt) {
    Lock lock(mutex_);
    if (rt_.insert(rt).second)
        notify(rtAttributeId, &rt);
}

bool NotifyingRouteTargetList::rtDel(RouteTarget const& rt) {
    Lock lock(mutex_);
    // Copy the key first: `rt` may refer to the very member being erased.
    RouteTarget const key = rt;
    if (rt_.erase(key) == 0)
        return false;
    notify(rtAttributeId, &key);
    return true;
}

void NotifyingRouteTargetList::rtDelAll() {
    Lock lock(mutex_);
    if (notifieeList().empty()) {
        rt_.clear();
        return;
    }
    // Take the first member again after every removal: a notifiee may have
    // changed the set from inside its callback.
    while (!rt_.empty())
        rtDel(*rt_.begin());
}

bool NotifyingRouteTargetList::rtHas(RouteTarget const& rt) const {
    Lock lock(mutex_);
    return rt_.contains(rt);
}

std::size_t NotifyingRouteTargetList::rtCount() const {
    Lock lock(mutex_);
    return rt_.size();
}

void NotifyingRouteTargetList::dumpState(Vok::DumpContext const& dumpCtx, U32 indentCount) const {
    Lock lock(mutex_);
    auto const count = static_cast<unsigned>(rt_.size());
    if (indentCount == 0)
        dumpCtx.print("NotifyingRouteTargetList #%u:\n", count);
    else
        dumpCtx.print("%*cNotifyingRouteTargetList #%u:\n", static_cast<int>(indentCount), ' ',
                      count);
    U32 const memberIndent = indentCount + 2;
    char text[RouteTarget::strepSizeMax + 1];
    for (RouteTarget const& rt : rt_) {
        rt.toStrep(text, false);
        if (memberIndent == 0)
            dumpCtx.print("%s\n", text);
        else
            dumpCtx.print("%*c%s\n", static_cast<int>(memberIndent), ' ', text);
    }
}

}  // namespace Routing::Bgp
