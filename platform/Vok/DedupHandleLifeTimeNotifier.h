// Vok::DedupHandleLifeTimeNotifier: an observable stand-in for one interned
// handle, watching it exactly as long as the handle is in its table.
//
// A table's lifetime notifiee creates one when a handle of interest enters
// the table (handleInsert) and drops it when the handle leaves
// (handleRemove); other code keeps notifiers in collections and watches
// those. The notifier points at its handle without counting it: the handle
// owns the notifier (through the table's notifiee), and a counted reference
// back would keep the handle in its table for ever.
//
// A notifier is counted, so a watcher on another thread may still hold one
// when its handle leaves the table and is freed. The notifiee therefore calls
// dedupHandleDel before the handle goes: from then on the notifier answers
// null. withDedupHandle lends the handle under the notifier's lock, which
// dedupHandleDel waits for, so a handle lent out is never freed under the
// borrower.
#pragma once

#include <mutex>

#include "Kiv/Ptr.h"
#include "Vok/DedupHandle.h"

namespace Vok {

class DedupHandleLifeTimeNotifier : public Kiv::PtrInterface {
  public:
    using Ptr = Kiv::Ptr<DedupHandleLifeTimeNotifier>;
    using PtrConst = Kiv::Ptr<DedupHandleLifeTimeNotifier const>;

    explicit DedupHandleLifeTimeNotifier(DedupHandle::PtrConst const& handle)
        : handle_(handle.ptr()) {}

    // The handle watched, null once it has left its table. Safe to follow
    // only where the handle cannot leave meanwhile (inside the table's
    // notifiee and the observers it calls); elsewhere use withDedupHandle.
    DedupHandle const* dedupHandle() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return handle_;
    }
    // Returns visit(handle), the handle (or null) kept in place meanwhile.
    // `visit` must not intern nor drop a last reference: the handle's
    // removal may hold table locks while it waits here.
    template <class Visit>
    decltype(auto) withDedupHandle(Visit&& visit) const {
        std::lock_guard<std::mutex> lock(mutex_);
        return visit(handle_);
    }
    // The handle is leaving its table: forget it, once no one borrows it.
    void dedupHandleDel() {
        std::lock_guard<std::mutex> lock(mutex_);
        handle_ = nullptr;
    }

  private:
    mutable std::mutex mutex_;
    DedupHandle const* handle_;
};

}  // namespace Vok
