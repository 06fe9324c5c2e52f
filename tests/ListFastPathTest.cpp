// The received-values entry points of every list kind (intern and
// internReceived): they must find the very list the classic path (private
// list, commIs, dedup) interned, and a list they build must be the one the
// classic path then finds; unsorted and repeated input, lists longer than
// the stack buffer, and nothing left behind once the routes let go. What
// they cost, counted in allocations; replacing what a route holds; and for
// every kind, how many values one attribute carries.
#include <vector>

#include "ListKinds.h"
#include "VoBgp/internal/ListStorage.h"

namespace {

template <class Kind>
class ListFastPathTest : public ::testing::Test {};
TYPED_TEST_SUITE(ListFastPathTest, Kinds);

TYPED_TEST(ListFastPathTest, FindsAndBuildsWhatTheClassicPathDoes) {
    using Value = typename TypeParam::Value;
    std::size_t const liveBefore = KivStash::DedupHandle::liveHandles();
    {
        TypeParam kind;
        for (std::size_t count : {std::size_t(0), std::size_t(3), TypeParam::beyondStack}) {
            SCOPED_TRACE(count);
            // Ascending values [first, first + count); received reversed, the
            // first two repeated.
            auto make = [&](U32 first) {
                std::vector<Value> sorted, received;
                for (U32 i = 0; i < count; ++i)
                    sorted.push_back(TypeParam::value(first + i));
                received.assign(sorted.rbegin(), sorted.rend());
                received.insert(received.end(), sorted.begin(),
                                sorted.begin() + std::min<std::size_t>(2, count));
                return std::make_pair(sorted, received);
            };
            auto const [sorted, received] = make(1000);
            Octets octets;
            for (Value const& v : received)
                TypeParam::wire(octets, v);

            auto const held = kind.classic(sorted);  // a route holds it
            EXPECT_EQ(held.ptr(), fast(kind, received).ptr());
            EXPECT_EQ(held.ptr(), fromOctets(kind, octets).ptr());

            // Built by the fast path (a miss), then found by the classic one.
            auto const [sorted2, received2] = make(5000);
            auto const built = fast(kind, received2);
            EXPECT_EQ(count == 0, held.ptr() == built.ptr());  // one empty list
            EXPECT_EQ(built.ptr(), kind.classic(sorted2).ptr());
            EXPECT_EQ(count, built->comms());
            EXPECT_TRUE(built->commVectorSorted());
        }
        EXPECT_EQ(0u, kind.interned());  // the routes let go: nothing stays
    }
    EXPECT_EQ(liveBefore, KivStash::DedupHandle::liveHandles());
}

// Replacing what a route holds: the held list stays (its count as it was)
// when it is this table's list of the received values, in any order, with
// duplicates; a list one value shorter or with another last value, one
// equal but of another table, and no list at all are replaced by this
// table's list.
TYPED_TEST(ListFastPathTest, ReplacingKeepsOnlyThisTablesListOfTheValues) {
    using Values = std::vector<typename TypeParam::Value>;
    TypeParam kind, otherTables;
    auto const values = [](U32 count, U32 last) {
        Values v;
        for (U32 i = 0; i < count; ++i)
            v.push_back(TypeParam::value(i + 1 == count ? last : 1000 + i));
        return v;
    };
    auto const mine = kind.classic(values(4, 1003));
    struct Case {
        char const* what;
        typename TypeParam::List::PtrConst held;
        Values received;
        bool kept;
    };
    Case cases[] = {
        {"the same values", mine, values(4, 1003), true},
        {"one value fewer", mine, values(3, 1002), false},
        {"another last value", mine, values(4, 1004), false},
        {"equal, another table", otherTables.classic(values(4, 1003)), values(4, 1003), false},
        {"nothing held", nullptr, values(4, 1003), false},
    };
    for (Case& c : cases) {
        SCOPED_TRACE(c.what);
        Octets octets;
        for (auto it = c.received.rbegin(); it != c.received.rend(); ++it)
            TypeParam::wire(octets, *it);
        TypeParam::wire(octets, c.received.front());  // reversed, the first repeated
        auto const* const before = c.held.ptr();
        U32 const references = mine->references();
        replaceFromOctets(kind, c.held, octets);
        EXPECT_EQ(c.kept, c.held.ptr() == before);
        EXPECT_EQ(kind.classic(c.received), c.held);
        // The route's reference moved from the list it held to the one it holds.
        EXPECT_EQ(references + (c.held == mine) - (before == mine.ptr()), mine->references());
    }
}

// Colliders of each kind (see identityColliders) stay distinct lists and are
// found again by their members, built and from received octets. There are
// enough of them on one another's probe paths with equal slot fingerprints
// (standard, large: one probed entry in 1,024) or with equal placements
// (an extended list's classification lists, placed by hash()) that a
// lookup comparing hash() or the fingerprint instead of the members returns
// a wrong list every run.
TYPED_TEST(ListFastPathTest, CraftedCollisionsStayDistinct) {
    TypeParam kind;
    Pool pool;
    auto const colliders = kind.colliders(pool);
    ASSERT_GE(colliders.size(), 32u);
    // Where a kind's colliders share hash(): the list, or an extended list's
    // one classification list.
    auto const colliding = [](auto const& list) -> Vok::DedupHandle const* {
        if constexpr (requires { list->classificationLists(); }) {
            for (auto const& part : list->classificationLists())
                if (part != nullptr)
                    return part.ptr();
            return nullptr;
        } else {
            return list.ptr();
        }
    };
    std::vector<typename TypeParam::List::PtrConst> held;
    std::set<Vok::DedupHandle const*> distinct;
    for (auto const& members : colliders) {
        held.push_back(kind.classic(members));
        distinct.insert(colliding(held.back()));
        // Pairs at least (an extended list's colliders come in pairs).
        ASSERT_EQ(colliding(held[(held.size() - 1) & ~std::size_t(1)])->hash(),
                  colliding(held.back())->hash());
    }
    EXPECT_EQ(colliders.size(), distinct.size());
    for (std::size_t i = 0; i < colliders.size(); ++i) {
        Octets octets;
        for (auto const& v : colliders[i])
            TypeParam::wire(octets, v);
        ASSERT_EQ(held[i], fast(kind, colliders[i])) << i;
        ASSERT_EQ(held[i], fromOctets(kind, octets)) << i;
    }
}

// The most values one attribute carries: the sizes say beforehand what
// serialize writes and whether it can; serialize of one value more stops
// the process.
#define VOBGP_WITH_ALL(list, call) \
    std::apply([&](auto... all) { return (list)->call(all...); }, TypeParam::all())
TYPED_TEST(ListFastPathTest, SizesSayBeforehandWhetherOneAttributeCarriesAList) {
    TypeParam kind;
    auto const [most, fitting, over] = TypeParam::most;
    std::vector<typename TypeParam::Value> values;
    for (U32 i = 0; i < most; ++i)
        values.push_back(TypeParam::value(i));
    auto const fits = fast(kind, values);
    values.push_back(TypeParam::value(most));
    auto const tooLong = fast(kind, values);
    EXPECT_TRUE(VOBGP_WITH_ALL(fits, fitsOneAttribute));
    EXPECT_FALSE(VOBGP_WITH_ALL(tooLong, fitsOneAttribute));
    EXPECT_EQ(fitting, VOBGP_WITH_ALL(fits, serializedSize));
    EXPECT_EQ(fitting, VOBGP_WITH_ALL(fits, serialize).size());
    EXPECT_EQ(over, VOBGP_WITH_ALL(tooLong, serializedSize));
    EXPECT_ASSERT_DEATH(VOBGP_WITH_ALL(tooLong, serialize), "attrSize <= 0xFFFF");
}

// A list's vector: its tail (here behind another member) holds exactly its
// room, one more element moves all to the heap; moving a tail copies it.
TEST(TailVectorTest, TailHoldsItsRoomThenTheHeapTakesOver) {
    struct Block {
        TailVector<U32> vector;
        U32 between = 0;
        U32 tail[3] = {};
    };
    for (std::size_t room : {std::size_t(0), std::size_t(3)}) {
        Block block;
        block.vector.tailIs(block.tail, room);
        for (U32 i = 1; i <= 4; ++i) {
            block.vector.push_back(i * 10);
            EXPECT_EQ(i <= room, block.vector.data() == block.tail) << room << " " << i;
        }
        EXPECT_EQ((TailVector<U32>{10, 20, 30, 40}), block.vector);
        Block moved;
        moved.vector.tailIs(moved.tail, room);
        moved.vector.push_back(5);
        moved.vector.resize(3);  // value-initialized: 5, 0, 0
        TailVector<U32> heap(std::move(moved.vector));
        EXPECT_EQ((TailVector<U32>{5, 0, 0}), heap) << room;
        EXPECT_TRUE(moved.vector.empty());
        heap.erase(heap.begin(), heap.begin() + 1);
        heap.shrink_to_fit();
        EXPECT_EQ(2u, heap.capacity());
    }
}

// The cached flags of a standard list built by the fast path.
TEST(ListFastPathFlagsTest, StandardListBuiltOnAMissCachesItsFlags) {
    auto table = commListDedupTableFactory();
    // 65000:1, no-export and local-as (RFC 1997).
    std::vector<U32> const values = {0xFDE80001u, 0xFFFFFF01u, 0xFFFFFF03u};
    auto const list = CommList::intern(table.ptr(), values);
    EXPECT_TRUE(list->noExport());
    EXPECT_FALSE(list->noAdvertise());
    EXPECT_TRUE(list->noExportSubconfed());
}

}  // namespace
