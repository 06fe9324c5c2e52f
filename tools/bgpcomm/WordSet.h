// WordMap / WordSet: the tool's hash table for small keys met once per route
// (interned lists' and values' addresses, community values), each mapped to
// a small value or to nothing.
//
// Open addressing in one array, at most half full, linear probing: a lookup
// is a multiply and a probe or two in one array, and no member costs a node
// of its own. The default key (null address, community 0:0, 0:0:0) marks a
// free slot, so it is kept beside the array; it is a key like any other for
// the caller.
//
// Keys: pointers (hashed by address; heap blocks are 16-aligned), integers,
// or a type with `U32 hash() const`; all compared with ==. Not thread-safe.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <vector>

#include "Kiv/Types.h"

namespace Bgpcomm {

struct NoValue {};

template <class Key>
U64 wordOf(Key const& key) {
    if constexpr (std::is_pointer_v<Key>)
        return static_cast<U64>(reinterpret_cast<std::uintptr_t>(key) >> 4);
    else if constexpr (std::is_integral_v<Key>)
        return static_cast<U64>(key);
    else
        return key.hash();
}

template <class Key, class Value = NoValue>
class WordMap {
  public:
    // The value of `key`; null when it is absent.
    Value const* find(Key const& key) const {
        if (key == Key{})
            return hasDefaultKey_ ? &defaultKeyValue_ : nullptr;
        if (slots_.empty())
            return nullptr;
        for (std::size_t i = slotOf(key);; i = next(i)) {
            if (slots_[i].key == key)
                return &slots_[i].value;
            if (slots_[i].key == Key{})
                return nullptr;
        }
    }
    // Adds `key` with `value` unless it is there; whether it was added.
    bool insert(Key const& key, Value const& value = {}) {
        if (key == Key{}) {
            if (hasDefaultKey_)
                return false;
            hasDefaultKey_ = true;
            defaultKeyValue_ = value;
            return true;
        }
        if (2 * (used_ + 1) > slots_.size())
            grow();
        std::size_t i = slotOf(key);
        for (; slots_[i].key != Key{}; i = next(i))
            if (slots_[i].key == key)
                return false;
        slots_[i] = Slot{key, value};
        ++used_;
        return true;
    }
    // Every key and its value, in no particular order.
    template <class Visit>
    void forEach(Visit&& visit) const {
        if (hasDefaultKey_)
            visit(Key{}, defaultKeyValue_);
        for (Slot const& slot : slots_)
            if (slot.key != Key{})
                visit(slot.key, slot.value);
    }
    std::size_t size() const { return used_ + hasDefaultKey_; }
    // Heap the table holds.
    std::size_t bytes() const { return slots_.capacity() * sizeof(Slot); }

  private:
    struct Slot {
        Key key{};
        [[no_unique_address]] Value value{};
    };

    std::size_t slotOf(Key const& key) const {
        return static_cast<std::size_t>((wordOf(key) * 0x9E3779B97F4A7C15ull) >> 32) &
               (slots_.size() - 1);
    }
    std::size_t next(std::size_t i) const { return (i + 1) & (slots_.size() - 1); }
    void grow() {
        std::vector<Slot> old(std::max<std::size_t>(1024, slots_.size() * 2));
        old.swap(slots_);
        for (Slot const& slot : old) {
            if (slot.key == Key{})
                continue;
            std::size_t i = slotOf(slot.key);
            while (slots_[i].key != Key{})
                i = next(i);
            slots_[i] = slot;
        }
    }

    std::vector<Slot> slots_;
    std::size_t used_ = 0;  // in the array
    bool hasDefaultKey_ = false;
    [[no_unique_address]] Value defaultKeyValue_{};
};

template <class Key>
using WordSet = WordMap<Key>;

}  // namespace Bgpcomm
