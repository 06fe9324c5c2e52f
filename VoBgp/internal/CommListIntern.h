// Part of VoBgp/VoBgpCommunityList.h; include that header, not this one.
//
// The interning paths of the standard and large lists (CommListBase):
// dedup of a private list, interning received values, the stash record and
// the printed form.
#pragma once

namespace Routing::Bgp {

template <class Derived, class Value>
Kiv::Ptr<Derived const> CommListBase<Derived, Value>::dedup(typename Traits::Table const* table) {
    KIV_ASSERT(table != nullptr, "table != __null");
    KIV_ASSERT(dedupState() == Vok::dedupHandleStateNeverDeduped(),
               "dedupState() == Vok::dedupHandleStateNeverDeduped()");
    if (!commVectorSorted())
        sortAndUnique();
    static_cast<Derived*>(this)->cacheFlags();
    CommListDedupTableBase const* const base = table;
    Vok::DedupHandle::PtrConst interned =
        base->dedupTable()->dedupPreInsertCallback(this, &dropSpareCapacity);
    // Hand the table's reference on without counting it again.
    return Kiv::Ptr<Derived const>::adopt(static_cast<Derived const*>(interned.release()));
}

template <class Derived, class Value>
template <std::size_t N>
Kiv::Ptr<Derived const> CommListBase<Derived, Value>::internSorted(
    typename Traits::Table const* table, ReceivedValues<Value, N> const& values) {
    KIV_ASSERT(table != nullptr, "table != __null");
    CommListDedupTableBase const* const base = table;
    auto const same = [&](Derived const* candidate) {
        return values.sameAs(candidate->members(),
                             [](Value const& value) -> Value const& { return value; });
    };
    if (auto hit = base->dedupTable()->template lookup<Derived>(values.placement(), same))
        return hit;
    if (values.size() >= tailCountLimit) {
        Kiv::Ptr<Derived> list = create();
        CommListBase& fresh = *list;
        fresh.heapVector()->assign(values.begin(), values.end());
        fresh.userDataIs(fresh.userData() | commVectorSortedBit);
        return list->dedup(table);
    }
    // One block: the list and its values behind it. The count goes in before
    // anything could destroy the list, which must not look for a vector.
    std::size_t const octets = tailOctets(values.size());
    void* const block = Vok::SizeClassArena::fits(octets)
                            ? Vok::SizeClassArena::global().allocate(octets)
                            : Derived::operator new(octets);
    auto* const raw = ::new (block) Derived;
    CommListBase& fresh = *raw;
    fresh.userDataIs(U32(values.size() + 1) << tailCountShift | commVectorSortedBit);
    std::uninitialized_copy(values.begin(), values.end(), fresh.tailValues());
    Kiv::Ptr<Derived> list(raw);
    return list->dedup(table);
}

template <class Derived, class Value>
U32 CommListBase<Derived, Value>::stash(KivStash::StoreManager* storeManager) const {
    KIV_ASSERT(commVectorSorted());
    return stashCommListRecord<Value>(storeManager, members(),
                                      [](Value const& value) -> Value const& { return value; });
}

template <class Derived, class Value>
Kiv::String CommListBase<Derived, Value>::toStrep() const {
    VoFmt::StackBackedBuffer<256> buffer;
    formatComms(buffer);
    return buffer.kivString();
}

}  // namespace Routing::Bgp
