// Printing into a stream left in hexadecimal (with base prefix and upper
// case) by whatever was printed before must neither change the numbers of a
// text form nor the stream's flags.
#include <functional>
#include <sstream>

#include "Acl/CommunityValue.h"
#include "TestUtil.h"
#include "VoBgp/ExtCommIp6.h"
#include "VoBgp/Parse/ExtCommLinkBandwidth.h"
#include "VoBgp/Parse/ExtCommRouteTarget.h"
#include "VoBgp/VoBgpCommunity.h"
#include "VoBgp/VoBgpCommunityList.h"

namespace Routing::Bgp {
namespace {

TEST(TextForms, NumbersStayDecimalInAHexStream) {
    Vonet::Ip6Addr address;
    ASSERT_TRUE(Vonet::Ip6Addr::parse("2001:db8::1", &address));
    ExtCommIp6Content const ip6Content{0x30, 0x32, address, 300};
    auto asNumber = extCommAsNumberFactory(extCommClassificationUnSpecified,
                                           ExtCommContent(0x0205000100000064), true);
    auto ipv4 = extCommIpv4AddressFactory(extCommClassificationUnSpecified,
                                          ExtCommContent(0x41050A0102030007));
    auto rt = extCommRouteTargetAsFactory(ExtCommContent(0x0002FDE800000064), false);
    // 1250000 bytes per second as a float: 0x49989680.
    auto lbw = ExtCommLinkBandwidth::ExtCommLinkBandwidthIs(ExtCommContent(0x4004FDE849989680));
    auto ip6 = extCommIp6SubtypedFactory(extCommClassificationUnSpecified,
                                         ExtCommIp6Content{0x00, 0x02, address, 20});
    auto list = commListFactory();
    list->commIs(0x000A0064);
    list->commIs(0xFFFFFF01);
    auto large = largeCommListFactory();
    large->commIs(Acl::CommunityValue(65536, 1, 2));
    Acl::CommunityValue const value(65536, 10, 20);

    struct Case {
        std::function<void(std::ostream&)> print;
        std::string strep;
        char const* text;
    } const cases[] = {
        {[&](std::ostream& os) { os << asNumber.ptr(); }, asNumber->toStrep().str(),
         "<extCommPktTypeTransFourOctetAs extCommPktSubtypeTransFourOctetAsOspfDomainIdentifier "
         "ASN=65536 0x0205000100000064>"},
        {[&](std::ostream& os) { os << ipv4.ptr(); }, ipv4->toStrep().str(),
         "<extCommPktTypeNonTransIpv4Address subtype=5 10.1.2.3 0x41050a0102030007>"},
        {[&](std::ostream& os) { os << rt.ptr(); }, rt->toStrep().str(),
         "<RouteTarget2ByteASN 65000:100 0x0002fde800000064>"},
        {[&](std::ostream& os) { os << lbw.ptr(); }, lbw->toStrep().str(),
         "<LinkBandwidth 65000:1.25e+06 0x4004fde849989680>"},
        {[&](std::ostream& os) { os << ip6.ptr(); }, ip6->toStrep().str(),
         "<extCommIp6PktTypeTransIpv6Address extCommIp6PktSubtypeRouteTarget addr=2001:db8::1 "
         "localAdmin=20>"},
        {[&](std::ostream& os) { os << ip6Content; }, valueToStrep(ip6Content).str(),
         "type=0;subtype=2;addr=2001:db8::1;localAdmin=300"},
        {[&](std::ostream& os) { os << list.ptr(); }, list->toStrep().str(), "10:100 no-export"},
        {[&](std::ostream& os) { os << large.ptr(); }, large->toStrep().str(), "65536:1:2"},
        {[&](std::ostream& os) { os << value; }, valueToStrep(value).str(),
         "Value('Acl::CommunityValue', ** {'globalAdmin': 65536, 'localData1': 10, "
         "'localData2': 20})"},
    };
    for (auto const& c : cases) {
        std::ostringstream os;
        os << std::hex << std::showbase << std::uppercase;
        c.print(os);
        os << ' ' << 255;
        EXPECT_EQ(std::string(c.text) + " 0XFF", os.str());
        EXPECT_EQ(c.text, c.strep);
    }
}

}  // namespace
}  // namespace Routing::Bgp
