// Kiv::PointerSet<T>: a set of counted references, one pointer per slot.
//
// For sets of many small counted objects keyed by identity, where a node
// per member (std::unordered_set: 32 bytes and an allocation each, plus the
// buckets) would cost more than the members themselves. Open addressing with
// linear probing in a power-of-two array of T*, null marking a free slot;
// erasing shifts the rest of the probe chain back, so there are no
// tombstones and a lookup stops at the first free slot. The array grows
// past 3/4 full; an insert into an array under 1/8 full first halves it
// until it is not (the gap keeps a set that shrinks and grows around one size
// from reallocating each time). Taking a member never allocates nor frees:
// these sets hold what a table drops as its entries are released, and a
// release is no time to allocate (a large request, or freeing a large block,
// makes the C library coalesce every small block freed so far, which made up
// a third of the release of a table's last lists). A set drained by takes
// alone keeps its array until its next insert or its end.
//
// Contract:
//   - insert takes a reference on the member (T::referencesInc), take hands
//     the member's reference to the caller as a Ptr and never allocates nor
//     throws; clear and destruction
//     drop every reference (after the set is already empty, so a member's
//     destructor may look at the set);
//   - members are compared by address; null is never a member;
//   - not thread-safe: the owner locks;
//   - forEach visits in slot order, which is no particular order; the visit
//     must not change the set.
//
// Where a member lands comes from Slot(pointer, bits): a slot index below
// 2^bits. The default mixes the address by multiplication and keeps the top
// bits: addresses are not chosen by an adversary, and allocators hand them
// out at regular strides, which the multiplication spreads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

#include "Kiv/Assert.h"
#include "Kiv/Ptr.h"
#include "Kiv/Types.h"

namespace Kiv {

struct PointerSlot {
    std::size_t operator()(void const* p, unsigned bits) const noexcept {
        // 2^64 divided by the golden ratio, made odd: Fibonacci hashing.
        U64 const mixed = U64(reinterpret_cast<std::uintptr_t>(p)) * 0x9e3779b97f4a7c15ull;
        return std::size_t(mixed >> (64 - bits));
    }
};

template <class T, class Slot = PointerSlot>
class PointerSet {
  public:
    PointerSet() = default;
    PointerSet(PointerSet const&) = delete;
    PointerSet& operator=(PointerSet const&) = delete;
    ~PointerSet() { clear(); }

    std::size_t size() const noexcept { return size_; }
    bool empty() const noexcept { return size_ == 0; }
    std::size_t capacity() const noexcept { return capacity_; }

    bool contains(T const* p) const noexcept { return p != nullptr && find(p) != npos; }

    // Adds `p` with a reference of its own; false, nothing taken, when it
    // is already a member.
    bool insert(T* p) {
        KIV_ASSERT(p != nullptr);
        if (slots_ && find(p) != npos)
            return false;
        if ((size_ + 1) * 4 > capacity() * 3) {
            rehash(capacity() ? capacity() * 2 : minCapacity);
        } else if (size_ * 8 < capacity_ && capacity_ > minCapacity) {
            std::size_t fitting = capacity_ / 2;
            while (size_ * 8 < fitting && fitting > minCapacity)
                fitting /= 2;
            rehash(fitting);
        }
        place(p);
        ++size_;
        p->referencesInc();
        return true;
    }

    // Removes `p` and hands its reference over; null when it was absent.
    Ptr<T> take(T const* p) {
        std::size_t const at = p ? find(p) : npos;
        if (at == npos)
            return nullptr;
        Ptr<T> member = Ptr<T>::adopt(slots_[at]);
        eraseAt(at);
        --size_;
        return member;
    }

    // Drops every member and the array.
    void clear() noexcept {
        std::unique_ptr<T*[]> const slots = std::move(slots_);
        std::size_t const count = std::exchange(capacity_, 0);
        size_ = 0;
        for (std::size_t i = 0; i < count; ++i)
            if (slots[i])
                slots[i]->referencesDec();
    }

    template <class Visit>
    void forEach(Visit&& visit) const {
        for (std::size_t i = 0; i < capacity_; ++i)
            if (slots_[i])
                visit(slots_[i]);
    }

  private:
    static constexpr std::size_t npos = ~std::size_t(0);
    static constexpr std::size_t minCapacity = 8;

    std::size_t home(T const* p) const noexcept { return Slot()(p, bits_) & mask(); }
    std::size_t mask() const noexcept { return capacity_ - 1; }

    std::size_t find(T const* p) const noexcept {
        if (!slots_)
            return npos;
        for (std::size_t i = home(p);; i = (i + 1) & mask()) {
            if (slots_[i] == p)
                return i;
            if (slots_[i] == nullptr)
                return npos;
        }
    }

    void place(T* p) noexcept {
        std::size_t i = home(p);
        while (slots_[i])
            i = (i + 1) & mask();
        slots_[i] = p;
    }

    // Empties slot `hole`, then moves back every later member of its probe
    // chain whose home does not lie in (hole, its slot]: after the move each
    // is still reached from its home without crossing a free slot.
    void eraseAt(std::size_t hole) noexcept {
        for (std::size_t i = (hole + 1) & mask(); slots_[i]; i = (i + 1) & mask()) {
            std::size_t const distance = (i - home(slots_[i])) & mask();
            if (distance >= ((i - hole) & mask())) {
                slots_[hole] = slots_[i];
                hole = i;
            }
        }
        slots_[hole] = nullptr;
    }

    // Moves every member to a fresh array; a failed allocation throws before
    // anything has changed.
    void rehash(std::size_t newCapacity) {
        std::unique_ptr<T*[]> fresh = std::make_unique<T*[]>(newCapacity);
        std::unique_ptr<T*[]> const old = std::exchange(slots_, std::move(fresh));
        std::size_t const oldCapacity = std::exchange(capacity_, newCapacity);
        bits_ = 0;
        while ((std::size_t(1) << bits_) < newCapacity)
            ++bits_;
        for (std::size_t i = 0; i < oldCapacity; ++i)
            if (old[i])
                place(old[i]);
    }

    std::unique_ptr<T*[]> slots_;
    std::size_t capacity_ = 0;  // a power of two, or 0 before the first insert
    std::size_t size_ = 0;
    unsigned bits_ = 0;
};

}  // namespace Kiv
