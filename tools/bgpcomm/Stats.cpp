#include "bgpcomm/Stats.h"

#include <sys/resource.h>

#include <chrono>
#include <span>
#include <type_traits>
#include <unordered_set>
#include <utility>

namespace Bgpcomm {

using namespace Routing::Bgp;

namespace {

struct KindCounts {
    U64 values = 0;
    U64 lists = 0;
    U64 routes = 0;  // kept routes that carry the kind
};

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

// Distinct interned lists of one kind (by identity) and the distinct values
// they hold.
template <class ListPtr>
void distinctInterned(std::vector<RouteComms> const& held, ListPtr RouteComms::*member,
                      KindCounts* out) {
    using List = std::remove_const_t<std::remove_reference_t<decltype(*(held[0].*member))>>;
    using Value = std::remove_cvref_t<decltype(distinctKey(
        std::declval<typename List::CommVector::value_type const&>()))>;
    std::unordered_set<List const*> lists;
    std::unordered_set<Value> values;
    for (RouteComms const& comms : held) {
        ListPtr const& list = comms.*member;
        if (list && lists.insert(list.ptr()).second)
            for (auto const& value : membersOf(list->commVectorRawPtr()))
                values.insert(distinctKey(value));
    }
    out->lists = lists.size();
    out->values = values.size();
}

void printBytes(std::FILE* out, char const* label, U64 bytes, char const* how) {
    std::fprintf(out, "%-20s %.1f MiB (%llu bytes, %s)\n", label, double(bytes) / (1 << 20),
                 static_cast<unsigned long long>(bytes), how);
}

}  // namespace

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
}

void Stats::print(std::FILE* out, RunCounts const& counts, Ingest const& ingest) const {
    KindCounts kinds[commKindCount];
    auto& standard = kinds[unsigned(CommKind::standard)];
    auto& large = kinds[unsigned(CommKind::large)];
    auto& extended = kinds[unsigned(CommKind::extended)];
    auto& ipv6 = kinds[unsigned(CommKind::ipv6)];
    distinctInterned(held_, &RouteComms::standard, &standard);
    distinctInterned(held_, &RouteComms::large, &large);
    distinctInterned(held_, &RouteComms::extended, &extended);
    distinctInterned(held_, &RouteComms::ipv6, &ipv6);
    for (RouteComms const& comms : held_)
        for (unsigned k = 0; k < commKindCount; ++k)
            kinds[k].routes += comms.has(static_cast<CommKind>(k));

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
        KindCounts const& k = kinds[unsigned(kind)];
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
                 ingest.extCommsInterned(), ingest.extListsInterned(),
                 ingest.extClassificationListsInterned());
    if (liveHeapBytes_) {
        U64 heldArray = held_.capacity() * sizeof(RouteComms);
        U64 held =
            heapAtStop_ > heapAtStart_ + heldArray ? heapAtStop_ - heapAtStart_ - heldArray : 0;
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
