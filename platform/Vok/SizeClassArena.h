// Vok::SizeClassArena: small blocks without a per-block header, for interned
// objects that know their own size when they are freed.
//
// The C library's malloc puts an 8-octet header before every chunk and
// rounds chunks up to 16 octets (32 at least): a 45-octet interned list takes
// a 64-octet chunk, 19 octets of overhead. Here a block is its size rounded
// up to 8 octets and nothing more: blocks are carved in address order from
// 64 KiB chunks by one bump pointer that every size class shares (so a class
// with few blocks wastes nothing), and a freed block goes on its size
// class's free list, where the next block of that class is taken from first.
//
// Contract: blocks of 1 to maxBlockOctets octets, 8-aligned; deallocate gets
// the block and a size that rounds to the same class as the one it was
// allocated with (the caller keeps the size, e.g. a count in the object).
// Larger sizes are refused (the caller uses the general heap for those).
// Chunks are never returned to the system: a freed block waits for the next
// block of its class. That suits interned objects, whose sizes repeat
// (routes keep bringing lists of the same lengths).
//
// Threads: the arena is split into lanes, each with its own lock, bump chunk
// and free lists. While the process has one thread (Vok/DedupHandle.h's
// processSingleThreaded) every call uses the first lane without locking; a
// thread creation is a synchronisation point after which calls lock. Each
// thread then uses one lane picked when it first calls, so two threads
// rarely share a lock; a block may be freed into another lane than the one
// it came from, which is only a matter of which free list it waits in.
//
// Nothing here allocates except a new chunk (one ::operator new of
// chunkOctets per 64 KiB of blocks). Under AddressSanitizer free blocks and
// the uncarved rest of a chunk are poisoned, so a use after free is still
// reported.
#pragma once

#include <cstddef>
#include <mutex>

#include "Kiv/Types.h"

namespace Vok {

class SizeClassArena {
  public:
    static constexpr std::size_t granule = 8;
    static constexpr std::size_t maxBlockOctets = 512;
    static constexpr std::size_t chunkOctets = std::size_t(64) << 10;
    static constexpr std::size_t lanes = 4;

    // The octets a block of `size` takes: `size` rounded up to the granule.
    static constexpr std::size_t blockOctets(std::size_t size) noexcept {
        return (size + granule - 1) / granule * granule;
    }
    static constexpr bool fits(std::size_t size) noexcept {
        return size != 0 && size <= maxBlockOctets;
    }

    // The process's arena (never destroyed: blocks may be freed by static
    // objects' destructors at exit).
    static SizeClassArena& global() noexcept;

    SizeClassArena() = default;
    SizeClassArena(SizeClassArena const&) = delete;
    SizeClassArena& operator=(SizeClassArena const&) = delete;
    // Frees the chunks: only for an arena whose blocks are all dead.
    ~SizeClassArena();

    // A block of blockOctets(size) octets; `size` must fit.
    void* allocate(std::size_t size);
    void deallocate(void* block, std::size_t size) noexcept;

    // Octets of chunks taken from the heap so far, and of the blocks handed
    // out and not freed (blockOctets each).
    std::size_t chunkBytes() const noexcept;
    std::size_t liveBytes() const noexcept;

  private:
    static constexpr std::size_t classes = maxBlockOctets / granule;
    struct FreeBlock {
        FreeBlock* next;
    };
    struct Chunk {
        Chunk* next;
    };
    struct alignas(64) Lane {
        std::mutex mutex;
        char* bump = nullptr;
        char* end = nullptr;
        Chunk* chunks = nullptr;
        std::size_t chunkBytes = 0;
        std::ptrdiff_t liveBytes = 0;  // per lane: a block may be freed in another
        FreeBlock* free[classes] = {};
    };
    static std::size_t classOf(std::size_t size) noexcept { return (size - 1) / granule; }
    Lane& laneForThisThread() noexcept;
    void* allocateIn(Lane& lane, std::size_t octets);
    static void pushFree(Lane& lane, void* block, std::size_t octets) noexcept;
    template <class Read>
    std::size_t sum(Read read) const noexcept;

    Lane lanes_[lanes];
};

}  // namespace Vok
