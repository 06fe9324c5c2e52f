// The size-class arena behind interned standard and large lists: a block is
// its request in 8-octet steps with nothing between blocks, a freed block is
// what the next request of its class gets, switching chunks wastes nothing,
// and threads freeing into one another's lanes never hand one block out
// twice.
#include <gtest/gtest.h>

#include <cstring>
#include <thread>
#include <vector>

#include "Vok/SizeClassArena.h"

namespace {

using Vok::SizeClassArena;

TEST(SizeClassArena, BlocksTakeTheirRequestIn8OctetStepsAndAFreedBlockServesItsClass) {
    // Request, octets taken: the step tells 8-octet from 16-octet rounding and
    // a header from none.
    struct Case {
        std::size_t request, octets;
    } const cases[] = {{1, 8}, {8, 8}, {9, 16}, {44, 48}, {45, 48}, {48, 48}, {49, 56}, {512, 512}};
    for (Case const c : cases) {
        SizeClassArena arena;
        auto* const a = static_cast<char*>(arena.allocate(c.request));
        auto* const b = static_cast<char*>(arena.allocate(c.request));
        EXPECT_EQ(std::ptrdiff_t(c.octets), b - a) << c.request;
        EXPECT_EQ(2 * c.octets, arena.liveBytes()) << c.request;
        arena.deallocate(a, c.request);
        EXPECT_EQ(c.octets, arena.liveBytes()) << c.request;
        // Another class leaves the freed block alone; its own class takes it.
        auto* const other = static_cast<char*>(arena.allocate(c.octets < 512 ? c.octets + 1 : 1));
        EXPECT_EQ(b + c.octets, other) << c.request;
        EXPECT_EQ(a, arena.allocate(c.octets - 7)) << c.request;
    }
    EXPECT_FALSE(SizeClassArena::fits(0));
    EXPECT_FALSE(SizeClassArena::fits(513));
}

TEST(SizeClassArena, TheRestOfAFullChunkServesTheClassOfItsSize) {
    SizeClassArena arena;
    // A chunk holds 8 octets of link, then 1,365 blocks of 48 and 8 octets
    // left over.
    auto* const first = static_cast<char*>(arena.allocate(48));
    for (int i = 1; i < 1365; ++i)
        arena.allocate(48);
    EXPECT_EQ(SizeClassArena::chunkOctets, arena.chunkBytes());
    arena.allocate(48);
    EXPECT_EQ(2 * SizeClassArena::chunkOctets, arena.chunkBytes());
    EXPECT_EQ(first + 1365 * 48, arena.allocate(8));
    EXPECT_EQ(1366u * 48 + 8, arena.liveBytes());
}

TEST(SizeClassArena, ThreadsFreeingIntoOneAnothersLanesNeverShareABlock) {
    SizeClassArena arena;
    auto const work = [&arena](char mark) {
        std::vector<std::pair<char*, std::size_t>> held;
        for (int round = 0; round < 200; ++round) {
            for (std::size_t i = 0; i < 64; ++i) {
                std::size_t const size = 24 + 4 * (i % 16);
                held.emplace_back(static_cast<char*>(arena.allocate(size)), size);
                std::memset(held.back().first, mark, size);
            }
            // Frees every other block, checking that none was overwritten.
            std::vector<std::pair<char*, std::size_t>> kept;
            for (std::size_t i = 0; i < held.size(); ++i) {
                auto const [block, size] = held[i];
                for (std::size_t o = 0; o < size; ++o)
                    ASSERT_EQ(mark, block[o]);
                if (i % 2 == 0)
                    arena.deallocate(block, size);
                else
                    kept.push_back(held[i]);
            }
            held.swap(kept);
        }
        for (auto const& [block, size] : held)
            arena.deallocate(block, size);
    };
    std::thread other(work, 'b');
    work('a');
    other.join();
    EXPECT_EQ(0u, arena.liveBytes());
}

}  // namespace
