// Extended community lists: splitting into shared classification lists, the
// cached bits, selective serialization, pruning, lookups and the stash image.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

#include "ExtCommListTestEnv.h"
#include "Toggle/Toggle.h"

namespace {

using namespace ExtCommListTestEnv;

// The classifications of a list's classification lists with their sizes.
std::vector<std::pair<int, U32>> shape(ExtCommList const& list) {
    std::vector<std::pair<int, U32>> out;
    for (auto const& classificationList : list.classificationLists())
        out.push_back({classificationList->classification(), classificationList->comms()});
    return out;
}

// A list of one community of every classification, interned: what must hold
// with the "Mvpn" toggle in the state `mvpn`. Faults as text, so that a
// process of its own can report them.
std::vector<std::string> mixedListFaults(bool mvpn) {
    std::vector<std::string> faults;
    auto check = [&](bool ok, std::string const& what) {
        if (!ok)
            faults.push_back(what);
    };
    Env env;
    std::vector<U64> all = {ovsValue,         colorValue,          lbwValue,
                            rtValue,          vrfRouteImportValue, defaultGatewayValue,
                            tunnelEncapValue, routeOriginValue,    unspecifiedValue};
    auto const list = env.list(all);
    std::vector<std::pair<int, U32>> const expected =
        mvpn ? std::vector<std::pair<int, U32>>{{0, 1}, {1, 1}, {2, 1}, {4, 1}, {5, 1},
                                                {7, 1}, {8, 1}, {9, 1}, {10, 1}}
             : std::vector<std::pair<int, U32>>{{0, 2}, {1, 1}, {2, 1}, {4, 1},
                                                {5, 1}, {7, 1}, {8, 1}, {9, 1}};
    check(shape(*list) == expected, "classification lists");
    check(list->totalCommunities() == 9, "totalCommunities");
    // All but the link bandwidth (0x40) and the origin validation state (0x43).
    check(list->totalTransitiveCommunities() == 7, "totalTransitiveCommunities");
    check(list->commVectorAttrs().value() == 0x1B,
          "attribute bits " + list->commVectorAttrs().toStrep());
    check(
        valuesOf(*list->commVectorRawPtr()) ==
            std::vector<U64>{rtValue, routeOriginValue, unspecifiedValue, vrfRouteImportValue,
                             colorValue, tunnelEncapValue, defaultGatewayValue, lbwValue, ovsValue},
        "community order");
    // One member fewer: a new list sharing every classification list but one.
    all.erase(all.begin());
    auto const fewer = env.list(all);
    for (auto const& classificationList : fewer->classificationLists())
        check(list->classificationList(classificationList->classification()) ==
                  classificationList.ptr(),
              "shared classification list");
    check(fewer->commVectorAttrs().value() == 0x03, "bits without origin validation state");
    return faults;
}

TEST(ExtCommList, MixedClassificationsWithoutMvpn) {
    EXPECT_THAT(mixedListFaults(bgpParseExtCommMvpnEnabled()), ::testing::IsEmpty());
    EXPECT_FALSE(bgpParseExtCommMvpnEnabled()) << "the test process runs without the toggle";
}

// The toggle is read once per process: each state runs in a process of its own.
void runMixedListWithMvpn(char const* toggleFile, bool on) {
    char pattern[] = "/tmp/vobgp-extcommlist-XXXXXX";
    if (mkdtemp(pattern) == nullptr)
        std::_Exit(2);
    std::filesystem::path const dir(pattern);
    std::ofstream(dir / "MvpnLib.json") << toggleFile;
    setenv(Toggle::toggleDirEnv, pattern, 1);
    auto faults = mixedListFaults(on);
    if (bgpParseExtCommMvpnEnabled() != on)
        faults.push_back("toggle not read");
    std::filesystem::remove_all(dir);
    for (auto const& fault : faults)
        std::fprintf(stderr, "%s\n", fault.c_str());
    std::_Exit(faults.empty() ? 0 : 1);
}

TEST(ExtCommListMvpn, MixedClassificationsBothToggleStates) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(runMixedListWithMvpn(R"({"Mvpn": true})", true), ::testing::ExitedWithCode(0), "");
    EXPECT_EXIT(runMixedListWithMvpn(R"({"Mvpn": false})", false), ::testing::ExitedWithCode(0),
                "");
}

