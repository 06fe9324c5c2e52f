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
    static std::size_t liveHandles() { return live_.load(std::memory_order_relaxed); }

  protected:
    DedupHandle() { liveAdd(1); }

  private:
    // Plain while the process has one thread (see Vok/DedupHandle.h).
    static void liveAdd(std::size_t delta) {
        if (Vok::processSingleThreaded())
            live_.store(live_.load(std::memory_order_relaxed) + delta, std::memory_order_relaxed);
        else
            live_.fetch_add(delta, std::memory_order_relaxed);
    }

    static inline std::atomic<std::size_t> live_{0};
};

}  // namespace KivStash
