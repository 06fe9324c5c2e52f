// Interning extended communities through ExtComm::dedupContent: one object
// and one parse per content, and the table under two threads; and the
// route-target list that interning keeps, with the route targets' texts.
#include <atomic>
#include <random>
#include <set>
#include <thread>

#include "ExtCommFormCheck.h"
#include "HashColliders.h"
#include "ParseTestPlugins.h"
#include "Routing/Bgp/RouteTarget.h"
#include "VoBgp/ExtCommIp6DedupTable.h"
#include "VoBgp/NotifyingRouteTargetList.h"
#include "VoBgp/VoBgpGlobals.h"

namespace Routing::Bgp {
namespace {

constexpr U64 rt1 = 0x0002fde800000064;     // 65000:100, two-octet AS
constexpr U64 rt2 = 0x0202000100000065;     // 65536:101, four-octet AS
constexpr U64 linkBw = 0x4004fde847c35000;  // non-transitive link bandwidth
constexpr U64 evpn = 0x0600000000000001;    // no type rule: plain fallback

using Seen = std::vector<std::pair<U64, bool>>;

// Records every notification with the membership the list reports from
// inside the callback.
struct Recorder : Kiv::Notifiee {
    explicit Recorder(NotifyingRouteTargetList::Ptr const& list) : list_(list) {
        notifierIs(list.ptr());
        hasNotificationActiveIs(true);
    }
    void onAttribute(Kiv::AttributeId attribute, void const* key) override {
        auto const& rt = *static_cast<RouteTarget const*>(key);
        EXPECT_EQ(0u, attribute);
        seen.push_back({rt.value(), list_->rtHas(rt)});
        // A notifiee may change the list from inside its callback.
        if (seen.back().second && rt.value() == veto)
            list_->rtDel(rt);
    }
    Seen seen;
    U64 veto = 0;
    NotifyingRouteTargetList::Ptr list_;
};

// A parser as the agent starts it, with an interning table on its root
// (its variant follows the process setting at creation), whose two-octet-AS
// route targets are built by a rule that counts its calls.
class DedupTableFixture {
  protected:
    explicit DedupTableFixture(bool multiThreaded) : multiThreaded_(multiThreaded) {
        ParseTest::typeRuleOf<BgpParseExtCommTransTwoOctetAsRule>(*root_,
                                                                  extCommPktTypeTransTwoOctetAs)
            ->subTypeRuleIs(counting_);
    }

    ExtComm::PtrConst intern(U64 value) {
        return ExtComm::dedupContent(table_.ptr(), ExtCommContent(value));
    }
    int routeTargetParses() const { return counting_->calls; }
    bool listed(U64 value) const { return table_->producerRtList()->rtHas(RouteTarget(value)); }
    std::size_t size() const { return table_->dedupTable()->size(); }

