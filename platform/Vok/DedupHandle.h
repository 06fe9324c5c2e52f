// Vok::DedupHandle: the base of every interned (deduplicated) object.
//
// Routes share community values and lists massively, so each distinct value
// exists once, in a DedupHashTable, and is shared by reference count. A
// handle carries, in 12 bytes after its vtable pointer (fieldsOctets in all):
//   - one atomic word: the reference count (low 28 bits) and the dedup state
//     (top 4 bits), so that count and state change together;
//   - its placement hash (Vok/PlacementHash.h), computed once when it is
//     interned, so that neither growing the table nor removing the handle
//     has to compute it again;
//   - 16 bits of user data the concrete class may use (a classification,
//     cached attribute bits, a count);
//   - the id of the table it is interned in (0 while never deduped or once
//     removed): a 16-bit id instead of a pointer keeps the header small;
//     ids name at most 65,535 live tables.
// On 64-bit hosts that leaves the last 4 of the handle's 24 octets free: a
// concrete class's first 4-aligned field goes there (the C++ ABI places it
// in the base's tail padding), so a list's values start at octet 20 and an
// 8-octet value interned in a handle takes 32 bytes.
//
// The table holds one reference of its own. Lookups take their reference
// under the table's (shard) lock, and the release that would leave only the
// table's reference is done under that same lock, together with the removal
// (doRemoveFromDedupTable). So a lookup racing with the last release either
// revives the handle first (and the release then leaves it in the table) or
// finds it gone; it never returns a freed or removed handle. Other releases
// take no lock.
//
// Counts saturate: a handle that reaches referencesLimit holders (a count no
// real table of routes approaches, but one a bug or an attacker feeding
// copies could) stays at the limit for good and lives until the process
// ends, instead of wrapping into the state bits or aborting the process.
// Taking a reference on an interned handle whose count already fell to zero
// (one being destroyed) aborts in "referencesIncReturnRef".
//
// Counts are atomic read-modify-writes while the process may have more than
// one thread; while the C library says it has only one, they are plain loads
// and stores (as libstdc++ does for shared_ptr): no other thread can touch
// the count, and creating a thread is a synchronisation point after which
// the atomic path takes over.
//
// States: never deduped (private, still mutable), deduped (interned,
// immutable), not to be deduped (built for display and never to be interned).
//
// A process-wide switch turns all counting off, for handles that live in
// read-only shared memory: with it set, holders neither count nor remove.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "Kiv/Assert.h"
#include "Kiv/Ptr.h"
#include "Kiv/Types.h"
#include "Vok/PlacementHash.h"

#if __has_include(<sys/single_threaded.h>)
#include <sys/single_threaded.h>
#define VOK_HAVE_LIBC_SINGLE_THREADED 1
#endif

namespace Vok {

enum DedupHandleState : U8 {
    dedupHandleStateNeverDeduped_ = 0,
    dedupHandleStateDeduped_ = 1,
    dedupHandleStateNotToBeDeduped_ = 4,
};
constexpr DedupHandleState dedupHandleStateNeverDeduped() {
    return dedupHandleStateNeverDeduped_;
}
constexpr DedupHandleState dedupHandleStateDeduped() {
    return dedupHandleStateDeduped_;
}
constexpr DedupHandleState dedupHandleStateNotToBeDeduped() {
    return dedupHandleStateNotToBeDeduped_;
}

class DedupHashTable;

// True while the process has certainly one thread only (glibc 2.32 and
// later say so); false whenever that is not known.
inline bool processSingleThreaded() noexcept {
#ifdef VOK_HAVE_LIBC_SINGLE_THREADED
    return __libc_single_threaded != 0;
#else
    return false;
#endif
}

class DedupHandle {
  public:
    using PtrConst = Kiv::Ptr<DedupHandle const>;
    using RawPtrConst = DedupHandle const*;

    DedupHandle(DedupHandle const&) = delete;
    DedupHandle& operator=(DedupHandle const&) = delete;
    virtual ~DedupHandle();

