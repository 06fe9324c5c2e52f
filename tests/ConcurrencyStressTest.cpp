// Every interning table at once under several threads: workers intern and
// release overlapping communities and lists of every kind while a reader walks
// the route-target list collection and dumps every table. Built for
// ThreadSanitizer: it runs VOBGP_STRESS_DEFAULT_SECONDS (2 s under tsan, 0.3 s
// in the other builds; tests/CMakeLists.txt) or VOBGP_STRESS_SECONDS from the
// environment.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "KivStash/DedupHandle.h"
#include "VoBgp/ExtCommIp6ListDedupTable.h"
#include "VoBgp/Parse/ExtComm.h"
#include "VoBgp/VoBgpCommunityList.h"
#include "VoBgp/VoBgpGlobals.h"
#include "VoBgp/internal/ListInternCache.h"

namespace {

using namespace Routing::Bgp;

// Six values of each kind; a route's lists hold those a 6-bit mask selects.
constexpr unsigned poolSize = 6;
// Route targets 65000:1..3 (RFC 4360), color 100 (RFC 9012), route origin
// 65000:100 (RFC 4360), link bandwidth (draft-ietf-idr-link-bandwidth).
constexpr U64 extPool[poolSize] = {0x0002FDE800000001, 0x0002FDE800000002, 0x0002FDE800000003,
                                   0x030B000000000064, 0x0003FDE800000064, 0x4004FDE84E9502F9};
constexpr unsigned routeTargetBits = 7;  // the first three
// 65000:1..3, then NO_EXPORT and NO_ADVERTISE (RFC 1997), GRACEFUL_SHUTDOWN
// (RFC 8326).
constexpr U32 stdPool[poolSize] = {0xFDE80001, 0xFDE80002, 0xFDE80003,
                                   0xFFFFFF01, 0xFFFFFF02, 0xFFFF0000};
// IPv6 route targets 2001:db8:: with local administrator <i> (RFC 5701,
// RFC 3849 address), the odd ones non-transitive.
ExtCommIp6Content ip6Content(unsigned i) {
    return {U8(i % 2 ? 0x40 : 0x00), 0x02, Vonet::Ip6Addr({0x20, 0x01, 0x0d, 0xb8}), U16(i)};
}

// Counts the insertions and removals a notifier announces; `isInsert` reads
// the announcement.
struct Balance : Kiv::Notifiee {
    Balance(Kiv::PtrInterface const* notifier, std::function<bool(void const*)> isInsert)
        : isInsert(std::move(isInsert)) {
        notifierIs(notifier);
        hasNotificationActiveIs(true);
    }
    void onAttribute(Kiv::AttributeId, void const* key) override {
        ++(isInsert(key) ? inserts : removals);
    }
    std::function<bool(void const*)> isInsert;
    std::atomic<int> inserts{0}, removals{0};
};

// One route's communities, every kind from the same mask.
struct Held {
    unsigned mask = 1u << poolSize;  // none yet
    CommList::PtrConst std;
    LargeCommList::PtrConst large;
    ExtCommList::PtrConst ext;
    ExtCommIp6List::PtrConst ip6;
    bool operator==(Held const&) const = default;
};

// Created thread-safe when VoBgpGlobals::multiThreaded() is on.
struct Tables {
    BgpParseExtCommContainerSm::Ptr parser = bgpParseExtCommContainerSmFactory();
    ExtCommDedupTable::Ptr ext = extCommDedupTableFactory(parser->extCommParser());
    ExtCommIp6DedupTable::Ptr ip6 = extCommIp6DedupTableFactory(parser->extCommParser());
    CommListDedupTable::Ptr stdLists = commListDedupTableFactory();
    LargeCommListDedupTable::Ptr largeLists = largeCommListDedupTableFactory();
    ExtCommListDedupTable::Ptr extLists = extCommListDedupTableFactory();
    ExtCommIp6ListDedupTable::Ptr ip6Lists = extCommIp6ListDedupTableFactory();

