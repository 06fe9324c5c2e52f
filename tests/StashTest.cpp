// Stash images: community lists written as position-independent records
// and read back, in place or rebuilt, by this or another process; and every
// way a damaged or forged image is refused.
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <iterator>

#include "KivStash/StoreManager.h"
#include "TestUtil.h"
#include "VoBgp/ExtCommIp6.h"
#include "VoBgp/VoBgpCommunity.h"
#include "VoBgp/VoBgpCommunityList.h"

namespace StashTest {

using namespace Routing::Bgp;
using Acl::CommunityValue;
using KivStash::StoreManager;
using Image = std::vector<U8>;

std::vector<U32> standardContent(U32 count, U32 seed) {
    std::vector<U32> out;
    for (U32 i = 0; i < count; ++i)
        out.push_back(seed * 0x9E3779B9u + i * 0x01000193u);
    return out;
}
std::vector<CommunityValue> largeContent(U32 count, U32 seed) {
    std::vector<CommunityValue> out;
    for (U32 i = 0; i < count; ++i)
        out.push_back(CommunityValue(seed + i % 3, 0xFFFFFFFFu - i, i * 7));
    return out;
}

// What the fixture stashes, as records 0-6: lists of both kinds, empty ones,
// one with duplicates, long ones.
std::vector<std::vector<U32>> const standardInputs = {
    {}, {5, 3, 5, 1}, {0xFFFFFF01, 0xFFFFFF03, 0}, standardContent(100, 1)};
std::vector<std::vector<CommunityValue>> const largeInputs = {
    {}, {CommunityValue(65536, 1, 2), CommunityValue(1, 2, 3)}, largeContent(30, 4)};

template <class Vector>
Vector sortedUnique(Vector v) {
    std::sort(v.begin(), v.end());
    v.erase(std::unique(v.begin(), v.end()), v.end());
    return v;
}

template <class List>
auto contents(List const* list) {
    return std::vector<typename List::CommVector::value_type>(list->commVectorRawPtr().begin(),
                                                              list->commVectorRawPtr().end());
}

template <class Value>
std::vector<Value> viewContents(CommListStashView<Value> const& view) {
    std::vector<Value> out;
    for (U32 i = 0; i < view.comms(); ++i)
        out.push_back(view.commAt(i));
    return out;
}

void storeLe32(Image& image, std::size_t at, U32 value) {
    KivStash::storeLe32(&image[at], value);
}
U32 loadLe32(Image const& image, std::size_t at) {
    return KivStash::loadLe32(&image[at]);
}
// Makes a deliberately altered image pass the checksum again, as a buggy
// writer would produce it.
void refreshChecksum(Image& image) {
    U64 sum = KivStash::imageChecksum(image.data(), image.size());
    storeLe32(image, 24, static_cast<U32>(sum));
    storeLe32(image, 28, static_cast<U32>(sum >> 32));
}

class StashTest : public ::testing::Test {
  protected:
    void SetUp() override {
        for (auto const& input : standardInputs) {
            auto list = commListFactory();
            for (U32 c : input)
                list->commIs(c);
            standard.push_back(list->dedup(standardTable.ptr()));
            EXPECT_EQ(records++, standard.back()->stash(&writer));
        }
        for (auto const& input : largeInputs) {
            auto list = largeCommListFactory();
            for (auto const& c : input)
                list->commIs(c);
            large.push_back(list->dedup(largeTable.ptr()));
            EXPECT_EQ(records++, large.back()->stash(&writer));
        }
        image = writer.image();
    }

