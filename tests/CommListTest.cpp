// Standard and large community values, their text forms, and their
// interned lists: both list kinds share one design, so most cases run
// against each.

#include "Acl/CommunityValue.h"
#include "TestUtil.h"
#include "VoBgp/VoBgpCommunityList.h"
#include "VoBgp/VoBgpCommunityListImpl.h"
#include "VoFmt/StackBackedBuffer.h"

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

// The words of a value, in the order they are hashed, written and stashed.
void appendWords(Octets& out, U32 comm, bool bigEndian) {
    for (int i = 0; i < 4; ++i)
        out.push_back(static_cast<U8>(comm >> (bigEndian ? 24 - 8 * i : 8 * i)));
}
void appendWords(Octets& out, CommunityValue const& v, bool bigEndian) {
    for (U32 word : {v.globalAdmin(), v.localData1(), v.localData2()})
        appendWords(out, word, bigEndian);
}

template <class Value>
class CommListKindTest : public ::testing::Test {
  protected:
    void SetUp() override { liveBefore = KivStash::DedupHandle::liveHandles(); }
    void TearDown() override {
        table = nullptr;
        EXPECT_EQ(liveBefore, KivStash::DedupHandle::liveHandles());
    }
    auto intern(std::initializer_list<U32> members) {
        return privateList<Value>(members)->dedup(table.ptr());
    }
    template <class List>
    std::vector<Value> contents(List const& list) {
        return std::vector<Value>(list->commVectorRawPtr().begin(), list->commVectorRawPtr().end());
    }

    std::size_t liveBefore = 0;
    decltype(newTable<Value>()) table = newTable<Value>();
};

using Kinds = ::testing::Types<U32, CommunityValue>;
TYPED_TEST_SUITE(CommListKindTest, Kinds);

TYPED_TEST(CommListKindTest, EqualContentSharesOneSortedInstanceUntilItsLastHolderGoes) {
    auto list = privateList<TypeParam>({5, 3, 5, 1});
    auto a = list->dedup(this->table.ptr());
    EXPECT_EQ(list.ptr(), a.ptr());
    EXPECT_EQ((std::vector<TypeParam>{val<TypeParam>(1), val<TypeParam>(3), val<TypeParam>(5)}),
              this->contents(a));
    list = nullptr;
    auto b = this->intern({3, 1, 5, 5, 1});
    auto c = this->table->dedup(privateList<TypeParam>({5, 1, 3}).ptr());
    auto other = this->intern({1, 3, 4});
    auto longer = this->intern({1, 3, 5, 6});
    EXPECT_TRUE(a.ptr() == b.ptr() && a.ptr() == c.ptr());
    EXPECT_NE(a.ptr(), other.ptr());
    EXPECT_FALSE(a->compare(longer.ptr()) || longer->compare(a.ptr()));
    EXPECT_FALSE(this->table->dedupTable()->threadSafe());
    a = nullptr;
    b = nullptr;
    EXPECT_EQ(3u, this->table->dedupTable()->size());
    c = nullptr;
    EXPECT_EQ(2u, this->table->dedupTable()->size());
    // An empty list hashes to 0 and equals every empty list.
    auto empty = this->intern({});
    EXPECT_EQ(empty.ptr(), this->intern({}).ptr());
    EXPECT_EQ(0u, empty->hash());
    EXPECT_FALSE(empty->comm(val<TypeParam>(0)));
}

// Jenkins one-at-a-time written out over the words, least significant
// octet first.
TYPED_TEST(CommListKindTest, HashIsOneAtATimeOverLittleEndianWords) {
    auto list = this->intern({0x01020304, 7, 0xFFFFFF01});
    Octets octets;
    for (auto const& v : this->contents(list))
        appendWords(octets, v, false);
    U32 h = 0;
    for (U8 b : octets) {
        h += b;
        h += h << 10;
        h ^= h >> 6;
    }
    h += h << 3;
    h ^= h >> 11;
    h += h << 15;
    EXPECT_EQ(h, list->hash());
}

