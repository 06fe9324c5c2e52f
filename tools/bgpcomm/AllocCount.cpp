#include "bgpcomm/AllocCount.h"

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>

// ThreadSanitizer's runtime defines the global allocation functions itself and
// cannot share them; under it the tool reports no heap figure.
#ifndef BGPCOMM_NO_HEAP_COUNT

namespace {

// Relaxed: a statistic, read once the work is done.
std::atomic<U64> liveBytes{0};

void* allocate(std::size_t size) {
    void* p = std::malloc(size ? size : 1);
    if (!p)
        throw std::bad_alloc();
    liveBytes.fetch_add(malloc_usable_size(p), std::memory_order_relaxed);
    return p;
}

void release(void* p) noexcept {
    if (!p)
        return;
    liveBytes.fetch_sub(malloc_usable_size(p), std::memory_order_relaxed);
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
