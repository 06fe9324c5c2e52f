// Values crafted to share one interning hash (hash()), the way a peer that
// wants to flood a table would make them: the hash each kind shows is fixed
// and public, so collisions can be computed offline. The flooding benchmark
// interns them against random values; unit tests check with a few of them
// that tables spread them anyway.
//
// Three families:
//   - the 8-octet extended community's hash is the MurmurHash3 64-bit
//     finaliser of the value, a bijection: any 64-bit finaliser output whose
//     halves fold to the target is inverted back to a value.
//   - IPv6 values and standard and large lists hash octets with Jenkins'
//     one-at-a-time, whose step for one octet is invertible. A meet in the
//     middle finds octet strings that end in one target state: a table of
//     the states from which the last three octets lead to the target (their
//     last octet confined to 64 values the caller chooses), and for each of
//     many prefixes a walk over two free octets before them, looked up in
//     that table. Each match is a colliding string; prefixes differ, so all
//     strings do.
//   - lists of interned members hash the members' addresses: colliders are
//     found at run time among combinations of live members.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "Acl/CommunityValue.h"
#include "Kiv/Hash.h"
#include "Kiv/Types.h"
#include "VoBgp/ExtCommIp6.h"

namespace HashColliders {

// ---- the 64-bit finaliser (Kiv::hashU64) ----

constexpr U64 inverseOdd(U64 a) {
    U64 x = a;  // Newton's iteration doubles the correct low bits each step
    for (int i = 0; i < 6; ++i)
        x *= 2 - a * x;
    return x;
}

// The value whose Kiv::hashU64 gives `h` before the fold to 32 bits.
constexpr U64 hashU64Preimage(U64 h, U32 seed = Kiv::hashSeed) {
    h ^= h >> 33;
    h *= inverseOdd(0xc4ceb9fe1a85ec53ull);
    h ^= h >> 33;
    h *= inverseOdd(0xff51afd7ed558ccdull);
    h ^= h >> 33;
    return h ^ (static_cast<U64>(seed) * 0xff51afd7ed558ccdull);
}

// `count` distinct values whose Kiv::hashU64 is `target`.
inline std::vector<U64> hashU64Colliders(std::size_t count, U32 target) {
    std::vector<U64> values;
    for (U64 high = 1; values.size() < count; ++high)
        values.push_back(hashU64Preimage(high << 32 | (target ^ static_cast<U32>(high))));
    return values;
}

// ---- Jenkins one-at-a-time (Vok::HashMix) ----

constexpr U32 oaatStep(U32 h, U8 octet) {
    h += octet;
    h += h << 10;
    return h ^ (h >> 6);
}
constexpr U32 oaatUnstep(U32 h, U8 octet) {
    h ^= h >> 6;  // x ^ x>>6 inverted: y ^ y>>6 ^ y>>12 ^ ... ^ y>>30
    h ^= h >> 12;
    h ^= h >> 24;
    h *= static_cast<U32>(inverseOdd(1025));
    return h - octet;
}
// The state before the final mix (which is a bijection: equal states, equal
// hashes).
inline U32 oaatState(U8 const* octets, std::size_t n, U32 h = 0) {
    for (std::size_t i = 0; i < n; ++i)
        h = oaatStep(h, octets[i]);
    return h;
}

// Octet strings of length N that all reach state `target`. The caller
// fills each string except positions `free0` < `free1` < N - 3 and the last
// three (fill(attempt, octets) must make strings of different attempts
// differ); the last octet takes values lastLow .. lastLow + 63.
// `tableBits` (16 to 22) trades table memory (8 bytes an entry) for search
// time: each prefix yields 2^(tableBits - 16) strings on average.
template <std::size_t N, class Fill>
std::vector<std::array<U8, N>> oaatColliders(std::size_t count, U32 target, std::size_t free0,
                                             std::size_t free1, U8 lastLow, Fill fill,
                                             unsigned tableBits = 22) {
    // (state << 32 | last three octets), sorted by state.
    std::vector<U64> table;
    std::size_t const entries = std::size_t(1) << tableBits;
    table.reserve(entries);
    for (std::size_t s = 0; s < entries; ++s) {
        auto const a = static_cast<U8>(s), b = static_cast<U8>(s >> 8);
        auto const c = static_cast<U8>(lastLow + ((s >> 16) & 63));
        U32 const state = oaatUnstep(oaatUnstep(oaatUnstep(target, c), b), a);
        table.push_back(U64(state) << 32 | U32(a) | U32(b) << 8 | U32(c) << 16);
    }
    std::sort(table.begin(), table.end());
    // Where each value of the state's top bits starts in the table (about
    // four entries a bucket), so a lookup reads two places, not a binary
    // search's twenty.
    unsigned const indexBits = tableBits - 2;
    std::vector<U32> index((std::size_t(1) << indexBits) + 1);
    for (std::size_t b = 0, e = 0; b < index.size(); ++b) {
        while (e < table.size() && (table[e] >> (64 - indexBits)) < b)
            ++e;
        index[b] = static_cast<U32>(e);
    }
    std::vector<std::array<U8, N>> found;
    for (std::size_t attempt = 0; found.size() < count; ++attempt) {
        std::array<U8, N> octets{};
        fill(attempt, octets);
        U32 const before = oaatState(octets.data(), free0);
        for (unsigned x = 0; x < 65536 && found.size() < count; ++x) {
            octets[free0] = static_cast<U8>(x);
            octets[free1] = static_cast<U8>(x >> 8);
            U32 const h = oaatState(octets.data() + free0, N - 3 - free0, before);
            std::size_t const bucket = h >> (32 - indexBits);
            for (std::size_t e = index[bucket]; e < index[bucket + 1] && found.size() < count;
                 ++e) {
                if ((table[e] >> 32) != h)
                    continue;
                octets[N - 3] = static_cast<U8>(table[e]);
                octets[N - 2] = static_cast<U8>(table[e] >> 8);
                octets[N - 1] = static_cast<U8>(table[e] >> 16);
                found.push_back(octets);
            }
        }
    }
    return found;
}

// ---- identities (Vok::HashMix::mixIdentity) ----

// A list of interned members (an extended community's classification list)
// hashes its members' addresses, low four octets each, which nothing outside
// the process knows: its colliders are found at run time, among the
// two-member lists {firsts[i], seconds[j]}, by the birthday bound (n firsts
// and n seconds, fewer than 65,536 each, give about n^4 / 2^33 pairs: 128 for
// n = 1,024). Returns pairs of (i, j) whose lists share one hash.
inline std::vector<std::array<std::array<U32, 2>, 2>> identityPairColliders(
    std::vector<void const*> const& firsts, std::vector<void const*> const& seconds) {
    auto const mix = [](U32 state, void const* p) {
        auto const address = static_cast<U32>(reinterpret_cast<std::uintptr_t>(p));
        for (int shift = 0; shift < 32; shift += 8)
            state = oaatStep(state, static_cast<U8>(address >> shift));
        return state;
    };
    std::vector<U64> keyed;  // state << 32 | i << 16 | j
    keyed.reserve(firsts.size() * seconds.size());
    for (std::size_t i = 0; i < firsts.size(); ++i) {
        U32 const state = mix(0, firsts[i]);
        for (std::size_t j = 0; j < seconds.size(); ++j)
            keyed.push_back(U64(mix(state, seconds[j])) << 32 | i << 16 | j);
    }
    std::sort(keyed.begin(), keyed.end());
    std::vector<std::array<std::array<U32, 2>, 2>> pairs;
    auto const indices = [](U64 k) {
        return std::array<U32, 2>{U32(k >> 16 & 0xFFFF), U32(k & 0xFFFF)};
    };
    for (std::size_t k = 1; k < keyed.size(); ++k)
        if (keyed[k] >> 32 == keyed[k - 1] >> 32)
            pairs.push_back({indices(keyed[k - 1]), indices(keyed[k++])});
    return pairs;
}

// ---- the kinds ----

// Any state: what every string below ends in.
inline constexpr U32 oaatTarget = 0x5eed1e55u;

// IPv6-address-specific route targets (RFC 5701: type 0x00, subtype 0x02)
// with one ExtCommIp6Content::hash(): octets type, subtype, address, local
// administrator low then high octet; the address varies.
inline std::vector<Routing::Bgp::ExtCommIp6Content> extCommIp6Colliders(std::size_t count,
                                                                        unsigned tableBits = 22) {
    auto strings = oaatColliders<20>(
        count, oaatTarget, 15, 16, 0,
        [](std::size_t attempt, std::array<U8, 20>& o) {
            o[1] = 0x02;
            for (std::size_t i = 0; i < 8; ++i)
                o[2 + i] = static_cast<U8>(U64(attempt) >> (8 * i));
        },
        tableBits);
    std::vector<Routing::Bgp::ExtCommIp6Content> contents;
    for (auto const& o : strings) {
        Vonet::Ip6Addr::Octets addr;
        std::copy(o.begin() + 2, o.begin() + 18, addr.begin());
        contents.push_back(
            {o[0], o[1], Vonet::Ip6Addr(addr), static_cast<U16>(o[18] | o[19] << 8)});
    }
    return contents;
}

// Standard community lists of four, sorted as the lists keep them (top
// octets 0x00, 0x01, 0x02 and 0x80-0xbf), with one list hash (each
// community's four octets, least significant first).
inline std::vector<std::array<U32, 4>> commListColliders(std::size_t count,
                                                         unsigned tableBits = 22) {
    auto strings = oaatColliders<16>(
        count, oaatTarget, 10, 12, 0x80,
        [](std::size_t attempt, std::array<U8, 16>& o) {
            for (std::size_t i = 0; i < 6; ++i)
                o[i + i / 3] = static_cast<U8>(U64(attempt) >> (8 * i));
            o[7] = 0x01;
            o[11] = 0x02;
        },
        tableBits);
    std::vector<std::array<U32, 4>> lists;
    for (auto const& o : strings) {
        std::array<U32, 4> list;
        for (std::size_t c = 0; c < 4; ++c)
            list[c] = U32(o[4 * c]) | U32(o[4 * c + 1]) << 8 | U32(o[4 * c + 2]) << 16 |
                      U32(o[4 * c + 3]) << 24;
        lists.push_back(list);
    }
    return lists;
}

// Large community lists of two (global administrators 1 and 2, so sorted),
// with one list hash (the three fields of each, four octets each, least
// significant first).
inline std::vector<std::array<Acl::CommunityValue, 2>> largeCommListColliders(
    std::size_t count, unsigned tableBits = 22) {
    auto strings = oaatColliders<24>(
        count, oaatTarget, 19, 20, 0,
        [](std::size_t attempt, std::array<U8, 24>& o) {
            o[0] = 1;
            for (std::size_t i = 0; i < 8; ++i)
                o[4 + i] = static_cast<U8>(U64(attempt) >> (8 * i));
            o[12] = 2;
        },
        tableBits);
    auto word = [](std::array<U8, 24> const& o, std::size_t w) {
        return U32(o[4 * w]) | U32(o[4 * w + 1]) << 8 | U32(o[4 * w + 2]) << 16 |
               U32(o[4 * w + 3]) << 24;
    };
    std::vector<std::array<Acl::CommunityValue, 2>> lists;
    for (auto const& o : strings)
        lists.push_back({Acl::CommunityValue(word(o, 0), word(o, 1), word(o, 2)),
                         Acl::CommunityValue(word(o, 3), word(o, 4), word(o, 5))});
    return lists;
}

}  // namespace HashColliders
