#include <sstream>

#include "Kiv/Errors.h"
#include "TestUtil.h"
#include "Vonet/Ip6Addr.h"

namespace {

using Vonet::Ip6Addr;

Ip6Addr groups(U16 a, U16 b, U16 c, U16 d, U16 e, U16 f, U16 g, U16 h) {
    return Ip6Addr::fromGroups({a, b, c, d, e, f, g, h});
}

Ip6Addr parsed(std::string_view text) {
    Ip6Addr addr;
    EXPECT_TRUE(Ip6Addr::parse(text, &addr)) << text;
    return addr;
}

TEST(Ip6Addr, CanonicalText) {
    struct Case {
        Ip6Addr addr;
        char const* text;
    } const cases[] = {
        {Ip6Addr(), "::"},
        {groups(0, 0, 0, 0, 0, 0, 0, 1), "::1"},
        {groups(1, 0, 0, 0, 0, 0, 0, 0), "1::"},
        {groups(0x2001, 0xdb8, 0, 0, 0, 0, 0, 1), "2001:db8::1"},
        // A single zero group is not shortened.
        {groups(0x2001, 0xdb8, 0, 1, 1, 1, 1, 1), "2001:db8:0:1:1:1:1:1"},
        // The longest run wins; of equal runs the first.
        {groups(0x2001, 0, 0, 1, 0, 0, 0, 1), "2001:0:0:1::1"},
        {groups(0x2001, 0xdb8, 0, 0, 1, 0, 0, 1), "2001:db8::1:0:0:1"},
        // Lower case, leading zeros dropped.
        {groups(0xABCD, 0x00EF, 0x0001, 0x0010, 0x0100, 0x1000, 0xFFFF, 0x0000),
         "abcd:ef:1:10:100:1000:ffff:0"},
        // IPv4-mapped addresses show their IPv4 part dotted; others never.
        {groups(0, 0, 0, 0, 0, 0xffff, 0xc000, 0x0201), "::ffff:192.0.2.1"},
        {groups(0, 0, 0, 0, 0, 0xffff, 0, 0), "::ffff:0.0.0.0"},
        {groups(0, 0, 0, 0, 0, 0, 0xc000, 0x0201), "::c000:201"},
        {groups(0, 0, 0, 0, 0, 0xfffe, 0xc000, 0x0201), "::fffe:c000:201"},
        {groups(0xffff, 0xffff, 0xffff, 0xffff, 0xffff, 0xffff, 0xffff, 0xffff),
         "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"},
    };
    for (auto const& c : cases) {
        EXPECT_EQ(c.text, c.addr.toStrep());
        std::ostringstream os;
        os << c.addr;
        EXPECT_EQ(c.text, os.str());
        EXPECT_EQ(c.addr, parsed(c.text)) << c.text;
    }
    // The printer writes into a caller's buffer of the documented size.
    char buffer[Ip6Addr::strepSizeMax + 1];
    EXPECT_EQ(39u, groups(0x1111, 0x2222, 0x3333, 0x4444, 0x5555, 0x6666, 0x7777, 0x8888)
                       .printToBuffer(buffer));
    EXPECT_STREQ("1111:2222:3333:4444:5555:6666:7777:8888", buffer);
}

TEST(Ip6Addr, ParsesEveryRfc4291Spelling) {
    Ip6Addr const expected = groups(0x2001, 0xdb8, 0, 0, 0, 0, 0xc000, 0x0201);
    for (char const* text :
         {"2001:0DB8:0000:0000:0000:0000:C000:0201", "2001:db8:0:0:0:0:c000:201",
          "2001:db8::c000:201", "2001:db8::192.0.2.1", "2001:db8:0:0:0:0:192.0.2.1"})
        EXPECT_EQ(expected, parsed(text)) << text;
    EXPECT_EQ(groups(1, 2, 3, 4, 5, 6, 7, 0), parsed("1:2:3:4:5:6:7::"));
    EXPECT_EQ(groups(0, 2, 3, 4, 5, 6, 7, 8), parsed("::2:3:4:5:6:7:8"));
}

TEST(Ip6Addr, RejectsWhatIsNotAnAddress) {
    for (char const* text : {"",
                             ":",
                             ":::",
                             "1",
                             "1:2:3:4:5:6:7",
                             "1:2:3:4:5:6:7:8:9",
                             "1::2::3",
                             ":1::",
                             "1::2:",
                             "1:2:3:4:5:6:7:8::",
                             "12345::",
                             "g::",
                             "1:2:3:4:5:6:7:1.2.3.4",
                             "::1.2.3",
                             "::1.2.3.4.5",
                             "::256.1.1.1",
                             "::01.1.1.1",
                             "::1.2.3.4:5",
                             "1.2.3.4",
                             "::ffff:1..2.3"}) {
        Ip6Addr addr = groups(9, 9, 9, 9, 9, 9, 9, 9);
        EXPECT_FALSE(Ip6Addr::parse(text, &addr)) << text;
        EXPECT_EQ(groups(9, 9, 9, 9, 9, 9, 9, 9), addr) << "untouched on failure: " << text;
    }
}

TEST(Ip6Addr, OrdersAsOneNumber) {
    EXPECT_LT(parsed("::1"), parsed("::2"));
    EXPECT_LT(parsed("::ffff"), parsed("0:0:0:0:0:0:1:0"));
    EXPECT_LT(parsed("fe80::"), parsed("ff00::"));
    EXPECT_LT(Ip6Addr(), parsed("::1"));
}

TEST(Ip6Addr, SequenceToValueStopsAtTheAddress) {
    Kiv::String text("2001:db8::1;rest");
    auto it = text.begin();
    Ip6Addr addr;
    sequenceToValue(it, text.end(), &addr);
    EXPECT_EQ(parsed("2001:db8::1"), addr);
    EXPECT_EQ(";rest", std::string_view(it, size_t(text.end() - it)));

    Kiv::String bad("2001:db8:::1");
    auto badIt = bad.begin();
    EXPECT_THROW(sequenceToValue(badIt, bad.end(), &addr), Kiv::ParseError);
    EXPECT_EQ(bad.begin(), badIt);
}

}  // namespace
