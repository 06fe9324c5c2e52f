// The extended community list tables: route-target lists announced to the
// watchers of the collection exactly once each way, the dumps, and every
// contract check of the extended community lists.
#include <set>
#include <sstream>

#include "ExtCommListTestEnv.h"
#include "Routing/RouteMap/PosixRegex.h"

namespace {

using namespace ExtCommListTestEnv;
using Recorder = EventRecorder<RtExtCommListLifeTimeNotifier const*>;
using Kiv::CollectionChange;

std::string dump(std::function<void(Vok::DumpContext const&)> const& write) {
    std::string out;
    write(Vok::DumpContext::toString(out));
    return out;
}

TEST(RtExtCommListLifeTime, OneInsertAndOneDeletePerDistinctRouteTargetList) {
    Env env;
    auto const& collection = env.lists->notifyingRtExtCommListCollection();
    Recorder watcher(collection.ptr());
    auto a = env.list({rtValue, colorValue});
    auto b = env.list({rtValue, color2Value});
    auto const noRouteTarget = env.list({colorValue, lbwValue});
    ASSERT_EQ(1u, watcher.events.size());
    auto const* rts = static_cast<RtExtCommClassificationList const*>(
        a->classificationList(extCommClassificationRouteTarget));
    RtExtCommListLifeTimeNotifier const* const notifier = rts->lifeTimeNotifier();
    ASSERT_NE(nullptr, notifier);
    EXPECT_TRUE(notifier->hasNotificationActive());
    // A watcher, on another thread say, may hold the notifier past its list.
    RtExtCommListLifeTimeNotifier::PtrConst const held(notifier);
    EXPECT_EQ(rts, notifier->rtExtCommListRawPtr());
    EXPECT_EQ(notifier, rts->getLifeTimeNotifier().ptr());
    EXPECT_EQ(env.comm(rtValue), notifier->comm(rtValue));
    EXPECT_EQ((Recorder::Event{0, CollectionChange::insert, notifier}), watcher.events[0]);
    EXPECT_TRUE(collection->rtExtCommListHas(notifier));
    EXPECT_EQ(1u, collection->rtExtCommLists());

    a = nullptr;
    EXPECT_EQ(1u, watcher.events.size()) << "still held by b";
    b = nullptr;
    ASSERT_EQ(2u, watcher.events.size());
    EXPECT_EQ(CollectionChange::erase, watcher.events[1].change);
    EXPECT_EQ(notifier, watcher.events[1].key);
    EXPECT_EQ(0u, collection->rtExtCommLists());
    EXPECT_EQ(nullptr, held->comm(rtValue)) << "the list is gone";
    EXPECT_EQ(std::string("NULL"), held->toStrep());

    // A list built for display never reaches the table and gets no notifier.
    auto display = env.privateList({rt2Value});
    display->createClassificationListVector(false);
    auto const* displayRts = static_cast<RtExtCommClassificationList const*>(
        display->classificationList(extCommClassificationRouteTarget));
    EXPECT_EQ(nullptr, displayRts->lifeTimeNotifier());
    EXPECT_EQ(Vok::dedupHandleStateNotToBeDeduped(), displayRts->dedupState());
    EXPECT_EQ(2u, watcher.events.size());
}

// Lists interned before anyone watches are split when someone first does:
// the collection and the classification tables then hold what splitting at
// interning would have given, later lists are split as they enter, and a
// notifier leaves with the last list holding its route targets.
TEST(RtExtCommListLifeTime, AFirstWatcherSeesWhatSplittingAtInterningGives) {
    std::vector<std::vector<U64>> const sets = {
        {rtValue, colorValue}, {rtValue, color2Value}, {rt2Value, lbwValue}, {colorValue}};
    Env eager;
    Recorder early(eager.lists->notifyingRtExtCommListCollection().ptr());
    Env lazy;
    std::vector<ExtCommList::PtrConst> held, eagerHeld;
    for (auto const& set : sets) {
        eagerHeld.push_back(eager.list(set));
        held.push_back(lazy.list(set));
    }
    auto const& collection = lazy.lists->notifyingRtExtCommListCollection();
    Recorder watcher(collection.ptr());
    auto shown = [](Env const& env) {
        std::multiset<std::string> out;
        for (auto const& member :
             env.lists->notifyingRtExtCommListCollection()->rtExtCommListMembers())
            out.insert(member->toStrep().c_str());
        out.insert(std::to_string(env.lists->extCommClassificationListDedupTable()->size()));
        return out;
    };
    EXPECT_EQ(2u, early.events.size());
    EXPECT_EQ(shown(eager), shown(lazy));
    EXPECT_EQ((std::multiset<std::string>{"3",
                                          "extCommClassificationRouteTarget : "
                                          "<RouteTarget2ByteASN 65000:100 0x0002fde800000064>",
                                          "extCommClassificationRouteTarget : "
                                          "<RouteTarget2ByteASN 65000:200 0x0002fde8000000c8>"}),
              shown(lazy));
    auto const* const rts = static_cast<RtExtCommClassificationList const*>(
        held[0]->classificationList(extCommClassificationRouteTarget));
    EXPECT_TRUE(collection->rtExtCommListHas(rts->lifeTimeNotifier()));
    EXPECT_TRUE(watcher.events.empty());

    held.push_back(lazy.list({rtValue, rt2Value}));
    ASSERT_EQ(1u, watcher.events.size()) << "split as it entered";
    EXPECT_EQ(CollectionChange::insert, watcher.events[0].change);
    auto const* const gone = rts->lifeTimeNotifier();
    held[0] = nullptr;
    EXPECT_EQ(1u, watcher.events.size()) << "still held by the second list";
    held[1] = nullptr;
    ASSERT_EQ(2u, watcher.events.size());
    EXPECT_EQ((Recorder::Event{0, CollectionChange::erase, gone}), watcher.events[1]);
    held.clear();
    EXPECT_EQ(4u, watcher.events.size());
    EXPECT_EQ(0u, collection->rtExtCommLists());
}

TEST(RtExtCommListLifeTime, ShutdownTellsWatchersThatEveryListGoes) {
    Env env;
    auto const collection = env.lists->notifyingRtExtCommListCollection();
    Recorder watcher(collection.ptr());
    auto a = env.list({rtValue});
    auto b = env.list({rt2Value});
    auto const held = collection->rtExtCommListMembers().at(0);
    env.lists = nullptr;
    ASSERT_EQ(4u, watcher.events.size());
    EXPECT_EQ(CollectionChange::erase, watcher.events[2].change);
    EXPECT_EQ(CollectionChange::erase, watcher.events[3].change);
    EXPECT_EQ(0u, collection->rtExtCommLists());
    EXPECT_EQ(nullptr, static_cast<RtExtCommClassificationList const*>(
                           a->classificationList(extCommClassificationRouteTarget))
                           ->lifeTimeNotifier());
    // No removal will be announced for these lists: their notifiers forgot them.
    a = nullptr;
    b = nullptr;
    EXPECT_EQ(std::string("NULL"), held->toStrep());
}

TEST(RtExtCommListLifeTime, CollectionAndTableDumps) {
    Env env;
    auto const& collection = env.lists->notifyingRtExtCommListCollection();
    EXPECT_EQ("NotifyingRtExtCommListCollection rtExtCommLists #0;\n",
              dump([&](auto const& ctx) { collection->dumpState(ctx, 0); }));
    auto const list = env.list({rtValue, colorValue});
    std::string const member =
        "extCommClassificationRouteTarget : <RouteTarget2ByteASN 65000:100 0x0002fde800000064>";
    EXPECT_EQ("NotifyingRtExtCommListCollection rtExtCommLists #1;\nrtExtCommList " + member + "\n",
              dump([&](auto const& ctx) { collection->dumpState(ctx, 0); }));
    EXPECT_EQ("   NotifyingRtExtCommListCollection rtExtCommLists #1;\n     rtExtCommList " +
                  member + "\n",
              dump([&](auto const& ctx) { collection->dumpState(ctx, 3); }));
    auto const notifier = collection->rtExtCommListMembers().at(0);
    EXPECT_EQ(member, notifier->toStrep());
    std::ostringstream os;
    os << static_cast<RtExtCommListLifeTimeNotifier const*>(nullptr);
    EXPECT_EQ("NULL", os.str());

    std::string const plain = dump([&](auto const& ctx) { env.lists->dumpState(ctx, 0); });
    EXPECT_THAT(plain, ::testing::StartsWith("ExtCommListDedupTable\nextComm\nDedupHashTable "
                                             "entries 1\nExtCommList hash "));
    EXPECT_THAT(plain, ::testing::HasSubstr("\nextCommClassification\nDedupHashTable entries 1\n"
                                            "ExtCommClassificationList hash "));
    EXPECT_THAT(plain, ::testing::HasSubstr("\nrtExtCommClassification\nDedupHashTable entries 1\n"
                                            "ExtCommClassificationList hash "));
    EXPECT_THAT(plain, ::testing::HasSubstr(": " + member + "\n"));
    EXPECT_THAT(dump([&](auto const& ctx) { env.lists->dumpState(ctx, 2); }),
                ::testing::StartsWith("  ExtCommListDedupTable\n    extComm\n      "
                                      "DedupHashTable entries 1\n      ExtCommList"));
}

// Misuse of the lists, each of whose checks names the call that broke it.
void internTwice() {
    Env env;
    auto list = env.privateList({rtValue});
    list->dedup(env.lists.ptr());
    list->dedup(env.lists.ptr());
}
void internADisplayList() {
    Env env;
    auto list = env.privateList({rtValue});
    list->createClassificationListVector(false);
    list->dedup(env.lists.ptr());
}
void hashAPrivateList() {
    Env env;
    auto list = env.privateList({rtValue});
    list->createClassificationListVector(true);
    list->hash();
}
void pruneAPrivateList() {
    auto list = extCommListFactory();
    list->hasPrunableValuesIs(true);
    list->prune(nullptr);
}
ExtCommClassificationList::Ptr color() {
    return extCommClassificationListFactory(extCommClassificationColor);
}
void insertTwice() {
    ExtCommClassificationLists lists;
    lists.insert(color());
    lists.insert(color());
}
void replaceBy(ExtCommClassificationList::PtrConst list, bool atEnd) {
    ExtCommClassificationLists lists;
    lists.insert(color());
    lists.replace(atEnd ? lists.end() : lists.begin(), std::move(list));
}
void announceTwice() {
    Env env;
    auto const list = env.list({rtValue});
    env.lists->rtExtCommListLifeTimeNotifiee()->handleInsert(
        list->classificationList(extCommClassificationRouteTarget));
}
void matchUiWithoutUiCommunities() {
    Env env;
    Routing::RouteMap::PosixRegex const regex(".*");
    matchExtCommList(env.list({rtValue}).ptr(), MatchMode::ui, &regex);
}

TEST(ExtCommListDeathTest, MisuseAbortsWithItsCheck) {
    std::string const neverDeduped = "->dedupState() == Vok::dedupHandleStateNeverDeduped()";
    std::string const deduped = "->dedupState() != Vok::dedupHandleStateNeverDeduped()";
    std::string const lists = "Routing::Bgp::ExtCommClassificationLists::";
    struct Case {
        std::string text;
        std::string function;
        std::function<void()> misuse;
    } const cases[] = {
        // clang-format off
        {"__null != comm", "ExtCommVectorAdd", [] { extCommListFactory()->commIs(nullptr); }},
        {"__null == ( comm ) || ( comm )" + deduped, "ExtCommVectorAdd",
         [] { color()->commIs(extCommFactory(extCommClassificationColor, ExtCommContent(colorValue))); }},
        {"commVectorSorted()", "Routing::Bgp::ExtCommList::totalCommunities() const",
         [] { extCommListFactory()->totalCommunities(); }},
        {"commVectorSorted", "ExtCommVectorLookup", [] { extCommListFactory()->comm(1); }},
        {"__null == ( _classificationList ) || ( _classificationList )" + neverDeduped,
         "Routing::Bgp::ExtCommList::createClassificationListVector(bool", internADisplayList},
        {"__null == ( this ) || ( this )" + neverDeduped, "Routing::Bgp::ExtCommList::dedup(", internTwice},
        {"__null == ( p ) || ( p )" + deduped, "Routing::Bgp::BgpHashMix::BgpHashMix(", hashAPrivateList},
        {"isDeduped()", "Routing::Bgp::ExtCommList::prune(", pruneAPrivateList},
        {"commVectorSorted()", "Routing::Bgp::ExtCommClassificationList::hash() const", [] { color()->hash(); }},
        {"commVectorSorted()", "Routing::Bgp::ExtCommClassificationList::compare(",
         [] { color()->compare(color().ptr()); }},
        {"classificationList != nullptr", lists + "insert(", [] { ExtCommClassificationLists().insert(nullptr); }},
        {"existingElementClassification != classification", lists + "insert(", insertTwice},
        {"classificationList != nullptr", lists + "replace(", [] { replaceBy(nullptr, false); }},
        {"iter != cend()", lists + "replace(", [] { replaceBy(color(), true); }},
        {"( *iter )->classification() == classificationList->classification()", lists + "replace(",
         [] { replaceBy(extCommClassificationListFactory(extCommClassificationRouteOrigin), false); }},
        {"__null == rtExtCommList->lifeTimeNotifier()",
         "Routing::Bgp::RtExtCommListLifeTimeNotifiee::handleInsert(", announceTwice},
        {"__null != lifeTimeNotifier", "Routing::Bgp::NotifyingRtExtCommListCollection::rtExtCommListIs(",
         [] { notifyingRtExtCommListCollectionFactory()->rtExtCommListIs(nullptr); }},
        {"!strVal.empty() || matchMode != MatchMode::ui", "Routing::Bgp::matchExtCommList(",
         matchUiWithoutUiCommunities},
        // clang-format on
    };
    for (auto const& c : cases)
        EXPECT_CHECK_DEATH(c.misuse(), c.text, c.function) << c.text << " in " << c.function;
}

}  // namespace
