#include "Vok/SizeClassArena.h"

#include <atomic>
#include <new>

#include "Kiv/Assert.h"
#include "Vok/DedupHandle.h"

#if defined(__SANITIZE_ADDRESS__)
#define VOK_ARENA_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VOK_ARENA_ASAN 1
#endif
#endif
#ifdef VOK_ARENA_ASAN
#include <sanitizer/asan_interface.h>
#define VOK_ARENA_POISON(p, n) ASAN_POISON_MEMORY_REGION((p), (n))
#define VOK_ARENA_UNPOISON(p, n) ASAN_UNPOISON_MEMORY_REGION((p), (n))
#else
#define VOK_ARENA_POISON(p, n) ((void)(p), (void)(n))
#define VOK_ARENA_UNPOISON(p, n) ((void)(p), (void)(n))
#endif

namespace Vok {

namespace {

// Lanes are handed to threads in turn as they first allocate or free.
std::atomic<unsigned> nextLane{0};

// The link of a chunk list sits in the chunk's first granule.
constexpr std::size_t chunkLinkOctets = SizeClassArena::granule;

}  // namespace

SizeClassArena& SizeClassArena::global() noexcept {
    static SizeClassArena* const arena = new SizeClassArena;
    return *arena;
}

SizeClassArena::~SizeClassArena() {
    for (Lane& lane : lanes_)
        while (Chunk* chunk = lane.chunks) {
            VOK_ARENA_UNPOISON(chunk, chunkOctets);
            lane.chunks = chunk->next;
            ::operator delete(chunk);
        }
}

SizeClassArena::Lane& SizeClassArena::laneForThisThread() noexcept {
    thread_local unsigned const lane = nextLane.fetch_add(1, std::memory_order_relaxed) % lanes;
    return lanes_[lane];
}

void* SizeClassArena::allocate(std::size_t size) {
    KIV_ASSERT(fits(size), "SizeClassArena::allocate size fits");
    std::size_t const octets = blockOctets(size);
    if (processSingleThreaded())
        return allocateIn(lanes_[0], octets);
    Lane& lane = laneForThisThread();
    std::lock_guard<std::mutex> lock(lane.mutex);
    return allocateIn(lane, octets);
}

void SizeClassArena::deallocate(void* block, std::size_t size) noexcept {
    KIV_ASSERT(fits(size), "SizeClassArena::deallocate size fits");
    std::size_t const octets = blockOctets(size);
    Lane* lane = &lanes_[0];
    std::unique_lock<std::mutex> lock;
    if (!processSingleThreaded()) {
        lane = &laneForThisThread();
        lock = std::unique_lock<std::mutex>(lane->mutex);
    }
    lane->liveBytes -= static_cast<std::ptrdiff_t>(octets);
    pushFree(*lane, block, octets);
}

template <class Read>
std::size_t SizeClassArena::sum(Read read) const noexcept {
    std::ptrdiff_t total = 0;
    for (Lane const& lane : lanes_) {
        std::lock_guard<std::mutex> lock(const_cast<std::mutex&>(lane.mutex));
        total += static_cast<std::ptrdiff_t>(read(lane));
    }
    return static_cast<std::size_t>(total);
}

std::size_t SizeClassArena::chunkBytes() const noexcept {
    return sum([](Lane const& lane) { return static_cast<std::ptrdiff_t>(lane.chunkBytes); });
}

std::size_t SizeClassArena::liveBytes() const noexcept {
    return sum([](Lane const& lane) { return lane.liveBytes; });
}

void* SizeClassArena::allocateIn(Lane& lane, std::size_t octets) {
    lane.liveBytes += static_cast<std::ptrdiff_t>(octets);
    FreeBlock*& head = lane.free[classOf(octets)];
    if (FreeBlock* const block = head) {
        VOK_ARENA_UNPOISON(block, octets);
        head = block->next;
        return block;
    }
    if (static_cast<std::size_t>(lane.end - lane.bump) < octets) {
        // The rest of the old chunk becomes a free block of its own class,
        // so switching chunks wastes nothing.
        if (lane.end != lane.bump)
            pushFree(lane, lane.bump, static_cast<std::size_t>(lane.end - lane.bump));
        char* const fresh = static_cast<char*>(::operator new(chunkOctets));
        reinterpret_cast<Chunk*>(fresh)->next = lane.chunks;
        lane.chunks = reinterpret_cast<Chunk*>(fresh);
        lane.chunkBytes += chunkOctets;
        lane.bump = fresh + chunkLinkOctets;
        lane.end = fresh + chunkOctets;
        VOK_ARENA_POISON(lane.bump, static_cast<std::size_t>(lane.end - lane.bump));
    }
    char* const block = lane.bump;
    lane.bump += octets;
    VOK_ARENA_UNPOISON(block, octets);
    return block;
}

void SizeClassArena::pushFree(Lane& lane, void* block, std::size_t octets) noexcept {
    VOK_ARENA_UNPOISON(block, sizeof(FreeBlock));
    FreeBlock*& head = lane.free[classOf(octets)];
    auto* const freed = static_cast<FreeBlock*>(block);
    freed->next = head;
    head = freed;
    VOK_ARENA_POISON(block, octets);
}

}  // namespace Vok
