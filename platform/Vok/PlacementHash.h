// Vok::PlacementHash: where a dedup table puts an entry.
//
// The hash an interned type shows its callers (`hash()`) is fixed and public,
// so a peer can craft any number of distinct values that share one. Tables
// therefore place entries by this hash instead: keyed with a random seed drawn
// once per process, so placement cannot be predicted from outside, and fed a
// word at a time, so it costs a multiply per word rather than a few operations
// per octet.
//
// Contract: within one process, equal word sequences give equal results;
// across processes results differ. An object's placement hash is computed once,
// when it is interned, and kept in its handle (see DedupHandle.h); a lookup
// computes the same value from the candidate content without building an
// object.
//
// The mixer is the 64x64->128-bit multiply-fold used by several fast keyed
// hashes: each word is xored into the state and multiplied by a seeded odd
// constant, and the two halves of the product are folded together. It is not
// a cryptographic hash; it is enough that collisions cannot be computed
// without the seed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "Kiv/Types.h"

namespace Vok {

namespace internal {

// The per-process seed: two words, drawn from the system's entropy source on
// first use. Call placementSeed() rather than reading these.
struct PlacementSeed {
    U64 state;
    U64 multiplier;  // odd
};
PlacementSeed const& placementSeedDraw() noexcept;

inline U64 multiplyFold(U64 a, U64 b) noexcept {
#if defined(__SIZEOF_INT128__)
    unsigned __int128 product = static_cast<unsigned __int128>(a) * b;
    return static_cast<U64>(product) ^ static_cast<U64>(product >> 64);
#else
    // 32-bit targets: the same product from four 32x32->64 multiplies.
    U64 const aLo = a & 0xffffffffu, aHi = a >> 32, bLo = b & 0xffffffffu, bHi = b >> 32;
    U64 const loLo = aLo * bLo, hiLo = aHi * bLo, loHi = aLo * bHi, hiHi = aHi * bHi;
    U64 const cross = (loLo >> 32) + (hiLo & 0xffffffffu) + loHi;
    U64 const lo = (cross << 32) | (loLo & 0xffffffffu);
    U64 const hi = hiHi + (hiLo >> 32) + (cross >> 32);
    return lo ^ hi;
#endif
}

}  // namespace internal

inline internal::PlacementSeed const& placementSeed() noexcept {
    // A copy, so that a hash reads the seed's words without first loading
    // where they are.
    static internal::PlacementSeed const seed = internal::placementSeedDraw();
    return seed;
}

class PlacementHash {
  public:
    PlacementHash() noexcept : PlacementHash(placementSeed()) {}

    void mixU64(U64 word) noexcept { state_ = internal::multiplyFold(state_ ^ word, multiplier_); }
    void mixU32(U32 word) noexcept { mixU64(word); }
    // Octets in whole words; the length is mixed too, so that a sequence and
    // the same sequence with zero octets appended differ.
    void mixOctets(void const* data, std::size_t size) noexcept {
        auto const* p = static_cast<unsigned char const*>(data);
        for (; size >= 8; p += 8, size -= 8) {
            U64 word;
            std::memcpy(&word, p, 8);
            mixU64(word);
        }
        U64 tail = 0;
        std::memcpy(&tail, p, size);
        mixU64(tail ^ (static_cast<U64>(size) << 59));
    }
    void mixPointer(void const* p) noexcept { mixU64(reinterpret_cast<std::uintptr_t>(p)); }

    U32 result() const noexcept {
        U64 const h = internal::multiplyFold(state_ ^ (state_ >> 29), multiplier_);
        return static_cast<U32>(h) ^ static_cast<U32>(h >> 32);
    }

  private:
    explicit PlacementHash(internal::PlacementSeed const& seed) noexcept
        : state_(seed.state), multiplier_(seed.multiplier) {}

    U64 state_;
    U64 multiplier_;
};

// The placement hash of one word (single values, hashes of lists).
inline U32 placementHashOf(U64 word) noexcept {
    PlacementHash h;
    h.mixU64(word);
    return h.result();
}

}  // namespace Vok