    // Interning hooks: equal handles must hash equally.
    virtual U32 hash() const = 0;
    virtual bool compare(DedupHandle const* other) const = 0;
    // Where tables place this handle (Vok/PlacementHash.h), computed when it
    // is interned; a lookup computes the same value from a candidate content.
    // Types override it with a word-wise hash of their content. The default
    // derives it from hash(): seeded, but values with equal hash() collide.
    virtual U32 placementHashCompute() const { return placementHashOf(hash()); }

    // The placement hash a table computed when it interned this handle;
    // meaningless before.
    U32 placementHash() const noexcept { return placementHash_; }

    void referencesInc() const noexcept {
        if (!countingEnabled_.load(std::memory_order_relaxed))
            return;
        U32 old;
        if (processSingleThreaded()) {
            old = countAndState_.load(std::memory_order_relaxed);
            countAndState_.store(old + 1, std::memory_order_relaxed);
        } else {
            old = countAndState_.fetch_add(1, std::memory_order_relaxed);
        }
        // Zero (a dying interned handle, or a private one's first holder)
        // and the limit are the only counts that need a second look.
        if ((old & countMask) - 1 >= referencesLimit - 1) [[unlikely]]
            referencesIncChecked(old);
    }
    void referencesDec() const noexcept {
        if (!countingEnabled_.load(std::memory_order_relaxed))
            return;
        U32 current = countAndState_.load(std::memory_order_relaxed);
        // Neither the release that leaves only the table's reference nor a
        // saturated count: a plain decrement.
        if ((current & countMask) - (tableReferences + 2) <
            referencesLimit - (tableReferences + 2)) {
            if (processSingleThreaded()) {
                countAndState_.store(current - 1, std::memory_order_relaxed);
                return;
            }
            if (countAndState_.compare_exchange_weak(
                    current, current - 1, std::memory_order_acq_rel, std::memory_order_relaxed))
                return;
        }
        referencesDecFrom(current);
    }
    U32 references() const noexcept {
        return countAndState_.load(std::memory_order_relaxed) & countMask;
    }  // Batched counting, for a holder that hands references out one by one
    // without touching the count (a per-thread interning cache): `n`
    // references taken with one atomic add. The caller must already hold a
    // reference, so the count is above the table's own and the add can
    // neither revive a dying handle nor race with its removal. True when the
    // count is saturated afterwards: the handle then lives for good and
    // whatever the caller hands out needs no count; the batch is then taken
    // back when the count was at the limit before, so batches from many
    // holders stay within the headroom below the state bits.
    bool referencesIncBy(U32 n) const noexcept {
        KIV_ASSERT(n != 0 && n <= referencesBatchLimit);
        if (!countingEnabled_.load(std::memory_order_relaxed))
            return false;
        U32 old;
        if (processSingleThreaded()) {
            old = countAndState_.load(std::memory_order_relaxed);
            if ((old & countMask) < referencesLimit)
                countAndState_.store(old + n, std::memory_order_relaxed);
        } else {
            old = countAndState_.fetch_add(n, std::memory_order_relaxed);
        }
        U32 const count = old & countMask;
        KIV_ASSERT(count != 0, "referencesIncBy without a held reference");
        if (count >= referencesLimit) {
            if (!processSingleThreaded())
                countAndState_.fetch_sub(n, std::memory_order_relaxed);
            return true;
        }
        return count + n >= referencesLimit;
    }
    // Gives back `n` references at once: one atomic subtract while another
    // outside reference remains; the release that would leave only the
    // table's goes the way of referencesDec (under the table's lock).
    void referencesDecBy(U32 n) const noexcept;
    // The largest batch referencesIncBy takes: far below the headroom above
    // referencesLimit, which concurrent batches on a saturated count use.
    static constexpr U32 referencesBatchLimit = 256;

    // True once the count reached referencesLimit: the handle then stays
    // (interned, if it was) until the process ends.
    bool referencesSaturated() const noexcept { return references() >= referencesLimit; }

    DedupHandleState dedupState() const noexcept {
        return static_cast<DedupHandleState>(countAndState_.load(std::memory_order_acquire) >>
                                             stateShift);
    }
    bool isDeduped() const noexcept { return dedupState() == dedupHandleStateDeduped(); }
    // Aborts on a handle that was never deduped, for operations that rely on
    // one shared object per content (identity comparison, sharing by count).
    // A handle marked not to be deduped passes: it is a deliberate copy.
    void assertIsDeduped() const {
        KIV_ASSERT(dedupState() != Vok::dedupHandleStateNeverDeduped());
    }
    // Marks a private handle as never to be interned (display and snapshot
    // copies); interning it later is a programming error.
    void dedupStateNotToBeDedupedIs() const;

