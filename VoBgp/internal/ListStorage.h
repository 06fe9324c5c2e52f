// Part of VoBgp/VoBgpCommunityList.h; include that header, not this one.
//
// What every list kind's fast interning path shares, written once for the
// standard, large, extended and IPv6-address-specific lists:
//
//   ReceivedValues   a route's values as received (any order, duplicates
//                    allowed), sorted and made unique in a buffer on the
//                    stack (the heap only past stackCapacity values), so
//                    that finding the interned list equal to them builds
//                    nothing.
//   ListPlacement    where a list's table places it: a seeded, word-wise
//                    hash of its values (Vok/PlacementHash.h). The lists'
//                    public hash() is fixed and cheap to collide on purpose;
//                    placing by it would let a peer pile crafted lists into
//                    one probe chain. The object and a lookup from received
//                    values feed the same words, so they meet.
//
// A value kind's CommListTraits<Value> spells it as 32-bit words (word,
// words) and reads it from the wire (wireOctets, fromWire).
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <span>

#include "Kiv/Types.h"
#include "Vok/PlacementHash.h"

namespace Routing::Bgp {

template <class Value>
struct CommListTraits;

// A 32-bit word of a received attribute, network order.
inline U32 wireU32(U8 const* p) {
    return U32(p[0]) << 24 | U32(p[1]) << 16 | U32(p[2]) << 8 | p[3];
}

// Feeds 32-bit words two at a time into a Vok::PlacementHash; the count of
// values goes last, so a list and its prefix padded with zero words differ.
class ListPlacement {
  public:
    void word(U32 w) noexcept {
        if (half_) {
            hash_.mixU64(pending_ | w);
            half_ = false;
        } else {
            pending_ = U64(w) << 32;
            half_ = true;
        }
    }
    U32 result(std::size_t values) noexcept {
        if (half_)
            hash_.mixU64(pending_);
        hash_.mixU64(values);
        return hash_.result();
    }

    // The placement of the values key(element) for each element of `range`.
    template <class Value, class Range, class Key>
    static U32 of(Range const& range, Key&& key) noexcept {
        ListPlacement placement;
        std::size_t count = 0;
        for (auto const& element : range) {
            Value const& value = key(element);
            for (U32 i = 0; i < CommListTraits<Value>::words; ++i)
                placement.word(CommListTraits<Value>::word(value, i));
            ++count;
        }
        return placement.result(count);
    }

  private:
    Vok::PlacementHash hash_;
    U64 pending_ = 0;
    bool half_ = false;
};

// Values sorted ascending without duplicates, held on the stack up to
// stackCapacity of them.
template <class Value, std::size_t stackCapacity>
class ReceivedValues {
  public:
    using Traits = CommListTraits<Value>;

    explicit ReceivedValues(std::span<Value const> values) : size_(values.size()) {
        std::copy(values.begin(), values.end(), storage(size_));
        sortUnique();
    }
    // The elements of an attribute's value octets, in wire order; a partial
    // element at the end is ignored (attribute parsing rejects those).
    ReceivedValues(U8 const* octets, std::size_t size) : size_(size / Traits::wireOctets) {
        Value* out = storage(size_);
        for (std::size_t i = 0; i < size_; ++i)
            out[i] = Traits::fromWire(octets + i * Traits::wireOctets);
        sortUnique();
    }
    ReceivedValues(ReceivedValues const&) = delete;
    ReceivedValues& operator=(ReceivedValues const&) = delete;

    Value const* begin() const { return data_; }
    Value const* end() const { return data_ + size_; }
    std::size_t size() const { return size_; }
    std::span<Value const> span() const { return {data_, size_}; }
    U32 placement() const {
        return ListPlacement::of<Value>(span(), [](Value const& v) -> Value const& { return v; });
    }
    // Whether `members` (a list's, key(member) ascending) holds exactly these.
    template <class Members, class Key>
    bool sameAs(Members const& members, Key&& key) const {
        if (members.size() != size_)
            return false;
        Value const* mine = data_;
        for (auto const& member : members)
            if (!(key(member) == *mine++))
                return false;
        return true;
    }

  private:
    Value* storage(std::size_t count) {
        if (count > stackCapacity) {
            heap_ = std::make_unique<Value[]>(count);
            data_ = heap_.get();
        }
        return data_;
    }
    void sortUnique() {
        std::sort(data_, data_ + size_);
        size_ = static_cast<std::size_t>(std::unique(data_, data_ + size_) - data_);
    }

    std::array<Value, stackCapacity> stack_;
    std::unique_ptr<Value[]> heap_;
    Value* data_ = stack_.data();
    std::size_t size_;
};

}  // namespace Routing::Bgp
