#include <algorithm>
#include <atomic>
#include <initializer_list>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "TestUtil.h"
#include "VoBgp/VoBgpCommunityList.h"
#include "VoBgp/VoBgpGlobals.h"

namespace CommListTest {

using namespace Routing::Bgp;
using Acl::CommunityValue;
using Octets = std::vector<U8>;

Octets octetsOf(Kiv::String const& s) {
    return Octets(s.begin(), s.end());
}

// Element number n of a list kind; ascending in n for both kinds.
template <class Value>
Value val(U32 n);
template <>
U32 val<U32>(U32 n) {
    return n;
}
template <>
CommunityValue val<CommunityValue>(U32 n) {
    return CommunityValue(1, n, 7);
}

template <class Value>
auto newList() {
    if constexpr (std::is_same_v<Value, U32>)
        return commListFactory();
    else
        return largeCommListFactory();
}
template <class Value>
auto newTable() {
    if constexpr (std::is_same_v<Value, U32>)
        return commListDedupTableFactory();
    else
        return largeCommListDedupTableFactory();
}

template <class Value>
auto privateList(std::initializer_list<U32> members) {
    auto list = newList<Value>();
    for (U32 n : members)
        list->commIs(val<Value>(n));
    return list;
}

// Jenkins one-at-a-time written out over an explicit octet string, to check
// the lists feed the right octets in the right order.
U32 oneAtATime(Octets const& octets) {
    U32 h = 0;
    for (U8 b : octets) {
        h += b;
        h += h << 10;
        h ^= h >> 6;
    }
    h += h << 3;
    h ^= h >> 11;
    h += h << 15;
    return h;
}
void appendLe(Octets& out, U32 word) {
    for (int i = 0; i < 32; i += 8)
        out.push_back(static_cast<U8>(word >> i));
}
void appendBe(Octets& out, U32 word) {
    for (int i = 24; i >= 0; i -= 8)
        out.push_back(static_cast<U8>(word >> i));
}
void appendWords(Octets& out, U32 comm, void (*append)(Octets&, U32)) {
    append(out, comm);
}
void appendWords(Octets& out, CommunityValue const& v, void (*append)(Octets&, U32)) {
    append(out, v.globalAdmin());
    append(out, v.localData1());
    append(out, v.localData2());
}

template <class Value>
class CommListKindTest : public ::testing::Test {
  protected:
    void SetUp() override {
        liveBefore = KivStash::DedupHandle::liveHandles();
        table = newTable<Value>();
    }
    void TearDown() override {
        table = nullptr;
        EXPECT_EQ(liveBefore, KivStash::DedupHandle::liveHandles());
    }
    auto intern(std::initializer_list<U32> members) {
        return privateList<Value>(members)->dedup(table.ptr());
    }
    std::vector<Value> members(std::initializer_list<U32> ns) {
        std::vector<Value> out;
        for (U32 n : ns)
            out.push_back(val<Value>(n));
        return out;
    }
    template <class List>
    std::vector<Value> contents(List const& list) {
        return std::vector<Value>(list->commVectorRawPtr()->begin(),
                                  list->commVectorRawPtr()->end());
    }