TYPED_TEST(CommListKindTest, BinarySearchFindsBothEndsAndNothingElse) {
    auto list = this->intern({10, 20, 30, 40, 50});
    for (U32 n : {10u, 20u, 30u, 40u, 50u})
        EXPECT_TRUE(list->comm(val<TypeParam>(n))) << n;
    for (U32 n : {0u, 9u, 11u, 45u, 51u, 0xFFFFFFFFu})
        EXPECT_FALSE(list->comm(val<TypeParam>(n))) << n;
    auto single = this->intern({7});
    EXPECT_TRUE(single->comm(val<TypeParam>(7)));
    EXPECT_FALSE(single->comm(val<TypeParam>(6)) || single->comm(val<TypeParam>(8)));
}

TYPED_TEST(CommListKindTest, InternedListKeepsNoSpareCapacity) {
    auto list = newList<TypeParam>();
    for (U32 i = 0; i < 100; ++i)
        list->commIs(val<TypeParam>(i % 37));
    EXPECT_GT(list->commVectorRawPtrNonConst()->capacity(), 37u);
    auto interned = list->dedup(this->table.ptr());
    EXPECT_EQ(37u, interned->comms());
    EXPECT_EQ(37u, list->commVectorRawPtrNonConst()->capacity());  // the interned one
    // A list that finds its equal is left as it is (it is about to die).
    auto loser = newList<TypeParam>();
    loser->commVectorRawPtrNonConst()->reserve(500);
    for (U32 i = 37; i-- > 0;)
        loser->commIs(val<TypeParam>(i));
    EXPECT_EQ(interned.ptr(), loser->dedup(this->table.ptr()).ptr());
    EXPECT_EQ(500u, loser->commVectorRawPtrNonConst()->capacity());
}

// Interned from received values (members behind the object) or built by
// commIs (a heap vector), a list reads, prints and serializes alike.
TYPED_TEST(CommListKindTest, ReceivedAndBuiltListsReadAlike) {
    std::vector<TypeParam> const received{val<TypeParam>(9), val<TypeParam>(3),
                                          val<TypeParam>(0xFFFFFF01), val<TypeParam>(3)};
    auto const tail = CommListTraits<TypeParam>::List::intern(this->table.ptr(), received);
    auto const built = privateList<TypeParam>({3, 9, 0xFFFFFF01});
    EXPECT_EQ(this->contents(built), this->contents(tail));
    EXPECT_EQ(built->toStrep(), tail->toStrep());
    EXPECT_EQ(built->serialize(), tail->serialize());
    EXPECT_TRUE(tail->comm(val<TypeParam>(0xFFFFFF01)) && !tail->comm(val<TypeParam>(4)));
    EXPECT_EQ(tail.ptr(), built->dedup(this->table.ptr()).ptr());
    // 4,094 values are the most whose count the user data holds; one more
    // takes a heap vector instead.
    std::vector<TypeParam> longList;
    for (U32 n = 0; n < 4095; ++n)
        longList.push_back(val<TypeParam>(n));
    for (std::size_t size : {longList.size() - 1, longList.size()}) {
        std::vector<TypeParam> const values(longList.begin(), longList.begin() + size);
        auto const list = CommListTraits<TypeParam>::List::intern(this->table.ptr(), values);
        EXPECT_EQ(values, this->contents(list)) << size;
    }
}

