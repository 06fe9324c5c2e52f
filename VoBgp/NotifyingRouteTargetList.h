// NotifyingRouteTargetList: the set of route targets that are currently
// interned, announcing every value that enters or leaves it.
//
// The extended community interning table adds a route target when one is
// interned and removes it when it leaves the table; route-target import and
// filtering code registers as a notifiee and learns of each change without
// rescanning. A notification carries the attribute id of `rt` and a pointer to
// the RouteTarget that changed; it does not say whether it was an insertion or
// a removal: the notifiee asks rtHas.
//
// Threads. Interning tables on several threads add and remove concurrently,
// so one recursive mutex guards the set, and it stays held while the
// notifiees run. That gives notifiees three guarantees that matter more than
// the short extra hold time: notifications arrive one at a time, in the order
// of the changes; rtHas inside a callback answers for exactly the change being
// announced; and a callback may call back into this list (rtHas, even
// rtIs/rtDel) on its own thread. The price is a lock order: a notifiee must
// not, inside its callback, wait for another thread that may itself be
// calling into this list.
#pragma once

#include <cstddef>
#include <mutex>
#include <unordered_set>

#include "Kiv/Ptr.h"
#include "Kiv/Types.h"
#include "Routing/Bgp/RouteTarget.h"
#include "Vok/DumpContext.h"

namespace Routing::Bgp {

class NotifyingRouteTargetList : public Kiv::PtrInterface {
  public:
    using Ptr = Kiv::Ptr<NotifyingRouteTargetList>;
    using PtrConst = Kiv::Ptr<NotifyingRouteTargetList const>;

    static constexpr char const* typeName = "Routing::Bgp::NotifyingRouteTargetList";
    // Attribute ids, in declaration order.
    static constexpr Kiv::AttributeId rtAttributeId = 0;

    static Ptr NotifyingRouteTargetListIs();

    // Inserts `rt`; notifies only when it was not there yet.
    void rtIs(RouteTarget const& rt);
    // Removes `rt`; notifies and returns true only when it was there.
    bool rtDel(RouteTarget const& rt);
    // Empties the set; with notifiees, member by member so that each removal
    // is announced.
    void rtDelAll();
    bool rtHas(RouteTarget const& rt) const;
    std::size_t rtCount() const;

    void dumpState(Vok::DumpContext const& dumpCtx, U32 indentCount) const;

  private:
    template <class T, class... Args>
    friend Kiv::Ptr<T> Kiv::makeActive(Args&&... args);
    NotifyingRouteTargetList() = default;

    struct RtHash {
        std::size_t operator()(RouteTarget const& rt) const {
            return rt.hash(Kiv::hashSeed ^ 0xA708F6F4u);
        }
    };

    mutable std::recursive_mutex mutex_;
    std::unordered_set<RouteTarget, RtHash> rt_;
};

NotifyingRouteTargetList::Ptr notifyingRouteTargetListFactory();

}  // namespace Routing::Bgp
