// Routing::Bgp::Serialize: the octet buffer that BGP messages and path
// attributes are written into.
//
// The first 4096 octets live inside the object, so an ordinary attribute
// serialised on the stack needs no heap allocation. Appending past the
// capacity moves the octets to a heap buffer of at least twice the size;
// growBuffer() does the same in advance when the final size is known.
// Multi-octet values are written in network byte order.
#pragma once

#include <cstddef>

#include "Kiv/String.h"
#include "Kiv/Types.h"

namespace Routing::Bgp {

class Serialize {
  public:
    static constexpr U32 inlineCapacity = 4096;

    Serialize() noexcept = default;
    Serialize(Serialize const&) = delete;
    Serialize& operator=(Serialize const&) = delete;
    ~Serialize();

    U8 const* data() const { return buffer_; }
    // Octets written so far; the next octet goes to this offset.
    U32 size() const { return size_; }
    // Moves the write position; at most the capacity. Writers that fill in a
    // header after the value move back, write, and restore the old size.
    void sizeIs(U32 size);
    U32 capacity() const { return capacity_; }
    bool onHeap() const { return buffer_ != inline_; }

    void addU8(U8 value) { *reserve(1) = value; }
    void addU16hton(U16 value);
    void addU32hton(U32 value);
    void addU64hton(U64 value);
    // An IPv6 address, its 16 octets already in network order.
    void addIpv6Addr(U8 const (&address)[16]) { addOctets(address, sizeof address); }
    void addOctets(void const* octets, U32 length);

    // Makes room for `newCapacity` octets in all; never shrinks.
    void growBuffer(U32 newCapacity);

    // The octets from `startOffset` to the used size.
    Kiv::String serializedString(U32 startOffset) const;

  private:
    // Room for `length` more octets at the write position, which then advances.
    U8* reserve(U32 length);

    U8* buffer_ = inline_;
    U32 size_ = 0;
    U32 capacity_ = inlineCapacity;
    U8 inline_[inlineCapacity];
};

}  // namespace Routing::Bgp