// Value lengths 0, one element, the longest short form and the shortest
// extended ones.
TYPED_TEST(CommListKindTest, SerializesWithTheHeaderItsLengthNeeds) {
    bool const standard = std::is_same_v<TypeParam, U32>;
    U8 const type = standard ? 8 : 32;
    U32 const elementOctets = standard ? 4 : 12;
    for (U32 count : {0u, 1u, 255 / elementOctets, 255 / elementOctets + 1, 100u}) {
        auto list = newList<TypeParam>();
        for (U32 i = 0; i < count; ++i)
            list->commIs(val<TypeParam>(0x01000000u * (i % 3) + i));
        auto interned = list->dedup(this->table.ptr());
        U32 const length = count * elementOctets;
        Octets expected = length > 255 ? Octets{0xD0, type, U8(length >> 8), U8(length)}
                                       : Octets{0xC0, type, U8(length)};
        for (auto const& v : this->contents(interned))
            appendWords(expected, v, true);
        EXPECT_EQ(expected, octetsOf(interned->serialize())) << count << " communities";
        EXPECT_EQ(expected.size(), interned->serializedSize());
    }
}

// One line for the table, one for its hash table and one per list; a fresh
// hash table forgets what the old one held.
TYPED_TEST(CommListKindTest, DumpAndAFreshTable) {
    auto a = this->intern({1, 2});
    std::string out;
    this->table->dumpState(Vok::DumpContext::toString(out), 2);
    std::string const list = std::is_same_v<TypeParam, U32> ? "CommList" : "LargeCommList";
    EXPECT_EQ(0u, out.find("  " + list + "DedupTable:\n    DedupHashTable entries 1\n    " + list +
                           " hash 0x"))
        << out;
    EXPECT_NE(std::string::npos, out.find(" references 2 comms 2: " + a->toStrep().str() + "\n"));
    this->table->initDedupTable();
    EXPECT_NE(a.ptr(), this->intern({1, 2}).ptr());
}

// The flags: no-export, no-advertise, no-export-subconfed; neighbours of
// the flagged values are not flagged.
TEST(CommList, CachesTheWellKnownFlagsOnDedup) {
    auto table = commListDedupTableFactory();
    for (auto [members, flags] : Rows<std::vector<U32>, std::string>{
             {std::vector<U32>(), "000"},
             {std::vector<U32>{0xFFFFFF03}, "001"},
             {std::vector<U32>{0xFFFFFF01}, "100"},
             {{0xFFFFFF02, 0xFFFFFF03}, "011"},
             {{0xFFFFFF02, 1, 0xFFFFFF03, 0xFFFFFF01}, "111"},
             {{0xFFFFFF00, 0xFFFFFF04, 0xFFFF0001, 0x0000FF01}, "000"}}) {
        auto list = CommList::CommListIs();
        for (U32 m : members)
            list->commIs(m);
        auto interned = list->dedup(table.ptr());
        std::string seen;
        for (bool flag :
             {interned->noExport(), interned->noAdvertise(), interned->noExportSubconfed()})
            seen += flag ? '1' : '0';
        EXPECT_EQ(flags, seen) << members.size();
    }
}

// Standard communities by name where they have one, large ones in decimal.
TEST(CommList, TextForms) {
    auto table = commListDedupTableFactory();
    auto list = commListFactory();
    for (U32 c : {0xFFFF0000u, 0xFFFFFF01u, 0x00010002u, 0xFFFFFF04u})
        list->commIs(c);
    auto interned = list->dedup(table.ptr());
    EXPECT_EQ("1:2 GSHUT no-export 65535:65284", stringify(interned.ptr()));
    EXPECT_EQ(
        "1:2 GSHUT no-export 65535:65284||",
        streamed(interned.ptr()) + '|' + streamed(static_cast<CommList const*>(nullptr)) + '|');
    EXPECT_EQ("", stringify(static_cast<CommList const*>(nullptr)));
    EXPECT_EQ("local-as0:0",
              CommList::wellKnownName(0xFFFFFF03).str() + CommList::getStringValue(0).str());
    auto largeTable = largeCommListDedupTableFactory();
    auto large = largeCommListFactory();
    large->commIs(CommunityValue(65536, 1, 0x01020304));
    large->commIs(CommunityValue(1, 2, 3));
    auto largeInterned = large->dedup(largeTable.ptr());
    EXPECT_EQ("1:2:3 65536:1:16909060|", stringify(largeInterned.ptr()).str() + '|');
    EXPECT_EQ("1.0:1:2", LargeCommList::displayString(CommunityValue(65536, 1, 2), true));
}

