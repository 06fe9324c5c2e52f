// Kiv::OrderedMap: an ordered keyed collection held as an attribute of a
// notifying object, whose observers hear of every insert, update and delete.
//
// The owner derives from Kiv::CollectionNotifier and declares the collection
// with KIV_ORDERED_MAP_ATTRIBUTE(name, Key, Value, attributeId), which gives
// it name() (the map, iterated in ascending key order), nameDel(key),
// nameDel(iterator) and nameDelAll(); the owner writes nameIs itself, since
// only it knows how a value yields its key.
//
// Notification: each change calls the owner's active notifiees with the
// collection's attribute id and, as the key pointer, a
// Kiv::CollectionEvent<Key> const* saying what happened to which key. An
// insert or update is told after the map holds the new value, a delete after
// the entry is gone. Deleting all entries tells one delete per entry.
#pragma once

#include <cstddef>
#include <map>
#include <utility>

#include "Kiv/Ptr.h"
#include "Kiv/Types.h"

namespace Kiv {

enum class CollectionChange : U8 { insert, update, erase };

template <class Key>
struct CollectionEvent {
    CollectionChange change;
    Key const& key;
};

template <class Key, class Value>
class OrderedMap;

class CollectionNotifier : public PtrInterface {
  protected:
    template <class Key>
    void notifyChange(AttributeId attribute, CollectionChange change, Key const& key) const {
        CollectionEvent<Key> const event{change, key};
        notify(attribute, &event);
    }

  private:
    template <class K, class V>
    friend class OrderedMap;
};

template <class Key, class Value>
class OrderedMap {
  public:
    using Map = std::map<Key, Value>;
    using Iterator = typename Map::const_iterator;

    OrderedMap(CollectionNotifier const& owner, AttributeId attribute)
        : owner_(owner), attribute_(attribute) {}
    OrderedMap(OrderedMap const&) = delete;
    OrderedMap& operator=(OrderedMap const&) = delete;

    std::size_t size() const { return map_.size(); }
    bool empty() const { return map_.empty(); }
    Iterator begin() const { return map_.begin(); }
    Iterator end() const { return map_.end(); }
    // The value under `key`, null when there is none.
    Value const* find(Key const& key) const {
        auto it = map_.find(key);
        return it == map_.end() ? nullptr : &it->second;
    }

    // Inserts in key order, or replaces the value of an existing entry in place.
    void set(Key const& key, Value value) {
        auto [it, inserted] = map_.try_emplace(key, std::move(value));
        if (!inserted)
            it->second = std::move(value);
        owner_.notifyChange(
            attribute_, inserted ? CollectionChange::insert : CollectionChange::update, it->first);
    }
    // Removes the entry of `key`; false (and no notification) when there is none.
    bool del(Key const& key) {
        auto it = map_.find(key);
        if (it == map_.end())
            return false;
        del(it);
        return true;
    }
    Iterator del(Iterator it) {
        Key const key = it->first;
        Iterator next = map_.erase(it);
        owner_.notifyChange(attribute_, CollectionChange::erase, key);
        return next;
    }
    void delAll() {
        while (!map_.empty())
            del(map_.begin());
    }

  private:
    CollectionNotifier const& owner_;
    AttributeId attribute_;
    Map map_;
};

}  // namespace Kiv

#define KIV_ORDERED_MAP_ATTRIBUTE(name, Key, Value, attributeId)          \
  public:                                                                 \
    static constexpr ::Kiv::AttributeId name##AttributeId = attributeId;  \
    ::Kiv::OrderedMap<Key, Value> const& name() const {                   \
        return name##_;                                                   \
    }                                                                     \
    void name##Del(Key const& key) {                                      \
        name##_.del(key);                                                 \
    }                                                                     \
    void name##Del(typename ::Kiv::OrderedMap<Key, Value>::Iterator it) { \
        name##_.del(it);                                                  \
    }                                                                     \
    void name##DelAll() {                                                 \
        name##_.delAll();                                                 \
    }                                                                     \
                                                                          \
  protected:                                                              \
    ::Kiv::OrderedMap<Key, Value> name##_{*this, attributeId};            \
                                                                          \
  public:
