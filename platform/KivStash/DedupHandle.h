// KivStash::DedupHandle: an interned handle that can also live in a stash
// image (a position-independent byte image in a file or shared memory, which
// another process maps read-only with counting switched off).
//
// Allocation tracking: every stash handle is counted while it exists, so leak
// checks and memory reports can ask how many interned objects are alive
// without walking the tables.
#pragma once

#include <atomic>
#include <cstddef>

#include "Vok/DedupHandle.h"

namespace KivStash {

class DedupHandle : public Vok::DedupHandle {
  public:
    ~DedupHandle() override { liveAdd(~std::size_t(0)); }

    // Stash handles currently alive in this process.
    static std::size_t liveHandles() { return live_.count.load(std::memory_order_relaxed); }

  protected:
    DedupHandle() { liveAdd(1); }

  private:
    // Plain while the process has one thread (see Vok/DedupHandle.h).
    static void liveAdd(std::size_t delta) {
        std::atomic<std::size_t>& live = live_.count;
        if (Vok::processSingleThreaded())
            live.store(live.load(std::memory_order_relaxed) + delta, std::memory_order_relaxed);
        else
            live.fetch_add(delta, std::memory_order_relaxed);
    }

    // A cache line of its own: every thread that makes a handle writes it,
    // and a word read on a hot path beside it (the placement hash's seed
    // was) would cost every other thread a miss after each handle made.
    struct alignas(64) LiveCount {
        std::atomic<std::size_t> count;  // zero: value-initialized
    };
    static_assert(sizeof(LiveCount) == 64);
    static inline LiveCount live_;
};

}  // namespace KivStash
