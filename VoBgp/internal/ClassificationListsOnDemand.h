// What the extended community lists of both sizes (ExtCommList and
// ExtCommIp6List) share in building their classification lists on first
// demand:
//
// - publishClassificationListsOnce: an interned list's container of
//   classification lists is published once by compare-and-swap; a thread
//   that loses the race frees its own build (it holds the same interned
//   lists) and reads the winner's. Readers load the pointer with acquire, so
//   they always see a complete container.
// - ClassificationListsEagerSwitch: a table set's switch to eager building.
//   Once anyone can observe its classification tables, every list interned
//   so far is split before the observer goes on, and every list interned
//   later is split as it enters (its dedup asks classificationListsEager()
//   after the insert). Memory-ordering argument: the switch is stored
//   (seq_cst) before the scan takes each shard's lock; a dedup inserts under
//   that lock and then loads the switch (seq_cst). Either the scan finds the
//   list in its shard, or the insert came after the scan passed the shard
//   and so after the store, and the dedup sees the switch. Later callers
//   wait on the mutex until the first scan is done.
#pragma once

#include <atomic>
#include <mutex>
#include <vector>

#include "Vok/DedupHashTable.h"

namespace Routing::Bgp {

class CommListDedupTableBase;

// The table set an interned list lives in (its table's owner), null once the
// set has gone: a list asked then splits into private lists, as there is
// nothing left to share with.
template <class TableSet>
TableSet const* tableSetOf(Vok::DedupHandle const& list) {
    Vok::DedupHashTable const* const home = list.dedupTable();
    if (home == nullptr)
        return nullptr;
    return static_cast<TableSet const*>(static_cast<CommListDedupTableBase const*>(home->owner()));
}

// Publishes `mine` into `slot` unless a container is there already; the one
// published.
template <class Container>
Container const& publishClassificationListsOnce(std::atomic<Container*>& slot, Container* mine) {
    Container* published = nullptr;
    if (slot.compare_exchange_strong(published, mine, std::memory_order_acq_rel,
                                     std::memory_order_acquire))
        return *mine;
    // Another thread published first; its lists are these same interned ones.
    delete mine;
    return *published;
}

class ClassificationListsEagerSwitch {
  public:
    // Whether lists are split as they are interned.
    bool on() const { return eager_.load(std::memory_order_seq_cst); }
    // Switches on and splits every list of `listTable` (`split` asks one
    // list for its classification lists), once.
    void switchOn(Vok::DedupHashTable const& listTable,
                  void (*split)(Vok::DedupHandle const*)) const {
        if (!done_.load(std::memory_order_acquire))
            build(listTable, split);
    }

  private:
    void build(Vok::DedupHashTable const& listTable, void (*split)(Vok::DedupHandle const*)) const {
        std::lock_guard<std::mutex> lock(mutex_);
        if (done_.load(std::memory_order_relaxed))
            return;
        eager_.store(true, std::memory_order_seq_cst);
        std::vector<Vok::DedupHandle::PtrConst> lists;
        lists.reserve(listTable.size());
        // A counted reference taken under the shard's lock, as a lookup takes it.
        listTable.forEach([&](Vok::DedupHandle const* handle) { lists.emplace_back(handle); });
        for (Vok::DedupHandle::PtrConst const& list : lists)
            split(list.ptr());
        lists.clear();
        done_.store(true, std::memory_order_release);
    }

    // eager_ on: lists are split as they enter; done_ on: and every earlier
    // one has been split.
    mutable std::atomic<bool> eager_{false};
    mutable std::atomic<bool> done_{false};
    mutable std::mutex mutex_;
};

}  // namespace Routing::Bgp
