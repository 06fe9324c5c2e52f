#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include "TestUtil.h"
#include "VoBgp/NotifyingRouteTargetList.h"

namespace {

using Routing::Bgp::NotifyingRouteTargetList;
using Routing::Bgp::RouteTarget;

// Records every notification together with the membership the notifier
// reports from inside the callback.
struct Recorder : Kiv::Notifiee {
    explicit Recorder(NotifyingRouteTargetList::Ptr const& list) : list_(list) {
        notifierIs(list.ptr());
        hasNotificationActiveIs(true);
    }
    void onAttribute(Kiv::AttributeId attribute, void const* key) override {
        auto const& rt = *static_cast<RouteTarget const*>(key);
        seen.push_back({attribute, rt, list_->rtHas(rt)});
    }
    struct Seen {
        Kiv::AttributeId attribute;
        RouteTarget rt;
        bool present;
    };
    std::vector<Seen> seen;
    NotifyingRouteTargetList::Ptr list_;
};

constexpr RouteTarget rtA(0x0002fde800000064ull);
constexpr RouteTarget rtB(0x01020a0000010064ull);
constexpr RouteTarget rtC(0x0202fa56ea000064ull);

TEST(NotifyingRouteTargetList, FactoriesMakeEmptyActiveLists) {
    for (auto make : {&Routing::Bgp::notifyingRouteTargetListFactory,
                      &NotifyingRouteTargetList::NotifyingRouteTargetListIs}) {
        auto list = make();
        EXPECT_TRUE(list->hasNotificationActive());
        EXPECT_EQ(1u, list->references());
        EXPECT_EQ(0u, list->rtCount());
        EXPECT_FALSE(list->rtHas(rtA));
    }
}

TEST(NotifyingRouteTargetList, InsertNotifiesOnlyWhenNew) {
    auto list = NotifyingRouteTargetList::NotifyingRouteTargetListIs();
    Recorder recorder(list);
    list->rtIs(rtA);
    list->rtIs(rtA);
    ASSERT_EQ(1u, recorder.seen.size());
    EXPECT_EQ(NotifyingRouteTargetList::rtAttributeId, recorder.seen[0].attribute);
    EXPECT_EQ(0u, recorder.seen[0].attribute);
    EXPECT_EQ(rtA, recorder.seen[0].rt);
    EXPECT_TRUE(recorder.seen[0].present);
    EXPECT_TRUE(list->rtHas(rtA));
    EXPECT_EQ(1u, list->rtCount());
}

TEST(NotifyingRouteTargetList, DeleteNotifiesOnlyWhenPresent) {
    auto list = NotifyingRouteTargetList::NotifyingRouteTargetListIs();
    list->rtIs(rtA);
    Recorder recorder(list);
    EXPECT_FALSE(list->rtDel(rtB));
    EXPECT_TRUE(recorder.seen.empty());
    EXPECT_TRUE(list->rtDel(rtA));
    EXPECT_FALSE(list->rtDel(rtA));
    ASSERT_EQ(1u, recorder.seen.size());
    EXPECT_EQ(rtA, recorder.seen[0].rt);
    EXPECT_FALSE(recorder.seen[0].present);
}

TEST(NotifyingRouteTargetList, DeleteAllAnnouncesEachMemberOnlyToListeners) {
    auto list = NotifyingRouteTargetList::NotifyingRouteTargetListIs();
    for (auto rt : {rtA, rtB, rtC})
        list->rtIs(rt);
    {
        Recorder recorder(list);
        list->rtDelAll();
        ASSERT_EQ(3u, recorder.seen.size());
        std::vector<U64> keys;
        for (auto const& s : recorder.seen) {
            EXPECT_FALSE(s.present);
            keys.push_back(s.rt.value());
        }
        std::sort(keys.begin(), keys.end());
        EXPECT_EQ((std::vector<U64>{rtA.value(), rtB.value(), rtC.value()}), keys);
        EXPECT_EQ(0u, list->rtCount());
    }
    // Without notifiees the set is simply cleared.
    for (auto rt : {rtA, rtB, rtC})
        list->rtIs(rt);
    EXPECT_TRUE(list->notifieeList().empty());
    list->rtDelAll();
    EXPECT_EQ(0u, list->rtCount());
    EXPECT_FALSE(list->rtHas(rtB));
}

// A notifiee may change the list from inside its callback.
TEST(NotifyingRouteTargetList, CallbacksMayReenterTheList) {
    struct Veto : Kiv::Notifiee {
        void onAttribute(Kiv::AttributeId, void const* key) override {
            auto const& rt = *static_cast<RouteTarget const*>(key);
            ++calls;
            if (list->rtHas(rt) && rt == rtB)
                list->rtDel(rt);
        }
        NotifyingRouteTargetList* list = nullptr;
        int calls = 0;
    } veto;
    auto list = NotifyingRouteTargetList::NotifyingRouteTargetListIs();
    veto.list = list.ptr();
    veto.notifierIs(list.ptr());
    veto.hasNotificationActiveIs(true);
    list->rtIs(rtA);
    list->rtIs(rtB);
    EXPECT_TRUE(list->rtHas(rtA));
    EXPECT_FALSE(list->rtHas(rtB));
    EXPECT_EQ(3, veto.calls);  // A in, B in, B out
    veto.notifierIs(nullptr);
}

std::string dump(NotifyingRouteTargetList const& list, U32 indent) {
    std::string out;
    list.dumpState(Vok::DumpContext::toString(out), indent);
    return out;
}

TEST(NotifyingRouteTargetList, DumpState) {
    auto list = NotifyingRouteTargetList::NotifyingRouteTargetListIs();
    EXPECT_EQ("NotifyingRouteTargetList #0:\n", dump(*list, 0));
    EXPECT_EQ("   NotifyingRouteTargetList #0:\n", dump(*list, 3));
    // Members print in plain notation even for a four-octet AS.
    list->rtIs(rtC);
    EXPECT_EQ("NotifyingRouteTargetList #1:\n  4200000000:100\n", dump(*list, 0));
    EXPECT_EQ("    NotifyingRouteTargetList #1:\n      4200000000:100\n", dump(*list, 4));

    // Several members: one line each, in set order.
    list->rtIs(rtA);
    list->rtIs(rtB);
    std::string text = dump(*list, 2);
    std::string const header = "  NotifyingRouteTargetList #3:\n";
    ASSERT_EQ(header, text.substr(0, header.size()));
    std::vector<std::string> lines;
    for (std::size_t at = header.size(); at < text.size();) {
        std::size_t eol = text.find('\n', at);
        lines.push_back(text.substr(at, eol - at));
        at = eol + 1;
    }
    std::sort(lines.begin(), lines.end());
    EXPECT_EQ((std::vector<std::string>{"    10.0.0.1:100", "    4200000000:100", "    65000:100"}),
              lines);
}

// Two interning threads add and remove overlapping-in-time, disjoint-in-key
// route targets; the set and the notification stream must come out exact.
TEST(NotifyingRouteTargetList, ConcurrentInsertAndDelete) {
    struct Counter : Kiv::Notifiee {
        void onAttribute(Kiv::AttributeId, void const* key) override {
            // Plain counters: delivery is serialised by the list.
            ++calls;
            if (list->rtHas(*static_cast<RouteTarget const*>(key)))
                ++present;
        }
        NotifyingRouteTargetList* list = nullptr;
        long calls = 0;
        long present = 0;
    } counter;
    auto list = NotifyingRouteTargetList::NotifyingRouteTargetListIs();
    counter.list = list.ptr();
    counter.notifierIs(list.ptr());
    counter.hasNotificationActiveIs(true);

    constexpr U64 kKeys = 4000;
    constexpr int kRounds = 3;
    // Thread t owns the keys with key % 2 == t. Each round adds all its keys
    // and removes two thirds of them (every removal succeeds), then a final
    // pass re-adds the keys that are already there (no notification).
    auto work = [&](U64 parity) {
        for (int round = 0; round < kRounds; ++round) {
            for (U64 k = parity; k < kKeys; k += 2)
                list->rtIs(RouteTarget(k));
            for (U64 k = parity; k < kKeys; k += 2) {
                if ((k / 2) % 3 != 0) {
                    EXPECT_TRUE(list->rtDel(RouteTarget(k)));
                }
            }
        }
        for (U64 k = parity; k < kKeys; k += 2)
            if ((k / 2) % 3 == 0)
                list->rtIs(RouteTarget(k));
    };
    std::thread t0(work, 0), t1(work, 1);
    t0.join();
    t1.join();

    long expectedSurvivors = 0;
    for (U64 k = 0; k < kKeys; ++k) {
        bool survives = (k / 2) % 3 == 0;
        expectedSurvivors += survives;
        EXPECT_EQ(survives, list->rtHas(RouteTarget(k))) << k;
    }
    EXPECT_EQ(static_cast<std::size_t>(expectedSurvivors), list->rtCount());
    // Survivors are inserted once; each other key is added and removed once per round.
    long const churned = static_cast<long>(kKeys) - expectedSurvivors;
    EXPECT_EQ(expectedSurvivors + 2 * kRounds * churned, counter.calls);
    EXPECT_EQ(expectedSurvivors + kRounds * churned, counter.present);
    counter.notifierIs(nullptr);
}

}  // namespace
