#include <atomic>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "ParseTestPlugins.h"
#include "TestUtil.h"
#include "VoBgp/Parse/ExtComm.h"
#include "VoBgp/VoBgpCommunity.h"
#include "VoBgp/VoBgpGlobals.h"

namespace Routing::Bgp {
namespace {

using ParseTest::TestRouteTargetSm;

constexpr U64 rt1 = 0x0002fde800000064;     // 65000:100, two-octet AS
constexpr U64 rt2 = 0x0202000100000065;     // 65536:101, four-octet AS
constexpr U64 linkBw = 0x4004fde847c35000;  // non-transitive link bandwidth
constexpr U64 evpn = 0x0600000000000001;    // no type rule: plain fallback

// Counts the route-target list's announcements.
class RtWatcher : public Kiv::Notifiee {
  public:
    explicit RtWatcher(NotifyingRouteTargetList const* list) {
        notifierIs(list);
        hasNotificationActiveIs(true);
    }
    void onAttribute(Kiv::AttributeId, void const* key) override {
        seen.push_back(static_cast<RouteTarget const*>(key)->value());
    }
    std::vector<U64> seen;
};

// A parser with the route-target plug-in and an interning table on it; the
// table variant follows the process setting at creation.
class DedupTableFixture {
  protected:
    explicit DedupTableFixture(bool multiThreaded)
        : savedMultiThreaded_(VoBgpGlobals::multiThreaded()) {
        VoBgpGlobals::multiThreadedIs(multiThreaded);
        plugin_ = Kiv::makeActive<TestRouteTargetSm>(collections_);
        root_ = bgpParseExtendedCommunityRuleFactory(BgpParseExtCommControl(collections_));
        table_ = extCommDedupTableFactory(root_);
    }
    ~DedupTableFixture() { VoBgpGlobals::multiThreadedIs(savedMultiThreaded_); }

    ExtComm::PtrConst intern(U64 value) {
        return ExtComm::dedupContent(table_.ptr(), ExtCommContent(value));
    }
    int routeTargetParses() const { return ParseTest::twoOctetAsRouteTargetRule(*root_)->calls; }
    bool listed(U64 value) const { return table_->producerRtList()->rtHas(RouteTarget(value)); }

