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
// keep the messages in file order. The unknown index comes back a chunk
// later (still one report) and after a third peer table (reported again).
TEST(BgpcommThreads, OutputEqualsOneThread) {
    Bgpcomm::SynthOptions synth;
    synth.routes = 8000;
    synth.seed = 7;
    Bytes entryAttrs = cat({origin(), asPath({65002}), attr(0xC0, 8, u32s({0xFDE80001}))});
    Bytes const unknownPeer = rib({{1, entryAttrs}, {9, entryAttrs}});
    Bytes filler;
    Bytes const entry = rib({{0, entryAttrs}});
    for (unsigned i = 0; i < 12000; ++i)  // over a chunk (256 KiB)
        filler.insert(filler.end(), entry.begin(), entry.end());
    Bytes file = cat({Bgpcomm::synthesizeToMemory(synth), peerTable(), unknownPeer,
                      mrt(99, 0, {1, 2, 3}), filler, unknownPeer, peerTable(), unknownPeer});
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
        std::size_t reports = 0;
        for (std::size_t at = 0;
             (at = results[1].err.find("peer index 9 ", at)) != std::string::npos; ++at)
            ++reports;
        EXPECT_EQ(reports, 2u);
        EXPECT_EQ(results[1].err.find('\x01'), std::string::npos);
        EXPECT_EQ(results[0].status, results[1].status);
    }
}

}  // namespace