    Held intern(unsigned mask) const {
        auto std = commListFactory();
        auto large = largeCommListFactory();
        auto extList = extCommListFactory();
        auto ip6List = extCommIp6ListFactory();
        for (unsigned i = 0; i < poolSize; ++i) {
            if (!(mask >> i & 1))
                continue;
            std->commIs(stdPool[i]);
            large->commIs(Acl::CommunityValue(65536, 1, i));  // RFC 8092
            extList->commIs(ExtComm::dedupContent(ext.ptr(), ExtCommContent(extPool[i])));
            ip6List->commIs(ExtCommIp6::dedupContent(ip6.ptr(), ip6Content(i)));
        }
        return {mask, std->dedup(stdLists.ptr()), large->dedup(largeLists.ptr()),
                extList->dedup(extLists.ptr()), ip6List->dedup(ip6Lists.ptr())};
    }
    void dump(std::string& out) const {
        out.clear();
        auto const ctx = Vok::DumpContext::toString(out);
        ext->dumpState(ctx, 2);
        ip6->dumpState(ctx, 2);
        stdLists->dumpState(ctx, 2);
        largeLists->dumpState(ctx, 2);
        extLists->dumpState(ctx, 2);
        ip6Lists->dumpState(ctx, 2);
        extLists->notifyingRtExtCommListCollection()->dumpState(ctx, 2);
    }
};

TEST(ConcurrencyStress, EveryKindInternedAndReleasedWhileReadersWalkAndDump) {
    std::size_t const liveBefore = KivStash::DedupHandle::liveHandles();
    VoBgpGlobals::multiThreadedIs(true);
    Tables const tables;
    VoBgpGlobals::multiThreadedIs(false);
    auto const& collection = tables.extLists->notifyingRtExtCommListCollection();
    auto const& routeTargets = tables.ext->producerRtList();
    using RtListEvent = Kiv::CollectionEvent<RtExtCommListLifeTimeNotifier const*>;
    Balance rtLists(collection.ptr(), [](void const* key) {
        return static_cast<RtListEvent const*>(key)->change == Kiv::CollectionChange::insert;
    });
    // Inside the callback the list answers for the change announced.
    Balance rts(routeTargets.ptr(), [&](void const* key) {
        return routeTargets->rtHas(*static_cast<RouteTarget const*>(key));
    });

    char const* seconds = std::getenv("VOBGP_STRESS_SECONDS");
    auto const deadline = std::chrono::steady_clock::now() +
                          std::chrono::duration<double>(seconds ? std::strtod(seconds, nullptr)
                                                                : VOBGP_STRESS_DEFAULT_SECONDS);
    auto running = [&] { return std::chrono::steady_clock::now() < deadline; };
    std::atomic<int> faults{0}, walked{0};
    auto worker = [&](unsigned seed) {
        std::mt19937 random(seed);
        std::vector<Held> held(8);
        while (running()) {
            Held got = tables.intern(random() % (1u << poolSize));
            Held& slot = held[random() % held.size()];
            // A route holding the same communities shares every list.
            bool ok = slot.mask != got.mask || slot == got;
            // While held, its route targets are listed and so is its list of them.
            for (unsigned i = 0; i < poolSize; ++i)
                ok = ok && (!(got.mask & routeTargetBits & 1u << i) ||
                            routeTargets->rtHas(RouteTarget(extPool[i])));
            auto const* rtList = static_cast<RtExtCommClassificationList const*>(
                got.ext->classificationList(extCommClassificationRouteTarget));
            ok = ok && (rtList == nullptr) == !(got.mask & routeTargetBits) &&
                 (!rtList || collection->rtExtCommListHas(rtList->lifeTimeNotifier()));
            faults += !ok;
            slot = std::move(got);
        }
    };
    auto reader = [&] {
        std::string out;
        while (running()) {
            // Members stay readable after their lists leave the table.
            for (auto const& member : collection->rtExtCommListMembers()) {
                std::string const text = member->toStrep().c_str();
                ExtComm::PtrConst const rt = member->comm(extPool[0]);
                faults += text != "NULL" && text.find("extCommClassificationRouteTarget") != 0;
                faults += rt && rt->community() != extPool[0];
                ++walked;
            }
            tables.dump(out);
        }
    };
    std::vector<std::thread> threads;
    for (unsigned seed = 1; seed <= 3; ++seed)
        threads.emplace_back(worker, seed);
    threads.emplace_back(reader);
    for (auto& thread : threads)
        thread.join();

    EXPECT_EQ(0, faults.load());
    EXPECT_GT(walked.load(), 0);
    // Every table of values and lists (each thread-safe), the route-target
    // list and the collection: all empty.
    std::string out;
    tables.dump(out);
    EXPECT_THAT(out, ::testing::Not(::testing::ContainsRegex("entries [1-9]|#[1-9]")));
    EXPECT_THAT(out, ::testing::Not(::testing::ContainsRegex("entries 0\n")));
    for (Balance const* balance : {&rtLists, &rts}) {
        EXPECT_GT(balance->inserts.load(), 0);
        EXPECT_EQ(balance->inserts.load(), balance->removals.load());
    }
    EXPECT_EQ(liveBefore, KivStash::DedupHandle::liveHandles());
}

// One route's attributes as received, every kind from the same mask (the
// values of Tables::intern).
struct Wire {
    std::vector<U8> std, large, ext, ip6;
};
Wire wireOf(unsigned mask) {
    Wire wire;
    auto be = [](std::vector<U8>& out, U64 value, unsigned octets) {
        for (unsigned i = octets; i-- > 0;)
            out.push_back(U8(value >> 8 * i));
    };
    for (unsigned i = 0; i < poolSize; ++i) {
        if (!(mask >> i & 1))
            continue;
        be(wire.std, stdPool[i], 4);
        be(wire.large, 65536, 4);
        be(wire.large, 1, 4);
        be(wire.large, i, 4);
        be(wire.ext, extPool[i], 8);
        ExtCommIp6Content const c = ip6Content(i);
        wire.ip6.insert(wire.ip6.end(), {c.type, c.subtype});
        wire.ip6.insert(wire.ip6.end(), c.addr.octets().begin(), c.addr.octets().end());
        be(wire.ip6, c.localAdmin, 2);
    }
    return wire;
}

// Two threads, each with its own caches (one small enough to flush itself
// again and again) over one thread-safe table set, intern the same lists and
// give them back, copy them, drop them, replace them in place or flush:
// every list is the one the tables' own entry points give, and at the end
// every table is empty.
TEST(ConcurrencyStress, TwoThreadsCachingOverOneTableSetLeaveItEmpty) {
    std::size_t const liveBefore = KivStash::DedupHandle::liveHandles();
    VoBgpGlobals::multiThreadedIs(true);
    Tables const tables;
    VoBgpGlobals::multiThreadedIs(false);
    std::vector<Wire> wires;
    for (unsigned mask = 0; mask < 1u << poolSize; ++mask)
        wires.push_back(wireOf(mask));
    char const* seconds = std::getenv("VOBGP_STRESS_SECONDS");
    auto const deadline = std::chrono::steady_clock::now() +
                          std::chrono::duration<double>(seconds ? std::strtod(seconds, nullptr)
                                                                : VOBGP_STRESS_DEFAULT_SECONDS);
    std::atomic<int> faults{0};
    auto worker = [&](unsigned seed, std::size_t capacity) {
        ListInternCache<CommList> stdCache({tables.stdLists.ptr()}, capacity);
        ListInternCache<LargeCommList> large({tables.largeLists.ptr()}, capacity);
        ListInternCache<ExtCommList> ext({tables.ext.ptr(), tables.extLists.ptr()}, capacity);
        ListInternCache<ExtCommIp6List> ip6({tables.ip6.ptr(), tables.ip6Lists.ptr()}, capacity);
        std::mt19937 random(seed);
        std::vector<Held> held(8);
        while (std::chrono::steady_clock::now() < deadline) {
            unsigned const mask = random() % (1u << poolSize);
            Wire const& w = wires[mask];
            Held got{mask, stdCache.internReceived(w.std.data(), w.std.size()),
                     large.internReceived(w.large.data(), w.large.size()),
                     ext.internReceived(w.ext.data(), w.ext.size()),
                     ip6.internReceived(w.ip6.data(), w.ip6.size())};
            if (random() % 8 == 0)
                faults += !(got == tables.intern(mask));
            Held& slot = held[random() % held.size()];
            faults += slot.mask == got.mask && !(slot == got);
            switch (random() % 4) {
                case 0:  // back into credit
                    stdCache.giveBack(slot.std);
                    large.giveBack(slot.large);
                    ext.giveBack(slot.ext);
                    ip6.giveBack(slot.ip6);
                    break;
                case 1:  // a copy from credit, dropped the ordinary way
                    slot = Held{mask, stdCache.copy(got.std), large.copy(got.large),
                                ext.copy(got.ext), ip6.copy(got.ip6)};
                    break;
                case 2:
                    if (random() % 16 == 0) {
                        stdCache.flush();
                        ext.flush();
                    }
                    break;
                case 3:  // replaced in place: kept when of this mask already
                    slot.mask = mask;
                    CommList::internReceivedInto(slot.std, tables.stdLists.ptr(), w.std.data(),
                                                 w.std.size());
                    LargeCommList::internReceivedInto(slot.large, tables.largeLists.ptr(),
                                                      w.large.data(), w.large.size());
                    ExtCommList::internReceivedInto(slot.ext, tables.ext.ptr(),
                                                    tables.extLists.ptr(), w.ext.data(),
                                                    w.ext.size());
                    ExtCommIp6List::internReceivedInto(slot.ip6, tables.ip6.ptr(),
                                                       tables.ip6Lists.ptr(), w.ip6.data(),
                                                       w.ip6.size());
                    faults += !(slot == got);
                    break;
            }
            slot = std::move(got);
        }
    };
    std::thread other(worker, 2, 16);
    worker(1, ListInternCache<CommList>::defaultCapacity);
    other.join();

    EXPECT_EQ(0, faults.load());
    std::string out;
    tables.dump(out);
    EXPECT_THAT(out, ::testing::Not(::testing::ContainsRegex("entries [1-9]|#[1-9]")));
    EXPECT_EQ(liveBefore, KivStash::DedupHandle::liveHandles());
}

}  // namespace

