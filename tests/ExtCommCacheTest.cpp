#include <map>
#include <string>

#include "TestUtil.h"
#include "VoBgp/Parse/ExtCommCache.h"

namespace {

using BgpShowCli::ExtCommCache;
using BgpShowCli::ExtCommTextMap;

// The two maps behave alike; every case runs against each of them through
// its own named operations.
struct MapOps {
    bool asdot;
    ExtCommTextMap const& (ExtCommCache::*map)() const;
    void (ExtCommCache::*is)(U64, Kiv::String const&);
    Kiv::String (ExtCommCache::*del)(U64);
    void (ExtCommCache::*delAll)();
};

MapOps const kPlain{false, &ExtCommCache::extCommToString, &ExtCommCache::extCommToStringIs,
                    &ExtCommCache::extCommToStringDel, &ExtCommCache::extCommToStringDelAll};
MapOps const kAsdot{true, &ExtCommCache::extCommToAsdotString,
                    &ExtCommCache::extCommToAsdotStringIs, &ExtCommCache::extCommToAsdotStringDel,
                    &ExtCommCache::extCommToAsdotStringDelAll};

class ExtCommCacheMaps : public ::testing::TestWithParam<bool> {
  protected:
    MapOps const& ops() const { return GetParam() ? kAsdot : kPlain; }
    MapOps const& other() const { return GetParam() ? kPlain : kAsdot; }
    ExtCommTextMap const& map() const { return (*cache.*ops().map)(); }
    ExtCommTextMap const& otherMap() const { return (*cache.*other().map)(); }
    ExtCommCache::Ptr cache = ExtCommCache::ExtCommCacheIs();
};

constexpr U64 kKey = 0x0002fde800000064ull;

TEST_P(ExtCommCacheMaps, InsertGoesToOneMapOnly) {
    EXPECT_TRUE(cache->lookup(kKey, ops().asdot).isNull());
    cache->insert(kKey, "RT:65000:100", ops().asdot);
    EXPECT_EQ("RT:65000:100", cache->lookup(kKey, ops().asdot));
    EXPECT_TRUE(cache->lookup(kKey, other().asdot).isNull());
    EXPECT_EQ(1u, map().size());
    EXPECT_TRUE(otherMap().empty());
}

TEST_P(ExtCommCacheMaps, SecondTextReplacesTheFirst) {
    (*cache.*ops().is)(kKey, "old");
    Kiv::String replacement("new");
    (*cache.*ops().is)(kKey, replacement);
    EXPECT_EQ(1u, map().size());
    EXPECT_TRUE(cache->lookup(kKey, ops().asdot).isSameObject(replacement));
    // The same object again changes nothing.
    cache->insert(kKey, replacement, ops().asdot);
    EXPECT_TRUE(cache->lookup(kKey, ops().asdot).isSameObject(replacement));
    // Storing an empty text keeps an entry; a null one removes it.
    (*cache.*ops().is)(kKey, "");
    EXPECT_EQ("", cache->lookup(kKey, ops().asdot));
    (*cache.*ops().is)(kKey, Kiv::String());
    EXPECT_TRUE(map().empty());
}

TEST_P(ExtCommCacheMaps, DeleteReturnsTheText) {
    (*cache.*ops().is)(1, "one");
    (*cache.*other().is)(2, "two");
    EXPECT_TRUE((*cache.*ops().del)(2).isNull());  // present in the other map only
    EXPECT_EQ(1u, map().size());
    EXPECT_EQ(1u, otherMap().size());
    EXPECT_EQ("one", (*cache.*ops().del)(1));
    EXPECT_TRUE(map().empty());
    EXPECT_TRUE((*cache.*ops().del)(1).isNull());
}

TEST_P(ExtCommCacheMaps, DeleteAllLeavesTheOtherMap) {
    for (U64 k = 0; k < 5; ++k)
        (*cache.*ops().is)(k, std::to_string(k));
    (*cache.*other().is)(7, "seven");
    (*cache.*ops().delAll)();
    EXPECT_TRUE(map().empty());
    EXPECT_EQ("seven", cache->lookup(7, other().asdot));
}

TEST_P(ExtCommCacheMaps, IteratesEveryEntry) {
    std::map<U64, std::string> expected;
    for (U64 k : {U64(0), U64(1), ~U64(0), kKey}) {
        expected[k] = "text " + std::to_string(k);
        (*cache.*ops().is)(k, expected[k]);
    }
    std::map<U64, std::string> seen;
    for (auto const& [key, text] : map())
        seen[key] = text.str();
    EXPECT_EQ(expected, seen);
}

INSTANTIATE_TEST_SUITE_P(PlainAndAsdot, ExtCommCacheMaps, ::testing::Bool(),
                         [](auto const& info) { return info.param ? "Asdot" : "Plain"; });

TEST(ExtCommCache, FactoriesMakeEmptyActiveCaches) {
    for (auto make : {&BgpShowCli::extCommCacheFactory, &ExtCommCache::ExtCommCacheIs}) {
        auto cache = make();
        EXPECT_TRUE(cache->hasNotificationActive());
        EXPECT_EQ(1u, cache->references());
        EXPECT_TRUE(cache->extCommToString().empty());
        EXPECT_TRUE(cache->extCommToAsdotString().empty());
    }
}

}  // namespace
