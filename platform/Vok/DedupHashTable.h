// Vok::DedupHashTable: the set an interned type's handles live in.
//
// Find-or-create by content: `lookup(hash, matches)` returns the one live
// handle whose content matches (with a new reference), `dedup(candidate)`
// inserts a private handle unless an equal one is already there and returns
// the canonical handle. A handle leaves its table by itself when its count
// falls to the table's own reference (see DedupHandle.h).
//
// Two variants, chosen at creation: plain (one thread) and thread-safe. The
// thread-safe table is split into shards by the top bits of the placement
// hash, each with its own mutex on its own cache line, so threads interning
// different values rarely meet and never share one lock. A hit is: hash,
// lock the shard, probe, one increment, unlock. Nothing on that path
// allocates.
//
// Each shard is an open-addressing table (Robin Hood linear probing,
// backward-shift deletion, at most 7/8 full) of 8-byte slots: the handle's
// address (48 bits, what user-space addresses use on the 64-bit targets),
// a 10-bit fingerprint of its placement hash and its distance from its home
// slot (6 bits, saturating; the handle's stored placement hash gives the
// exact distance beyond). A probe rejects all but about one in 1,024
// non-matching entries by fingerprint without touching them, and stops as
// soon as it meets an entry closer to its home than the probe has come. The
// slots of 100,000 entries take 1 MiB.
//
// Lifetime notifiee: told synchronously, under the shard's lock, of every
// handle that enters the table (handleInsert) and of every handle that leaves
// it (handleRemove). Since equal contents map to one shard, the calls for one
// content are ordered; calls for different contents may come from several
// threads at once. A notifiee must not intern into the same table from its
// callbacks.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>

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
        return Kiv::Ptr<T const>(static_cast<T const*>(shard.find(
            hash, [&matches](DedupHandle const* h) { return matches(static_cast<T const*>(h)); })));
    }

    // Whether `handle`, which the caller holds a reference on, is interned
    // in this table: the held reference keeps it there, so a holder that
    // finds its handle equal to a content needs no lookup to know it is
    // this table's one for that content.
    bool holds(DedupHandle const* handle) const noexcept {
        return handle != nullptr && handle->tableId_ == id_;
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

    // Whoever the table belongs to, for code that reaches the table from one
    // of its handles (DedupHandle::dedupTable) and needs the owner's other
    // tables; opaque here, null until set. The owner clears it before it
    // goes, since handles may outlive it.
    void const* owner() const noexcept { return owner_.load(std::memory_order_acquire); }
    void ownerIs(void const* owner) const noexcept {
        owner_.store(owner, std::memory_order_release);
    }

    // Calls `visit` on every entry (under the shard locks); for dumps and tests.
    template <class Visit>
    void forEach(Visit&& visit) const {
        for (std::size_t s = 0; s < shardCount_; ++s) {
            ShardLock lock(shards_[s], threadSafe_);
            for (std::size_t i = 0; i <= shards_[s].mask; ++i)
                if (U64 slot = shards_[s].slots[i])
                    visit(slotHandle(slot));
        }
    }

    // The table with this id (see DedupHandle.h), null for 0 or a free id.
    static DedupHashTable const* tableWithId(U16 id) noexcept;
    // Tables that may be alive at once.
    static constexpr std::size_t maxLiveTables = 65535;

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
    // Kiv::RangeError when maxLiveTables tables are alive already.
    explicit DedupHashTable(bool threadSafe);

  private:
    friend class DedupHandle;
    // Slot layout: address << 16 | fingerprint << 6 | distance + 1; 0 is empty.
    static constexpr unsigned addressShift = 16;
    static constexpr unsigned fingerprintShift = 6;
    static constexpr U64 fingerprintMask = 0x3ff;
    static constexpr U64 distanceMask = 0x3f;
    // Above the home-slot bits of any shard size in use and below the shard
    // bits, so that entries near one another in a shard differ in it.
    static constexpr unsigned fingerprintHashShift = 18;

    static U64 fingerprintOf(U32 hash) noexcept {
        return (static_cast<U64>(hash) >> fingerprintHashShift) & fingerprintMask;
    }
    static DedupHandle const* slotHandle(U64 slot) noexcept {
        return reinterpret_cast<DedupHandle const*>(
            static_cast<std::uintptr_t>(slot >> addressShift));
    }

    struct alignas(64) Shard {
        mutable std::mutex mutex;
        std::unique_ptr<U64[]> slots;
        std::size_t mask = 0;
        std::size_t used = 0;

        std::size_t home(U32 hash) const { return hash & mask; }
        std::size_t next(std::size_t i) const { return (i + 1) & mask; }
        // The entry's distance from its home slot, plus one.
        std::size_t distanceAt(std::size_t i, U64 slot) const {
            std::size_t d = slot & distanceMask;
            if (d != distanceMask) [[likely]]
                return d;
            return ((i - home(slotHandle(slot)->placementHash())) & mask) + 1;
        }
        template <class Pred>
        DedupHandle const* find(U32 hash, Pred&& pred) const {
            U64 const fingerprint = fingerprintOf(hash) << fingerprintShift;
            std::size_t i = home(hash);
            for (std::size_t probe = 1;; ++probe, i = next(i)) {
                U64 const slot = slots[i];
                std::size_t const d = slot & distanceMask;
                // Empty, or an entry closer to its home than this probe: the
                // one sought would have taken its place.
                if (d < probe && (d != distanceMask || distanceAt(i, slot) < probe))
                    return nullptr;
                if ((slot & (fingerprintMask << fingerprintShift)) == fingerprint &&
                    pred(slotHandle(slot)))
                    return slotHandle(slot);
            }
        }
        // Where `handle` is; it must be there.
        std::size_t indexOf(DedupHandle const* handle) const;
        void insert(U32 hash, DedupHandle const* handle);
        void erase(std::size_t index);
        void grow();
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
    // Drops a handle's last outside reference; removes it when that leaves
    // only the table's.
    void doRemoveFromDedupTable(DedupHandle const* handle) const;

    static std::atomic<ReleaseWindowHook> releaseWindowHook_;

    bool threadSafe_;
    unsigned shardShift_;
    std::unique_ptr<Shard[]> shards_;
    std::size_t shardCount_;
    U16 id_;
    DedupHashTableLifeTimeNotifiee::Ptr lifeTimeNotifiee_;
    mutable std::atomic<void const*> owner_{nullptr};
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
