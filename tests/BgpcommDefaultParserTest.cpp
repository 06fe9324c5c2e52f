// bgpcomm decodes extended communities with the opt-in parser plug-ins;
// --default-parser shows exactly what the library's default container makes
// of the same octets.
#include <gtest/gtest.h>

#include "BgpcommTestUtil.h"
#include "bgpcomm/Decode.h"

namespace {

using namespace BgpcommTest;

// One RIB entry with an EVPN MAC mobility and a flowspec traffic rate.
Bytes ribWithOptInValues() {
    Bytes ext = {0x06, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x05,
                 0x80, 0x06, 0xFD, 0xE8, 0x49, 0x74, 0x24, 0x00};
    return cat({peerTable(), rib({{0, cat({origin(), asPath({65001}), attr(0xC0, 16, ext)})}})});
}

TEST(BgpcommDefaultParser, MrtShowsTypedValuesUnlessAskedForTheDefault) {
    Bgpcomm::MrtOptions options;
    ASSERT_EQ(Bgpcomm::parseMrtOptions({"--default-parser", "x.mrt"}, &options), std::nullopt);
    EXPECT_TRUE(options.defaultParser);

    Result const typed = run(textOptions(), ribWithOptInValues());
    EXPECT_EQ(typed.out,
              "10.0.0.0/24 peer 192.0.2.1 AS65001 extended "
              "[EVPN-MAC-Mobility:5:sticky Flowspec-Traffic-Rate:65000:8 Mbps]\n");
    Result const plain = run(std::move(options), ribWithOptInValues());
    EXPECT_EQ(plain.out,
              "10.0.0.0/24 peer 192.0.2.1 AS65001 extended [0600010000000005 8006fde849742400]\n");
}

TEST(BgpcommDefaultParser, DecodeShowsTypedValuesUnlessAskedForTheDefault) {
    for (auto [args, classification, show] :
         std::initializer_list<std::tuple<std::vector<std::string>, char const*, char const*>>{
             {{"0x0004fdeb4cee6b28"},
              "extCommClassificationUnSpecified",
              "Link-Bandwidth-Trans-AS:65003:1 Gbps"},
             {{"--default-parser", "0x0004fdeb4cee6b28"},
              "extCommClassificationUnSpecified",
              "0004-AS:65003:1290693416"},
             {{"0x0800000000000001"},
              "extCommClassificationFlowspec",
              "Flowspec-Redirect-Next-Hop:copy"},
             {{"0x0800000000000001", "--default-parser"},
              "extCommClassificationUnSpecified",
              "0800000000000001"},
         }) {
        std::string out, err;
        EXPECT_EQ(Bgpcomm::decode(args, &out, &err), 0);
        EXPECT_NE(out.find(std::string("  classification              ") + classification + "\n"),
                  std::string::npos)
            << out;
        EXPECT_NE(out.find(std::string("  show (toStrepForUI)         ") + show + "\n"),
                  std::string::npos)
            << out;
        EXPECT_EQ(err, "");
    }
}

}  // namespace
