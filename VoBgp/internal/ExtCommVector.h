// Part of VoBgp/VoBgpCommunityList.h; include that header, not this one.
//
// (Headers in VoBgp/internal/ are pieces of the public header that includes
// them, kept apart so that no file grows past what one can read. Each names
// the header it belongs to on its first line; their .cpp files beside them
// hold the matching definitions.)
//
// The helpers every list of interned extended communities shares, written
// once for the 8-octet ExtComm and the 20-octet ExtCommIp6: a list is a
// vector of counted constant references (ExtCommVectorOf<Comm>), ordered by
// the community's key, extCommKey(comm): the 64-bit value of an ExtComm
// (type octet most significant), the content of an ExtCommIp6 (type,
// subtype, address, local administrator). Since communities are interned,
// equal keys mean the same object.
//
// BgpHashMix feeds the identity of one interned handle to a Jenkins
// one-at-a-time hash: lists of interned members hash their members'
// addresses, never their contents again.
#pragma once

#include <algorithm>
#include <iosfwd>
#include <vector>

#include "Kiv/Assert.h"
#include "Kiv/Ptr.h"
#include "KivStash/StashAllocator.h"
#include "VoBgp/ExtCommIp6.h"
#include "VoBgp/VoBgpCommunity.h"
#include "Vok/DedupHandle.h"
#include "Vok/HashMix.h"

namespace Routing::Bgp {

inline U64 extCommKey(ExtComm const& comm) {
    return comm.community();
}
inline ExtCommIp6Content const& extCommKey(ExtCommIp6 const& comm) {
    return comm.getContent();
}

template <class Comm>
using ExtCommVectorOf =
    std::vector<Kiv::Ptr<Comm const>, KivStash::StashAllocator<Kiv::Ptr<Comm const>>>;

// Ascending by key.
template <class CommPtr>
bool ExtCommSortFn(CommPtr const& a, CommPtr const& b) {
    return extCommKey(*a) < extCommKey(*b);
}
// A member against a key, for binary searches.
template <class CommPtr, class Key>
bool ExtCommSortFnValue(CommPtr const& comm, Key const& key) {
    return extCommKey(*comm) < key;
}
template <class CommPtr>
bool ExtCommCompareFn(CommPtr const& a, CommPtr const& b) {
    return extCommKey(*a) == extCommKey(*b);
}

// Appends an interned community at the end (no search: lists are sorted once,
// when they are interned).
template <class Vector>
void ExtCommVectorAdd(Vector& vector, typename Vector::value_type const& comm) {
    KIV_ASSERT(comm != nullptr, "__null != comm");
    VOK_ASSERT_IS_DEDUPED(comm);
    vector.push_back(comm);
}

// Sorts ascending and drops adjacent equal members (keeping the first).
template <class Vector>
void ExtCommVectorSort(Vector& vector) {
    using CommPtr = typename Vector::value_type;
    std::sort(vector.begin(), vector.end(), &ExtCommSortFn<CommPtr>);
    vector.erase(std::unique(vector.begin(), vector.end(), &ExtCommCompareFn<CommPtr>),
                 vector.end());
}

// The member with key `community`, or null; binary search, so the vector
// must be sorted (the caller passes whether it is).
template <class Vector, class Key>
typename Vector::value_type ExtCommVectorLookup(bool commVectorSorted, Vector const& vector,
                                                Key const& community) {
    using CommPtr = typename Vector::value_type;
    KIV_ASSERT(commVectorSorted);
    auto it = std::lower_bound(vector.begin(), vector.end(), community,
                               &ExtCommSortFnValue<CommPtr, Key>);
    if (it == vector.end())
        return nullptr;
    CommPtr const& extComm = *it;
    if (extCommKey(*extComm) == community)
        return extComm;
    KIV_ASSERT(community < extCommKey(*extComm), "extComm->community() > community");
    return nullptr;
}

// Mixes the identity of one interned handle (a null one counts as zero).
class BgpHashMix {
  public:
    BgpHashMix(Vok::HashMix& mix, Vok::DedupHandle const* p) {
        VOK_ASSERT_IS_DEDUPED(p);
        mix.mixIdentity(p);
    }
};

// The hash of a sequence of interned handles: 0 when it is empty.
template <class Range>
U32 hashIdentities(Range const& range) {
    Vok::HashMix mix;
    for (auto const& member : range)
        BgpHashMix(mix, member.ptr());
    return mix.result();
}

// The framework text functions of a dense bool set nested in a list class
// (stream output, valueToStrep, sequenceToValue), declared and defined once
// for every such set.
#define VOBGP_DENSE_SET_TEXT_DECLARATIONS(Set)                                                  \
    std::ostream& operator<<(std::ostream& os, Set value);                                      \
    Kiv::String valueToStrep(Set value);                                                        \
    void sequenceToValue(Kiv::String::IteratorConst& it, Kiv::String::IteratorConst const& end, \
                         Set* out);
#define VOBGP_DENSE_SET_TEXT_DEFINITIONS(Set)                                                   \
    std::ostream& operator<<(std::ostream& os, Set value) {                                     \
        return os << value.toStrep();                                                           \
    }                                                                                           \
    Kiv::String valueToStrep(Set value) {                                                       \
        return Kiv::String(value.toStrep());                                                    \
    }                                                                                           \
    void sequenceToValue(Kiv::String::IteratorConst& it, Kiv::String::IteratorConst const& end, \
                         Set* out) {                                                            \
        *out = Set::parse(it, end);                                                             \
    }

// An attribute octet read back from a user-data word; bits beyond the set's
// flags mean the word was corrupted, which is fatal.
template <class Set>
Set denseSetFromOctet(U32 octet) {
    KIV_ASSERT(octet < Set::limit);
    return Set(octet);
}

}  // namespace Routing::Bgp
