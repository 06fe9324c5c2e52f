#include "Routing/Bgp/Serialize.h"

#include <cstring>

#include "Kiv/Assert.h"

namespace Routing::Bgp {

Serialize::~Serialize() {
    if (onHeap())
        delete[] buffer_;
}

void Serialize::sizeIs(U32 size) {
    KIV_ASSERT(size <= capacity_);
    size_ = size;
}

U8* Serialize::reserve(U32 length) {
    if (capacity_ - size_ < length) {
        // Doubling keeps a long run of small appends linear overall.
        U64 const needed = U64(size_) + length;
        U64 const doubled = U64(capacity_) * 2;
        U64 const newCapacity = doubled > needed ? doubled : needed;
        KIV_ASSERT(newCapacity <= U64(~U32(0)), "newCapacity <= 0xFFFFFFFF");
        growBuffer(static_cast<U32>(newCapacity));
    }
    U8* out = buffer_ + size_;
    size_ += length;
    return out;
}

void Serialize::growBuffer(U32 newCapacity) {
    if (newCapacity <= capacity_)
        return;
    U8* larger = new U8[newCapacity];
    std::memcpy(larger, buffer_, size_);
    if (onHeap())
        delete[] buffer_;
    buffer_ = larger;
    capacity_ = newCapacity;
}

void Serialize::addU16hton(U16 value) {
    U8* out = reserve(2);
    out[0] = static_cast<U8>(value >> 8);
    out[1] = static_cast<U8>(value);
}

void Serialize::addU32hton(U32 value) {
    U8* out = reserve(4);
    for (int i = 3; i >= 0; --i, value >>= 8)
        out[i] = static_cast<U8>(value);
}

void Serialize::addU64hton(U64 value) {
    U8* out = reserve(8);
    for (int i = 7; i >= 0; --i, value >>= 8)
        out[i] = static_cast<U8>(value);
}

void Serialize::addOctets(void const* octets, U32 length) {
    if (length == 0)
        return;
    std::memcpy(reserve(length), octets, length);
}

Kiv::String Serialize::serializedString(U32 startOffset) const {
    KIV_ASSERT(startOffset <= size_);
    return Kiv::String(reinterpret_cast<char const*>(buffer_) + startOffset, size_ - startOffset);
}

}  // namespace Routing::Bgp
