#include "bgpcomm/AllocCount.h"

#include <malloc.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>

// ThreadSanitizer's runtime defines the global allocation functions itself and
// cannot share them; under it the tool reports no heap figure.
#ifndef BGPCOMM_NO_HEAP_COUNT

namespace {

// Relaxed: a statistic, read once the work is done.
std::atomic<U64> liveBytes{0};

// Each thread gathers its changes and adds them to the shared count only when
// they pass `flushBytes` either way: threads allocating at once would
// otherwise fight over one cache line on every allocation. The figure read is
// off by less than flushBytes per thread (a thread's rest is added when it
// ends).
constexpr std::int64_t flushBytes = 16 << 10;

struct ThreadBytes {
    std::int64_t pending = 0;
    ~ThreadBytes() { flush(); }
    void flush() {
        liveBytes.fetch_add(static_cast<U64>(pending), std::memory_order_relaxed);
        pending = 0;
    }
    void add(std::int64_t bytes) {
        pending += bytes;
        if (pending > flushBytes || pending < -flushBytes)
            flush();
    }
};
thread_local ThreadBytes threadBytes;

void* allocate(std::size_t size) {
    void* p = std::malloc(size ? size : 1);
    if (!p)
        throw std::bad_alloc();
    threadBytes.add(static_cast<std::int64_t>(malloc_usable_size(p)));
    return p;
}

void release(void* p) noexcept {
    if (!p)
        return;
    threadBytes.add(-static_cast<std::int64_t>(malloc_usable_size(p)));
    std::free(p);
}

}  // namespace

namespace Bgpcomm {

U64 liveHeapBytes() {
    return liveBytes.load(std::memory_order_relaxed);
}

}  // namespace Bgpcomm

void* operator new(std::size_t size) {
    return allocate(size);
}
void* operator new[](std::size_t size) {
    return allocate(size);
}
void operator delete(void* p) noexcept {
    release(p);
}
void operator delete[](void* p) noexcept {
    release(p);
}
void operator delete(void* p, std::size_t) noexcept {
    release(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    release(p);
}
// The non-throwing forms too: the library's defaults would pair a malloc of
// their own with our release, or the other way round.
void* operator new(std::size_t size, std::nothrow_t const&) noexcept {
    try {
        return allocate(size);
    } catch (std::bad_alloc const&) {
        return nullptr;
    }
}
void* operator new[](std::size_t size, std::nothrow_t const& tag) noexcept {
    return operator new(size, tag);
}
void operator delete(void* p, std::nothrow_t const&) noexcept {
    release(p);
}
void operator delete[](void* p, std::nothrow_t const&) noexcept {
    release(p);
}

#else

namespace Bgpcomm {

U64 liveHeapBytes() {
    return 0;
}

}  // namespace Bgpcomm

#endif
