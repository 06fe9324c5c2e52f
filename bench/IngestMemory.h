// What the whole-table ingest benchmark (IngestBench.cpp) counts of memory:
// the heap in use, and where a standard or large list's block goes.
#pragma once

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <cstdlib>

#include "VoBgp/VoBgpCommunityList.h"
#if __has_include("Vok/SizeClassArena.h")
#include "Vok/SizeClassArena.h"
#endif

namespace IngestBench {

// glibc's heap and mmapped chunks in use, headers and rounding included.
// The size-class arena's chunks count by the blocks in use in them: an
// earlier benchmark's freed blocks wait in the arena for reuse, so its chunk
// growth alone would undercount a later run.
inline std::size_t heapInUse() {
    struct mallinfo2 const info = mallinfo2();
    std::size_t bytes = info.uordblks + info.hblkhd;
#if __has_include("Vok/SizeClassArena.h")
    Vok::SizeClassArena const& arena = Vok::SizeClassArena::global();
    bytes = bytes - arena.chunkBytes() + arena.liveBytes();
#endif
    return bytes;
}

#if __has_include("Vok/SizeClassArena.h")
// Where a list's values start: after the handle's fields where the handle
// says where they end (from there on they fill its tail padding), else after
// the whole handle.
template <class Handle>
constexpr std::size_t listValuesOffset() {
    if constexpr (requires { Handle::fieldsOctets; })
        return Handle::fieldsOctets;
    else
        return sizeof(Handle);
}

// Where the block of each list of a standard (kind 0) or large (1) list
// table goes, per list: B_payload the handle and the values; B_arena the
// size-class arena's block (the payload in 8-octet steps); B_malloc what
// glibc's malloc takes for the same request, measured (its usable size plus
// the 8-octet chunk header); values, the mean value count.
inline void blockCounters(benchmark::State& bench, Vok::DedupHashTable const& table,
                          unsigned kind) {
    using namespace Routing::Bgp;
    double payload = 0, arena = 0, chunks = 0, values = 0, lists = 0;
    table.forEach([&](Vok::DedupHandle const* handle) {
        std::size_t const count = kind == 0 ? Vok::fromDedupHandle<CommList>(handle)->comms()
                                            : Vok::fromDedupHandle<LargeCommList>(handle)->comms();
        std::size_t const request =
            std::max(sizeof(Vok::DedupHandle),
                     listValuesOffset<Vok::DedupHandle>() + count * (kind == 0 ? 4 : 12));
        void* const probe = std::malloc(request);
        chunks += double(malloc_usable_size(probe) + 8);
        std::free(probe);
        payload += double(request);
        arena += double(Vok::SizeClassArena::blockOctets(request));
        values += double(count);
        lists += 1;
    });
    bench.counters["B_payload"] = payload / lists;
    bench.counters["B_arena"] = arena / lists;
    bench.counters["B_malloc"] = chunks / lists;
    bench.counters["values"] = values / lists;
}
#endif

}  // namespace IngestBench
