// The whole-table ingest benchmark's view of the library (IngestBench.cpp):
// the tables of one run, one function per community attribute kind that
// takes the attribute's value octets and gives the interned object (and the
// same replacing what a route holds), and what a route keeps. Built against
// this tree or, with INGEST_EXTENDED_VALUES_ONLY, against an older library
// (bench/baseline.sh), so it asks for nothing an older one lacks.
#pragma once

#include <cstddef>
#include <vector>

#include "IngestTable.h"
#include "VoBgp/Parse/ExtComm.h"
#include "VoBgp/VoBgpCommunity.h"
#include "VoBgp/VoBgpCommunityList.h"
#include "VoBgp/VoBgpGlobals.h"
#ifndef INGEST_EXTENDED_VALUES_ONLY
#include "VoBgp/ExtCommIp6.h"
#include "VoBgp/ExtCommIp6ListDedupTable.h"
#endif

namespace IngestBench {

class Caches;

using namespace Routing::Bgp;

#ifndef INGEST_EXTENDED_VALUES_ONLY
constexpr bool extendedValuesOnly = false;
using ExtHeld = ExtCommList::PtrConst;
using Ip6Held = ExtCommIp6List::PtrConst;

#else
constexpr bool extendedValuesOnly = true;
U32 be32(U8 const* p) {
    return U32(p[0]) << 24 | U32(p[1]) << 16 | U32(p[2]) << 8 | p[3];
}
U64 be64(U8 const* p) {
    return U64(be32(p)) << 32 | be32(p + 4);
}
using ExtHeld = std::vector<ExtComm::PtrConst>;
struct Ip6Held {};
#endif

#ifndef INGEST_EXTENDED_VALUES_ONLY
// A route's list replaced by the one of the received octets: through the
// list's replacing entry point (internReceivedInto: the held list stays,
// uncounted, when it has these values) where the library has one, else
// interned and assigned.
template <class List, class... Tables>
void internInto(Kiv::Ptr<List const>& held, U8 const* p, U32 size, Tables const*... tables) {
    if constexpr (requires { List::internReceivedInto(held, tables..., p, std::size_t(size)); })
        List::internReceivedInto(held, tables..., p, size);
    else
        held = List::internReceived(tables..., p, size);
}
#endif

// The library as the agent calls it: one function per attribute kind, the
// attribute's value octets in, the interned object out; and the same
// replacing what the route holds (xInto).
class Interner {
  public:
    explicit Interner(bool threadSafe) {
        // Tables read the switch when they are created.
        VoBgpGlobals::multiThreadedIs(threadSafe);
        parser_ = BgpParseExtCommContainerSm::BgpParseExtCommContainerSmIs();
        commTable_ = commListDedupTableFactory();
        largeTable_ = largeCommListDedupTableFactory();
        extTable_ = extCommDedupTableFactory(parser_->extCommParser());
#ifndef INGEST_EXTENDED_VALUES_ONLY
        extListTable_ = extCommListDedupTableFactory();
        ip6Table_ = extCommIp6DedupTableFactory(parser_->extCommParser());
        ip6ListTable_ = extCommIp6ListDedupTableFactory();
#endif
        VoBgpGlobals::multiThreadedIs(false);
    }

#ifndef INGEST_EXTENDED_VALUES_ONLY
    // Each kind's received-octets entry point: sorts on the stack, builds
    // only a list not interned yet.
    CommList::PtrConst standard(U8 const* p, U32 size) const {
        return CommList::internReceived(commTable_.ptr(), p, size);
    }
    LargeCommList::PtrConst large(U8 const* p, U32 size) const {
        return LargeCommList::internReceived(largeTable_.ptr(), p, size);
    }
    ExtHeld extended(U8 const* p, U32 size) const {
        return ExtCommList::internReceived(extTable_.ptr(), extListTable_.ptr(), p, size);
    }
    Ip6Held ipv6(U8 const* p, U32 size) const {
        return ExtCommIp6List::internReceived(ip6Table_.ptr(), ip6ListTable_.ptr(), p, size);
    }
    void standardInto(CommList::PtrConst& held, U8 const* p, U32 size) const {
        internInto(held, p, size, commTable_.ptr());
    }
    void largeInto(LargeCommList::PtrConst& held, U8 const* p, U32 size) const {
        internInto(held, p, size, largeTable_.ptr());
    }
    void extendedInto(ExtHeld& held, U8 const* p, U32 size) const {
        internInto(held, p, size, extTable_.ptr(), extListTable_.ptr());
    }
    void ipv6Into(Ip6Held& held, U8 const* p, U32 size) const {
        internInto(held, p, size, ip6Table_.ptr(), ip6ListTable_.ptr());
    }
#else
    // Libraries before the received-octets entry points: a private list,
    // one commIs per value, dedup.
    CommList::PtrConst standard(U8 const* p, U32 size) const {
        CommList::Ptr list = commListFactory();
        list->commVectorRawPtrNonConst()->reserve(size / 4);
        for (U32 i = 0; i + 4 <= size; i += 4)
            list->commIs(be32(p + i));
        return list->dedup(commTable_.ptr());
    }

