// Vok::DedupHandleLifeTimeNotifier: a counted stand-in for one interned
// handle, watching it exactly as long as the handle is in its table.
//
// A table's lifetime notifiee creates one when a handle of interest enters
// the table (handleInsert) and drops it when the handle leaves
// (handleRemove); other code keeps notifiers in collections and watches
// those; the notifiee switches a new notifier's notification on once it is
// set up (hasNotificationActiveIs), the one state a watcher may ask of it.
// The notifier points at its handle without counting it: the handle
// owns the notifier (through the table's notifiee), and a counted reference
// back would keep the handle in its table for ever.
//
// A notifier is counted, so a watcher on another thread may still hold one
// when its handle leaves the table and is freed. The notifiee therefore calls
// dedupHandleDel before the handle goes: from then on the notifier answers
// null. withDedupHandle lends the handle under the notifier's lock, which
// dedupHandleDel waits for, so a handle lent out is never freed under the
// borrower.
//
// There is one notifier per interned handle of interest (tens of thousands
// in a full table), so it holds only its count and the handle pointer. It is
// watched through the collections that hold it, never by itself, so it is no
// Kiv::PtrInterface (whose list of observers would double its size). Nor is
// the lock in the notifier: notifiers share a small process-wide array of
// mutexes, picked by address. Sharing is safe because these locks are
// leaves: nothing else is locked while one is held (dedupHandle and
// dedupHandleDel only load or store the pointer, and a visit must neither
// intern, nor drop a last reference, nor reach another notifier's handle),
// so two notifiers on one mutex only ever wait for each other, never
// deadlock.
#pragma once

#include <atomic>
#include <mutex>

#include "Kiv/Ptr.h"
#include "Vok/DedupHandle.h"

namespace Vok {

class DedupHandleLifeTimeNotifier {
  public:
    using Ptr = Kiv::Ptr<DedupHandleLifeTimeNotifier>;
    using PtrConst = Kiv::Ptr<DedupHandleLifeTimeNotifier const>;

    explicit DedupHandleLifeTimeNotifier(DedupHandle::PtrConst const& handle)
        : handle_(handle.ptr()) {}
    DedupHandleLifeTimeNotifier(DedupHandleLifeTimeNotifier const&) = delete;
    DedupHandleLifeTimeNotifier& operator=(DedupHandleLifeTimeNotifier const&) = delete;
    virtual ~DedupHandleLifeTimeNotifier() = default;

    // Counted like Kiv::PtrInterface: freed with its last reference. Plain
    // loads and stores while the process has one thread, as DedupHandle
    // counts (see there why that is sound).
    void referencesInc() const noexcept {
        if (processSingleThreaded())
            word_.store(word_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
        else
            word_.fetch_add(1, std::memory_order_relaxed);
    }
    void referencesDec() const noexcept {
        U32 old;
        if (processSingleThreaded()) {
            old = word_.load(std::memory_order_relaxed);
            word_.store(old - 1, std::memory_order_relaxed);
        } else {
            old = word_.fetch_sub(1, std::memory_order_acq_rel);
        }
        if ((old & countMask) == 1)
            delete this;
    }
    U32 references() const noexcept { return word_.load(std::memory_order_relaxed) & countMask; }

    // Off until the notifiee that created the notifier has finished with it.
    bool hasNotificationActive() const noexcept {
        return (word_.load(std::memory_order_acquire) & notificationActiveBit) != 0;
    }
    void hasNotificationActiveIs(bool active) noexcept {
        if (active)
            word_.fetch_or(notificationActiveBit, std::memory_order_acq_rel);
        else
            word_.fetch_and(~notificationActiveBit, std::memory_order_acq_rel);
    }

    // The handle watched, null once it has left its table. Safe to follow
    // only where the handle cannot leave meanwhile (inside the table's
    // notifiee and the observers it calls); elsewhere use withDedupHandle.
    DedupHandle const* dedupHandle() const {
        std::lock_guard<std::mutex> lock(mutex());
        return handle_;
    }
    // Returns visit(handle), the handle (or null) kept in place meanwhile.
    // `visit` must not intern nor drop a last reference (the handle's
    // removal may hold table locks while it waits here), nor reach another
    // notifier's handle (the two may share a lock).
    template <class Visit>
    decltype(auto) withDedupHandle(Visit&& visit) const {
        std::lock_guard<std::mutex> lock(mutex());
        return visit(handle_);
    }
    // The handle is leaving its table: forget it, once no one borrows it.
    // With one thread no one can (a visit may not drop a last reference), so
    // the lock is skipped, as the counts skip their atomic operations.
    void dedupHandleDel() {
        if (processSingleThreaded()) {
            handle_ = nullptr;
            return;
        }
        std::lock_guard<std::mutex> lock(mutex());
        handle_ = nullptr;
    }

  private:
    // This notifier's share of the process-wide locks.
    std::mutex& mutex() const noexcept;

    // The count in the low bits, the notification switch in the top one: one
    // word, so that a notifier stays three words on 32-bit targets too.
    static constexpr U32 notificationActiveBit = U32(1) << 31;
    static constexpr U32 countMask = notificationActiveBit - 1;
    mutable std::atomic<U32> word_{0};
    DedupHandle const* handle_;
};

}  // namespace Vok