namespace {

// Extended and IPv6 lists split on demand while several threads ask for the
// same lists and one of them starts watching: each list is split once (every
// thread gets the same container), and lists interned meanwhile are split
// too, so the collection then holds one notifier per held route-target set.
TEST(ConcurrencyStress, OnDemandSplitsRaceWithTheFirstWatcher) {
    VoBgpGlobals::multiThreadedIs(true);
    Tables const tables;
    VoBgpGlobals::multiThreadedIs(false);
    constexpr unsigned masks = 1u << poolSize;
    constexpr unsigned threads = 3;
    std::vector<Held> early;  // the even masks, interned before anyone asks
    for (unsigned m = 0; m < masks; m += 2)
        early.push_back(tables.intern(m));
    using Containers =
        std::pair<ExtCommClassificationLists const*, ExtCommIp6ClassificationListVector const*>;
    std::vector<std::vector<Containers>> seen(threads);
    std::vector<std::vector<Held>> late(threads);  // the odd masks
    auto worker = [&](unsigned t) {
        for (unsigned i = 0; i < early.size(); ++i) {
            if (t == 0 && i == early.size() / 2) {
                tables.extLists->notifyingRtExtCommListCollection();
                tables.ip6Lists->extCommIp6ClassificationListDedupTable();
            }
            unsigned const e = (i + t * 11) % unsigned(early.size());
            seen[t].emplace_back(&early[e].ext->classificationLists(),
                                 &early[e].ip6->classificationLists());
            if (i < early.size() / 2)
                late[t].push_back(tables.intern(2 * ((i + t * 5) % (masks / 2)) + 1));
        }
        std::rotate(seen[t].begin(), seen[t].end() - (t * 11) % early.size(), seen[t].end());
    };
    std::vector<std::thread> running;
    for (unsigned t = 0; t < threads; ++t)
        running.emplace_back(worker, t);
    for (auto& thread : running)
        thread.join();
    for (unsigned t = 1; t < threads; ++t)
        EXPECT_EQ(seen[0], seen[t]) << t;
    // Every list is split without being asked (odd masks 1 to 51 were
    // interned, so route-target sets 1 to 7 are all held: seven notifiers).
    auto const& collection = tables.extLists->notifyingRtExtCommListCollection();
    for (auto const& lists : late)
        for (Held const& held : lists)
            EXPECT_TRUE(held.ext->classificationListsSplit() &&
                        held.ip6->classificationListsSplit())
                << held.mask;
    EXPECT_EQ(7u, collection->rtExtCommLists());
    early.clear();
    late.clear();
    EXPECT_EQ(0u, collection->rtExtCommLists());
    EXPECT_EQ(0u, tables.extLists->dedupTable()->size());
}

}  // namespace
