// bgpcomm: reads BGP communities out of MRT dumps with the VoBgpCommunity
// library, decodes community values, and writes synthetic dumps.
//
//   bgpcomm mrt [OPTIONS] FILE...
//   bgpcomm decode HEX|TEXT...
//   bgpcomm top [OPTIONS] FILE...
//   bgpcomm synth --routes N --seed S -o FILE
//
// Exit status: 0 success, 1 some input skipped, 2 usage error.
#include <cstdio>
#include <string>
#include <vector>

#include "bgpcomm/AllocCount.h"
#include "bgpcomm/Decode.h"
#include "bgpcomm/MrtCommand.h"
#include "bgpcomm/Synth.h"
#include "bgpcomm/Top.h"
#include "bgpcomm/session/Collect.h"
#include "bgpcomm/session/Replay.h"

namespace {

char const* const mainHelp =
    "Usage: bgpcomm COMMAND [OPTIONS] ...\n"
    "BGP communities of MRT dumps, through the VoBgpCommunity library.\n"
    "\n"
    "Commands:\n"
    "  mrt FILE...         read MRT files: print, filter, count, verify, --stats\n"
    "  decode VALUE...     every text form of a community or community attribute\n"
    "  top FILE...         the most common communities and lists, with meanings\n"
    "  synth -o FILE       write a synthetic TABLE_DUMP_V2 file\n"
    "  collect             receive live BGP tables from peers\n"
    "  replay FILE...      announce MRT routes (or a synth table) to a BGP peer\n"
    "\n"
    "'bgpcomm COMMAND --help' describes each command.\n";

}  // namespace

int main(int argc, char** argv) {
    // Route lines are many and short: write them in large blocks.
    static char stdoutBuffer[1 << 16];
    std::setvbuf(stdout, stdoutBuffer, _IOFBF, sizeof stdoutBuffer);

    std::vector<std::string> args(argv + 1, argv + argc);
    if (args.empty()) {
        std::fputs(mainHelp, stderr);
        return 2;
    }
    std::string command = args.front();
    args.erase(args.begin());
    if (command == "--help" || command == "-h" || command == "help") {
        std::fputs(mainHelp, stdout);
        return 0;
    }
    if (command == "mrt")
        return Bgpcomm::mrtCommand(args, &Bgpcomm::liveHeapBytes);
    if (command == "decode")
        return Bgpcomm::decodeCommand(args);
    if (command == "top")
        return Bgpcomm::topCommand(args, stdout);
    if (command == "synth")
        return Bgpcomm::synthCommand(args);
    if (command == "collect")
        return Bgpcomm::Session::collectCommand(args, &Bgpcomm::liveHeapBytes);
    if (command == "replay")
        return Bgpcomm::Session::replayCommand(args);
    std::fprintf(stderr, "bgpcomm: unknown command '%s'\n%s", command.c_str(), mainHelp);
    return 2;
}
