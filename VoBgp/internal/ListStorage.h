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
#include <cstdint>
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

// What every CommListTraits<Value> states alike: its element as `wordCount`
// 32-bit words, which are also its wire form (four octets each, network
// order, in word order), and the record kind of its lists in a stash image.
template <U32 wordCount, U32 stashRecordKind>
struct CommListValueShape {
    static constexpr U32 words = wordCount;
    static constexpr std::size_t wireOctets = 4 * std::size_t(wordCount);
    static constexpr U32 stashKind = stashRecordKind;
};

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
        if (size_ <= insertionLimit) {
            insertEach(out, octets);
            return;
        }
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
    // Worked out once: a per-thread cache's probe and the table's lookup
    // after its miss place the same values.
    U32 placement() const {
        if (!placementKnown_) {
            placement_ =
                ListPlacement::of<Value>(span(), [](Value const& v) -> Value const& { return v; });
            placementKnown_ = true;
        }
        return placement_;
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
    // Up to this many values, each is decoded straight into its sorted place
    // (a duplicate dropped there): one pass instead of a copy, a sort and a
    // unique. Routes send short lists, mostly in order already, where a
    // value costs one comparison.
    static constexpr std::size_t insertionLimit = 32;
    void insertEach(Value* out, U8 const* octets) {
        std::size_t n = 0;
        for (std::size_t i = 0; i < size_; ++i) {
            Value const value = Traits::fromWire(octets + i * Traits::wireOctets);
            std::size_t at = n;
            for (; at != 0 && value < out[at - 1]; --at)
                out[at] = out[at - 1];
            if (at != 0 && out[at - 1] == value) {
                // A duplicate (rare): close the gap the search opened.
                for (; at != n; ++at)
                    out[at] = out[at + 1];
                continue;
            }
            // A value wider than a register (a large community) is decoded
            // again here rather than copied: the compiler keeps the copy on
            // the stack as three 4-octet stores and reads it back as 8 + 4,
            // a load the stores cannot forward (a stall of about 12 cycles
            // per value, 1.2x the whole hit).
            if constexpr (sizeof(Value) > sizeof(U64))
                out[at] = Traits::fromWire(octets + i * Traits::wireOctets);
            else
                out[at] = value;
            ++n;
        }
        size_ = n;
    }
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
    mutable U32 placement_ = 0;
    mutable bool placementKnown_ = false;
};

// The member vector of a list: a std::vector-like sequence whose storage is
// either its own (heap, for lists built value by value) or the tail of the
// list object's own allocation (tailIs, for lists built at their final size:
// one allocation per list, and a probe that compares members touches only the
// list's block). Growing past a tail moves to the heap; the tail is never
// freed by the vector, it goes with the object.
//
// One 64-bit word, since every interned list carries one (a std::vector is
// 24 octets):
//   heap mode, bit 0 clear: the address of a heap block {U32 size; U32
//     capacity; T elements[capacity]}, or 0 when the vector has no storage
//     (empty, capacity 0);
//   tail mode, bit 0 set: size in bits 63..32, capacity in bits 31..11, and
//     in bits 10..1 the distance in octets from the end of the vector to its
//     storage (a list's vector is not always its last member, and a block
//     may hold other arrays before this one's).
// A tail the word cannot describe (beyond tailCapacityLimit elements or
// tailGapLimit octets away) is left unused and the vector takes the heap.
// The storage is found from the vector's own address: a vector in tail mode
// must not be copied as bytes (its copy and move copy the elements).
template <class T>
class TailVector {
    static_assert(alignof(T) <= 8, "heap blocks put the elements 8 octets in");

  public:
    using value_type = T;
    using size_type = std::size_t;
    using iterator = T*;
    using const_iterator = T const*;
    using reference = T&;
    using const_reference = T const&;

