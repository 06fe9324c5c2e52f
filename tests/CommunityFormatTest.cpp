#include <string>

#include "TestUtil.h"
#include "VoBgp/VoBgpCommunityListImpl.h"
#include "VoFmt/StackBackedBuffer.h"

namespace CommunityFormatTest {

using namespace Routing::Bgp;

struct StandardCase {
    U32 comm;
    char const* named;
    char const* numeric;
};

StandardCase const kStandardCases[] = {
    {0x00000000u, "internet", "0:0"},
    {0xFFFFFF01u, "no-export", "65535:65281"},
    {0xFFFFFF02u, "no-advertise", "65535:65282"},
    {0xFFFFFF03u, "local-as", "65535:65283"},
    {0xFFFF0000u, "GSHUT", "65535:0"},
    {0xFFFF0006u, "llgr-stale", "65535:6"},
    {0xFFFF0007u, "no-llgr", "65535:7"},
    // Neighbours of the well-known values have no name.
    {0xFFFFFF04u, "65535:65284", "65535:65284"},
    {0xFFFF0001u, "65535:1", "65535:1"},
    {0xFFFF0005u, "65535:5", "65535:5"},
    {0xFFFFFF00u, "65535:65280", "65535:65280"},
    {0x00000001u, "0:1", "0:1"},
    {0x00010000u, "1:0", "1:0"},
    {0x00010002u, "1:2", "1:2"},
    {0x000A0064u, "10:100", "10:100"},
    {0xFFFFFFFFu, "65535:65535", "65535:65535"},
};

TEST(CommunityFormatter, NamedAndNumericForms) {
    for (auto const& c : kStandardCases) {
        VoFmt::StackBackedBuffer<4> named;  // small on purpose: the forms must grow it
        named.append('[');
        std::size_t n = CommunityFormatter<true>::format(named, c.comm);
        // What was in the buffer stays in front.
        EXPECT_EQ("[", named.view().substr(0, 1));
        EXPECT_EQ(c.named, named.view().substr(1)) << c.comm;
        EXPECT_EQ(std::string_view(c.named).size(), n);

        VoFmt::StackBackedBuffer<4> numeric;
        numeric.append("x,");
        n = CommunityFormatter<false>::formatNotWellKnown(numeric, c.comm);
        EXPECT_EQ("x,", numeric.view().substr(0, 2));
        EXPECT_EQ(c.numeric, numeric.view().substr(2));
        EXPECT_EQ(std::string_view(c.numeric).size(), n);

        // format() of the nameless instantiation is numeric too.
        VoFmt::StackBackedBuffer<20> plain;
        CommunityFormatter<false>::format(plain, c.comm);
        EXPECT_EQ(c.numeric, plain.view());

        EXPECT_EQ(c.numeric, CommunityFormatter<false>::kivString(c.comm));
        EXPECT_EQ(c.numeric, communityNumericString(c.comm));
        EXPECT_EQ(c.named, CommunityFormatter<true>::kivString(c.comm));
    }
}

TEST(CommunityFormatter, WellKnownNameIsEmptyNotNumericForOthers) {
    for (auto const& c : kStandardCases) {
        Kiv::String name = communityWellKnownName(c.comm);
        ASSERT_FALSE(name.isNull());
        bool const known = std::string_view(c.named) != c.numeric;
        EXPECT_EQ(known ? c.named : "", name) << c.comm;
        EXPECT_EQ(known ? c.named : "", wellKnownCommunityName(c.comm));
    }
}

TEST(CommunityFormatter, AppendsSeveralIntoOneBuffer) {
    VoFmt::StackBackedBuffer<20> buffer;
    for (U32 comm : {0xFFFFFF01u, 0x00640001u, 0u}) {
        if (buffer.size() != 0)
            buffer.append(' ');
        CommunityFormatter<true>::format(buffer, comm);
    }
    EXPECT_EQ("no-export 100:1 internet", buffer.view());
}

struct LargeCase {
    Acl::CommunityValue value;
    char const* plain;
    char const* asdot;
};

LargeCase const kLargeCases[] = {
    {{0, 0, 0}, "0:0:0", "0:0:0"},
    {{100, 1, 2}, "100:1:2", "100:1:2"},
    {{65535, 7, 8}, "65535:7:8", "65535:7:8"},
    {{65536, 1, 2}, "65536:1:2", "1.0:1:2"},
    {{65537, 65536, 70000}, "65537:65536:70000", "1.1:65536:70000"},
    {{4200000000u, 1, 1}, "4200000000:1:1", "64086.59904:1:1"},
    {{4294967295u, 4294967295u, 4294967295u},
     "4294967295:4294967295:4294967295",
     "65535.65535:4294967295:4294967295"},
};

TEST(LargeCommunityFormatter, PlainAndAsdotForms) {
    for (auto const& c : kLargeCases) {
        for (bool asdot : {false, true}) {
            std::string const expected = asdot ? c.asdot : c.plain;
            VoFmt::StackBackedBuffer<4> buffer;
            buffer.append('<');
            std::size_t n = LargeCommunityFormatter::format(buffer, c.value, asdot);
            EXPECT_EQ("<", buffer.view().substr(0, 1));
            EXPECT_EQ(expected, buffer.view().substr(1));
            EXPECT_EQ(expected.size(), n);
            EXPECT_EQ(expected, LargeCommunityFormatter::kivString(c.value, asdot));
        }
    }
}

TEST(CommunityFormatters, LongestFormsStayInTheInlineBuffers) {
    VoFmt::StackBackedBuffer<20> standard;
    CommunityFormatter<false>::formatNotWellKnown(standard, 0xFFFFFFFFu);
    EXPECT_EQ(11u, standard.size());
    EXPECT_FALSE(standard.onHeap());

    VoFmt::StackBackedBuffer<42> large;
    LargeCommunityFormatter::format(large, {4294967295u, 4294967295u, 4294967295u}, false);
    EXPECT_EQ(32u, large.size());
    EXPECT_FALSE(large.onHeap());

    // The asdot form of the largest value is one character longer.
    VoFmt::StackBackedBuffer<42> asdot;
    LargeCommunityFormatter::format(asdot, {4294967295u, 4294967295u, 4294967295u}, true);
    EXPECT_FALSE(asdot.onHeap());
}

}  // namespace CommunityFormatTest
