#include "bgpcomm/Stats.h"

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
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

// A set of words (list addresses, interned values' addresses, standard
// community values), open addressing: one array, no node per member, so a
// kept route costs a probe per kind. The zero word is kept apart (it marks
// free slots, and 0:0 is a community).
template <class Key>
class WordSet {
    static_assert(std::is_integral_v<Key> || std::is_pointer_v<Key>);

  public:
    bool insert(Key key) {
        if (key == Key{})
            return !std::exchange(hasZero_, true);
        if (2 * (size_ + 1) > slots_.size())
            grow();
        std::size_t i = slotOf(key);
        for (; slots_[i] != Key{}; i = (i + 1) & (slots_.size() - 1))
            if (slots_[i] == key)
                return false;
        slots_[i] = key;
        ++size_;
        return true;
    }
    std::size_t size() const { return size_ + hasZero_; }

  private:
    std::size_t slotOf(Key key) const {
        U64 word;
        if constexpr (std::is_pointer_v<Key>)
            word = reinterpret_cast<std::uintptr_t>(key) >> 4;  // 16-aligned blocks
        else
            word = static_cast<U64>(key);
        return static_cast<std::size_t>((word * 0x9E3779B97F4A7C15ull) >> 32) & (slots_.size() - 1);
    }
    void grow() {
        std::vector<Key> old(std::max<std::size_t>(1024, slots_.size() * 2));
        old.swap(slots_);
        size_ = 0;
        for (Key key : old)
            if (key != Key{})
                insert(key);
    }
    std::vector<Key> slots_;
    std::size_t size_ = 0;
    bool hasZero_ = false;
};

// Distinct interned lists of one kind (by identity) among the kept routes,
// the distinct values they hold, and the routes that carry the kind.
template <class ListPtr>
class Distinct {
  public:
    using List = std::remove_const_t<std::remove_reference_t<decltype(*std::declval<ListPtr>())>>;
    using Value = std::remove_cvref_t<decltype(distinctKey(
        std::declval<typename List::CommVector::value_type const&>()))>;

    Distinct(ListPtr RouteComms::*member, CommKind kind) : member_(member), kind_(kind) {}

    void see(RouteComms const& comms) {
        counts.routes += comms.has(kind_);
        List const* const list = (comms.*member_).ptr();
        // Neighbouring routes often carry the same list: one compare, no probe.
        if (list == nullptr || list == last_)
            return;
        last_ = list;
        if (lists_.insert(list))
            for (auto const& value : membersOf(list->commVectorRawPtr()))
                values_.insert(distinctKey(value));
    }
    KindCounts const& done() {
        counts.lists = lists_.size();
        counts.values = values_.size();
        return counts;
    }

  private:
    ListPtr RouteComms::*member_;
    CommKind kind_;
    List const* last_ = nullptr;
    WordSet<List const*> lists_;
    std::conditional_t<std::is_integral_v<Value> || std::is_pointer_v<Value>, WordSet<Value>,
                       std::unordered_set<Value>>
        values_;
    KindCounts counts;
};

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
    // One pass over the kept routes (tens of megabytes) for all four kinds.
    Distinct<CommList::PtrConst> standardLists(&RouteComms::standard, CommKind::standard);
    Distinct<LargeCommList::PtrConst> largeLists(&RouteComms::large, CommKind::large);
    Distinct<ExtCommList::PtrConst> extendedLists(&RouteComms::extended, CommKind::extended);
    Distinct<ExtCommIp6List::PtrConst> ipv6Lists(&RouteComms::ipv6, CommKind::ipv6);
    U64 heldArray = 0;
    for (std::vector<RouteComms> const& part : held_) {
        heldArray += part.capacity() * sizeof(RouteComms);
        for (RouteComms const& comms : part) {
            standardLists.see(comms);
            largeLists.see(comms);
            extendedLists.see(comms);
            ipv6Lists.see(comms);
        }
    }
    standard = standardLists.done();
    large = largeLists.done();
    extended = extendedLists.done();
    ipv6 = ipv6Lists.done();

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
