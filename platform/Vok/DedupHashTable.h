// Vok::DedupHashTable: the set an interned type's handles live in.
//
// Find-or-create by content: `lookup(hash, matches)` returns the one live
// handle whose content matches (with a new reference), `dedup(candidate)`
// inserts a private handle unless an equal one is already there and returns
// the canonical handle. A handle leaves its table by itself when its count
// falls to the table's own reference (see DedupHandle.h).
//
// Two variants, chosen at creation: plain (one thread) and thread-safe. The
// thread-safe table is split into shards by the top bits of the hash, each
// with its own mutex, so threads interning different values rarely meet. A hit
// is: hash, lock the shard, probe, one atomic increment, unlock. Nothing on
// that path allocates.
//
// Each shard is an open-addressing table (linear probing, backward-shift
// deletion, at most half full) of (hash, handle) slots: a probe compares
// hashes and touches a handle only when they match.
//
// Lifetime notifiee: told synchronously, under the shard's lock, of every
// handle that enters the table (handleInsert) and of every handle that leaves
// it (handleRemove). Since equal contents map to one shard, the calls for one
// content are ordered; calls for different contents may come from several
// threads at once. A notifiee must not intern into the same table from its
// callbacks.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

#include "Kiv/Ptr.h"
#include "Vok/DedupHandle.h"
#include "Vok/DumpContext.h"

namespace Vok {

class DedupHashTable;

class DedupHashTableLifeTimeNotifiee : public Kiv::PtrInterface {
  public:
    using Ptr = Kiv::Ptr<DedupHashTableLifeTimeNotifiee>;

    virtual void handleInsert(DedupHandle const* handle) = 0;
    virtual void handleRemove(DedupHandle const* handle) = 0;
    // The table stops notifying (it is being destroyed or the notifiee replaced).
    virtual void handleNotificationStop(DedupHashTable const* table) = 0;
};

class DedupHashTable : public Kiv::PtrInterface {
  public:
    using Ptr = Kiv::Ptr<DedupHashTable>;
    using PtrConst = Kiv::Ptr<DedupHashTable const>;
    using RawPtrConst = DedupHashTable const*;
    // Runs on a candidate right before it is inserted (not when an equal
    // handle wins): the last chance to change a still-private handle, e.g. to
    // drop spare capacity.
    using PreInsertCallback = void (*)(DedupHandle* candidate);

    ~DedupHashTable() override;

    bool threadSafe() const { return threadSafe_; }
    std::size_t size() const;

    // The live handle with this placement hash (placementHashCompute() of the
    // handle that would match) that `matches` accepts, with a new reference;
    // null when there is none.
    template <class T, class Matches>
    Kiv::Ptr<T const> lookup(U32 hash, Matches&& matches) const {
        Shard& shard = shardFor(hash);
        ShardLock lock(shard, threadSafe_);
        for (std::size_t i = shard.home(hash);; i = shard.next(i)) {
            Slot const& slot = shard.slots[i];
            if (slot.handle == nullptr)
                return nullptr;
            if (slot.hash == hash && matches(static_cast<T const*>(slot.handle)))
                return Kiv::Ptr<T const>(static_cast<T const*>(slot.handle));
        }
    }

    // Interns `candidate` (which must never have been deduped) unless an equal
    // live handle exists; returns the canonical handle with a new reference.
    DedupHandle::PtrConst dedup(DedupHandle const* candidate,
                                PreInsertCallback preInsert = nullptr) const;
    DedupHandle::PtrConst dedupPreInsertCallback(DedupHandle const* candidate,
                                                 PreInsertCallback preInsert) const {
        return dedup(candidate, preInsert);
    }

    DedupHashTableLifeTimeNotifiee::Ptr lifeTimeNotifiee() const;
    // Installs `notifiee` (null removes); the one it replaces hears
    // handleNotificationStop.
    void lifeTimeNotifieeIs(DedupHashTableLifeTimeNotifiee::Ptr const& notifiee);

    // Calls `visit` on every entry (under the shard locks); for dumps and tests.
    template <class Visit>
    void forEach(Visit&& visit) const {
        for (std::size_t s = 0; s < shardCount_; ++s) {
            ShardLock lock(shards_[s], threadSafe_);
            for (auto const& slot : shards_[s].slots)
                if (slot.handle)
                    visit(slot.handle);
        }
    }

    void dumpState(DumpContext const& dumpCtx, U32 indentCount) const;

    // For tests of the revive race: a hook run by a release that found only
    // the table's reference left besides its own, before it takes the shard
    // lock (the window in which a lookup may still revive the handle), so a
    // test can revive it there every time instead of by chance. Unset (null)
    // it costs one relaxed load per such release.
    using ReleaseWindowHook = void (*)(DedupHandle const* handle);
    static void releaseWindowHookIs(ReleaseWindowHook hook) {
        releaseWindowHook_.store(hook, std::memory_order_relaxed);
    }

  protected:
    explicit DedupHashTable(bool threadSafe);

  private:
    friend class DedupHandle;
    struct Slot {
        U32 hash = 0;
        DedupHandle const* handle = nullptr;
    };
    struct Shard {
        mutable std::mutex mutex;
        std::vector<Slot> slots;
        std::size_t used = 0;
        std::size_t home(U32 hash) const { return hash & (slots.size() - 1); }
        std::size_t next(std::size_t i) const { return (i + 1) & (slots.size() - 1); }
    };
    class ShardLock {
      public:
        ShardLock(Shard& shard, bool threadSafe) : mutex_(threadSafe ? &shard.mutex : nullptr) {
            if (mutex_)
                mutex_->lock();
        }
        ~ShardLock() {
            if (mutex_)
                mutex_->unlock();
        }
        ShardLock(ShardLock const&) = delete;
        ShardLock& operator=(ShardLock const&) = delete;

      private:
        std::mutex* mutex_;
    };

    Shard& shardFor(U32 hash) const { return shards_[static_cast<U64>(hash) >> shardShift_]; }
    static void insertSlot(Shard& shard, U32 hash, DedupHandle const* handle);
    static void eraseSlot(Shard& shard, std::size_t index);
    // Drops a handle's last outside reference; removes it when that leaves
    // only the table's.
    void doRemoveFromDedupTable(DedupHandle const* handle) const;

    static std::atomic<ReleaseWindowHook> releaseWindowHook_;

    bool threadSafe_;
    unsigned shardShift_;
    std::unique_ptr<Shard[]> shards_;
    std::size_t shardCount_;
    DedupHashTableLifeTimeNotifiee::Ptr lifeTimeNotifiee_;
};

// The hash-set implementation of DedupHashTable; the name says what it is to
// the code that creates one.
class DedupHashTableUnorderedSet : public DedupHashTable {
  public:
    using Ptr = Kiv::Ptr<DedupHashTableUnorderedSet>;
    static Ptr create(bool threadSafe) { return Ptr(new DedupHashTableUnorderedSet(threadSafe)); }

  private:
    explicit DedupHashTableUnorderedSet(bool threadSafe) : DedupHashTable(threadSafe) {}
};

}  // namespace Vok
