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
//   TailVector       the member vector of a list: its own heap storage or
//                    the tail of the list object's allocation (one block).
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
#include <cstddef>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <new>
#include <span>
#include <type_traits>
#include <utility>

#include "Kiv/Assert.h"
#include "Kiv/Types.h"
#include "KivStash/StashAllocator.h"
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
    static_assert(std::is_trivially_copyable_v<Value> && std::is_trivially_destructible_v<Value>);

  public:
    using Traits = CommListTraits<Value>;

    explicit ReceivedValues(std::span<Value const> values) : size_(values.size()) {
        std::uninitialized_copy(values.begin(), values.end(), storage(size_));
        sortUnique();
    }
    // The elements of an attribute's value octets, in wire order; a partial
    // element at the end is ignored (attribute parsing rejects those).
    ReceivedValues(U8 const* octets, std::size_t size) : size_(size / Traits::wireOctets) {
        Value* out = storage(size_);
        for (std::size_t i = 0; i < size_; ++i)
            ::new (static_cast<void*>(out + i))
                Value(Traits::fromWire(octets + i * Traits::wireOctets));
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

    // Raw room, not an array of values: their default constructors would
    // zero the whole buffer on every call.
    alignas(Value) unsigned char stack_[stackCapacity * sizeof(Value)];
    std::unique_ptr<Value[]> heap_;
    Value* data_ = reinterpret_cast<Value*>(stack_);
    std::size_t size_;
};

// The member vector of a list: a std::vector-like sequence whose storage is
// either its own (heap, for lists built value by value) or the tail of the
// list object's own allocation (tailIs, for lists built at their final size:
// one allocation per list, and a probe that compares members touches only the
// list's block). Growing past a tail moves to the heap; the tail is never
// freed by the vector, it goes with the object. 16 bytes (a std::vector is
// 24).
template <class T>
class TailVector {
  public:
    using value_type = T;
    using size_type = std::size_t;
    using iterator = T*;
    using const_iterator = T const*;
    using reference = T&;
    using const_reference = T const&;

    TailVector() noexcept = default;
    template <class It>
    TailVector(It first, It last) {
        assign(first, last);
    }
    TailVector(std::initializer_list<T> values) { assign(values.begin(), values.end()); }
    TailVector(TailVector const& other) { assign(other.begin(), other.end()); }
    TailVector(TailVector&& other) noexcept(false) { *this = std::move(other); }
    TailVector& operator=(TailVector const& other) {
        if (this != &other)
            assign(other.begin(), other.end());
        return *this;
    }
    TailVector& operator=(TailVector&& other) {
        if (this == &other)
            return *this;
        if (!other.onHeap()) {
            assign(std::make_move_iterator(other.begin()), std::make_move_iterator(other.end()));
            other.clear();
            return *this;
        }
        clear();
        release();
        data_ = std::exchange(other.data_, nullptr);
        size_ = std::exchange(other.size_, 0);
        capacity_ = std::exchange(other.capacity_, 0);
        return *this;
    }
    ~TailVector() {
        clear();
        release();
    }

    T* data() noexcept { return data_; }
    T const* data() const noexcept { return data_; }
    iterator begin() noexcept { return data_; }
    iterator end() noexcept { return data_ + size_; }
    const_iterator begin() const noexcept { return data_; }
    const_iterator end() const noexcept { return data_ + size_; }
    const_iterator cbegin() const noexcept { return begin(); }
    const_iterator cend() const noexcept { return end(); }
    size_type size() const noexcept { return size_; }
    bool empty() const noexcept { return size_ == 0; }
    size_type capacity() const noexcept { return capacity_ & ~tailBit; }
    T& operator[](size_type i) noexcept { return data_[i]; }
    T const& operator[](size_type i) const noexcept { return data_[i]; }
    T& front() noexcept { return data_[0]; }
    T const& front() const noexcept { return data_[0]; }
    T& back() noexcept { return data_[size_ - 1]; }
    T const& back() const noexcept { return data_[size_ - 1]; }

    void reserve(size_type n) {
        if (n > capacity())
            regrow(n);
    }
    void push_back(T const& value) { emplace_back(value); }
    void push_back(T&& value) { emplace_back(std::move(value)); }
    template <class... Args>
    T& emplace_back(Args&&... args) {
        if (size_ == capacity())
            regrow(std::max<size_type>(4, 2 * capacity()));
        T* slot = ::new (static_cast<void*>(data_ + size_)) T(std::forward<Args>(args)...);
        ++size_;
        return *slot;
    }
    iterator erase(const_iterator first, const_iterator last) {
        T* const at = data_ + (first - data_);
        T* const newEnd = std::move(data_ + (last - data_), end(), at);
        std::destroy(newEnd, end());
        size_ = static_cast<U32>(newEnd - data_);
        return at;
    }
    template <class It>
    void assign(It first, It last) {
        clear();
        reserve(static_cast<size_type>(std::distance(first, last)));
        for (; first != last; ++first)
            ::new (static_cast<void*>(data_ + size_++)) T(*first);
    }
    void clear() noexcept {
        std::destroy(begin(), end());
        size_ = 0;
    }
    // Exactly as much heap as there are members (a tail stays as it is).
    void shrink_to_fit() {
        if (onHeap() && capacity() > size_)
            regrow(size_);
    }

    // Makes the empty vector use `tail`, room for `capacity` elements that
    // the owner allocated and frees.
    void tailIs(T* tail, size_type capacity) noexcept {
        KIV_ASSERT(size_ == 0 && data_ == nullptr && capacity < tailBit);
        data_ = tail;
        capacity_ = static_cast<U32>(capacity) | tailBit;
    }

    friend bool operator==(TailVector const& a, TailVector const& b) {
        return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin());
    }

  private:
    static constexpr U32 tailBit = U32(1) << 31;
    bool onHeap() const noexcept { return (capacity_ & tailBit) == 0; }
    void release() noexcept {
        if (onHeap() && data_ != nullptr)
            KivStash::StashAllocator<T>().deallocate(data_, capacity());
        data_ = nullptr;
        capacity_ = 0;
    }
    void regrow(size_type n) {
        KIV_ASSERT(n >= size_ && n < tailBit);
        T* const fresh = n != 0 ? KivStash::StashAllocator<T>().allocate(n) : nullptr;
        std::uninitialized_move(begin(), end(), fresh);
        std::destroy(begin(), end());
        U32 const size = size_;
        release();
        data_ = fresh;
        size_ = size;
        capacity_ = static_cast<U32>(n);
    }

    T* data_ = nullptr;
    U32 size_ = 0;
    U32 capacity_ = 0;  // tailBit: the storage is the owner's
};

// The block of a list whose member vector lives in its tail: the object,
// then room for `capacity` elements. The list class declares a plain
// operator new and delete (VOBGP_LIST_TAIL_DELETE), so that deleting it
// frees the block.
template <class List, class T>
void* tailBlock(std::size_t capacity) {
    static_assert(alignof(T) <= alignof(List));
    return List::operator new(sizeof(List) + capacity * sizeof(T));
}
template <class T, class List>
T* tailOf(List* list) {
    return reinterpret_cast<T*>(reinterpret_cast<char*>(list) + sizeof(List));
}

// In a list class: frees whatever block the list came in (the sized global
// delete would be told the size of the object alone); the plain new is its
// match for lists without a tail.
#define VOBGP_LIST_TAIL_DELETE                    \
    static void* operator new(std::size_t size) { \
        return ::operator new(size);              \
    }                                             \
    static void operator delete(void* block) {    \
        ::operator delete(block);                 \
    }

}  // namespace Routing::Bgp
