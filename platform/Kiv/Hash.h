// The framework's hash of a single attribute value, and its seed.
//
// Interned values, keys and sets all hash through hashU64 so that one good
// mixer serves them: the 64-bit finaliser of MurmurHash3 over the value
// combined with the seed, folded to 32 bits. Collections that want their own
// salt pass their own seed (hashSeed ^ salt).
#pragma once

#include <cstdint>

#include "Kiv/Types.h"

namespace Kiv {

inline constexpr U32 hashSeed = 0x9e3779b9u;

constexpr U32 hashU64(U64 value, U32 seed = hashSeed) {
    U64 h = value ^ (static_cast<U64>(seed) * 0xff51afd7ed558ccdull);
    h ^= h >> 33;
    h *= 0xff51afd7ed558ccdull;
    h ^= h >> 33;
    h *= 0xc4ceb9fe1a85ec53ull;
    h ^= h >> 33;
    return static_cast<U32>(h) ^ static_cast<U32>(h >> 32);
}

inline U32 hashPointer(void const* p, U32 seed = hashSeed) {
    return hashU64(reinterpret_cast<std::uintptr_t>(p), seed);
}

// Mixes another value into a running hash (for values of several attributes).
constexpr U32 hashCombine(U32 running, U64 value) {
    return hashU64(value, running);
}

}  // namespace Kiv
