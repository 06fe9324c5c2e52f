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
    ~DedupHandle() override { live_.fetch_sub(1, std::memory_order_relaxed); }

    // Stash handles currently alive in this process.
    static std::size_t liveHandles() { return live_.load(std::memory_order_relaxed); }

  protected:
    DedupHandle() { live_.fetch_add(1, std::memory_order_relaxed); }

  private:
    static inline std::atomic<std::size_t> live_{0};
};

}  // namespace KivStash