    LargeCommList::PtrConst large(U8 const* p, U32 size) const {
        LargeCommList::Ptr list = largeCommListFactory();
        list->commVectorRawPtrNonConst()->reserve(size / 12);
        for (U32 i = 0; i + 12 <= size; i += 12)
            list->commIs(Acl::CommunityValue(be32(p + i), be32(p + i + 4), be32(p + i + 8)));
        return list->dedup(largeTable_.ptr());
    }

    // Sorted and without duplicates, as the list would hold them.
    ExtHeld extended(U8 const* p, U32 size) const {
        ExtHeld set;
        set.reserve(size / 8);
        for (U32 i = 0; i + 8 <= size; i += 8)
            set.push_back(ExtComm::dedupContent(extTable_.ptr(), ExtCommContent(be64(p + i))));
        std::sort(set.begin(), set.end(),
                  [](ExtComm::PtrConst const& a, ExtComm::PtrConst const& b) {
                      return a->isBetterThan(b);
                  });
        set.erase(std::unique(set.begin(), set.end()), set.end());
        return set;
    }

    Ip6Held ipv6(U8 const*, U32) const {
        return {};
    }
#endif

    Vok::DedupHashTable const& listTable(unsigned kind) const {
        return kind == 0 ? *commTable_->dedupTable() : *largeTable_->dedupTable();
    }

    // Objects in each kind's own table (extended values when there are no
    // extended lists).
    std::size_t interned(unsigned kind) const {
        switch (kind) {
            case 0:
                return commTable_->dedupTable()->size();
            case 1:
                return largeTable_->dedupTable()->size();
#ifndef INGEST_EXTENDED_VALUES_ONLY
            case 2:
                return extListTable_->dedupTable()->size();
            case 3:
                return ip6ListTable_->dedupTable()->size();
#else
            case 2:
                return extTable_->dedupTable()->size();
#endif
        }
        return 0;
    }

  private:
    friend class IngestBench::Caches;
    BgpParseExtCommContainerSm::Ptr parser_;
    CommListDedupTable::Ptr commTable_;
    LargeCommListDedupTable::Ptr largeTable_;
    ExtCommDedupTable::Ptr extTable_;
#ifndef INGEST_EXTENDED_VALUES_ONLY
    ExtCommListDedupTable::Ptr extListTable_;
    ExtCommIp6DedupTable::Ptr ip6Table_;
    ExtCommIp6ListDedupTable::Ptr ip6ListTable_;
#endif
};

// What a route keeps.
struct Route {
    CommList::PtrConst standard;
    LargeCommList::PtrConst large;
    ExtHeld extended;
    Ip6Held ipv6;
};

}  // namespace IngestBench
