// IPv6-address-specific extended community interning and lists: one object
// per content, the slot vector of classification lists, wire octets around
// the short/extended length boundary, text forms, snapshots, stash images
// and the contract checks.
#include <functional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "ExtCommListTestEnv.h"
#include "KivStash/StoreManager.h"
#include "VoBgp/ExtCommIp6ListDedupTable.h"

namespace {

using namespace Routing::Bgp;
using ExtCommListTestEnv::Octets;
using ExtCommListTestEnv::octetsOf;

// 2001:db8::<last> (RFC 3849 documentation prefix).
Vonet::Ip6Addr addr(U8 last) {
    Vonet::Ip6Addr::Octets octets{0x20, 0x01, 0x0d, 0xb8};
    octets[15] = last;
    return Vonet::Ip6Addr(octets);
}
// Types 0x00 / 0x40, subtype 0x02 route target (RFC 5701, IANA registry).
ExtCommIp6Content trans(U8 last, U16 localAdmin) {
    return {0x00, 0x02, addr(last), localAdmin};
}
ExtCommIp6Content nonTrans(U8 last, U16 localAdmin) {
    return {0x40, 0x02, addr(last), localAdmin};
}
// The 20 wire octets of trans()/nonTrans(), written out.
Octets wire(U8 type, U8 last, U16 localAdmin) {
    Octets out{type, 0x02, 0x20, 0x01, 0x0d, 0xb8};
    out.resize(17);
    out.insert(out.end(), {last, U8(localAdmin >> 8), U8(localAdmin)});
    return out;
}

struct Env {
    BgpParseExtCommContainerSm::Ptr container = bgpParseExtCommContainerSmFactory();
    ExtCommIp6DedupTable::Ptr values = extCommIp6DedupTableFactory(container->extCommParser());
    ExtCommIp6ListDedupTable::Ptr lists = extCommIp6ListDedupTableFactory();
    // Communities of a chosen classification (the parser classifies no IPv6
    // community), interned on their own.
    Vok::DedupHashTable::Ptr classified = Vok::DedupHashTableUnorderedSet::create(false);