TEST(ExtCommList, ListsShareClassificationListsAndInternWithoutRebuilding) {
    Env env;
    auto const a = env.list({rtValue, colorValue, rt2Value, rtValue});
    auto const b = env.list({rt2Value, color2Value, rtValue});
    EXPECT_EQ(3u, a->totalCommunities()) << "duplicates dropped";
    EXPECT_EQ(a->classificationList(extCommClassificationRouteTarget),
              b->classificationList(extCommClassificationRouteTarget));
    EXPECT_NE(a->classificationList(extCommClassificationColor),
              b->classificationList(extCommClassificationColor));
    EXPECT_EQ(nullptr, a->classificationList(extCommClassificationLinkBandwidth));
    EXPECT_EQ(1u, env.lists->rtExtCommClassificationListDedupTable()->size());
    EXPECT_EQ(2u, env.lists->extCommClassificationListDedupTable()->size());

    // Everything interned already: the same list back, nothing new anywhere.
    auto again = env.privateList({colorValue, rtValue, rt2Value});
    auto const* const candidate = again.ptr();
    EXPECT_EQ(a, again->dedup(env.lists.ptr()));
    EXPECT_EQ(0u, candidate->classificationLists().size()) << "no classification list built";
    // New combination of existing classification lists: shared, not rebuilt.
    auto const c = env.list({rt2Value, rtValue, color2Value, colorValue});
    EXPECT_EQ(a->classificationList(extCommClassificationRouteTarget),
              c->classificationList(extCommClassificationRouteTarget));
    EXPECT_EQ(1u, env.lists->rtExtCommClassificationListDedupTable()->size());
    EXPECT_EQ(3u, env.lists->extCommClassificationListDedupTable()->size());
    EXPECT_EQ(3u, env.lists->dedupTable()->size());

    EXPECT_EQ(0u, env.list({})->hash());
}

// Both ways to the interned list (building the classification lists, or
// finding them) give the same bits and counts.
TEST(ExtCommList, BitsAgreeWhetherClassificationListsAreFoundOrBuilt) {
    for (std::vector<U64> const& members :
         {std::vector<U64>{lbw(0, bw1), lbw(7, bw2), ovsValue, rtValue},
          std::vector<U64>{lbw(9, bwNaN), colorValue}, std::vector<U64>{}}) {
        Env env;
        ExtCommList::PtrConst built = env.list(members);
        auto const bits = built->commVectorAttrs();
        auto const transitive = built->totalTransitiveCommunities();
        // Drop the list but keep its classification lists alive.
        std::vector<ExtCommClassificationList::PtrConst> const keep(
            built->classificationLists().begin(), built->classificationLists().end());
        built = nullptr;
        auto const interned = env.list(members);
        EXPECT_TRUE(std::equal(keep.begin(), keep.end(), interned->classificationLists().begin(),
                               interned->classificationLists().end()));
        EXPECT_EQ(bits, interned->commVectorAttrs()) << interned->commVectorAttrs().toStrep();
        EXPECT_EQ(transitive, interned->totalTransitiveCommunities());
    }
}

TEST(ExtCommList, LinkBandwidthsPruneToTheBestValidOne) {
    struct Row {
        char const* what;
        std::vector<U64> members;
        bool prunable;
        bool unspecifiedAs;
        std::vector<U64> pruned;  // empty: pruning leaves nothing
    } const rows[] = {
        // clang-format off
        {"one valid", {lbw(65000, bw1)}, false, false, {lbw(65000, bw1)}},
        {"two rates, smaller wins", {lbw(65000, bw2), lbw(65001, bw1)}, true, false, {lbw(65001, bw1)}},
        {"equal rates, lower value wins", {lbw(65001, bw1), lbw(65000, bw1)}, true, false, {lbw(65000, bw1)}},
        {"three rates", {lbw(1, bw3), lbw(2, bw1), lbw(3, bw2)}, true, false, {lbw(2, bw1)}},
        {"NaN alone", {lbw(65000, bwNaN)}, true, false, {}},
        {"negative and infinite", {lbw(1, bwNegative), lbw(2, bwInfinity)}, true, false, {}},
        {"valid beside invalid", {lbw(5, bwNaN), lbw(6, bw3), lbw(7, bwNegative)}, true, false, {lbw(6, bw3)}},
        {"no AS", {lbw(0, bw1)}, false, true, {lbw(0, bw1)}},
        {"others kept", {lbw(1, bw2), lbw(2, bw1), rtValue, colorValue}, true, false, {rtValue, colorValue, lbw(2, bw1)}},
        // clang-format on
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.what);
        Env env;
        auto const list = env.list(row.members);
        EXPECT_TRUE(list->hasLinkBandwidth());
        EXPECT_EQ(row.prunable, list->hasPrunableValues());
        EXPECT_EQ(row.unspecifiedAs, list->hasLinkBandwidthWithUnspecifiedAsNumber());
        auto const* lbwList = list->classificationList(extCommClassificationLinkBandwidth);
        ASSERT_NE(nullptr, lbwList);
        EXPECT_EQ(row.prunable, lbwList->hasPrunableValues());
        auto const pruned = list->prune(env.lists.ptr());
        if (row.pruned.empty()) {
            EXPECT_EQ(nullptr, pruned);
            continue;
        }
        ASSERT_NE(nullptr, pruned);
        if (!row.prunable) {
            EXPECT_EQ(list, pruned) << "nothing to prune: the same list";
        }
        EXPECT_FALSE(pruned->hasPrunableValues());
        std::vector<U64> expected = row.pruned;
        std::sort(expected.begin(), expected.end());
        EXPECT_EQ(expected, valuesOf(*pruned->commVectorRawPtr()));
        EXPECT_EQ(pruned, env.list(row.pruned)) << "pruned lists are interned";
    }
}

