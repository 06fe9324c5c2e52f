#include "bgpcomm/Stats.h"

#include <sys/resource.h>

#include <chrono>
#include <cstdint>
#include <future>
#include <span>
#include <utility>

#include "Kiv/Assert.h"

namespace Bgpcomm {

using namespace Routing::Bgp;

namespace {

// How a list member is counted: plain values by value, interned extended
// communities by identity.
template <class T>
T const& distinctKey(T const& value) {
    return value;
}
template <class T>
T const* distinctKey(Kiv::Ptr<T> const& comm) {
    return comm.ptr();
}

// A list's members: the standard and large kinds give a view, the extended
// ones their vector.
template <class Members>
Members const& membersOf(Members const* vector) {
    return *vector;
}
template <class Value>
std::span<Value const> membersOf(std::span<Value const> view) {
    return view;
}

template <class List, class Value>
void addValues(KeptTally::Kind<List, Value>& kind, List const* list) {
    for (auto const& value : membersOf(list->commVectorRawPtr()))
        kind.values.insert(distinctKey(value));
}

template <class List, class Value>
void seeList(KeptTally::Kind<List, Value>& kind, List const* list) {
    // Neighbouring routes often carry the same list: one compare, no probe.
    if (list == nullptr || list == kind.last)
        return;
    kind.last = list;
    if (kind.lists.insert(list))
        addValues(kind, list);
}

template <class List, class Value>
void seeTable(KeptTally::Kind<List, Value>& kind, Vok::DedupHashTable const& table) {
    // Interned lists are distinct: no set needed for them.
    table.forEach([&](Vok::DedupHandle const* handle) {
        ++kind.interned;
        addValues(kind, Vok::fromDedupHandle<List>(handle));
    });
}

template <class List, class Value>
void mergeKind(KeptTally::Kind<List, Value>& to, KeptTally::Kind<List, Value> const& from) {
    to.routes += from.routes;
    to.interned += from.interned;
    from.lists.forEach([&](List const* list, NoValue) { to.lists.insert(list); });
    from.values.forEach([&](Value const& value, NoValue) { to.values.insert(value); });
}

template <class List, class Value>
KeptTally::Counts countsOf(KeptTally::Kind<List, Value> const& kind) {
    return {kind.values.size(), kind.lists.size() + kind.interned, kind.routes};
}

template <class List, class Value>
std::size_t bytesOf(KeptTally::Kind<List, Value> const& kind) {
    return kind.lists.bytes() + kind.values.bytes();
}

void printBytes(std::FILE* out, char const* label, U64 bytes, char const* how) {
    std::fprintf(out, "%-20s %.1f MiB (%llu bytes, %s)\n", label, double(bytes) / (1 << 20),
                 static_cast<unsigned long long>(bytes), how);
}

}  // namespace

void KeptTally::see(RouteComms const& comms, U64 routes) {
    standard_.routes += comms.has(CommKind::standard) ? routes : 0;
    large_.routes += comms.has(CommKind::large) ? routes : 0;
    extended_.routes += comms.has(CommKind::extended) ? routes : 0;
    ipv6_.routes += comms.has(CommKind::ipv6) ? routes : 0;
    if (!byRoute_)
        return;
    seeList(standard_, comms.standard.ptr());
    seeList(large_, comms.large.ptr());
    seeList(extended_, comms.extended.ptr());
    seeList(ipv6_, comms.ipv6.ptr());
}

void KeptTally::seeInterned(Ingest const& ingest, CommKind kind) {
    Vok::DedupHashTable const& table = ingest.listTable(kind);
    switch (kind) {
        case CommKind::standard:
            return seeTable(standard_, table);
        case CommKind::large:
            return seeTable(large_, table);
        case CommKind::extended:
            return seeTable(extended_, table);
        case CommKind::ipv6:
            return seeTable(ipv6_, table);
    }
}

void KeptTally::merge(KeptTally const& other) {
    mergeKind(standard_, other.standard_);
    mergeKind(large_, other.large_);
    mergeKind(extended_, other.extended_);
    mergeKind(ipv6_, other.ipv6_);
}

KeptTally::Counts KeptTally::counts(CommKind kind) const {
    switch (kind) {
        case CommKind::standard:
            return countsOf(standard_);
        case CommKind::large:
            return countsOf(large_);
        case CommKind::extended:
            return countsOf(extended_);
        case CommKind::ipv6:
            return countsOf(ipv6_);
    }
    return {};
}

std::size_t KeptTally::bytes() const {
    return bytesOf(standard_) + bytesOf(large_) + bytesOf(extended_) + bytesOf(ipv6_);
}

double monotonicSeconds() {
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}

Stats::Stats(std::function<U64()> liveHeapBytes) : liveHeapBytes_(std::move(liveHeapBytes)) {}

void Stats::start() {
    heapAtStart_ = liveHeapBytes_ ? liveHeapBytes_() : 0;
    startSeconds_ = monotonicSeconds();
}

void Stats::stop() {
    seconds_ = monotonicSeconds() - startSeconds_;
    heapAtStop_ = liveHeapBytes_ ? liveHeapBytes_() : 0;
    bookkeepingAtStop_ = 0;
    for (std::vector<RouteComms> const& part : held_)
        bookkeepingAtStop_ += part.capacity() * sizeof(RouteComms);
    for (auto const& tally : tallies_)
        bookkeepingAtStop_ += tally->bytes();
}

void Stats::print(std::FILE* out, RunCounts const& counts, Ingest const& ingest) const {
    // The threads' tallies merged: the first copied (its arrays as they
    // are), the others' addresses added to it.
    KeptTally all = tallies_.empty() ? KeptTally{} : *tallies_.front();
    for (std::size_t i = 1; i < tallies_.size(); ++i)
        all.merge(*tallies_[i]);
    // The walks over the tables at the end; after a run on several threads
    // (whose tables take concurrent readers) on two of about equal length:
    // the lists' values here, the classification lists beside.
    KIV_ASSERT(!keepsEverything_ || counts.routesMatched == counts.routesRead);
    auto const classify = [&] { return ingest.extClassificationListsInterned(); };
    std::future<std::size_t> beside;
    if (threads_ > 1)
        beside = std::async(std::launch::async, classify);
    if (keepsEverything_)
        for (CommKind kind :
             {CommKind::standard, CommKind::large, CommKind::extended, CommKind::ipv6})
            all.seeInterned(ingest, kind);
    std::size_t const classified = beside.valid() ? beside.get() : classify();

    std::fprintf(out, "%-20s %llu\n", "files", static_cast<unsigned long long>(counts.files));
    std::fprintf(out, "%-20s %llu\n", "MRT records",
                 static_cast<unsigned long long>(counts.records));
    std::fprintf(out, "%-20s %llu\n", "routes read",
                 static_cast<unsigned long long>(counts.routesRead));
    std::fprintf(out, "%-20s %llu\n", "routes matched",
                 static_cast<unsigned long long>(counts.routesMatched));
    std::fprintf(out, "%-20s %llu\n", "skipped (messages)",
                 static_cast<unsigned long long>(counts.skipped));
    std::fprintf(out, "%-14s %12s %10s %10s %12s\n", "kind", "attributes", "values", "lists",
                 "routes/list");
    for (CommKind kind :
         {CommKind::standard, CommKind::large, CommKind::extended, CommKind::ipv6}) {
        KeptTally::Counts const k = all.counts(kind);
        std::fprintf(out, "%-14s %12llu %10llu %10llu %12.2f\n", commKindInfo(kind).name,
                     static_cast<unsigned long long>(counts.attributes[unsigned(kind)]),
                     static_cast<unsigned long long>(k.values),
                     static_cast<unsigned long long>(k.lists),
                     k.lists ? double(k.routes) / double(k.lists) : 0.0);
    }
    std::fprintf(out,
                 "%-20s standard lists %zu, large lists %zu, extended values %zu, "
                 "extended lists %zu (classification lists %zu)\n",
                 "interned in tables", ingest.standardListsInterned(), ingest.largeListsInterned(),
                 ingest.extCommsInterned(), ingest.extListsInterned(), classified);
    if (liveHeapBytes_) {
        U64 const held = heapAtStop_ > heapAtStart_ + bookkeepingAtStop_
                             ? heapAtStop_ - heapAtStart_ - bookkeepingAtStop_
                             : 0;
        printBytes(out, "interned state", held, "heap held after reading");
    }
    struct rusage usage {};
    getrusage(RUSAGE_SELF, &usage);
    printBytes(out, "peak memory", U64(usage.ru_maxrss) * 1024, "ru_maxrss");
    std::fprintf(out, "%-20s %.3f s\n", "time", seconds_);
    std::fprintf(out, "%-20s %.0f\n", "routes per second",
                 seconds_ > 0 ? double(counts.routesRead) / seconds_ : 0.0);
}

}  // namespace Bgpcomm
