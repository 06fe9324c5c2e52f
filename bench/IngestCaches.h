// The per-thread interning caches of the whole-table ingest benchmark
// (IngestBench.cpp, ingestThreads/.../cache:1): one ListInternCache per list
// kind over one Interner's tables, in the benchmark's kind order (standard,
// large, extended, IPv6-specific). Each thread's pass makes its own and
// flushes them at its end (timed), and hands each route's previous objects
// back to them. Older libraries (built with INGEST_EXTENDED_VALUES_ONLY, or
// without the cache's header) predate it: there it is a stub the benchmark
// never runs (ingestHasCaches false).
#pragma once

#include <cstdlib>
#include <tuple>

#include "Kiv/Types.h"

#if !defined(INGEST_EXTENDED_VALUES_ONLY) && __has_include("VoBgp/internal/ListInternCache.h")
#include "VoBgp/internal/ListInternCache.h"

namespace IngestBench {

constexpr bool ingestHasCaches = true;

class Caches {
  public:
    // Over the Interner's tables (Caches is its friend).
    template <class Interner>
    explicit Caches(Interner const& in)
        : lists_(std::make_tuple(in.commTable_.ptr()), std::make_tuple(in.largeTable_.ptr()),
                 std::make_tuple(in.extTable_.ptr(), in.extListTable_.ptr()),
                 std::make_tuple(in.ip6Table_.ptr(), in.ip6ListTable_.ptr())) {}

    template <unsigned Kind, class Held>
    Held intern(U8 const* octets, U32 size) {
        return std::get<Kind>(lists_).internReceived(octets, size);
    }
    template <unsigned Kind, class Held>
    void giveBack(Held& held) {
        std::get<Kind>(lists_).giveBack(held);
    }

  private:
    template <class List>
    struct Cache : Routing::Bgp::ListInternCache<List> {
        using Base = Routing::Bgp::ListInternCache<List>;
        template <class... T>
        explicit Cache(std::tuple<T...> tables)
            : Base(std::apply([](auto... t) { return typename Base::Tables{t...}; }, tables)) {}
    };
    std::tuple<Cache<Routing::Bgp::CommList>, Cache<Routing::Bgp::LargeCommList>,
               Cache<Routing::Bgp::ExtCommList>, Cache<Routing::Bgp::ExtCommIp6List>>
        lists_;
};

}  // namespace IngestBench

#else

namespace IngestBench {

constexpr bool ingestHasCaches = false;

class Caches {
  public:
    template <class Interner>
    explicit Caches(Interner const&) {}
    template <unsigned Kind, class Held>
    Held intern(U8 const*, U32) {
        std::abort();
    }
    template <unsigned Kind, class Held>
    void giveBack(Held&) {}
};

}  // namespace IngestBench

#endif