    std::size_t liveBefore = 0;
    decltype(newTable<Value>()) table;
};

using Kinds = ::testing::Types<U32, CommunityValue>;
TYPED_TEST_SUITE(CommListKindTest, Kinds);

TYPED_TEST(CommListKindTest, DedupSortsAndDropsDuplicates) {
    auto list = privateList<TypeParam>({5, 3, 5, 1});
    EXPECT_FALSE(list->commVectorSorted());
    EXPECT_EQ(this->members({5, 3, 5, 1}), this->contents(list));
    auto interned = list->dedup(this->table.ptr());
    EXPECT_EQ(list.ptr(), interned.ptr());
    EXPECT_TRUE(interned->commVectorSorted());
    EXPECT_TRUE(interned->isDeduped());
    EXPECT_EQ(3u, interned->comms());
    EXPECT_EQ(this->members({1, 3, 5}), this->contents(interned));
}

TYPED_TEST(CommListKindTest, EqualContentSharesOneInstanceWhateverTheOrder) {
    auto a = this->intern({1, 2, 3});
    auto b = this->intern({3, 1, 2, 2, 1});
    auto c = this->table->dedup(privateList<TypeParam>({2, 3, 1}).ptr());
    auto other = this->intern({1, 2, 4});
    auto longer = this->intern({1, 2, 3, 4});
    EXPECT_EQ(a.ptr(), b.ptr());
    EXPECT_EQ(a.ptr(), c.ptr());
    EXPECT_NE(a.ptr(), other.ptr());
    EXPECT_FALSE(a->compare(other.ptr()));
    EXPECT_FALSE(a->compare(longer.ptr()));
    EXPECT_FALSE(longer->compare(a.ptr()));
    EXPECT_TRUE(a->compare(a.ptr()));
    EXPECT_EQ(3u, this->table->dedupTable()->size());
    EXPECT_FALSE(this->table->dedupTable()->threadSafe());
}

TYPED_TEST(CommListKindTest, EmptyListHashesToZeroAndEqualsEveryEmptyList) {
    auto a = this->intern({});
    auto b = this->intern({});
    EXPECT_EQ(a.ptr(), b.ptr());
    EXPECT_TRUE(a->empty());
    EXPECT_EQ(0u, a->hash());
    EXPECT_FALSE(a->comm(val<TypeParam>(0)));
}

TYPED_TEST(CommListKindTest, HashIsOneAtATimeOverLittleEndianWords) {
    auto list = this->intern({0x01020304, 7, 0xFFFFFF01});
    Octets octets;
    for (auto const& v : this->contents(list))
        appendWords(octets, v, appendLe);
    EXPECT_EQ(oneAtATime(octets), list->hash());
}

TYPED_TEST(CommListKindTest, BinarySearchFindsBothEndsAndNothingElse) {
    auto list = this->intern({10, 20, 30, 40, 50});
    for (U32 n : {10u, 20u, 30u, 40u, 50u})
        EXPECT_TRUE(list->comm(val<TypeParam>(n))) << n;
    for (U32 n : {0u, 9u, 11u, 45u, 51u, 0xFFFFFFFFu})
        EXPECT_FALSE(list->comm(val<TypeParam>(n))) << n;
    auto single = this->intern({7});
    EXPECT_TRUE(single->comm(val<TypeParam>(7)));
    EXPECT_FALSE(single->comm(val<TypeParam>(6)));
    EXPECT_FALSE(single->comm(val<TypeParam>(8)));
}

TYPED_TEST(CommListKindTest, InternedListKeepsNoSpareCapacity) {
    auto list = newList<TypeParam>();
    for (U32 i = 0; i < 100; ++i)
        list->commIs(val<TypeParam>(i % 37));
    EXPECT_GT(list->commVectorRawPtr()->capacity(), 37u);
    auto interned = list->dedup(this->table.ptr());
    EXPECT_EQ(37u, interned->comms());
    EXPECT_EQ(37u, interned->commVectorRawPtr()->capacity());

    // A list that finds its equal is left as it is (it is about to die).
    auto loser = newList<TypeParam>();
    loser->commVectorRawPtrNonConst()->reserve(500);
    for (U32 i = 37; i-- > 0;)
        loser->commIs(val<TypeParam>(i));
    EXPECT_EQ(interned.ptr(), loser->dedup(this->table.ptr()).ptr());
    EXPECT_EQ(37u, interned->commVectorRawPtr()->capacity());
}

TYPED_TEST(CommListKindTest, InternedListLeavesItsTableWithItsLastHolder) {
    auto a = this->intern({4, 2});
    {
        auto b = this->intern({2, 4});
        EXPECT_EQ(1u, this->table->dedupTable()->size());
    }
    EXPECT_EQ(1u, this->table->dedupTable()->size());
    a = nullptr;
    EXPECT_EQ(0u, this->table->dedupTable()->size());
}

TYPED_TEST(CommListKindTest, SerializesWithTheHeaderItsLengthNeeds) {
    using Traits = CommListTraits<TypeParam>;
    U8 const type = static_cast<U8>(Traits::attrType);
    // Value lengths 0, one element, the longest short form and the shortest
    // extended ones.
    U32 const elementOctets = Traits::words * 4;
    for (U32 count : {0u, 1u, 255 / elementOctets, 255 / elementOctets + 1, 64u, 100u}) {
        auto list = newList<TypeParam>();
        for (U32 i = 0; i < count; ++i)
            list->commIs(val<TypeParam>(0x01000000u * (i % 3) + i));
        auto interned = list->dedup(this->table.ptr());
        U32 const length = count * elementOctets;
        Octets expected;
        if (length > 255) {
            expected = {0xD0, type, static_cast<U8>(length >> 8), static_cast<U8>(length)};
        } else {
            expected = {0xC0, type, static_cast<U8>(length)};
        }
        for (auto const& v : this->contents(interned))
            appendWords(expected, v, appendBe);
        EXPECT_EQ(expected, octetsOf(interned->serialize())) << count << " communities";
    }
}

TYPED_TEST(CommListKindTest, DumpShowsTheTableAndEachList) {
    auto a = this->intern({1, 2});
    std::string out;
    this->table->dumpState(Vok::DumpContext::toString(out), 2);
    std::string const tableName = CommListTraits<TypeParam>::tableName;
    EXPECT_EQ(0u, out.find("  " + tableName + ":\n    DedupHashTable entries 1")) << out;
    EXPECT_NE(std::string::npos,
              out.find(std::string("    ") + CommListTraits<TypeParam>::listName + " hash 0x"))
        << out;
    EXPECT_NE(std::string::npos, out.find(": " + a->toStrep().str() + "\n")) << out;
}

TYPED_TEST(CommListKindTest, InitDedupTableStartsAFreshTable) {
    auto a = this->intern({1});
    auto old = this->table->dedupTable();
    this->table->initDedupTable();
    EXPECT_NE(old.ptr(), this->table->dedupTable().ptr());
    EXPECT_EQ(0u, this->table->dedupTable()->size());
    auto b = this->intern({1});
    EXPECT_NE(a.ptr(), b.ptr());
}

// Several threads interning the same contents in shuffled orders all get one
// instance, which leaves the table once they are done.
TYPED_TEST(CommListKindTest, ThreadSafeTableHandsOutOneInstanceUnderContention) {
    VoBgpGlobals::multiThreadedIs(true);
    auto table = newTable<TypeParam>();
    VoBgpGlobals::multiThreadedIs(false);
    ASSERT_TRUE(table->dedupTable()->threadSafe());
    auto reference = privateList<TypeParam>({1, 2, 3, 4, 5, 6, 7, 8, 9, 10})->dedup(table.ptr());
    std::atomic<int> mismatches{0};
    std::vector<std::thread> threads;
    for (U32 t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (U32 i = 0; i < 2000; ++i) {
                auto list = newList<TypeParam>();
                for (U32 k = 0; k < 10; ++k)
                    list->commIs(val<TypeParam>(1 + (k * 3 + i + t) % 10));
                // Some lists nobody else holds come and go meanwhile.
                list->commIs(val<TypeParam>(i % 2 ? 11 + t : 1));
                auto interned = list->dedup(table.ptr());
                if ((i % 2 == 0) != (interned.ptr() == reference.ptr()))
                    ++mismatches;
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(0, mismatches.load());
    EXPECT_EQ(1u, table->dedupTable()->size());
    reference = nullptr;
    EXPECT_EQ(0u, table->dedupTable()->size());
}

TEST(CommList, CachesTheWellKnownFlagsOnDedup) {
    struct Case {
        std::vector<U32> members;
        bool noExport, noAdvertise, noExportSubconfed;
    } const cases[] = {
        {{}, false, false, false},
        {{0xFFFFFF03}, false, false, true},
        {{0xFFFFFF01, 0xFFFFFF02}, true, true, false},
        {{0xFFFFFF02, 1, 0xFFFFFF03, 0xFFFFFF01}, true, true, true},
        // Neighbours of the flagged values are not flagged.
        {{0xFFFFFF00, 0xFFFFFF04, 0xFFFF0001, 0x0000FF01}, false, false, false},
    };
    auto table = commListDedupTableFactory();
    for (auto const& c : cases) {
        auto list = CommList::CommListIs();
        for (U32 m : c.members)
            list->commIs(m);
        auto interned = list->dedup(table.ptr());
        EXPECT_EQ(c.noExport, interned->noExport()) << ::testing::PrintToString(c.members);
        EXPECT_EQ(c.noAdvertise, interned->noAdvertise()) << ::testing::PrintToString(c.members);
        EXPECT_EQ(c.noExportSubconfed, interned->noExportSubconfed())
            << ::testing::PrintToString(c.members);
    }
}

TEST(CommList, ExactOctetsOfSmallLists) {
    auto table = commListDedupTableFactory();
    auto list = commListFactory();
    list->commIs(0xFFFFFF01);
    list->commIs(0x00010002);
    EXPECT_EQ((Octets{0xC0, 0x08, 0x08, 0x00, 0x01, 0x00, 0x02, 0xFF, 0xFF, 0xFF, 0x01}),
              octetsOf(list->dedup(table.ptr())->serialize()));
    EXPECT_EQ((Octets{0xC0, 0x08, 0x00}), octetsOf(commListFactory()->serialize()));

    auto largeTable = largeCommListDedupTableFactory();
    auto large = largeCommListFactory();
    large->commIs(CommunityValue(65536, 1, 0x01020304));
    EXPECT_EQ((Octets{0xC0, 0x20, 0x0C, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01, 0x01, 0x02,
                      0x03, 0x04}),
              octetsOf(large->dedup(largeTable.ptr())->serialize()));
    EXPECT_EQ((Octets{0xC0, 0x20, 0x00}), octetsOf(largeCommListFactory()->serialize()));
}

TEST(CommList, TextForms) {
    EXPECT_EQ("local-as", CommList::wellKnownName(0xFFFFFF03));
    EXPECT_EQ("", CommList::wellKnownName(0x00010002));
    EXPECT_EQ("65535:65281", CommList::getStringValue(0xFFFFFF01));
    EXPECT_EQ("65536:1:2", LargeCommList::getStringValue(CommunityValue(65536, 1, 2)));
    EXPECT_EQ("1.0:1:2", LargeCommList::displayString(CommunityValue(65536, 1, 2), true));

    auto table = commListDedupTableFactory();
    auto list = commListFactory();
    for (U32 c : {0xFFFF0000u, 0xFFFFFF01u, 0x00010002u, 0xFFFFFF04u})
        list->commIs(c);
    auto interned = list->dedup(table.ptr());
    EXPECT_EQ("1:2 GSHUT no-export 65535:65284", interned->toStrep());
    EXPECT_EQ("1:2 GSHUT no-export 65535:65284", stringify(interned.ptr()));
    std::ostringstream os;
    os << interned.ptr() << '|' << static_cast<CommList const*>(nullptr) << '|';
    EXPECT_EQ("1:2 GSHUT no-export 65535:65284||", os.str());
    EXPECT_EQ("", stringify(static_cast<CommList const*>(nullptr)));

    auto largeTable = largeCommListDedupTableFactory();
    auto large = largeCommListFactory();
    large->commIs(CommunityValue(65536, 1, 2));
    large->commIs(CommunityValue(1, 2, 3));
    auto largeInterned = large->dedup(largeTable.ptr());
    EXPECT_EQ("1:2:3 65536:1:2", stringify(largeInterned.ptr()));
    std::ostringstream largeOs;
    largeOs << largeInterned.ptr() << '|' << static_cast<LargeCommList const*>(nullptr) << '|';
    EXPECT_EQ("1:2:3 65536:1:2||", largeOs.str());
}

// __PRETTY_FUNCTION__ of the two compilers differs in blanks only.
#ifdef __clang__
#define VOBGP_REF "const Acl::CommunityValue &"
#define VOBGP_HANDLE "const Vok::DedupHandle *"
#else
#define VOBGP_REF "const Acl::CommunityValue&"
#define VOBGP_HANDLE "const Vok::DedupHandle*"
#endif

// Every check of the lists' contracts, with the call it names.
TEST(CommListDeathTest, MisuseAbortsWithItsCheck) {
    struct Case {
        char const* text;
        char const* function;  // null: shared code, whose signature is the template's
        void (*misuse)();
    } const cases[] = {
        {"!commVectorSorted()", "void Routing::Bgp::CommList::commIs(U32)",
         [] {
             auto table = commListDedupTableFactory();
             auto list = commListFactory();
             list->dedup(table.ptr());
             list->commIs(1);
         }},
        {"!commVectorSorted()", "void Routing::Bgp::LargeCommList::commIs(" VOBGP_REF ")",
         [] {
             auto table = largeCommListDedupTableFactory();
             auto list = largeCommListFactory();
             list->dedup(table.ptr());
             list->commIs(CommunityValue(1, 2, 3));
         }},
        {"commVectorSorted()", "bool Routing::Bgp::CommList::comm(U32) const",
         [] { commListFactory()->comm(1); }},
        {"commVectorSorted()", "bool Routing::Bgp::LargeCommList::comm(" VOBGP_REF ") const",
         [] { largeCommListFactory()->comm(CommunityValue()); }},
        {"commVectorSorted()", "U32 Routing::Bgp::CommList::hash() const",
         [] { commListFactory()->hash(); }},
        {"commVectorSorted()", "U32 Routing::Bgp::LargeCommList::hash() const",
         [] { largeCommListFactory()->hash(); }},
        {"commVectorSorted()", "bool Routing::Bgp::CommList::compare(" VOBGP_HANDLE ") const",
         [] {
             auto list = commListFactory();
             list->compare(list.ptr());
         }},
        {"commVectorSorted()", "bool Routing::Bgp::LargeCommList::compare(" VOBGP_HANDLE ") const",
         [] {
             auto list = largeCommListFactory();
             list->compare(list.ptr());
         }},
        {"isDeduped()", "bool Routing::Bgp::CommList::noExport() const",
         [] { commListFactory()->noExport(); }},
        {"isDeduped()", "bool Routing::Bgp::CommList::noAdvertise() const",
         [] { commListFactory()->noAdvertise(); }},
        {"isDeduped()", "bool Routing::Bgp::CommList::noExportSubconfed() const",
         [] { commListFactory()->noExportSubconfed(); }},
        // A list sorted by a destash but never interned has no flags either.
        {"isDeduped()", "bool Routing::Bgp::CommList::noExport() const",
         [] {
             auto list = commListFactory();
             auto table = commListDedupTableFactory();
             KivStash::StoreManager writer;
             list->dedup(table.ptr())->stash(&writer);
             auto image = writer.image();
             KivStash::StoreManager reader(image.data(), image.size());
             CommList::destash(reader.record(0), &reader)->noExport();
         }},
        {"dedupState() == Vok::dedupHandleStateNeverDeduped()", nullptr,
         [] {
             auto table = commListDedupTableFactory();
             auto list = commListFactory();
             list->dedup(table.ptr());
             list->dedup(table.ptr());
         }},
        {"table != __null", nullptr, [] { largeCommListFactory()->dedup(nullptr); }},
        {"commVectorSorted()", nullptr,
         [] {
             KivStash::StoreManager writer;
             commListFactory()->stash(&writer);
         }},
    };
    for (auto const& c : cases) {
        if (c.function)
            EXPECT_ASSERT_DEATH_IN(c.misuse(), c.text, c.function) << c.function;
        else
            EXPECT_ASSERT_DEATH(c.misuse(), c.text) << c.text;
    }
}

}  // namespace CommListTest