    bool savedMultiThreaded_;
    BgpParseExtCommRuleCollections::Ptr collections_ = bgpParseExtCommRuleCollectionsFactory();
    BgpParseExtCommPluginBaseSm::Ptr plugin_;
    BgpParseExtendedCommunityRule::Ptr root_;
    ExtCommDedupTable::Ptr table_;
};

class ExtCommDedupTableTest : public DedupTableFixture, public ::testing::Test {
  protected:
    ExtCommDedupTableTest() : DedupTableFixture(false) {}
};

TEST_F(ExtCommDedupTableTest, OneObjectPerContentAndOneParse) {
    auto a = intern(rt1);
    auto b = intern(rt1);
    EXPECT_EQ(a, b);
    EXPECT_TRUE(a->isDeduped());
    EXPECT_EQ(table_->dedupTable().ptr(), a->dedupTable());
    EXPECT_EQ(extCommClassificationRouteTarget, a->classification());
    EXPECT_EQ(1, routeTargetParses());

    auto other = intern(rt1 + 1);
    EXPECT_NE(a, other);
    EXPECT_EQ(2, routeTargetParses());
    EXPECT_EQ(2u, table_->dedupTable()->size());

    // Fallbacks are interned like any other community.
    auto plain = intern(evpn);
    EXPECT_EQ(plain, intern(evpn));
    EXPECT_EQ(extCommClassificationUnSpecified, plain->classification());
    EXPECT_EQ(3u, table_->dedupTable()->size());

    // Once gone, a content is parsed afresh.
    a = nullptr;
    b = nullptr;
    EXPECT_EQ(2u, table_->dedupTable()->size());
    auto again = intern(rt1);
    EXPECT_EQ(3, routeTargetParses());
}

TEST_F(ExtCommDedupTableTest, EntryLeavesWithItsLastHolder) {
    auto a = intern(linkBw);
    EXPECT_EQ(extCommClassificationLinkBandwidth, a->classification());
    {
        auto b = intern(linkBw);
        auto c = b;
    }
    EXPECT_EQ(1u, table_->dedupTable()->size());
    EXPECT_EQ(table_->dedupTable().ptr(), a->dedupTable());
    a = nullptr;
    EXPECT_EQ(0u, table_->dedupTable()->size());
}

TEST_F(ExtCommDedupTableTest, RouteTargetListFollowsInternedRouteTargets) {
    RtWatcher watcher(table_->producerRtList().ptr());
    auto a = intern(rt1);
    auto a2 = intern(rt1);
    auto b = intern(rt2);
    EXPECT_TRUE(listed(rt1));
    EXPECT_TRUE(listed(rt2));
    EXPECT_EQ(std::vector<U64>({rt1, rt2}), watcher.seen);

    // Other classifications never reach the list.
    auto bw = intern(linkBw);
    auto plain = intern(evpn);
    EXPECT_EQ(2u, table_->producerRtList()->rtCount());

    a = nullptr;
    EXPECT_TRUE(listed(rt1));
    a2 = nullptr;
    EXPECT_FALSE(listed(rt1));
    EXPECT_EQ(std::vector<U64>({rt1, rt2, rt1}), watcher.seen);
    bw = nullptr;
    EXPECT_EQ(3u, watcher.seen.size());
}

TEST_F(ExtCommDedupTableTest, DyingTableEmptiesTheListAndLeavesHoldersTheirObjects) {
    auto list = table_->producerRtList();
    RtWatcher watcher(list.ptr());
    auto held = intern(rt1);
    table_ = nullptr;
    EXPECT_EQ(0u, list->rtCount());
    EXPECT_EQ(std::vector<U64>({rt1, rt1}), watcher.seen);
    EXPECT_EQ(nullptr, held->dedupTable());
    EXPECT_EQ(rt1, held->community());
}

// Another thread interns the same content between our lookup and our insert:
// its object wins and ours is dropped.
TEST_F(ExtCommDedupTableTest, EqualObjectInsertedMeanwhileWins) {
    ExtComm::PtrConst winner;
    int const liveBefore = static_cast<int>(KivStash::DedupHandle::liveHandles());
    bool nested = false;
    auto racing = ParseTest::makeSubRule<BgpParseExtComSubTypeTransOpaqueRuleBase>(
        BgpParseExtCommControl(collections_), extCommPktSubtypeTransOpaqueColorExtendedCommunity,
        [&](ExtCommContent const& content) -> ExtComm::PtrConst {
            if (!nested) {
                nested = true;
                winner = ExtComm::dedupContent(table_.ptr(), content);
            }
            return ExtCommSubtyped::ExtCommSubtypedIs(extCommClassificationColor, content);
        });
    auto const* opaque = static_cast<BgpParseExtCommTransOpaqueRule const*>(
        root_->typeRule(extCommPktTypeTransOpaque).ptr());
    const_cast<BgpParseExtCommTransOpaqueRule*>(opaque)->subTypeRuleIs(racing);

    auto got = intern(0x030b000000000007);
    EXPECT_EQ(winner, got);
    EXPECT_EQ(2, racing->calls);
    EXPECT_EQ(1u, table_->dedupTable()->size());
    // The loser is gone already: only the winner is alive.
    EXPECT_EQ(liveBefore + 1, static_cast<int>(KivStash::DedupHandle::liveHandles()));
}

TEST_F(ExtCommDedupTableTest, AttributesAndDump) {
    EXPECT_EQ(root_, table_->parseExtCommRule());
    EXPECT_FALSE(table_->dedupTable()->threadSafe());
    EXPECT_EQ(table_->lifeTimeNotifiee(), table_->dedupTable()->lifeTimeNotifiee());
    EXPECT_EQ(table_->producerRtList(), table_->lifeTimeNotifiee()->rtList());
    EXPECT_TRUE(table_->producerRtList()->hasNotificationActive());

    auto a = intern(rt1);
    auto bw = intern(linkBw);
    std::string out;
    table_->dumpState(Vok::DumpContext::toString(out), 0);
    EXPECT_EQ(
        "ExtCommDedupTable\n"
        "  dedupTable\n"
        "    DedupHashTable entries 2\n"
        "  producerRtList\n"
        "    NotifyingRouteTargetList #1:\n"
        "      65000:100\n",
        out);
    out.clear();
    table_->dumpState(Vok::DumpContext::toString(out), 3);
    EXPECT_EQ(
        "   ExtCommDedupTable\n"
        "     dedupTable\n"
        "       DedupHashTable entries 2\n"
        "     producerRtList\n"
        "       NotifyingRouteTargetList #1:\n"
        "         65000:100\n",
        out);
}

TEST(ExtCommDedupTableVariant, FollowsTheProcessSettingAtCreation) {
    bool const saved = VoBgpGlobals::multiThreaded();
    auto collections = bgpParseExtCommRuleCollectionsFactory();
    auto root = bgpParseExtendedCommunityRuleFactory(BgpParseExtCommControl(collections));
    VoBgpGlobals::multiThreadedIs(true);
    auto threadSafe = ExtCommDedupTable::ExtCommDedupTableIs(root);
    VoBgpGlobals::multiThreadedIs(false);
    auto plain = ExtCommDedupTable::ExtCommDedupTableIs(root);
    VoBgpGlobals::multiThreadedIs(saved);
    EXPECT_TRUE(threadSafe->dedupTable()->threadSafe());
    EXPECT_FALSE(plain->dedupTable()->threadSafe());
    EXPECT_TRUE(threadSafe->hasNotificationActive());
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
    for (U64 i = 0; i < 12; ++i) {
        values.push_back(rt1 + i);     // route targets
        values.push_back(rt2 + i);     // route targets, four-octet AS
        values.push_back(linkBw + i);  // never listed
    }
    std::atomic<int> announcements{0};
    class Counter : public Kiv::Notifiee {
      public:
        explicit Counter(std::atomic<int>* count) : count_(count) {}
        void onAttribute(Kiv::AttributeId, void const*) override { ++*count_; }

      private:
        std::atomic<int>* count_;
    } counter(&announcements);
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
                if (comm->community() != value)
                    broken = true;
                bool isRt = comm->classification() == extCommClassificationRouteTarget;
                if (isRt != listed(value))
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

    EXPECT_FALSE(broken);
    EXPECT_EQ(0u, table_->dedupTable()->size());
    EXPECT_EQ(0u, table_->producerRtList()->rtCount());
    // Each appearance and each disappearance was announced: an even count.
    EXPECT_GT(announcements.load(), 0);
    EXPECT_EQ(0, announcements.load() % 2);
}

}  // namespace
}  // namespace Routing::Bgp
