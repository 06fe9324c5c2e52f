// KivStash::StashAllocator: the allocator of the vectors inside stashable
// interned objects.
//
// Every container that an interned object owns and that the stash writes out
// or rebuilds names this allocator, so that where such storage lives is
// decided in one place. Today it is the ordinary heap (stateless, all
// instances equal): stash images hold plain words, not objects, so nothing in
// an image is ever allocated through it. A process that wants destashed
// objects in a region of its own (an arena, shared memory) changes this type
// alone.
#pragma once

#include <cstddef>
#include <memory>

namespace KivStash {

template <class T>
class StashAllocator {
  public:
    using value_type = T;

    StashAllocator() noexcept = default;
    template <class U>
    StashAllocator(StashAllocator<U> const&) noexcept {}

    T* allocate(std::size_t n) { return std::allocator<T>().allocate(n); }
    void deallocate(T* p, std::size_t n) noexcept { std::allocator<T>().deallocate(p, n); }

    friend bool operator==(StashAllocator const&, StashAllocator const&) noexcept { return true; }
};

}  // namespace KivStash
