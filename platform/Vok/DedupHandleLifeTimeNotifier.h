// Vok::DedupHandleLifeTimeNotifier: an observable stand-in for one interned
// handle, living exactly as long as the handle is in its table.
//
// A table's lifetime notifiee creates one when a handle of interest enters
// the table (handleInsert) and drops it when the handle leaves
// (handleRemove); other code keeps notifiers in collections and watches
// those. The notifier points at its handle without counting it: the handle
// owns the notifier (through the table's notifiee), and a counted reference
// back would keep the handle in its table for ever.
#pragma once

#include "Kiv/Ptr.h"
#include "Vok/DedupHandle.h"

namespace Vok {

class DedupHandleLifeTimeNotifier : public Kiv::PtrInterface {
  public:
    using Ptr = Kiv::Ptr<DedupHandleLifeTimeNotifier>;
    using PtrConst = Kiv::Ptr<DedupHandleLifeTimeNotifier const>;

    explicit DedupHandleLifeTimeNotifier(DedupHandle::PtrConst const& handle)
        : handle_(handle.ptr()) {}

    // The interned handle watched; valid while the notifier is in use (until
    // the table's handleRemove for it has run).
    DedupHandle const* dedupHandle() const { return handle_; }

  private:
    DedupHandle const* handle_;
};

}  // namespace Vok
