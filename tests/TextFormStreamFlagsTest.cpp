// Printing into a stream left in hexadecimal (with base prefix and upper
// case) by whatever was printed before must neither change the numbers of a
// text form nor the stream's flags.
#include <sstream>

#include "TestUtil.h"
#include "VoBgp/ExtCommIp6.h"
#include "VoBgp/Parse/ExtCommLinkBandwidth.h"
#include "VoBgp/Parse/ExtCommRouteTarget.h"
#include "VoBgp/VoBgpCommunity.h"
#include "VoBgp/VoBgpCommunityList.h"

namespace Routing::Bgp {
namespace {

template <class T>
std::string printedInHex(T const& value) {
    std::ostringstream os;
    os << std::hex << std::showbase << std::uppercase << value << ' ' << 255;
    return os.str();
}

TEST(TextForms, NumbersStayDecimalInAHexStream) {
    Vonet::Ip6Addr address;
    ASSERT_TRUE(Vonet::Ip6Addr::parse("2001:db8::1", &address));
    ExtCommIp6Content const ip6Content{0x30, 0x32, address, 300};
    auto asNumber = extCommAsNumberFactory(extCommClassificationUnSpecified,
                                           ExtCommContent(0x0205000100000064), true);
    auto rt = extCommRouteTargetAsFactory(ExtCommContent(0x0002FDE800000064), false);
    // 1250000 bytes per second as a float: 0x49989680.
    auto lbw = ExtCommLinkBandwidth::ExtCommLinkBandwidthIs(ExtCommContent(0x4004FDE849989680));
    auto ip6 = extCommIp6SubtypedFactory(extCommClassificationUnSpecified,
                                         ExtCommIp6Content{0x00, 0x02, address, 20});
    auto list = commListFactory();
    list->commIs(0x000A0064);
    list->commIs(0xFFFFFF01);

    struct Case {
        std::string printed;
        std::string strep;
        char const* text;
    } const cases[] = {
        {printedInHex(asNumber.ptr()), asNumber->toStrep().str(),
         "<extCommPktTypeTransFourOctetAs extCommPktSubtypeTransFourOctetAsOspfDomainIdentifier "
         "ASN=65536 0x0205000100000064>"},
        {printedInHex(rt.ptr()), rt->toStrep().str(),
         "<RouteTarget2ByteASN 65000:100 0x0002fde800000064>"},
        {printedInHex(lbw.ptr()), lbw->toStrep().str(),
         "<LinkBandwidth 65000:1.25e+06 0x4004fde849989680>"},
        {printedInHex(ip6.ptr()), ip6->toStrep().str(),
         "<extCommIp6PktTypeTransIpv6Address extCommIp6PktSubtypeRouteTarget addr=2001:db8::1 "
         "localAdmin=20>"},
        {printedInHex(ip6Content), valueToStrep(ip6Content).str(),
         "type=0;subtype=2;addr=2001:db8::1;localAdmin=300"},
        {printedInHex(list.ptr()), list->toStrep().str(), "10:100 no-export"},
    };
    for (auto const& c : cases) {
        EXPECT_EQ(std::string(c.text) + " 0XFF", c.printed);
        EXPECT_EQ(c.text, c.strep);
    }
}

}  // namespace
}  // namespace Routing::Bgp
