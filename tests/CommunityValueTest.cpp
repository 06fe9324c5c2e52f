#include <algorithm>
#include <sstream>
#include <unordered_set>
#include <vector>

#include "Acl/CommunityValue.h"
#include "Kiv/Errors.h"
#include "TestUtil.h"

namespace CommunityValueTest {

using Acl::CommunityValue;

TEST(CommunityValue, OrdersFieldByField) {
    // Each later field only decides between equal earlier ones.
    std::vector<CommunityValue> values = {
        {2, 0, 0}, {1, 2, 0}, {1, 1, 9}, {1, 1, 3}, {0, 0xFFFFFFFF, 0xFFFFFFFF}, {1, 1, 3},
    };
    std::sort(values.begin(), values.end());
    std::vector<CommunityValue> const expected = {
        {0, 0xFFFFFFFF, 0xFFFFFFFF}, {1, 1, 3}, {1, 1, 3}, {1, 1, 9}, {1, 2, 0}, {2, 0, 0},
    };
    EXPECT_EQ(expected, values);
    EXPECT_FALSE(CommunityValue(1, 1, 3) < CommunityValue(1, 1, 3));
    EXPECT_NE(CommunityValue(1, 2, 3), CommunityValue(1, 3, 2));
}

TEST(CommunityValue, HashSeparatesTheFields) {
    std::unordered_set<CommunityValue> set = {{1, 2, 3}, {3, 2, 1}, {1, 3, 2}, {1, 2, 3}};
    EXPECT_EQ(3u, set.size());
    EXPECT_EQ(CommunityValue(7, 8, 9).hash(), CommunityValue(7, 8, 9).hash());
    EXPECT_NE(CommunityValue(1, 2, 3).hash(), CommunityValue(3, 2, 1).hash());
}

TEST(CommunityValue, FrameworkTextFormRoundTrips) {
    CommunityValue const value(65536, 0, 4294967295u);
    char const* text =
        "Value('Acl::CommunityValue', ** {'globalAdmin': 65536, 'localData1': 0, "
        "'localData2': 4294967295})";
    EXPECT_EQ(text, valueToStrep(value));
    std::ostringstream os;
    os << value;
    EXPECT_EQ(text, os.str());

    CommunityValue parsed;
    strepToValue(Kiv::String(text), &parsed);
    EXPECT_EQ(value, parsed);
}

TEST(CommunityValue, ParseErrors) {
    CommunityValue out;
    try {
        strepToValue(Kiv::String("Value('Acl::CommunityValue', ** {'globalAdmin': 1, "
                                 "'localData1': 4294967296, 'localData2': 0})"),
                     &out);
        FAIL() << "no error";
    } catch (Kiv::RangeError const& e) {
        EXPECT_EQ("localData1", e.attributeName());
    }
    EXPECT_THROW(
        strepToValue(Kiv::String("Value('Acl::CommunityValue', ** {'globalAdmin': 1})"), &out),
        Kiv::ParseError);
    EXPECT_THROW(strepToValue(Kiv::String("Value('Acl::CommunityValue', ** {'globalAdmin': 1, "
                                          "'localData1': 2, 'localData2': 3}) "),
                              &out),
                 Kiv::ParseError);
}

}  // namespace CommunityValueTest
