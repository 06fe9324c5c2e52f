// Command-line and config-file options shared by `bgpcomm collect` and
// `bgpcomm replay`: who we are, where we listen, and the peers.
//
//   --local-as N  --router-id A.B.C.D  --listen ADDR:PORT  --hold-time S
//   --peer ADDR[:PORT],as=N[,passive|active][,addpath]   ([v6addr]:PORT)
//   --config FILE   the same options, one per line without "--", "#" comments
//
// Contract: parsing never throws; a problem is returned as a message naming
// the option (and for config files the file and line).
#pragma once

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "bgpcomm/Wire.h"

namespace Bgpcomm::Session {

inline constexpr U16 bgpPort = 179;  // RFC 4271 section 8.2.1 (IANA service names)

struct PeerConfig {
    IpAddress addr;
    U16 port = bgpPort;
    U32 asn = 0;
    bool passive = false;
    bool passiveGiven = false;
    bool addPath = false;
    std::string text() const;  // "127.0.0.1 AS65001", as the log names the peer
};

struct SessionOptions {
    U32 localAs = 0;
    std::optional<U32> routerId;
    IpAddress listenAddr;  // 0.0.0.0 unless given
    U16 listenPort = bgpPort;
    bool listenGiven = false;
    U16 holdTime = 90;
    std::vector<PeerConfig> peers;
};

// Replaces every "--config FILE" by the options it holds. `known` are the
// command's option names (without "--"); a line naming another is an error
// "FILE:LINE: unknown option 'x'".
std::optional<std::string> expandConfig(std::vector<std::string>& args,
                                        std::set<std::string> const& known);

// Takes args[i] (and its value) when it is a session option: sets *taken and
// advances i past the value. A message when the value is bad.
std::optional<std::string> takeSessionOption(std::vector<std::string> const& args, std::size_t& i,
                                             SessionOptions* out, bool* taken);
// Names of the session options (for expandConfig).
std::set<std::string> sessionOptionNames();

// The command line as collect and replay read it: "--config FILE" expanded
// (the command's own option names are `commandNames`), the session options
// taken into `session`, and every other argument handed to `other` with its
// index, which it moves past any value it reads. The first message stops it.
using OtherArgument =
    std::function<std::optional<std::string>(std::vector<std::string> const& args, std::size_t& i)>;
std::optional<std::string> parseCommandLine(std::vector<std::string>& args,
                                            std::set<std::string> const& commandNames,
                                            SessionOptions* session, OtherArgument const& other);
// Checks what the command needs once all options are read: --local-as,
// --router-id, at least one peer; applies `passiveByDefault`.
std::optional<std::string> finishSessionOptions(SessionOptions* out, bool passiveByDefault);

bool parseNumber(std::string const& text, U64 max, U64* out);

// What a command does when its options did not parse: prints `help` for
// "help" (exit status 0), else the problem and a pointer to --help on stderr
// (exit status 2).
int usageExit(char const* command, std::string const& problem, char const* help);
// "ADDR:PORT" or "[ADDR]:PORT" (port optional when `defaultPort` is set).
bool parseEndpoint(std::string const& text, std::optional<U16> defaultPort, IpAddress* addr,
                   U16* port);

}  // namespace Bgpcomm::Session