// Abort messages spell signatures as gcc does, whatever the compiler.
#define VOBGP_REF "const Acl::CommunityValue&"
#define VOBGP_HANDLE "const Vok::DedupHandle*"

// A list already interned (its table lives on: these run in dying processes).
template <class Value>
auto interned() {
    auto list = newList<Value>();
    list->dedup(newTable<Value>().release());
    return list;
}

// Every check of the lists' contracts, with the call it names.
TEST(CommListDeathTest, MisuseAbortsWithItsCheck) {
    struct Case {
        char const* text;
        char const* function;  // null: shared code, whose signature is the template's
        void (*misuse)();
    } const cases[] = {
        {"!commVectorSorted()", "void Routing::Bgp::CommList::commIs(U32)",
         [] { interned<U32>()->commIs(1); }},
        {"!commVectorSorted()", "void Routing::Bgp::LargeCommList::commIs(" VOBGP_REF ")",
         [] { interned<CommunityValue>()->commIs(CommunityValue(1, 2, 3)); }},
        {"commVectorSorted()", "bool Routing::Bgp::CommList::comm(U32) const",
         [] { commListFactory()->comm(1); }},
        {"commVectorSorted()", "bool Routing::Bgp::LargeCommList::comm(" VOBGP_REF ") const",
         [] { largeCommListFactory()->comm(CommunityValue()); }},
        {"commVectorSorted()", "U32 Routing::Bgp::CommList::hash() const",
         [] { commListFactory()->hash(); }},
        {"commVectorSorted()", "U32 Routing::Bgp::LargeCommList::hash() const",
         [] { largeCommListFactory()->hash(); }},
        {"commVectorSorted()", "bool Routing::Bgp::CommList::compare(" VOBGP_HANDLE ") const",
         [] { commListFactory()->compare(interned<U32>().ptr()); }},
        {"commVectorSorted()", "bool Routing::Bgp::LargeCommList::compare(" VOBGP_HANDLE ") const",
         [] { largeCommListFactory()->compare(nullptr); }},
        {"isDeduped()", "bool Routing::Bgp::CommList::noExport() const",
         [] { commListFactory()->noExport(); }},
        {"isDeduped()", "bool Routing::Bgp::CommList::noAdvertise() const",
         [] { commListFactory()->noAdvertise(); }},
        {"isDeduped()", "bool Routing::Bgp::CommList::noExportSubconfed() const",
         [] { commListFactory()->noExportSubconfed(); }},
        // A list sorted by a destash but never interned has no flags either.
        {"isDeduped()", "bool Routing::Bgp::CommList::noExport() const",
         [] {
             KivStash::StoreManager writer;
             interned<U32>()->stash(&writer);
             auto image = writer.image();
             KivStash::StoreManager reader(image.data(), image.size());
             CommList::destash(reader.record(0), &reader)->noExport();
         }},
        {"dedupState() == Vok::dedupHandleStateNeverDeduped()", nullptr,
         [] { interned<U32>()->dedup(commListDedupTableFactory().ptr()); }},
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

// The seven well-known values by name, their neighbours by number; the
// forms append to what a buffer holds, growing a small one.
TEST(CommunityFormatter, NamedAndNumericForms) {
    struct Case {
        U32 comm;
        char const* named;  // null: no name
        char const* numeric;
    } const cases[] = {
        {0x00000000u, "internet", "0:0"},
        {0xFFFFFF01u, "no-export", "65535:65281"},
        {0xFFFFFF02u, "no-advertise", "65535:65282"},
        {0xFFFFFF03u, "local-as", "65535:65283"},
        {0xFFFF0000u, "GSHUT", "65535:0"},
        {0xFFFF0006u, "llgr-stale", "65535:6"},
        {0xFFFF0007u, "no-llgr", "65535:7"},
        {0xFFFFFF04u, nullptr, "65535:65284"},
        {0xFFFF0001u, nullptr, "65535:1"},
        {0xFFFF0005u, nullptr, "65535:5"},
        {0xFFFFFF00u, nullptr, "65535:65280"},
        {0x00010000u, nullptr, "1:0"},
        {0xFFFFFFFFu, nullptr, "65535:65535"},
    };
    for (auto const& c : cases) {
        std::string const named = c.named ? c.named : c.numeric;
        VoFmt::StackBackedBuffer<4> buffer;
        buffer.append('[');
        EXPECT_EQ(named.size(), CommunityFormatter<true>::format(buffer, c.comm));
        buffer.append(',');
        CommunityFormatter<true>::formatNotWellKnown(buffer, c.comm);
        buffer.append(',');
        CommunityFormatter<false>::format(buffer, c.comm);
        EXPECT_EQ("[" + named + "," + c.numeric + "," + c.numeric, buffer.view());
        EXPECT_EQ(named, CommunityFormatter<true>::kivString(c.comm));
        EXPECT_EQ(c.numeric, communityNumericString(c.comm));
        EXPECT_EQ(c.named ? c.named : "", communityWellKnownName(c.comm));
        EXPECT_FALSE(communityWellKnownName(c.comm).isNull());
    }
}

// asdot applies to the global administrator alone, from 65536 on.
TEST(LargeCommunityFormatter, PlainAndAsdotForms) {
    for (auto [value, plain, dotted] : Rows<CommunityValue, char const*, char const*>{
             {{65535, 7, 8}, "65535:7:8", "65535:7:8"},
             {{65537, 65536, 70000}, "65537:65536:70000", "1.1:65536:70000"},
             {{4294967295u, 4294967295u, 4294967295u},
              "4294967295:4294967295:4294967295",
              "65535.65535:4294967295:4294967295"},
         }) {
        for (bool asdot : {false, true}) {
            std::string const expected = asdot ? dotted : plain;
            VoFmt::StackBackedBuffer<4> buffer;
            buffer.append('<');
            EXPECT_EQ(expected.size(), LargeCommunityFormatter::format(buffer, value, asdot));
            EXPECT_EQ("<" + expected, buffer.view());
            EXPECT_EQ(expected, LargeCommunityFormatter::kivString(value, asdot));
        }
    }
}

TEST(CommunityValue, OrderHashAndText) {
    // Each later field only decides between equal earlier ones.
    std::vector<CommunityValue> values = {
        {2, 0, 0}, {1, 2, 0}, {1, 1, 9}, {0, ~0u, ~0u}, {1, 1, 3}};
    std::sort(values.begin(), values.end());
    EXPECT_EQ(
        (std::vector<CommunityValue>{{0, ~0u, ~0u}, {1, 1, 3}, {1, 1, 9}, {1, 2, 0}, {2, 0, 0}}),
        values);
    CommunityValue const value(65536, 0, 4294967295u);
    char const* text =
        "Value('Acl::CommunityValue', ** {'globalAdmin': 65536, 'localData1': 0, "
        "'localData2': 4294967295})";
    EXPECT_EQ(text, streamed(value));
    CommunityValue parsed;
    strepToValue(Kiv::String(text), &parsed);
    EXPECT_EQ(value, parsed);
    EXPECT_EQ("localData1", rangeErrorAttribute([&] {
                  strepToValue(Kiv::String("Value('Acl::CommunityValue', ** {'globalAdmin': 1, "
                                           "'localData1': 4294967296, 'localData2': 0})"),
                               &parsed);
              }));
}

}  // namespace CommListTest
