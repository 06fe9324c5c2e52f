#include "VoBgp/VoBgpCommunityList.h"

#include <ostream>

#include "VoBgp/VoBgpGlobals.h"

namespace Routing::Bgp {

// The most communities one attribute carries: 16,383 standard (RFC 1997), 5,461
// large (RFC 8092).
static_assert(pathAttributeValueFits(16383 * CommListTraits<U32>::wireOctets) &&
              !pathAttributeValueFits(16384 * CommListTraits<U32>::wireOctets));
static_assert(pathAttributeValueFits(5461 * CommListTraits<Acl::CommunityValue>::wireOctets) &&
              !pathAttributeValueFits(5462 * CommListTraits<Acl::CommunityValue>::wireOctets));

template <class Derived, class Value>
Kiv::String CommListBase<Derived, Value>::serialize() const {
    SerializePathAttribute out(Traits::attrType, optionalTransitive,
                               static_cast<U32>(valueOctets()));
    for (Value const& value : members())
        for (U32 i = 0; i < Traits::words; ++i)
            out.addU32hton(Traits::word(value, i));
    return out.serializedString();
}

template class CommListBase<CommList, U32>;
template class CommListBase<LargeCommList, Acl::CommunityValue>;
template class CommListDedupTableOf<CommList>;
template class CommListDedupTableOf<LargeCommList>;

CommListDedupTableBase::~CommListDedupTableBase() {
    // Lists may outlive this object, and their hash table with them.
    if (dedupTable_ != nullptr)
        dedupTable_->ownerIs(nullptr);
}

void CommListDedupTableBase::initDedupTable() {
    if (dedupTable_ != nullptr)
        dedupTable_->ownerIs(nullptr);
    dedupTable_ = Vok::DedupHashTableUnorderedSet::create(VoBgpGlobals::multiThreaded());
    dedupTable_->ownerIs(this);
}

void CommListDedupTableBase::dumpState(Vok::DumpContext const& dumpCtx, U32 indentCount) const {
    dumpCtx.print("%*s%s:\n", static_cast<int>(indentCount), "", tableName());
    dedupTable_->dumpState(dumpCtx, indentCount + 2);
    dedupTable_->forEach(
        [&](Vok::DedupHandle const* handle) { dumpEntry(dumpCtx, indentCount + 2, handle); });
}

void CommList::cacheFlags() {
    U32 bits = userData();
#define VOBGP_COMM_LIST_CACHE_FLAG_(flag, value, bit) \
    if (comm(value))                                  \
        bits |= (bit);
    VOBGP_COMM_LIST_FLAGS(VOBGP_COMM_LIST_CACHE_FLAG_)
#undef VOBGP_COMM_LIST_CACHE_FLAG_
    userDataIs(bits);
}

namespace {

template <class List>
std::ostream& printList(std::ostream& os, List const* list) {
    if (list != nullptr) {
        VoFmt::StackBackedBuffer<256> buffer;
        list->formatComms(buffer);
        os << buffer.view();
    }
    return os;
}

template <class List>
Kiv::String stringifyList(List const* list) {
    return list != nullptr ? list->toStrep() : Kiv::String("");
}

}  // namespace

std::ostream& operator<<(std::ostream& os, CommList const* list) {
    return printList(os, list);
}
std::ostream& operator<<(std::ostream& os, LargeCommList const* list) {
    return printList(os, list);
}
Kiv::String stringify(CommList const* list) {
    return stringifyList(list);
}
Kiv::String stringify(LargeCommList const* list) {
    return stringifyList(list);
}

}  // namespace Routing::Bgp