TEST(ExtCommList, SerializationSelectsByFlags) {
    struct Row {
        bool nonTransitive, linkBandwidth, originAsValidity;
        unsigned bits;
    } const rows[] = {{true, false, false, 0x01},  {true, true, true, 0x01},
                      {false, false, false, 0x02}, {false, true, true, 0x0E},
                      {false, true, false, 0x06},  {false, false, true, 0x0A}};
    for (auto const& row : rows)
        EXPECT_EQ(row.bits, ExtCommList::serialization(row.nonTransitive, row.linkBandwidth,
                                                       row.originAsValidity)
                                .value());
    EXPECT_EQ(
        "Value('Routing::Bgp::ExtCommList::Serialization', ** {'all': False, 'transitive': True, "
        "'linkBandwidth': False, 'originAsValidity': True})",
        valueToStrep(ExtCommList::serialization(false, false, true)));
}

TEST(ExtCommList, SerializeWritesExactlyTheSelectedCommunities) {
    Env env;
    auto const list = env.list({ovsValue, nonTransValue, lbwValue, rtValue});
    struct Row {
        ExtCommList::Serialization selection;
        std::vector<U64> written;
    } const rows[] = {
        {ExtCommList::serialization(true, false, false),
         {rtValue, lbwValue, nonTransValue, ovsValue}},
        {ExtCommList::serialization(false, false, false), {rtValue}},
        {ExtCommList::serialization(false, true, false), {rtValue, lbwValue}},
        {ExtCommList::serialization(false, false, true), {rtValue, ovsValue}},
        {ExtCommList::serialization(false, true, true), {rtValue, lbwValue, ovsValue}},
    };
    for (auto const& row : rows) {
        EXPECT_EQ(extCommAttribute(row.written), octetsOf(list->serialize(row.selection)))
            << row.selection.toStrep();
        EXPECT_EQ(row.written.size(), list->serializableCommunities(row.selection));
    }
    // Nothing selected: no attribute at all.
    auto const empty = env.list({});
    auto const nonTransitiveOnly = env.list({nonTransValue, lbwValue});
    for (auto const& row : rows)
        EXPECT_EQ("", empty->serialize(row.selection));
    EXPECT_EQ("", nonTransitiveOnly->serialize(ExtCommList::serialization(false, false, true)));
    EXPECT_EQ(
        extCommAttribute({lbwValue}),
        octetsOf(nonTransitiveOnly->serialize(ExtCommList::serialization(false, true, true))));
}

