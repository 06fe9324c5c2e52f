// Snapshots of community lists: what the list held, in key order, and the
// collection events observers see.
#include "ExtCommListTestEnv.h"

namespace {

using namespace ExtCommListTestEnv;
using Kiv::CollectionChange;

TEST(Snapshot, StandardAndLargeListsInKeyOrder) {
    auto table = commListDedupTableFactory();
    auto list = commListFactory();
    for (U32 comm : {7u, 3u, 0xFFFFFF01u})
        list->commIs(comm);
    auto const snapshot = list->dedup(table.ptr())->commSnapshot();
    std::vector<std::pair<U32, bool>> const entries(snapshot->comm().begin(),
                                                    snapshot->comm().end());
    EXPECT_EQ((std::vector<std::pair<U32, bool>>{{3, true}, {7, true}, {0xFFFFFF01u, true}}),
              entries);

    auto largeTable = largeCommListDedupTableFactory();
    auto large = largeCommListFactory();
    large->commIs(Acl::CommunityValue(2, 0, 0));
    large->commIs(Acl::CommunityValue(1, 5, 6));
    auto const largeSnapshot = large->dedup(largeTable.ptr())->commSnapshot();
    EXPECT_TRUE(largeSnapshot->hasNotificationActive());
    EXPECT_EQ(Acl::CommunityValue(1, 5, 6), largeSnapshot->comm().begin()->first);
    EXPECT_TRUE(commListFactory()->commSnapshot()->comm().empty());
}

TEST(Snapshot, ObserversHearInsertUpdateAndDelete) {
    auto snapshot = commListSnapshotFactory();
    EventRecorder<U32> observer(snapshot.ptr());
    snapshot->commIs(5, true);
    snapshot->commIs(2, true);
    snapshot->commIs(5, false);
    EXPECT_EQ(2u, snapshot->comm().size()) << "an existing key changes only its value";
    EXPECT_FALSE(*snapshot->comm().find(5));
    snapshot->commDel(9);
    snapshot->commDel(snapshot->comm().begin());
    snapshot->commIs(8, true);
    snapshot->commDelAll();
    EXPECT_TRUE(snapshot->comm().empty());
    using E = EventRecorder<U32>::Event;
    EXPECT_EQ((std::vector<E>{{0, CollectionChange::insert, 5},
                              {0, CollectionChange::insert, 2},
                              {0, CollectionChange::update, 5},
                              {0, CollectionChange::erase, 2},
                              {0, CollectionChange::insert, 8},
                              {0, CollectionChange::erase, 5},
                              {0, CollectionChange::erase, 8}}),
              observer.events);
}

TEST(Snapshot, ExtendedListsHoldTheirClassificationListsAndCommunities) {
    Env env;
    auto list = env.list({color2Value, rtValue, colorValue, rt2Value});
    auto const snapshot = list->snapshot();
    EXPECT_TRUE(snapshot->hasNotificationActive());
    std::vector<int> keys;
    for (auto const& [classification, classificationList] : snapshot->classificationList()) {
        keys.push_back(classification);
        EXPECT_EQ(list->classificationList(classification), classificationList.ptr());
    }
    EXPECT_EQ((std::vector<int>{1, 8}), keys);
    std::vector<U64> values;
    for (auto const& [value, comm] : snapshot->comm()) {
        values.push_back(value);
        EXPECT_EQ(value, comm->community());
    }
    EXPECT_EQ((std::vector<U64>{rtValue, rt2Value, colorValue, color2Value}), values);

    // The snapshot keeps what it shows alive, not the list.
    auto const* colors = list->classificationList(extCommClassificationColor);
    list = nullptr;
    EXPECT_EQ(0u, env.lists->dedupTable()->size());
    EXPECT_EQ(colors, snapshot->classificationList().find(extCommClassificationColor)->ptr());
    EXPECT_EQ(1u, env.lists->extCommClassificationListDedupTable()->size());

    auto const colorSnapshot = colors->commSnapshot();
    EXPECT_EQ(extCommClassificationColor, colorSnapshot->classification());
    EXPECT_EQ(2u, colorSnapshot->comm().size());
    EXPECT_EQ(colorValue, colorSnapshot->comm().begin()->first);

    snapshot->classificationListDelAll();
    EventRecorder<U64> observer(snapshot.ptr());
    snapshot->commDel(rtValue);
    snapshot->commDelAll();
    EXPECT_TRUE(snapshot->comm().empty() && snapshot->classificationList().empty());
    EXPECT_EQ(4u, observer.events.size());
    EXPECT_EQ((EventRecorder<U64>::Event{ExtCommListSnapshot::commAttributeId,
                                         CollectionChange::erase, rtValue}),
              observer.events[0]);
    EXPECT_TRUE(env.list({})->snapshot()->comm().empty());
}

}  // namespace