    static constexpr std::size_t tailCapacityLimit = std::size_t(1) << 21;
    static constexpr std::size_t tailGapLimit = std::size_t(1) << 10;

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
        if (other.inTail()) {
            assign(std::make_move_iterator(other.begin()), std::make_move_iterator(other.end()));
            other.clear();
            return *this;
        }
        clear();
        release();
        word_ = std::exchange(other.word_, 0);
        return *this;
    }
    ~TailVector() {
        clear();
        release();
    }

    T* data() noexcept { return const_cast<T*>(std::as_const(*this).data()); }
    T const* data() const noexcept {
        if (inTail())
            return tailData();
        Header const* const header = heap();
        return header != nullptr ? elementsOf(header) : nullptr;
    }
    // Elements and count with one look at the word, for the probes' loops.
    std::span<T const> span() const noexcept {
        if (inTail())
            return {tailData(), static_cast<size_type>(word_ >> sizeShift)};
        Header const* const header = heap();
        return header != nullptr ? std::span<T const>(elementsOf(header), header->size)
                                 : std::span<T const>();
    }
    iterator begin() noexcept { return data(); }
    iterator end() noexcept { return data() + size(); }
    const_iterator begin() const noexcept { return data(); }
    const_iterator end() const noexcept { return data() + size(); }
    const_iterator cbegin() const noexcept { return begin(); }
    const_iterator cend() const noexcept { return end(); }
    size_type size() const noexcept {
        if (inTail())
            return static_cast<size_type>(word_ >> sizeShift);
        Header const* const header = heap();
        return header != nullptr ? header->size : 0;
    }
    bool empty() const noexcept { return size() == 0; }
    size_type capacity() const noexcept {
        if (inTail())
            return static_cast<size_type>((word_ >> capacityShift) & (tailCapacityLimit - 1));
        Header const* const header = heap();
        return header != nullptr ? header->capacity : 0;
    }
    T& operator[](size_type i) noexcept { return data()[i]; }
    T const& operator[](size_type i) const noexcept { return data()[i]; }
    T& front() noexcept { return data()[0]; }
    T const& front() const noexcept { return data()[0]; }
    T& back() noexcept { return data()[size() - 1]; }
    T const& back() const noexcept { return data()[size() - 1]; }

    void reserve(size_type n) {
        if (n > capacity())
            regrow(n);
    }
    void push_back(T const& value) { emplace_back(value); }
    void push_back(T&& value) { emplace_back(std::move(value)); }
    template <class... Args>
    T& emplace_back(Args&&... args) {
        size_type const size = this->size();
        if (size == capacity())
            regrow(std::max<size_type>(4, 2 * size));
        T* slot = ::new (static_cast<void*>(data() + size)) T(std::forward<Args>(args)...);
        sizeIs(size + 1);
        return *slot;
    }
    // Grows to exactly `n` when more room is needed (the slot vectors that
    // use it grow rarely and stay small); new elements are value-initialized.
    void resize(size_type n) {
        size_type const size = this->size();
        if (n <= size) {
            std::destroy(data() + n, data() + size);
        } else {
            reserve(n);
            std::uninitialized_value_construct(data() + size, data() + n);
        }
        sizeIs(n);
    }
    iterator erase(const_iterator first, const_iterator last) {
        T* const base = data();
        T* const at = base + (first - base);
        T* const newEnd = std::move(base + (last - base), end(), at);
        std::destroy(newEnd, end());
        sizeIs(static_cast<size_type>(newEnd - base));
        return at;
    }
    template <class It>
    void assign(It first, It last) {
        clear();
        reserve(static_cast<size_type>(std::distance(first, last)));
        T* const out = data();
        size_type count = 0;
        for (; first != last; ++first, ++count)
            ::new (static_cast<void*>(out + count)) T(*first);
        sizeIs(count);
    }
    void clear() noexcept {
        std::destroy(begin(), end());
        sizeIs(0);
    }
    // Exactly as much heap as there are members (a tail stays as it is).
    void shrink_to_fit() {
        if (!inTail() && capacity() > size())
            regrow(size());
    }

    // Makes the empty vector use `tail`, room for `capacity` elements that
    // the owner allocated behind this vector and frees.
    void tailIs(T* tail, size_type capacity) noexcept {
        KIV_ASSERT(word_ == 0);
        std::ptrdiff_t const gap =
            reinterpret_cast<char*>(tail) - reinterpret_cast<char*>(this + 1);
        KIV_ASSERT(gap >= 0 && gap % alignof(T) == 0);
        if (capacity == 0 || capacity >= tailCapacityLimit ||
            static_cast<std::size_t>(gap) >= tailGapLimit)
            return;
        word_ = U64(capacity) << capacityShift | U64(gap) << gapShift | tailTag;
    }

    friend bool operator==(TailVector const& a, TailVector const& b) {
        return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin());
    }

  private:
    struct Header {
        U32 size;
        U32 capacity;
    };
    static constexpr std::size_t headerOctets = 8;
    static constexpr U64 tailTag = 1;
    static constexpr unsigned gapShift = 1;
    static constexpr unsigned capacityShift = 11;
    static constexpr unsigned sizeShift = 32;

    bool inTail() const noexcept { return (word_ & tailTag) != 0; }
    T const* tailData() const noexcept {
        return reinterpret_cast<T const*>(reinterpret_cast<char const*>(this + 1) +
                                          ((word_ >> gapShift) & (tailGapLimit - 1)));
    }
    Header* heap() const noexcept {
        return reinterpret_cast<Header*>(static_cast<std::uintptr_t>(word_));
    }
    static T* elementsOf(Header const* header) noexcept {
        return reinterpret_cast<T*>(reinterpret_cast<char*>(const_cast<Header*>(header)) +
                                    headerOctets);
    }
    // The heap block in 8-octet words.
    static std::size_t blockWords(size_type capacity) noexcept {
        return (headerOctets + capacity * sizeof(T) + 7) / 8;
    }
    void sizeIs(size_type size) noexcept {
        if (inTail())
            word_ = (word_ & ~(~U64(0) << sizeShift)) | U64(size) << sizeShift;
        else if (Header* const header = heap())
            header->size = static_cast<U32>(size);
    }
    void release() noexcept {
        if (!inTail() && word_ != 0)
            KivStash::StashAllocator<U64>().deallocate(reinterpret_cast<U64*>(heap()),
                                                       blockWords(heap()->capacity));
        word_ = 0;
    }
    void regrow(size_type n) {
        size_type const size = this->size();
        KIV_ASSERT(n >= size && n < (size_type(1) << 31));
        Header* fresh = nullptr;
        if (n != 0) {
            fresh =
                reinterpret_cast<Header*>(KivStash::StashAllocator<U64>().allocate(blockWords(n)));
            fresh->size = static_cast<U32>(size);
            fresh->capacity = static_cast<U32>(n);
        }
        if (size != 0) {
            T* const from = data();
            std::uninitialized_move(from, from + size, elementsOf(fresh));
            std::destroy(from, from + size);
        }
        release();
        word_ = reinterpret_cast<std::uintptr_t>(fresh);
    }

    U64 word_ = 0;
};
static_assert(sizeof(TailVector<U32>) == 8);

// The block of a list whose members live in its tail: the object, then
// room for `capacity` elements. The list class declares a plain
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
