#include <sstream>
#include <type_traits>

#include "Kiv/Enum.h"
#include "Kiv/Errors.h"
#include "TestUtil.h"
#include "VoBgp/BgpPathAttributeEnums.h"

namespace PathAttributeEnumsTest {

using namespace Routing::Bgp;

TEST(PathAttributeEnums, StorageWidthsHoldTheUnknownMembers) {
    static_assert(sizeof(AspType) == 1);
    static_assert(sizeof(BgpPathAttrFlag) == 1);
    static_assert(sizeof(PrefixSidTlvType) == 1);
    static_assert(sizeof(BgpPathAttrType) == 2);
    static_assert(sizeof(OriginCode) == 2);
    EXPECT_EQ(256, BgpPathAttrTypeInstance(256));
    EXPECT_EQ(256, OriginCodeInstance(256));
    EXPECT_EQ(attrTypeUnknown, BgpPathAttrTypeInstance(256));
    // One-octet enums refuse what does not fit rather than truncate.
    EXPECT_THROW(AspTypeInstance(256), Kiv::RangeError);
    EXPECT_THROW(BgpPathAttrFlagInstance(256), Kiv::RangeError);
    EXPECT_THROW(PrefixSidTlvTypeInstance(256), Kiv::RangeError);
}

TEST(PathAttributeEnums, TypeNamesAndMemberCounts) {
    struct Case {
        std::string_view typeName;
        std::string_view expected;
        std::size_t members;
        std::size_t expectedMembers;
    };
    Case const cases[] = {
        {Kiv::enumTable<AspType>().typeName, "Routing::Bgp::AspType",
         Kiv::enumTable<AspType>().members.size(), 7},
        {Kiv::enumTable<BgpPathAttrFlag>().typeName, "Routing::Bgp::BgpPathAttrFlag",
         Kiv::enumTable<BgpPathAttrFlag>().members.size(), 6},
        {Kiv::enumTable<BgpPathAttrType>().typeName, "Routing::Bgp::BgpPathAttrType",
         Kiv::enumTable<BgpPathAttrType>().members.size(), 29},
        {Kiv::enumTable<OriginCode>().typeName, "Routing::Bgp::OriginCode",
         Kiv::enumTable<OriginCode>().members.size(), 4},
        {Kiv::enumTable<PrefixSidTlvType>().typeName, "Routing::Bgp::PrefixSidTlvType",
         Kiv::enumTable<PrefixSidTlvType>().members.size(), 4},
    };
    for (auto const& c : cases) {
        EXPECT_EQ(c.expected, c.typeName);
        EXPECT_EQ(c.expectedMembers, c.members) << c.expected;
    }
}

TEST(PathAttributeEnums, MemberNamesPrintAndParseBack) {
    EXPECT_EQ("optionalTransitivePartial", valueToStrep(BgpPathAttrFlagInstance(0xE0)));
    EXPECT_EQ("extLen", valueToStrep(BgpPathAttrFlagInstance(0x10)));
    EXPECT_EQ("extCommunityIp6", valueToStrep(extCommunityIp6));
    EXPECT_EQ("attrTypeUnknown", stringValue(attrTypeUnknown));
    EXPECT_EQ(originUnknown, OriginCodeInstance(Kiv::String("originUnknown")));
    EXPECT_EQ(256, OriginCodeInstance(Kiv::String("originUnknown")));
    EXPECT_EQ(5, AspTypeInstance(Kiv::String("aspTypeConfedEbgp")));
    EXPECT_EQ(labelIndexTlv, PrefixSidTlvTypeInstance(Kiv::String("labelIndexTlv")));
    EXPECT_THROW(OriginCodeInstance(Kiv::String("originNowhere")), Kiv::RangeError);

    std::ostringstream os;
    os << nextHop << ' ' << aspTypeMax << ' ' << originatorSrgbTlv;
    EXPECT_EQ("nextHop aspTypeMax originatorSrgbTlv", os.str());

    Kiv::String text("bgpLs rest");
    Kiv::String::IteratorConst it = text.begin();
    BgpPathAttrType parsed = invalidPathAttr;
    sequenceToValue(it, text.end(), &parsed);
    EXPECT_EQ(bgpLs, parsed);
    EXPECT_EQ(" rest", std::string_view(it, text.end()));
}

TEST(PathAttributeEnums, FlagsCombineIntoTheirNamedUnions) {
    EXPECT_EQ(optionalTransitive, opt | transitive);
    EXPECT_EQ(optionalTransitivePartial, opt | transitive | partial);
    EXPECT_EQ(0xD0, optionalTransitive | extLen);
}

TEST(PathAttributeEnums, ShowStrings) {
    struct Case {
        U32 code;
        char const* label;
    };
    Case const cases[] = {
        {0, "Invalid Path Attribute"},
        {1, "Origin"},
        {3, "Nexthop"},
        {4, "MED"},
        {6, "Atomic Aggregator"},
        {9, "Originator ID"},
        {16, "Extended Community"},
        {25, "IPv6 Address Specific Extended Community"},
        {29, "Link State"},
        {40, "BGP Prefix-SID"},
        {128, "Attribute Set"},
        {255, "Reserved for Development"},
        // Codes without a member, and everything beyond the octet.
        {11, "Invalid attribute"},
        {24, "Invalid attribute"},
        {127, "Invalid attribute"},
        {254, "Invalid attribute"},
        {256, "Invalid attribute"},
        {0xFFFF, "Invalid attribute"},
    };
    for (auto const& c : cases)
        EXPECT_STREQ(c.label, bgpPathAttrTypeShowString(BgpPathAttrTypeInstance(c.code))) << c.code;
}

TEST(PathAttributeEnums, EveryMemberButZeroAndUnknownHasItsOwnLabel) {
    for (auto const& m : Kiv::enumTable<BgpPathAttrType>().members) {
        std::string_view label = bgpPathAttrTypeShowString(m.value);
        if (m.value == attrTypeUnknown) {
            EXPECT_EQ("Invalid attribute", label);
        } else if (m.value == invalidPathAttr) {
            EXPECT_EQ("Invalid Path Attribute", label);
        } else {
            EXPECT_NE("Invalid attribute", label) << m.name;
        }
    }
    // Codes with no member never get a label.
    for (U32 code = 0; code <= 255; ++code) {
        auto const type = BgpPathAttrTypeInstance(code);
        if (Kiv::enumMemberByValue(type) == nullptr) {
            EXPECT_STREQ("Invalid attribute", bgpPathAttrTypeShowString(type)) << code;
        }
    }
}

}  // namespace PathAttributeEnumsTest
