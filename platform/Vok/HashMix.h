// Vok::HashMix: Bob Jenkins' one-at-a-time hash, fed octet by octet.
//
// Community lists hash their elements' octets (or their interned members'
// identities) with it; an empty input hashes to 0, which the lists rely on.
#pragma once

#include <cstdint>

#include "Kiv/Types.h"

namespace Vok {

class HashMix {
  public:
    constexpr void mixOctet(U8 octet) {
        h_ += octet;
        h_ += h_ << 10;
        h_ ^= h_ >> 6;
    }
    // Four octets, least significant first.
    constexpr void mixU32(U32 value) {
        mixOctet(static_cast<U8>(value));
        mixOctet(static_cast<U8>(value >> 8));
        mixOctet(static_cast<U8>(value >> 16));
        mixOctet(static_cast<U8>(value >> 24));
    }
    // The identity of an object: the low four octets of its address.
    void mixIdentity(void const* p) {
        mixU32(static_cast<U32>(reinterpret_cast<std::uintptr_t>(p)));
    }

    constexpr U32 result() const {
        U32 h = h_;
        h += h << 3;
        h ^= h >> 11;
        h += h << 15;
        return h;
    }

  private:
    U32 h_ = 0;
};

}  // namespace Vok