    // The table this handle is interned in; null when not (or no longer) in one.
    DedupHashTable const* dedupTable() const noexcept;

    // The user data: 16 bits, the rest of the word 0.
    U32 userData() const noexcept { return userData_; }

    // Octets of the handle's own fields, vtable pointer included: where a
    // concrete class's 4-aligned fields can start (see above).
    static constexpr std::size_t fieldsOctets = sizeof(void*) + 3 * sizeof(U32);

    // Process-wide counting switch (on by default).
    static bool countingEnabled() { return countingEnabled_.load(std::memory_order_relaxed); }
    static void countingEnabledIs(bool enabled) {
        countingEnabled_.store(enabled, std::memory_order_relaxed);
    }

    // References a table holds on each of its entries.
    static constexpr U32 tableReferences = 1;

  private:
    static constexpr unsigned stateShift = 28;
    static constexpr U32 countMask = (U32(1) << stateShift) - 1;

  public:
    // The count at which a handle saturates. The headroom below the state
    // bits absorbs threads that increment past the limit at the same moment.
    static constexpr U32 referencesLimit = countMask + 1 - 4096;

  protected:
    DedupHandle() = default;
    // Only while private: interned handles are immutable.
    void userDataIs(U32 value) noexcept {
        KIV_ASSERT(value <= 0xFFFF, "user data fits 16 bits");
        userData_ = static_cast<U16>(value);
    }
    // For tests of the limit: sets the count, keeping the state.
    void referencesForTestIs(U32 count) const noexcept {
        countAndState_.store((countAndState_.load() & ~countMask) | (count & countMask));
    }

  private:
    friend class DedupHashTable;

    void referencesIncChecked(U32 old) const noexcept;
    void referencesDecFrom(U32 current) const noexcept;
    void releaseLastOutsideReference() const noexcept;
    void stateIs(DedupHandleState state) const noexcept;

    mutable std::atomic<U32> countAndState_{0};
    mutable U32 placementHash_ = 0;
    U16 userData_ = 0;
    mutable U16 tableId_ = 0;

    static std::atomic<bool> countingEnabled_;
};

namespace DedupHandleLayout {
// A concrete class's first 4-octet field lands at fieldsOctets: in the
// handle's tail padding where there is one (64-bit hosts), else right after.
struct Probe : DedupHandle {
    U32 first;
};
static_assert(sizeof(Probe) ==
                  (sizeof(void*) == 8 ? sizeof(DedupHandle) : DedupHandle::fieldsOctets + 4) &&
              sizeof(DedupHandle) >= DedupHandle::fieldsOctets);
}  // namespace DedupHandleLayout

// Aborts unless `p` (when non-null) has been interned.
#define VOK_ASSERT_IS_DEDUPED(p)                                                             \
    KIV_ASSERT(nullptr == (p) || (p)->dedupState() != ::Vok::dedupHandleStateNeverDeduped(), \
               "__null == ( " #p " ) || ( " #p                                               \
               " )->dedupState() != Vok::dedupHandleStateNeverDeduped()")

// Aborts unless `p` (when non-null) has never been interned.
#define VOK_ASSERT_NEVER_DEDUPED(p)                                                          \
    KIV_ASSERT(nullptr == (p) || (p)->dedupState() == ::Vok::dedupHandleStateNeverDeduped(), \
               "__null == ( " #p " ) || ( " #p                                               \
               " )->dedupState() == Vok::dedupHandleStateNeverDeduped()")

// Views a generic handle as the concrete interned type it is.
template <class T>
T const* fromDedupHandle(DedupHandle const* handle) {
    return static_cast<T const*>(handle);
}
template <class T>
Kiv::Ptr<T const> fromDedupHandle(DedupHandle::PtrConst const& handle) {
    return Kiv::Ptr<T const>(static_cast<T const*>(handle.ptr()));
}

}  // namespace Vok