    // The process's switch, set for the fixture's life.
    struct MultiThreaded {
        explicit MultiThreaded(bool on) { VoBgpGlobals::multiThreadedIs(on); }
        ~MultiThreaded() { VoBgpGlobals::multiThreadedIs(false); }
    } multiThreaded_;
    FormCheck::Parser parser_;
    BgpParseExtendedCommunityRule::Ptr const& root_ = parser_.container->extCommParser();
    ExtCommDedupTable::Ptr& table_ = parser_.table;
    BgpParseExtCommControl control_ = root_->parseControl();
    Kiv::Ptr<ParseTest::TwoOctetAsSubRule> counting_ =
        ParseTest::makeSubRule<BgpParseExtComSubTypeTransTwoOctetAsRuleBase>(
            control_, extCommPktSubtypeTransTwoOctetAsRouteTarget,
            ParseTest::asNumberAs(extCommClassificationRouteTarget, false));
};

class ExtCommDedupTableTest : public DedupTableFixture, public ::testing::Test {
  protected:
    ExtCommDedupTableTest() : DedupTableFixture(false) {}
};

TEST_F(ExtCommDedupTableTest, OneObjectPerContentAndOneParse) {
    auto a = intern(rt1);
    auto b = intern(rt1);
    EXPECT_EQ(a, b);
    EXPECT_EQ(table_->dedupTable().ptr(), a->dedupTable());
    EXPECT_EQ(1, routeTargetParses());
    EXPECT_NE(a, intern(rt1 + 1));
    EXPECT_EQ(2, routeTargetParses());
    // Fallbacks are interned like any other community.
    auto plain = intern(evpn);
    EXPECT_EQ(plain, intern(evpn));
    EXPECT_EQ(2u, size());
    // The entry leaves with its last holder; then the content is parsed afresh.
    a = nullptr;
    EXPECT_EQ(2u, size());
    b = nullptr;
    EXPECT_EQ(1u, size());
    auto again = intern(rt1);
    EXPECT_EQ(3, routeTargetParses());
}

// Two route targets whose contents hash alike (found by search): the table
// must tell them apart by content, and each leaves on its own.
TEST_F(ExtCommDedupTableTest, CollidingHashesStayTwoCommunities) {
    constexpr U64 first = 0x0002fde80001b4fc;   // 65000:111868
    constexpr U64 second = 0x0002fde80001d5d9;  // 65000:120281
    ASSERT_EQ(ExtCommContent(first).hash(), ExtCommContent(second).hash());
    auto a = intern(first);
    auto b = intern(second);
    EXPECT_NE(a, b);
    EXPECT_EQ(second, b->community());
    EXPECT_EQ(a, intern(first));
    EXPECT_EQ(2, routeTargetParses());
    EXPECT_TRUE(listed(first) && listed(second));
    a = nullptr;
    EXPECT_FALSE(listed(first));
    EXPECT_TRUE(listed(second));
    EXPECT_EQ(b, intern(second));
    EXPECT_EQ(1u, size());
}

// Values crafted to share one hash(), as a peer flooding the table would
// send them, 8-octet and 20-octet: each stays its own community, is found
// again by content, and the table places them apart all the same. There are
// enough that colliders lie on one another's probe paths with equal slot
// fingerprints (one probed entry in 1,024): a lookup that compared hash()
// or the fingerprint instead of the content would return a wrong community
// about n / 1,024 times, so every run.
TEST_F(ExtCommDedupTableTest, CraftedCollisionsStayDistinctAndSpread) {
    auto ip6Table = extCommIp6DedupTableFactory(root_);
    std::vector<ExtCommIp6Content> const ip6 = HashColliders::extCommIp6Colliders(12000, 22);
    std::vector<U64> const values = HashColliders::hashU64Colliders(20000, 0x12345678u);
    std::vector<ExtComm::PtrConst> held;
    std::vector<ExtCommIp6::PtrConst> heldIp6;
    std::set<U32> placements, placementsIp6;
    for (U64 v : values) {
        ASSERT_EQ(0x12345678u, ExtCommContent(v).hash());
        held.push_back(intern(v));
        ASSERT_EQ(v, held.back()->community());
        placements.insert(held.back()->placementHash());
    }
    for (auto const& content : ip6) {
        ASSERT_EQ(ip6.front().hash(), content.hash());
        heldIp6.push_back(ExtCommIp6::dedupContent(ip6Table.ptr(), content));
        ASSERT_EQ(content, heldIp6.back()->getContent());
        placementsIp6.insert(heldIp6.back()->placementHash());
    }
    EXPECT_EQ(values.size(), size());
    EXPECT_EQ(ip6.size(), ip6Table->dedupTable()->size());
    // Equal placements among 20,000 seeded hashes: about one run in twenty.
    EXPECT_GE(placements.size(), values.size() - 2);
    EXPECT_GE(placementsIp6.size(), ip6.size() - 2);
    for (std::size_t i = 0; i < values.size(); ++i)
        ASSERT_EQ(held[i], intern(values[i])) << i;
    for (std::size_t i = 0; i < ip6.size(); ++i)
        ASSERT_EQ(heldIp6[i], ExtCommIp6::dedupContent(ip6Table.ptr(), ip6[i])) << i;
}

// The list gains a route target with its first holder and loses it with
// its last; other classifications never reach it; a dying table empties it
// and leaves holders their objects.
TEST_F(ExtCommDedupTableTest, RouteTargetListFollowsInternedRouteTargets) {
    auto list = table_->producerRtList();
    Recorder watcher(list);
    auto a = intern(rt1);
    auto a2 = intern(rt1);
    auto b = intern(rt2);
    auto bw = intern(linkBw);
    EXPECT_EQ(extCommClassificationLinkBandwidth, bw->classification());
    auto plain = intern(evpn);
    EXPECT_EQ((Seen{{rt1, true}, {rt2, true}}), watcher.seen);
    a = nullptr;
    EXPECT_TRUE(listed(rt1));
    a2 = nullptr;
    bw = nullptr;
    EXPECT_EQ((Seen{{rt1, true}, {rt2, true}, {rt1, false}}), watcher.seen);
    EXPECT_EQ(1u, list->rtCount());
    table_ = nullptr;
    EXPECT_EQ(0u, list->rtCount());
    EXPECT_EQ((Seen{{rt1, true}, {rt2, true}, {rt1, false}, {rt2, false}}), watcher.seen);
    EXPECT_EQ(nullptr, b->dedupTable());
    EXPECT_EQ(rt2, b->community());
}

// Another thread interns the same content between our lookup and our insert:
// its object wins and ours is dropped.
TEST_F(ExtCommDedupTableTest, EqualObjectInsertedMeanwhileWins) {
    ExtComm::PtrConst winner;
    int const liveBefore = static_cast<int>(KivStash::DedupHandle::liveHandles());
    bool nested = false;
    auto racing = ParseTest::makeSubRule<BgpParseExtComSubTypeTransOpaqueRuleBase>(
        control_, extCommPktSubtypeTransOpaqueColorExtendedCommunity,
        [&](ExtCommContent const& content) -> ExtComm::PtrConst {
            if (!nested) {
                nested = true;
                winner = ExtComm::dedupContent(table_.ptr(), content);
            }
            return ExtCommSubtyped::ExtCommSubtypedIs(extCommClassificationColor, content);
        });
    ParseTest::typeRuleOf<BgpParseExtCommTransOpaqueRule>(*root_, extCommPktTypeTransOpaque)
        ->subTypeRuleIs(racing);
    auto got = intern(0x030b000000000007);
    EXPECT_EQ(winner, got);
    EXPECT_EQ(2, racing->calls);
    EXPECT_EQ(1u, size());
    // The loser is gone already: only the winner is alive.
    EXPECT_EQ(liveBefore + 1, static_cast<int>(KivStash::DedupHandle::liveHandles()));
}

TEST_F(ExtCommDedupTableTest, AttributesAndDump) {
    EXPECT_FALSE(table_->dedupTable()->threadSafe());
    EXPECT_EQ(table_->lifeTimeNotifiee(), table_->dedupTable()->lifeTimeNotifiee());
    // Members print in plain notation even for a four-octet AS.
    auto a = intern(rt2);
    auto bw = intern(linkBw);
    std::string out;
    table_->dumpState(Vok::DumpContext::toString(out), 3);
    EXPECT_EQ(
        "   ExtCommDedupTable\n     dedupTable\n       DedupHashTable entries 2\n"
        "     producerRtList\n       NotifyingRouteTargetList #1:\n         65536:101\n",
        out);
    out.clear();
    table_->dumpState(Vok::DumpContext::toString(out), 0);
    EXPECT_EQ(0u, out.find("ExtCommDedupTable\n  dedupTable\n    DedupHashTable"));
}

// Two threads intern and release the same route targets (and some other
// communities) at random. While a thread holds a route target it must be
// listed; at the end, with every holder gone, the table and the list are
// empty and the list announced each entry as often as each removal.
class ExtCommDedupTableStress : public DedupTableFixture, public ::testing::Test {
  protected:
    ExtCommDedupTableStress() : DedupTableFixture(true) {}
};

TEST_F(ExtCommDedupTableStress, TwoThreadsInternAndReleaseTheSameValues) {
    ASSERT_TRUE(table_->dedupTable()->threadSafe());
    std::vector<U64> values;
    for (U64 i = 0; i < 12; ++i)
        values.insert(values.end(), {rt1 + i, rt2 + i, linkBw + i});
    std::atomic<int> announcements{0};
    struct Counter : Kiv::Notifiee {
        void onAttribute(Kiv::AttributeId, void const*) override { ++*count; }
        std::atomic<int>* count = nullptr;
    } counter;
    counter.count = &announcements;
    counter.notifierIs(table_->producerRtList().ptr());
    counter.hasNotificationActiveIs(true);

    std::atomic<bool> broken{false};
    auto work = [&](unsigned seed) {
        std::mt19937 random(seed);
        std::vector<ExtComm::PtrConst> held;
        for (int round = 0; round < 100000; ++round) {
            U64 value = values[random() % values.size()];
            if (held.size() < 8 || random() % 2) {
                auto comm = intern(value);
                bool isRt = comm->classification() == extCommClassificationRouteTarget;
                if (comm->community() != value || isRt != listed(value))
                    broken = true;
                held.push_back(std::move(comm));
            } else {
                std::swap(held[random() % held.size()], held.back());
                held.pop_back();
            }
        }
    };
    std::thread first(work, 1u);
    std::thread second(work, 2u);
    first.join();
    second.join();
    counter.notifierIs(nullptr);
    EXPECT_FALSE(broken);
    EXPECT_EQ(0u, size());
    EXPECT_EQ(0u, table_->producerRtList()->rtCount());
    // Each appearance and each disappearance was announced: an even count.
    EXPECT_GT(announcements.load(), 0);
    EXPECT_EQ(0, announcements.load() % 2);
}

// Each type octet's layout, its extremes and the asdot threshold; other
// types show the raw value, so nothing is lost.
TEST(RouteTarget, TextsByTypeOctetAndTheFrameworkForm) {
    for (auto [value, plain, asDot] : Rows<U64, char const*, char const*>{
             {0x0003ffffffffffffull, "65535:4294967295", "65535:4294967295"},
             {0x0102ffffffffffffull, "255.255.255.255:65535", "255.255.255.255:65535"},
             {0x0202fa56ea000064ull, "4200000000:100", "64086.59904:100"},
             {0x020200010000ffffull, "65536:65535", "1.0:65535"},
             {0x02020000ffff0001ull, "65535:1", "65535:1"},
             {0xffffffffffffffffull, "0xffffffffffffffff", "0xffffffffffffffff"},
         }) {
        RouteTarget rt(value);
        EXPECT_EQ(plain, rt.toStrep(false).str());
        char buffer[RouteTarget::strepSizeMax + 1];
        std::size_t n = rt.toStrep(buffer, true);
        EXPECT_EQ(std::string(asDot) + '\0', std::string(buffer, n + 1));
        EXPECT_EQ(rt, RouteTarget::strepToValue(rt.valueToStrep()));
    }
    EXPECT_LT(RouteTarget(0x7fffffffffffffffull), RouteTarget(0x8000000000000000ull));
    EXPECT_EQ("Value('Routing::Bgp::RouteTarget', ** {'value': 0x0002fde800000064})",
              streamed(RouteTarget(0x0002fde800000064ull)));
    std::string const head = "Value('Routing::Bgp::RouteTarget', ** {'value': ";
    // Bad digits are range errors, a bad frame a parse error.
    for (std::string bad : {"0xzz})", "0x10000000000000000})"})
        EXPECT_THROW(RouteTarget::strepToValue(Kiv::String(head + bad)), Kiv::RangeError) << bad;
    for (std::string bad : {head + "100})", head + "0x1)", head + "0x1}) ",
                            std::string("Value('Routing::Bgp::Other', ** {'value': 0x1})")})
        EXPECT_THROW(RouteTarget::strepToValue(Kiv::String(bad)), Kiv::ParseError) << bad;
}

constexpr RouteTarget rtA(0x0002fde800000064ull);
constexpr RouteTarget rtB(0x01020a0000010064ull);
constexpr RouteTarget rtC(0x0202fa56ea000064ull);

TEST(NotifyingRouteTargetList, AnnouncesOnlyRealChanges) {
    for (auto make : {&Routing::Bgp::notifyingRouteTargetListFactory,
                      &NotifyingRouteTargetList::NotifyingRouteTargetListIs}) {
        auto list = make();
        EXPECT_TRUE(list->hasNotificationActive());
        Recorder recorder(list);
        list->rtIs(rtA);
        list->rtIs(rtA);
        EXPECT_FALSE(list->rtDel(rtB));
        EXPECT_TRUE(list->rtHas(rtA));
        EXPECT_EQ(1u, list->rtCount());
        EXPECT_TRUE(list->rtDel(rtA));
        EXPECT_FALSE(list->rtDel(rtA));
        EXPECT_EQ((Seen{{rtA.value(), true}, {rtA.value(), false}}), recorder.seen);
        // Emptying announces each member, only to listeners.
        for (auto rt : {rtA, rtB, rtC})
            list->rtIs(rt);
        recorder.seen.clear();
        list->rtDelAll();
        std::sort(recorder.seen.begin(), recorder.seen.end());
        EXPECT_EQ((Seen{{rtA.value(), false}, {rtB.value(), false}, {rtC.value(), false}}),
                  recorder.seen);
        recorder.seen.clear();
        recorder.veto = rtB.value();
        list->rtIs(rtA);
        list->rtIs(rtB);
        EXPECT_TRUE(list->rtHas(rtA) && !list->rtHas(rtB));
        EXPECT_EQ((Seen{{rtA.value(), true}, {rtB.value(), true}, {rtB.value(), false}}),
                  recorder.seen);
        recorder.notifierIs(nullptr);
        list->rtDelAll();
        EXPECT_EQ(0u, list->rtCount());
    }
}

}  // namespace
}  // namespace Routing::Bgp
