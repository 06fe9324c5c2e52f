#include <sstream>
#include <string>

#include "Kiv/Errors.h"
#include "Routing/Bgp/RouteTarget.h"
#include "TestUtil.h"

namespace {

using Routing::Bgp::RouteTarget;

struct DisplayCase {
    U64 value;
    char const* plain;
    char const* asDot;
};

// Each type octet's layout, its extremes and the asdot threshold.
constexpr DisplayCase kDisplayCases[] = {
    {0x0002fde800000064ull, "65000:100", "65000:100"},
    {0x0002ffffffffffffull, "65535:4294967295", "65535:4294967295"},
    {0x0000000000000000ull, "0:0", "0:0"},
    // The subtype octet does not change the text.
    {0x0003fde800000064ull, "65000:100", "65000:100"},
    {0x01020a0000010064ull, "10.0.0.1:100", "10.0.0.1:100"},
    {0x0102ffffffffffffull, "255.255.255.255:65535", "255.255.255.255:65535"},
    {0x0202fa56ea000064ull, "4200000000:100", "64086.59904:100"},
    {0x020200010000ffffull, "65536:65535", "1.0:65535"},
    {0x02020000ffff0001ull, "65535:1", "65535:1"},
    {0x0202ffffffff0000ull, "4294967295:0", "65535.65535:0"},
    // Not a route-target type: the raw value, so nothing is lost.
    {0x0302000000000001ull, "0x0302000000000001", "0x0302000000000001"},
    {0x4002fde800000064ull, "0x4002fde800000064", "0x4002fde800000064"},
    {0xffffffffffffffffull, "0xffffffffffffffff", "0xffffffffffffffff"},
};

TEST(RouteTarget, DisplayTextByTypeOctet) {
    for (auto const& c : kDisplayCases) {
        SCOPED_TRACE(c.plain);
        RouteTarget rt(c.value);
        EXPECT_EQ(c.plain, rt.toStrep(false).str());
        EXPECT_EQ(c.asDot, rt.toStrep(true).str());
        char buffer[RouteTarget::strepSizeMax + 1];
        std::size_t n = rt.toStrep(buffer, true);
        EXPECT_LE(n, RouteTarget::strepSizeMax);
        EXPECT_EQ(std::string(c.asDot), std::string(buffer, n));
        EXPECT_EQ('\0', buffer[n]);
    }
}

TEST(RouteTarget, OrdersAsUnsignedAndHashesItsValue) {
    RouteTarget low(0x7fffffffffffffffull), high(0x8000000000000000ull);
    EXPECT_LT(low, high);
    EXPECT_LT(RouteTarget(0xff), RouteTarget(0x0100000000000000ull));
    EXPECT_EQ(RouteTarget(5), RouteTarget(5));
    EXPECT_NE(RouteTarget(5), RouteTarget(6));
    EXPECT_EQ(Kiv::hashU64(0x0002fde800000064ull), RouteTarget(0x0002fde800000064ull).hash());
    EXPECT_EQ(Kiv::hashU64(42, 7), RouteTarget(42).hash(7));
    EXPECT_EQ(0x02, RouteTarget(0x0202fa56ea000064ull).type());
}

TEST(RouteTarget, FrameworkTextRoundTrips) {
    RouteTarget rt(0x0002fde800000064ull);
    EXPECT_EQ("Value('Routing::Bgp::RouteTarget', ** {'value': 0x0002fde800000064})",
              rt.valueToStrep().str());
    std::ostringstream os;
    os << rt;
    EXPECT_EQ(rt.valueToStrep().str(), os.str());
    for (auto const& c : kDisplayCases) {
        RouteTarget original(c.value);
        EXPECT_EQ(original, RouteTarget::strepToValue(original.valueToStrep()));
    }
}

TEST(RouteTarget, ParsingConstructorStopsAfterTheValue) {
    Kiv::String text("Value('Routing::Bgp::RouteTarget', ** {'value': 0x64}), rest");
    Kiv::String::IteratorConst it = text.begin();
    RouteTarget rt(it, text.end());
    EXPECT_EQ(100u, rt.value());
    EXPECT_EQ(", rest", std::string(it, text.end()));
}

TEST(RouteTarget, MalformedTextRaises) {
    std::string const head = "Value('Routing::Bgp::RouteTarget', ** {'value': ";
    struct Case {
        std::string text;
        bool rangeError;  // else a parse error
    };
    Case const cases[] = {
        {head + "100})", false},                 // decimal: the 0x is missing
        {head + "0xzz})", true},                 // no hex digits
        {head + "0x10000000000000000})", true},  // 17 digits overflow
        {head + "0x1)", false},                  // closing brace missing
        {head + "0x1}) ", false},                // trailing text
        {"Value('Routing::Bgp::Other', ** {'value': 0x1})", false},
        {"", false},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.text);
        if (c.rangeError)
            EXPECT_THROW(RouteTarget::strepToValue(Kiv::String(c.text)), Kiv::RangeError);
        else
            EXPECT_THROW(RouteTarget::strepToValue(Kiv::String(c.text)), Kiv::ParseError);
    }
}

}  // namespace