// Random lists, as received and pruned, with and without the opt-in
// plug-ins (which type the transitive link bandwidth), under all 16
// selections: the exact count and size are what serialize writes. On a
// pruned list the classic count agrees, but for the origin validation
// states beyond the first, which pruning keeps.
TEST(ExtCommList, SerializedCountsAreWhatSerializeWrites) {
    // Transitive link bandwidths (0x00 0x04), RFC 8097 states valid, not
    // found and invalid, EVPN and flowspec values.
    U64 const pool[] = {
        rtValue,          rt2Value,           nonTransValue,      lbw(1, bw1),
        lbw(0, bw2),      lbw(2, bwNaN),      0x0004FDE83F800000, 0x0004000040000000,
        ovsValue,         ovsValue + 1,       ovsValue + 2,       colorValue,
        unspecifiedValue, 0x0600010000000005, 0x8006FDE849742400};
    std::mt19937 random(20);
    for (bool optIn : {false, true}) {
        Env const env(optIn);
        for (int round = 0; round < 200; ++round) {
            std::vector<U64> values;
            for (auto n = random() % 8; n > 0; --n)
                values.push_back(random() % 4 ? pool[random() % std::size(pool)]
                                              : U64(random()) << 32 | random());
            auto const list = env.list(values);
            auto const pruned = list->prune(env.lists.ptr());
            auto const* ovs =
                pruned ? pruned->classificationList(extCommClassificationOriginValidationState)
                       : nullptr;
            U32 const states = ovs ? ovs->comms() : 0;
            for (unsigned bits = 0; bits < 16; ++bits) {
                ExtCommList::Serialization const s(bits);
                SCOPED_TRACE(testing::Message() << optIn << " " << bits << " " << list->toStrep());
                for (auto const* l : {list.ptr(), pruned.ptr()}) {
                    if (l == nullptr)
                        continue;
                    Kiv::String const written = l->serialize(s);
                    EXPECT_EQ(valuesIn(written, 8), l->serializedCommunities(s));
                    EXPECT_EQ(written.size(), l->serializedSize(s));
                    EXPECT_TRUE(l->fitsOneAttribute(s));
                }
                U32 const beyondFirst =
                    s.originAsValidity() && !s.all() && states > 1 ? states - 1 : 0;
                if (pruned) {
                    EXPECT_EQ(pruned->serializedCommunities(s) - beyondFirst,
                              pruned->serializableCommunities(s));
                }
            }
        }
    }
}

TEST(ExtCommList, LongListsTakeTheExtendedLengthHeader) {
    Env env;
    for (U32 members : {31u, 32u, 64u, 70u}) {
        std::vector<U64> values;
        for (U32 i = 0; i < members; ++i)
            values.push_back(rtValue + i);
        auto const list = env.list(values);
        Octets const octets =
            octetsOf(list->serialize(ExtCommList::serialization(true, false, false)));
        Octets const header = members == 31   ? Octets{0xC0, 0x10, 0xF8}
                              : members == 32 ? Octets{0xD0, 0x10, 0x01, 0x00}
                              : members == 64 ? Octets{0xD0, 0x10, 0x02, 0x00}
                                              : Octets{0xD0, 0x10, 0x02, 0x30};
        EXPECT_EQ(header, Octets(octets.begin(), octets.begin() + header.size())) << members;
        EXPECT_EQ(extCommAttribute(values), octets) << members;
        EXPECT_EQ(members, list->classificationList(extCommClassificationRouteTarget)->comms());
    }
}

TEST(ExtCommList, LookupFindsMembersOnly) {
    Env env;
    auto const list = env.list({colorValue, rt2Value, rtValue});
    EXPECT_EQ(env.comm(rtValue), list->comm(rtValue)) << "smallest";
    EXPECT_EQ(env.comm(colorValue), list->lookupExtComm(colorValue)) << "largest";
    EXPECT_EQ(nullptr, list->comm(rtValue + 1)) << "between two members";
    EXPECT_EQ(nullptr, list->comm(rtValue - 1)) << "below all";
    EXPECT_EQ(nullptr, list->comm(colorValue + 1)) << "above all";
    auto const* rts = list->classificationList(extCommClassificationRouteTarget);
    EXPECT_EQ(env.comm(rt2Value), rts->comm(rt2Value));
    EXPECT_EQ(nullptr, rts->comm(colorValue));
}

TEST(ExtCommList, AttributeSetsPrintAndParseInTheFrameworkForm) {
    Env env;
    auto const attrs = env.list({lbw(0, bwNaN), ovsValue})->commVectorAttrs();
    auto const text = valueToStrep(attrs);
    EXPECT_EQ(
        "Value('Routing::Bgp::ExtCommList::CommVectorAttrs', ** {'sorted': True, "
        "'hasLinkBandwidth': True, 'hasLinkBandwidthWithUnspecifiedAsNumber': True, "
        "'hasOriginValidationState': True, 'hasPolicyMatchStrepUICommunities': True, "
        "'hasPrunableValues': True})",
        text);
    ExtCommList::CommVectorAttrs parsed;
    auto it = text.begin();
    sequenceToValue(it, text.end(), &parsed);
    EXPECT_EQ(attrs, parsed);

    ExtCommClassificationList::CommVectorAttrs classificationAttrs;
    classificationAttrs.hasPrunableValuesIs(true);
    std::ostringstream os;
    os << classificationAttrs;
    EXPECT_EQ(
        "Value('Routing::Bgp::ExtCommClassificationList::CommVectorAttrs', ** {'sorted': False, "
        "'hasPrunableValues': True})",
        os.str());
}

