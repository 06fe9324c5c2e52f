// Part of VoBgp/VoBgpCommunityList.h; include that header, not this one.
//
// Reading list records of a stash image (docs/STASH.md): in place through a
// CommListStashView, or as a new list through destash.
#pragma once

#include <string>

#include "Kiv/Assert.h"
#include "Kiv/Errors.h"
#include "KivStash/StoreManager.h"
#include "Vok/HashMix.h"

namespace Routing::Bgp {

template <class Value>
struct CommListTraits;

// Appends a record of the list kind of Value holding valueOf(member) for
// each member of `members`, each spelled as the kind's words; the record
// index.
template <class Value, class Range, class ValueOf>
U32 stashCommListRecord(KivStash::StoreManager* storeManager, Range const& members,
                        ValueOf&& valueOf) {
    using Traits = CommListTraits<Value>;
    KIV_ASSERT(storeManager != nullptr, "storeManager != __null");
    auto record =
        storeManager->recordIs(Traits::stashKind, Traits::words, static_cast<U32>(members.size()));
    for (auto const& member : members)
        for (U32 i = 0; i < Traits::words; ++i)
            record.words.wordIs(Traits::word(valueOf(member), i));
    return record.index;
}

// A stashed list read in place, straight from its (possibly read-only,
// possibly foreign) image: nothing is allocated, counted or written. Checks on
// construction that the record is a list of this kind in ascending order
// (Kiv::ParseError if not), so its lookups are sound.
template <class Value>
class CommListStashView {
  public:
    using Traits = CommListTraits<Value>;

    CommListStashView(void const* image, KivStash::StoreManager const* storeManager)
        : record_(checkedRecord(image, storeManager)) {
        for (U32 i = 1; i < comms(); ++i)
            if (!(commAt(i - 1) < commAt(i)))
                throw Kiv::ParseError(std::string("stash record of a ") + Traits::listName +
                                      " not in ascending order at element " + std::to_string(i));
    }

    U32 comms() const { return record_.count(); }
    bool empty() const { return record_.count() == 0; }
    Value commAt(U32 index) const {
        KIV_ASSERT(index < comms());
        U32 words[Traits::words];
        for (U32 i = 0; i < Traits::words; ++i)
            words[i] = record_.word(std::size_t(index) * Traits::words + i);
        return Traits::fromWords(words);
    }
    // Binary search, as the list's comm().
    bool comm(Value const& value) const {
        U32 low = 0;
        U32 high = comms();
        while (low < high) {
            U32 mid = low + (high - low) / 2;
            if (commAt(mid) < value)
                low = mid + 1;
            else
                high = mid;
        }
        return low < comms() && commAt(low) == value;
    }
    // The hash of the equal interned list: finds it in a table without
    // building a list.
    U32 hash() const {
        Vok::HashMix mix;
        for (std::size_t i = 0; i < std::size_t(comms()) * Traits::words; ++i)
            mix.mixU32(record_.word(i));
        return mix.result();
    }

  private:
    static KivStash::StashRecord checkedRecord(void const* image,
                                               KivStash::StoreManager const* storeManager) {
        KIV_ASSERT(storeManager != nullptr, "storeManager != __null");
        KivStash::StashRecord record = storeManager->recordAt(image);
        if (record.kind() != Traits::stashKind || record.wordsPerElement() != Traits::words)
            throw Kiv::ParseError(std::string("stash record is not a ") + Traits::listName +
                                  " (kind " + std::to_string(record.kind()) + ", " +
                                  std::to_string(record.wordsPerElement()) + " words each)");
        return record;
    }

    KivStash::StashRecord record_;
};

// Rebuilds a list kind from its stash record (both kinds' destash).
// The view has checked kind and order, so the copy is sorted and unique.
template <class List, class Value>
Kiv::Ptr<List> destashCommList(void const* image, KivStash::StoreManager* storeManager) {
    CommListStashView<Value> const view(image, storeManager);
    Kiv::Ptr<List> list = List::create();
    // Holders do not count while counting is off: the store manager keeps the
    // list instead, and frees it when it goes.
    if (!Vok::DedupHandle::countingEnabled())
        storeManager->adoptedHandleIs(list.ptr());
    auto& vector = *list->heapVector();
    vector.reserve(view.comms());
    for (U32 i = 0; i < view.comms(); ++i)
        vector.push_back(view.commAt(i));
    list->userDataIs(list->userData() | List::commVectorSortedBit);
    return list;
}

// Fills the new private `list` of interned extended communities (of either
// width) from its stash record: an image holds values, not objects, so each
// value is interned in `commTable` (an ExtCommDedupTableOf). The list comes
// back sorted, not yet interned.
template <class Value, class List, class Table>
Kiv::Ptr<List> destashExtCommList(Kiv::Ptr<List> list, void const* image,
                                  KivStash::StoreManager* storeManager, Table const* commTable) {
    KIV_ASSERT(commTable != nullptr, "extCommTable != __null");
    CommListStashView<Value> const view(image, storeManager);
    // As for the other list kinds: with counting off the store manager keeps it.
    if (!Vok::DedupHandle::countingEnabled())
        storeManager->adoptedHandleIs(list.ptr());
    list->expectedCommunityCountIs(view.comms());
    for (U32 i = 0; i < view.comms(); ++i)
        list->commIs(commTable->intern(typename Table::Content(view.commAt(i))));
    list->commVectorSortedIs(true);
    return list;
}

}  // namespace Routing::Bgp
