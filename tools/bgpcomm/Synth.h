// `bgpcomm synth`: writes a TABLE_DUMP_V2 file (RFC 6396 section 4.3) - one
// PEER_INDEX_TABLE, then RIB_IPV4_UNICAST records of 1 to 4 peers' routes -
// with a realistic mix of communities, for trying and measuring the tool.
//
// Contract: the output depends only on the options: the generator is the
// tool's own (splitmix64), the Zipf tables are built from sums of 1/k (exact
// IEEE arithmetic), no std:: distribution is used, so the same seed gives the
// same octets on every platform. Memory does not grow with --routes: records
// are written through a 1 MiB buffer.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "Kiv/Types.h"
#include "bgpcomm/Input.h"

namespace Bgpcomm {

struct SynthOptions {
    U64 routes = 1000;
    U64 seed = 1;
    std::string output;
    Compression compression = Compression::none;
    U32 peers = 8;
    // Pools: distinct values and the lists drawn from them (Zipf reuse).
    U32 standardValues = 20000;
    U32 standardLists = 60000;
    U32 extendedValues = 5000;
    U32 extendedLists = 20000;
    U32 largeValues = 2000;
    U32 largeLists = 5000;
    // Percent of routes that carry extended / large communities.
    U32 extendedPercent = 30;
    U32 largePercent = 10;
};

extern char const* const synthHelp;

// Writes the MRT octets through `write` in blocks.
class SynthSink {
  public:
    virtual ~SynthSink() = default;
    virtual bool write(U8 const* data, std::size_t size) = 0;
};

void synthesize(SynthOptions const& options, SynthSink& sink);
// The uncompressed file in memory (tests, small runs).
std::vector<U8> synthesizeToMemory(SynthOptions const& options);
// Writes options.output with options.compression; an error text on failure.
std::string synthesizeToFile(SynthOptions const& options);

int synthCommand(std::vector<std::string> const& args);

}  // namespace Bgpcomm