TEST(ExtCommClassificationLists, KeepAscendingClassificationOrder) {
    ExtCommClassificationLists lists;
    for (auto c : {extCommClassificationLinkBandwidth, extCommClassificationRouteTarget,
                   extCommClassificationOriginValidationState})
        lists.insert(extCommClassificationListFactory(c));
    std::vector<int> order;
    for (auto const& list : lists)
        order.push_back(list->classification());
    EXPECT_EQ((std::vector<int>{1, 7, 9}), order);
    EXPECT_EQ(lists.begin()[1].ptr(), lists.lookup(extCommClassificationLinkBandwidth));
    EXPECT_EQ(nullptr, lists.lookup(extCommClassificationColor));
    // The right subclass for each classification.
    EXPECT_NE(nullptr, dynamic_cast<RtExtCommClassificationList const*>(lists.begin()[0].ptr()));
    EXPECT_NE(nullptr,
              dynamic_cast<LinkBandwidthExtCommClassificationList const*>(lists.begin()[1].ptr()));

    std::unique_ptr<ExtCommClassificationLists> const same(
        ExtCommClassificationLists::created(lists.begin(), lists.size()));
    EXPECT_TRUE(*same == lists);
    same->replace(same->begin() + 2,
                  extCommClassificationListFactory(extCommClassificationOriginValidationState));
    EXPECT_FALSE(*same == lists);
    EXPECT_FALSE(ExtCommClassificationLists() == lists);
    EXPECT_TRUE(ExtCommClassificationLists() == ExtCommClassificationLists());
}

TEST(ExtCommVectorHelpers, SortAndLookUpTwentyOctetCommunities) {
    auto ip6 = [](U8 subtype, U16 localAdmin) {
        ExtCommIp6Content content;
        content.type = 0x00;
        content.subtype = subtype;
        content.localAdmin = localAdmin;
        return ExtCommIp6::PtrConst(extCommIp6Factory(extCommClassificationRouteTarget, content));
    };
    ExtCommVectorOf<ExtCommIp6> vector = {ip6(2, 9), ip6(2, 1), ip6(1, 5), ip6(2, 1)};
    ExtCommVectorSort(vector);
    ASSERT_EQ(3u, vector.size());
    EXPECT_EQ(1, vector[0]->getContent().subtype);
    EXPECT_EQ(1, vector[1]->getContent().localAdmin);
    EXPECT_EQ(vector[2], ExtCommVectorLookup(true, vector, vector[2]->getContent()));
    EXPECT_EQ(nullptr, ExtCommVectorLookup(true, vector, ip6(2, 5)->getContent()));
}

TEST(ExtCommList, StashesAsValuesAndDestashesIntoAnotherTable) {
    Env writerEnv;
    auto const list = writerEnv.list({colorValue, rtValue, lbwValue});
    KivStash::StoreManager writer;
    U32 const record = list->stash(&writer);
    auto const image = writer.image();
    // Header 32, record: kind 5, two words per element, three elements.
    Octets expectedRecord = {5, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0};
    for (U64 value : {rtValue, colorValue, lbwValue})
        for (U32 word : {U32(value >> 32), U32(value)})
            for (int shift = 0; shift < 32; shift += 8)
                expectedRecord.push_back(static_cast<U8>(word >> shift));
    EXPECT_EQ(expectedRecord, Octets(image.begin() + 32, image.begin() + 32 + 36));

    Env readerEnv;
    KivStash::StoreManager reader(image.data(), image.size());
    auto const copy = ExtCommList::destash(reader.record(record), &reader, readerEnv.values.ptr());
    EXPECT_TRUE(copy->commVectorSorted());
    auto const interned = copy->dedup(readerEnv.lists.ptr());
    EXPECT_EQ(readerEnv.list({rtValue, colorValue, lbwValue}), interned);
    EXPECT_EQ(readerEnv.comm(lbwValue), interned->comm(lbwValue));

    // A record of another kind is not an extended community list.
    auto commTable = commListDedupTableFactory();
    KivStash::StoreManager mixedWriter;
    commListFactory()->dedup(commTable.ptr())->stash(&mixedWriter);
    auto const mixed = mixedWriter.image();
    KivStash::StoreManager mixedReader(mixed.data(), mixed.size());
    EXPECT_THROW(ExtCommList::destash(mixedReader.record(0), &mixedReader, readerEnv.values.ptr()),
                 Kiv::ParseError);
}

}  // namespace