    CommListDedupTable::Ptr standardTable = commListDedupTableFactory();
    LargeCommListDedupTable::Ptr largeTable = largeCommListDedupTableFactory();
    std::vector<CommList::PtrConst> standard;
    std::vector<LargeCommList::PtrConst> large;
    U32 records = 0;
    StoreManager writer;
    Image image;
};

// Rebuilt lists are sorted, private and equal to the originals (interning
// finds them); views read the same elements in place.
TEST_F(StashTest, RoundTripRebuildsEqualSortedLists) {
    StoreManager reader(image.data(), image.size());
    ASSERT_EQ(7u, reader.records());
    for (U32 i = 0; i < standard.size(); ++i) {
        auto copy = CommList::destash(reader.record(i), &reader);
        EXPECT_FALSE(copy->isDeduped());
        EXPECT_EQ(copy->comms(), copy->commVectorRawPtrNonConst()->capacity());
        EXPECT_EQ(standard[i].ptr(), copy->dedup(standardTable.ptr()).ptr()) << i;
        CommListStashView<U32> view(reader.record(i), &reader);
        EXPECT_EQ(contents(standard[i].ptr()), viewContents(view));
        EXPECT_EQ(standard[i]->hash(), view.hash());
        EXPECT_EQ(standard[i]->empty(), view.empty());
        for (U32 c : standardInputs[i])
            EXPECT_TRUE(view.comm(c));
        EXPECT_FALSE(view.comm(2));
    }
    for (U32 i = 0; i < large.size(); ++i) {
        EXPECT_EQ(
            large[i].ptr(),
            LargeCommList::destash(reader.record(4 + i), &reader)->dedup(largeTable.ptr()).ptr());
        CommListStashView<CommunityValue> view(reader.record(4 + i), &reader);
        EXPECT_EQ(large[i]->hash(), view.hash());
        for (auto const& c : largeInputs[i])
            EXPECT_TRUE(view.comm(c));
        EXPECT_FALSE(view.comm(CommunityValue(0, 0, 0)));
    }
    EXPECT_EQ(0u, reader.adoptedHandles());
}

// The layout is an interface to other processes and to files: pin it.
TEST(StashImage, LayoutIsTheDocumentedOne) {
    auto standardTable = commListDedupTableFactory();
    auto largeTable = largeCommListDedupTableFactory();
    auto standard = commListFactory();
    standard->commIs(0x01020304);
    auto large = largeCommListFactory();
    large->commIs(CommunityValue(1, 2, 0xA0B0C0D0));
    StoreManager writer;
    EXPECT_EQ(0u, standard->dedup(standardTable.ptr())->stash(&writer));
    EXPECT_EQ(1u, large->dedup(largeTable.ptr())->stash(&writer));
    Image const image = writer.image();

    Image const expected = {
        'K',  'I',  'V',  'S',  'T', 'A', 'S', 'H',  // magic
        1,    0,    32,   0,                         // version, header size
        80,   0,    0,    0,                         // image size
        2,    0,    0,    0,                         // records
        72,   0,    0,    0,                         // directory offset
        0,    0,    0,    0,    0,   0,   0,   0,    // checksum (checked below)
        1,    0,    0,    0,    1,   0,   0,   0,
        1,    0,    0,    0,  // kind, words per element, count
        4,    3,    2,    1,  //
        2,    0,    0,    0,    3,   0,   0,   0,
        1,    0,    0,    0,  //
        1,    0,    0,    0,    2,   0,   0,   0,
        0xD0, 0xC0, 0xB0, 0xA0,                    //
        32,   0,    0,    0,    48,  0,   0,   0,  // directory
    };
    ASSERT_EQ(expected.size(), image.size());
    Image withoutChecksum = image;
    std::fill(withoutChecksum.begin() + 24, withoutChecksum.begin() + 32, 0);
    EXPECT_EQ(expected, withoutChecksum);

    // An image without records is just its header.
    Image const empty = StoreManager().image();
    EXPECT_EQ(KivStash::imageHeaderSize, empty.size());
    StoreManager reader(empty.data(), empty.size());
    EXPECT_EQ(0u, reader.records());
    EXPECT_THROW(reader.record(0), Kiv::RangeError);
}

TEST_F(StashTest, EveryTruncationIsARangeErrorAndEveryFlippedOctetIsRefused) {
    for (std::size_t size = 0; size < image.size(); ++size)
        EXPECT_THROW(StoreManager(image.data(), size), Kiv::RangeError) << size;
    EXPECT_THROW(StoreManager(nullptr, 0), Kiv::RangeError);
    // Spare octets behind the image (a mapping rounded up to pages) are fine.
    Image padded = image;
    padded.resize(image.size() + 4096, 0xEE);
    EXPECT_EQ(7u, StoreManager(padded.data(), padded.size()).records());

    for (std::size_t at = 0; at < image.size(); ++at) {
        for (U8 flip : {U8(0x01), U8(0x80)}) {
            Image corrupt = image;
            corrupt[at] ^= flip;
            EXPECT_THROW(StoreManager(corrupt.data(), corrupt.size()), Kiv::Exception) << at;
        }
    }
}

// Images that pass the checksum but break the layout: what a buggy writer or
// a deliberate forgery would hand over.
TEST_F(StashTest, LayoutViolationsAreRefusedWithTheirError) {
    U32 const directory = loadLe32(image, 20);
    U32 const records = loadLe32(image, 16);
    U32 const last = loadLe32(image, directory + 4 * (records - 1));  // 30 elements of 3 words
    for (auto [what, change, rangeError, message] :
         Rows<char const*, std::function<void(Image&)>, bool, char const*>{
             {"version", [](Image& i) { i[8] = 2; }, false, "version 2 not supported"},
             {"header size", [](Image& i) { i[10] = 40; }, false, "header size 40"},
             {"image size below the header", [](Image& i) { storeLe32(i, 12, 16); }, false,
              "smaller than its header"},
             {"directory beyond the image", [&](Image& i) { storeLe32(i, 20, directory + 4); },
              true, "record directory"},
             {"one record too many", [&](Image& i) { storeLe32(i, 16, records + 1); }, true,
              "record directory"},
             {"record offset outside",
              [&](Image& i) { storeLe32(i, directory, static_cast<U32>(i.size())); }, true,
              "record 0"},
             {"record offset misaligned", [&](Image& i) { storeLe32(i, directory, 34); }, true,
              "record 0"},
             // Record 0 (empty) ends at 44, where record 1 starts.
             {"records overlapping by one word", [&](Image& i) { storeLe32(i, directory + 4, 40); },
              true, "record 1"},
             {"count one word past the room",
              [&](Image& i) {
                  storeLe32(i, last + 4, 1);
                  storeLe32(i, last + 8, 91);
              },
              true, "record 6 claims 91 words, only 90 fit"},
             {"count one element past the room", [&](Image& i) { storeLe32(i, last + 8, 31); },
              true, "record 6 claims 93 words"},
             {"record longer than the image", [](Image& i) { storeLe32(i, 32 + 8, 0xFFFFFFFF); },
              true, "record 0 claims"},
             {"elements of no words", [&](Image& i) { storeLe32(i, last + 4, 0); }, false,
              "elements of no words"},
         }) {
        Image corrupt = image;
        change(corrupt);
        refreshChecksum(corrupt);
        try {
            StoreManager reader(corrupt.data(), corrupt.size());
            ADD_FAILURE() << what << ": accepted";
        } catch (Kiv::RangeError const& e) {
            EXPECT_TRUE(rangeError) << what << ": " << e.what();
            EXPECT_THAT(e.what(), ::testing::HasSubstr(message)) << what;
        } catch (Kiv::ParseError const& e) {
            EXPECT_FALSE(rangeError) << what << ": " << e.what();
            EXPECT_THAT(e.what(), ::testing::HasSubstr(message)) << what;
        }
    }
}

TEST_F(StashTest, DestashChecksKindAndOrder) {
    U32 const directory = loadLe32(image, 20);
    // Record 1 holds [1, 3, 5].
    U32 const record = loadLe32(image, directory + 4);
    ASSERT_EQ(3u, loadLe32(image, record + 8));
    for (U32 const second : {1u, 0u}) {  // duplicate, then descending
        Image corrupt = image;
        storeLe32(corrupt, record + 12 + 4, second);
        refreshChecksum(corrupt);
        StoreManager reader(corrupt.data(), corrupt.size());
        void const* at = reader.record(1);
        EXPECT_THROW(CommList::destash(at, &reader), Kiv::ParseError) << second;
        EXPECT_THROW(CommListStashView<U32>(at, &reader), Kiv::ParseError) << second;
    }
    StoreManager reader(image.data(), image.size());
    EXPECT_THROW(LargeCommList::destash(reader.record(1), &reader), Kiv::ParseError);
    EXPECT_THROW(CommList::destash(reader.record(5), &reader), Kiv::ParseError);
    auto const* inside = static_cast<U8 const*>(reader.record(0)) + 4;
    EXPECT_THROW(CommList::destash(inside, &reader), Kiv::RangeError);
    U8 const elsewhere[16] = {};
    EXPECT_THROW(CommList::destash(elsewhere, &reader), Kiv::RangeError);
}

// Counting off and scoped: switched back on when the test ends, whatever happens.
struct CountingOff {
    CountingOff() { Vok::DedupHandle::countingEnabledIs(false); }
    ~CountingOff() { Vok::DedupHandle::countingEnabledIs(true); }
};

TEST_F(StashTest, AdoptedListsMustLeaveTheirTablesFirst) {
    EXPECT_ASSERT_DEATH(
        {
            CountingOff countingOff;
            auto table = commListDedupTableFactory();
            StoreManager reader(image.data(), image.size());
            CommList::destash(reader.record(1), &reader)->dedup(table.ptr());
        },
        "handle->dedupTable() == __null");
}

// A reader maps the image file read-only (a write through the mapping would
// fault) and reads it with counting off, as another process would.
TEST_F(StashTest, ImageFileMappedReadOnly) {
    char path[] = "/tmp/vobgpStashTestXXXXXX";
    int fd = ::mkstemp(path);
    ASSERT_GE(fd, 0);
    ::close(fd);
    // An empty file is a truncated image.
    EXPECT_THROW(StoreManager(KivStash::MappedImage(path).data(), 0), Kiv::RangeError);
    KivStash::writeImageFile(path, image);
    std::size_t const liveBefore = KivStash::DedupHandle::liveHandles();
    {
        // Nothing is counted: the store manager owns what it rebuilds.
        CountingOff countingOff;
        KivStash::MappedImage mapped(path);
        StoreManager reader(mapped.data(), mapped.size());
        ASSERT_EQ(7u, reader.records());
        auto table = commListDedupTableFactory();
        auto list = CommList::destash(reader.record(2), &reader)->dedup(table.ptr());
        EXPECT_EQ(list.ptr(),
                  CommList::destash(reader.record(2), &reader)->dedup(table.ptr()).ptr());
        EXPECT_EQ(sortedUnique(standardInputs[2]), contents(list.ptr()));
        EXPECT_TRUE(list->noExport());
        EXPECT_EQ(0u, list->references());
        EXPECT_EQ(2u, reader.adoptedHandles());
        EXPECT_EQ(sortedUnique(largeInputs[2]),
                  viewContents(CommListStashView<CommunityValue>(reader.record(6), &reader)));
        table = nullptr;  // before the store manager frees its lists
    }
    EXPECT_EQ(liveBefore, KivStash::DedupHandle::liveHandles());
    std::ifstream in(path, std::ios::binary);
    EXPECT_EQ(image, Image(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()));
    ::unlink(path);
}

// The attach-time checks do not cover octets that change afterwards (a file
// rewritten in place): every record read is checked again.
TEST_F(StashTest, RecordChangedAfterAttachingIsRefusedWhenRead) {
    U32 const last = loadLe32(image, loadLe32(image, 20) + 24);  // record 6
    for (auto [count, words] : Rows<U32, U32>{{31, 3}, {0xFFFFFFFF, 3}, {1, 0x40000000}, {1, 0}}) {
        Image changing = image;
        StoreManager reader(changing.data(), changing.size());
        storeLe32(changing, last + 4, words);
        storeLe32(changing, last + 8, count);
        void const* at = reader.record(6);
        // Too many words: RangeError; elements of no words: ParseError.
        EXPECT_THROW(LargeCommList::destash(at, &reader), Kiv::Exception) << count;
        EXPECT_THROW(CommListStashView<CommunityValue>(at, &reader), Kiv::Exception) << count;
    }
}

// A reader in another process keeps reading the image it mapped while the
// file is republished and the new file truncated: writers never change an
// image in place, so no page of the reader's mapping goes away (SIGBUS).
TEST_F(StashTest, ReaderInAnotherProcessSurvivesRewritesAndTruncation) {
    std::string const path = "/tmp/vobgpStashRewrite" + std::to_string(::getpid());
    KivStash::writeImageFile(path, image);
    int ready[2], go[2];
    ASSERT_EQ(0, ::pipe(ready));
    ASSERT_EQ(0, ::pipe(go));
    pid_t const child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        KivStash::MappedImage mapped(path);
        StoreManager reader(mapped.data(), mapped.size());
        char c = 0;
        bool ok = ::write(ready[1], &c, 1) == 1 && ::read(go[0], &c, 1) == 1;
        for (U32 i = 0; ok && i < 7; ++i)
            ok = i < 4
                     ? CommList::destash(reader.record(i), &reader)->dedup(standardTable.ptr()) ==
                           standard[i]
                     : LargeCommList::destash(reader.record(i), &reader)->dedup(largeTable.ptr()) ==
                           large[i - 4];
        ::_exit(ok ? 0 : 1);
    }
    char c = 0;
    ASSERT_EQ(1, ::read(ready[0], &c, 1));
    // Rewritten with another image, then cut to nothing: a reader mapping
    // the changed inode would read that image's records or fault.
    KivStash::writeImageFile(path, StoreManager().image());
    ASSERT_EQ(0, ::truncate(path.c_str(), 0));
    ASSERT_EQ(1, ::write(go[1], &c, 1));
    int status = 0;
    ASSERT_EQ(child, ::waitpid(child, &status, 0));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "wait status " << status;
    for (int fd : {ready[0], ready[1], go[0], go[1]})
        ::close(fd);
    ::unlink(path.c_str());
}