    ExtCommIp6::PtrConst comm(ExtCommIp6Content const& content) const {
        return ExtCommIp6::dedupContent(values.ptr(), content);
    }
    ExtCommIp6::PtrConst comm(ExtCommClassification c, ExtCommIp6Content const& content) const {
        auto handle = classified->dedup(extCommIp6Factory(c, content).ptr());
        return ExtCommIp6::PtrConst::adopt(static_cast<ExtCommIp6 const*>(handle.release()));
    }
    ExtCommIp6List::Ptr privateList(std::vector<ExtCommIp6::PtrConst> const& comms) const {
        auto list = extCommIp6ListFactory();
        for (auto const& c : comms)
            list->commIs(c);
        return list;
    }
    ExtCommIp6List::PtrConst list(std::vector<ExtCommIp6::PtrConst> const& comms) const {
        return privateList(comms)->dedup(lists.ptr());
    }
};

TEST(ExtCommIp6DedupTable, OneObjectPerContentBuiltByTheParser) {
    Env env;
    auto first = env.comm(trans(1, 7)), other = env.comm(trans(1, 8));
    EXPECT_EQ(first, env.comm(trans(1, 7)));
    EXPECT_NE(first, other);
    // The parser's transitive rule makes the subtyped variant.
    EXPECT_FALSE(first->pktSubtype().isUnspecified());
    first = nullptr;
    EXPECT_EQ(1u, env.values->dedupTable()->size());
}

TEST(ExtCommIp6List, SortsDropsDuplicatesAndInternsByContent) {
    Env env;
    auto a = env.comm(trans(1, 7)), b = env.comm(trans(1, 8)), c = env.comm(nonTrans(0, 1));
    auto list = env.list({c, b, a, b});
    EXPECT_EQ(list, env.lists->dedup(env.privateList({b, a, c}).ptr()));
    EXPECT_NE(list, env.list({a, b}));
    ASSERT_EQ(3u, list->totalCommunities());
    EXPECT_EQ(2u, list->totalTransitiveCommunities());
    auto const& members = *list->commVectorRawPtr();
    EXPECT_EQ((std::vector<ExtCommIp6::PtrConst>{a, b, c}),
              std::vector<ExtCommIp6::PtrConst>(members.begin(), members.end()));
    EXPECT_EQ(b, list->comm(trans(1, 8)));
    EXPECT_EQ(nullptr, list->lookupExtComm(trans(1, 9)));
    EXPECT_EQ(1u, list->classificationLists().size());
}

TEST(ExtCommIp6List, SlotVectorHoldsOnlyThePresentClassifications) {
    Env env;
    auto ovs = env.comm(extCommClassificationOriginValidationState, trans(1, 1));
    auto list = env.list({ovs});
    EXPECT_EQ(10u, list->classificationLists().size());
    for (U32 c = 0; c < 9; ++c)
        EXPECT_EQ(nullptr, list->classificationLists()[c]) << c;
    EXPECT_EQ(nullptr, list->classificationList(extCommClassificationRouteOrigin));
    EXPECT_EQ(nullptr, list->classificationList(static_cast<ExtCommClassification>(12)));
    ExtCommIp6ClassificationList const* nine =
        list->classificationList(extCommClassificationOriginValidationState);
    ASSERT_NE(nullptr, nine);
    EXPECT_EQ(ovs, nine->comm(trans(1, 1)));
    // Null slots add nothing to the hash: the one list's identity alone.
    EXPECT_EQ(hashIdentities(std::vector<ExtCommIp6ClassificationList::PtrConst>{
                  list->classificationLists()[9]}),
              list->hash());

    auto rt = env.comm(extCommClassificationRouteTarget, trans(2, 2));
    auto both = env.list({ovs, rt});
    EXPECT_EQ(nine, both->classificationList(extCommClassificationOriginValidationState));
    EXPECT_EQ(nullptr, both->classificationList(extCommClassificationUnSpecified));

    ExtCommIp6ClassificationListVector vector;
    ExtCommIp6ListClassificationListIs(vector, ExtCommIp6ClassificationList::PtrConst(nine));
    EXPECT_EQ(10u, vector.size());
    auto* created =
        ExtCommIp6ListFindOrCreateClassificationList(vector, extCommClassificationColor);
    EXPECT_EQ(created,
              ExtCommIp6ListFindOrCreateClassificationList(vector, extCommClassificationColor));
    EXPECT_EQ(nine, vector[9].ptr());
}

TEST(ExtCommIp6List, WireOctetsAroundTheLengthBoundary) {
    Env env;
    auto mixed = env.list({env.comm(nonTrans(2, 0x0102)), env.comm(trans(1, 7))});
    Octets both{0xC0, 25, 40};
    for (Octets const& one : {wire(0x00, 1, 7), wire(0x40, 2, 0x0102)})
        both.insert(both.end(), one.begin(), one.end());
    EXPECT_EQ(both, octetsOf(mixed->serialize(true)));
    Octets transitiveOnly{0xC0, 25, 20};
    Octets const one = wire(0x00, 1, 7);
    transitiveOnly.insert(transitiveOnly.end(), one.begin(), one.end());
    EXPECT_EQ(transitiveOnly, octetsOf(mixed->serialize(false)));

    EXPECT_EQ(0u, env.list({env.comm(nonTrans(2, 1))})->serialize(false).size());
    EXPECT_EQ(0u, env.list({})->serialize(true).size());

    // 12 values (240 octets) keep the one-octet length; 13 (260) take two.
    for (U16 count : {12, 13}) {
        std::vector<ExtCommIp6::PtrConst> comms{env.comm(nonTrans(3, 3))};
        for (U16 i = 0; i < count; ++i)
            comms.push_back(env.comm(trans(1, i)));
        Octets const octets = octetsOf(env.list(comms)->serialize(false));
        Octets const header = count == 12 ? Octets{0xC0, 25, 240} : Octets{0xD0, 25, 0x01, 0x04};
        ASSERT_EQ(header.size() + count * 20u, octets.size()) << count;
        EXPECT_EQ(header, Octets(octets.begin(), octets.begin() + header.size()));
        EXPECT_EQ(wire(0x00, 1, count - 1), Octets(octets.end() - 20, octets.end()));
    }
    // Random mixes: the exact count and size are what serialize writes.
    std::mt19937 random(20);
    for (int round = 0; round < 40; ++round) {
        std::vector<ExtCommIp6::PtrConst> comms;
        for (auto n = random() % 16; n > 0; --n)
            comms.push_back(env.comm({U8(random() % 2 * 0x40), 0x02, addr(U8(random() % 8)), 1}));
        auto const list = env.list(comms);
        for (bool nonTransitiveToo : {false, true}) {
            Kiv::String const written = list->serialize(nonTransitiveToo);
            EXPECT_EQ(ExtCommListTestEnv::valuesIn(written, 20),
                      list->serializedCommunities(nonTransitiveToo));
            EXPECT_EQ(written.size(), list->serializedSize(nonTransitiveToo));
        }
    }
}

TEST(ExtCommIp6List, TextForms) {
    Env env;
    auto rt = env.comm(extCommClassificationRouteTarget, trans(1, 7));
    auto list = env.list({env.comm(nonTrans(0x2f, 65535)), rt});
    EXPECT_EQ(
        "[ <extCommIp6PktTypeTransIpv6Address addr=2001:db8::1 localAdmin=7> "
        "<extCommIp6PktTypeNonTransIpv6Address subtype=2 addr=2001:db8::2f "
        "localAdmin=65535> ]",
        std::string(list->toStrep().c_str()));
    EXPECT_EQ("2001:db8::1:7 2001:db8::2f:65535 ", std::string(list->commsStringForm().c_str()));
    EXPECT_EQ("", std::string(env.list({})->commsStringForm().c_str()));
    EXPECT_EQ(
        "extCommClassificationRouteTarget : <extCommIp6PktTypeTransIpv6Address "
        "addr=2001:db8::1 localAdmin=7>",
        std::string(list->classificationList(extCommClassificationRouteTarget)->toStrep().c_str()));
    std::ostringstream os;
    os << static_cast<ExtCommIp6List const*>(nullptr) << '|'
       << static_cast<ExtCommIp6ClassificationList const*>(nullptr) << '|' << *list;
    EXPECT_EQ("NULL||" + std::string(list->toStrep().c_str()), os.str());
}

TEST(ExtCommIp6List, Snapshots) {
    Env env;
    auto rt = env.comm(extCommClassificationRouteTarget, trans(1, 7));
    auto snapshot = env.list({env.comm(nonTrans(0, 1)), rt})->commSnapshot();
    ASSERT_EQ(2u, snapshot->comm().size());
    EXPECT_EQ(rt, *snapshot->comm().find(trans(1, 7)));
    ASSERT_EQ(2u, snapshot->classificationList().size());
    EXPECT_EQ(extCommClassificationUnSpecified, snapshot->classificationList().begin()->first);
    auto one = env.list({rt})->classificationList(extCommClassificationRouteTarget)->commSnapshot();
    EXPECT_EQ(extCommClassificationRouteTarget, one->classification());
    EXPECT_EQ(rt, one->comm().begin()->second);
}

TEST(ExtCommIp6List, StashRoundTrip) {
    Env env;
    auto list = env.list({env.comm(nonTrans(2, 9)), env.comm(trans(1, 7))});
    KivStash::StoreManager writer;
    U32 const record = list->stash(&writer);
    std::vector<U8> const image = writer.image();
    KivStash::StoreManager reader(image.data(), image.size());
    auto copy = ExtCommIp6List::destash(reader.record(record), &reader, env.values.ptr());
    EXPECT_EQ(list, copy->dedup(env.lists.ptr()));
    // Kind 6, five words per value, the first one type, subtype, 2001.
    KivStash::StashRecord const stashed = reader.recordAt(reader.record(record));
    EXPECT_EQ((std::vector<U32>{6, 5, 0x00022001}),
              (std::vector<U32>{stashed.kind(), stashed.wordsPerElement(), stashed.word(0)}));
}

TEST(ExtCommIp6ListDeathTest, MisuseAbortsWithItsCheck) {
    std::string const deduped = "->dedupState() != Vok::dedupHandleStateNeverDeduped()";
    std::string const neverDeduped = "->dedupState() == Vok::dedupHandleStateNeverDeduped()";
    auto interned = [] {
        static Env env;
        return env.list({env.comm(trans(1, 1))});
    };
    struct Case {
        std::string text;
        std::string function;
        std::function<void()> misuse;
    } const cases[] = {
        // clang-format off
        {"__null != comm", "ExtCommVectorAdd", [] { extCommIp6ListFactory()->commIs(nullptr); }},
        {"__null == ( comm ) || ( comm )" + deduped, "ExtCommVectorAdd",
         [] { extCommIp6ListFactory()->commIs(extCommIp6Factory(extCommClassificationColor, trans(1, 1))); }},
        {"commVectorSorted()", "Routing::Bgp::ExtCommIp6List::totalCommunities() const",
         [] { extCommIp6ListFactory()->totalCommunities(); }},
        {"commVectorSorted()", "Routing::Bgp::ExtCommIp6List::totalCommunities() const",
         [] { extCommIp6ListFactory()->serialize(true); }},
        {"commVectorSorted", "ExtCommVectorLookup", [] { extCommIp6ListFactory()->comm(trans(1, 1)); }},
        {"__null == ( this ) || ( this )" + deduped, "Routing::Bgp::ExtCommIp6List::classificationList(",
         [] { extCommIp6ListFactory()->classificationList(extCommClassificationUnSpecified); }},
        {"__null == ( this ) || ( this )" + neverDeduped, "Routing::Bgp::ExtCommIp6List::dedup(",
         [&] { Env env; auto list = env.privateList({}); list->dedup(env.lists.ptr()); list->dedup(env.lists.ptr()); }},
        {"__null == ( _classificationList ) || ( _classificationList )" + neverDeduped,
         "ExtCommIp6ListFindOrCreateClassificationList(", [&] {
             ExtCommIp6ClassificationListVector vector;
             ExtCommIp6ListClassificationListIs(vector, interned()->classificationLists()[0]);
             ExtCommIp6ListFindOrCreateClassificationList(vector, extCommClassificationUnSpecified);
         }},
        {"commVectorSorted()", "Routing::Bgp::ExtCommIp6ClassificationList::hash() const",
         [] { extCommIp6ClassificationListFactory(extCommClassificationColor)->hash(); }},
        {"commVectorSorted()", "Routing::Bgp::ExtCommIp6ClassificationList::compare(",
         [] { auto list = extCommIp6ClassificationListFactory(extCommClassificationColor); list->compare(list.ptr()); }},
        {"commVectorSorted()", "Routing::Bgp::ExtCommIp6List::stash(",
         [] { KivStash::StoreManager writer; extCommIp6ListFactory()->stash(&writer); }},
        // clang-format on
    };
    for (auto const& c : cases)
        EXPECT_CHECK_DEATH(c.misuse(), c.text, c.function) << c.text << " in " << c.function;
}

}  // namespace
