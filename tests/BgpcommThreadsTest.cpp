// `bgpcomm mrt --threads`: several lanes give the very octets one thread
// gives - route lines, messages and exit status - in every format.
#include <gtest/gtest.h>

#include "BgpcommTestUtil.h"
#include "bgpcomm/Synth.h"

namespace {

using namespace BgpcommTest;

// A synthetic dump of several chunks, then a second peer table with a RIB
// record that needs it, a record of unknown type and an entry whose peer
// index is past the table: chunks must carry the peer table in force and
// keep the messages in file order.
TEST(BgpcommThreads, OutputEqualsOneThread) {
    Bgpcomm::SynthOptions synth;
    synth.routes = 8000;
    synth.seed = 7;
    Bytes entryAttrs = cat({origin(), asPath({65002}), attr(0xC0, 8, u32s({0xFDE80001}))});
    Bytes file = cat({Bgpcomm::synthesizeToMemory(synth), peerTable(),
                      rib({{1, entryAttrs}, {9, entryAttrs}}), mrt(99, 0, {1, 2, 3})});
    for (Bgpcomm::Format format :
         {Bgpcomm::Format::text, Bgpcomm::Format::json, Bgpcomm::Format::psv}) {
        Result results[2];
        for (unsigned threads : {1u, 3u}) {
            Bgpcomm::MrtOptions options;
            options.format = format;
            options.verify = true;
            options.threads = threads;
            results[threads > 1] = run(std::move(options), file);
        }
        EXPECT_GT(results[0].out.size(), 8000u * 40);
        EXPECT_EQ(results[0].out, results[1].out);
        EXPECT_EQ(results[0].err, results[1].err);
        EXPECT_NE(results[0].err.find("unknown MRT type 99"), std::string::npos);
        EXPECT_EQ(results[0].status, results[1].status);
    }
}

}  // namespace