TEST(StashImage, SingleCommunitiesRoundTripWithTheirClassification) {
    Vonet::Ip6Addr address;
    ASSERT_TRUE(Vonet::Ip6Addr::parse("2001:db8::1", &address));
    auto comm =
        extCommFactory(extCommClassificationRouteTarget, ExtCommContent(0x0002FDE800000064));
    auto ip6 = extCommIp6SubtypedFactory(extCommClassificationColor,
                                         ExtCommIp6Content{0x00, 0x02, address, 0x1234});
    StoreManager writer;
    comm->stash(&writer);
    ip6->stash(&writer);
    // An 8-octet community record whose classification names none.
    auto bad = writer.recordIs(3, 3, 1);
    for (U32 word : {0u, 0u, 11u})
        bad.words.wordIs(word);
    Image const image = writer.image();
    EXPECT_EQ(0x0002FDE8u, loadLe32(image, 32 + 12));
    EXPECT_EQ(0x00011234u, loadLe32(image, 56 + 12 + 16));
    StoreManager reader(image.data(), image.size());

    ExtComm::Ptr commBack = ExtComm::destash(reader.record(0), &reader);
    EXPECT_EQ(comm->getContent(), commBack->getContent());
    EXPECT_EQ(extCommClassificationRouteTarget, commBack->classification());
    ExtCommIp6::Ptr ip6Back = ExtCommIp6::destash(reader.record(1), &reader);
    EXPECT_EQ(ip6->getContent(), ip6Back->getContent());
    EXPECT_EQ(extCommClassificationColor, ip6Back->classification());
    EXPECT_THROW(ExtComm::destash(reader.record(1), &reader), Kiv::ParseError);
    EXPECT_THROW(ExtComm::destash(reader.record(2), &reader), Kiv::ParseError);
}

}  // namespace StashTest
