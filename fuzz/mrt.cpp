// The bgpcomm MRT reader, with ingest, the route filters' input and every
// output format: a whole `bgpcomm mrt --verify` run over one input stream
// (plain, gzip or bzip2, as detected). Properties: nothing crashes or
// throws (broken records are reported and skipped), and every list that
// was interned serializes back to the values received (--verify's check).
//
// Input: a selector octet (output format, asdot, statistics, parser), then
// the stream.
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "FuzzUtil.h"
#include "bgpcomm/MrtCommand.h"

VOBGP_FUZZ_TARGET(input) {
    static std::FILE* const sink = std::fopen("/dev/null", "w");
    U8 const selector = input.octet();
    std::string const rest = input.rest();
    Bgpcomm::MrtOptions options;
    options.format = static_cast<Bgpcomm::Format>(selector % 3);
    options.formatGiven = (selector & 8) == 0;  // statistics then go to the sink
    options.asdot = selector & 4;
    options.stats = selector & 8;
    options.defaultParser = selector & 16;
    options.verify = true;
    options.progress = false;
    std::string messages;
    {
        Bgpcomm::MrtRun run(std::move(options), sink);
        run.diag().captureIs(&messages);
        auto source = Bgpcomm::openSource(
            Bgpcomm::RawInput::fromMemory(std::vector<U8>(rest.begin(), rest.end())));
        run.source("fuzz.mrt", *source);
        (void)run.finish();
    }
    Fuzz::check(messages.find("does not round-trip") == std::string::npos,
                "an interned list does not serialize back to what was received", messages);
}
