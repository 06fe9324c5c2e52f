#include "bgpcomm/session/Options.h"

#include <cstdio>
#include <fstream>
#include <sstream>

namespace Bgpcomm::Session {

namespace {

std::optional<std::string> parsePeer(std::string const& spec, PeerConfig* out) {
    std::stringstream parts(spec);
    std::string item;
    bool first = true, haveAs = false;
    while (std::getline(parts, item, ',')) {
        if (first) {
            if (!parseEndpoint(item, bgpPort, &out->addr, &out->port))
                return "bad peer address '" + item + "' in --peer '" + spec + "'";
            first = false;
            continue;
        }
        U64 value = 0;
        if (item.rfind("as=", 0) == 0 || item.rfind("AS=", 0) == 0) {
            if (!parseNumber(item.substr(3), 0xFFFFFFFF, &value) || value == 0)
                return "bad AS number '" + item.substr(3) + "' in --peer '" + spec + "'";
            out->asn = U32(value);
            haveAs = true;
        } else if (item == "passive" || item == "active") {
            out->passive = item == "passive";
            out->passiveGiven = true;
        } else if (item == "addpath") {
            out->addPath = true;
        } else {
            return "unknown peer setting '" + item + "' in --peer '" + spec +
                   "' (as=N, passive, active, addpath)";
        }
    }
    if (first || !haveAs)
        return "--peer '" + spec + "' needs ADDR[:PORT],as=N";
    return std::nullopt;
}

}  // namespace

std::string PeerConfig::text() const {
    return addressText(addr) + " AS" + std::to_string(asn);
}

bool parseNumber(std::string const& text, U64 max, U64* out) {
    if (text.empty() || text.size() > 19 ||
        text.find_first_not_of("0123456789") != std::string::npos)
        return false;
    *out = std::stoull(text);
    return *out <= max;
}

bool parseEndpoint(std::string const& text, std::optional<U16> defaultPort, IpAddress* addr,
                   U16* port) {
    std::string host = text, portText;
    if (!text.empty() && text[0] == '[') {
        std::size_t close = text.find(']');
        if (close == std::string::npos)
            return false;
        host = text.substr(1, close - 1);
        if (close + 1 < text.size()) {
            if (text[close + 1] != ':')
                return false;
            portText = text.substr(close + 2);
        }
    } else if (std::size_t colon = text.rfind(':');
               colon != std::string::npos && text.find(':') == colon) {
        host = text.substr(0, colon);  // one colon: IPv4 with a port
        portText = text.substr(colon + 1);
    }
    U64 value = 0;
    if (!parseAddress(host, addr))
        return false;
    if (portText.empty()) {
        if (!defaultPort)
            return false;
        *port = *defaultPort;
        return true;
    }
    if (!parseNumber(portText, 65535, &value) || value == 0)
        return false;
    *port = U16(value);
    return true;
}

std::set<std::string> sessionOptionNames() {
    return {"local-as", "router-id", "listen", "hold-time", "peer"};
}

std::optional<std::string> expandConfig(std::vector<std::string>& args,
                                        std::set<std::string> const& known) {
    for (std::size_t i = 0; i < args.size(); ++i) {
        if (args[i] != "--config")
            continue;
        if (i + 1 == args.size())
            return std::string("--config needs a file");
        std::string const file = args[i + 1];
        std::ifstream in(file);
        if (!in)
            return "cannot read config file '" + file + "'";
        std::vector<std::string> expanded;
        std::string line;
        for (unsigned number = 1; std::getline(in, line); ++number) {
            if (std::size_t hash = line.find('#'); hash != std::string::npos)
                line.resize(hash);
            std::stringstream words(line);
            std::string name, value, extra;
            if (!(words >> name))
                continue;
            std::string const where = file + ":" + std::to_string(number) + ": ";
            if (!known.count(name))
                return where + "unknown option '" + name + "'";
            expanded.push_back("--" + name);
            if (words >> value)
                expanded.push_back(value);
            if (words >> extra)
                return where + "unexpected '" + extra + "' after '" + name + " " + value + "'";
        }
        args.erase(args.begin() + std::ptrdiff_t(i), args.begin() + std::ptrdiff_t(i) + 2);
        args.insert(args.begin() + std::ptrdiff_t(i), expanded.begin(), expanded.end());
        i += expanded.size();
        --i;
    }
    return std::nullopt;
}

std::optional<std::string> takeSessionOption(std::vector<std::string> const& args, std::size_t& i,
                                             SessionOptions* out, bool* taken) {
    std::string const& name = args[i];
    *taken = false;
    if (name != "--local-as" && name != "--router-id" && name != "--listen" &&
        name != "--hold-time" && name != "--peer")
        return std::nullopt;
    *taken = true;
    if (i + 1 == args.size())
        return name + " needs a value";
    std::string const& value = args[++i];
    U64 number = 0;
    if (name == "--local-as") {
        if (!parseNumber(value, 0xFFFFFFFF, &number) || number == 0)
            return "bad AS number '" + value + "' for --local-as";
        out->localAs = U32(number);
    } else if (name == "--router-id") {
        IpAddress id;
        if (!parseAddress(value, &id) || id.afi != Afi::ipv4 ||
            (id.octets[0] | id.octets[1] | id.octets[2] | id.octets[3]) == 0)
            return "bad --router-id '" + value + "' (a non-zero A.B.C.D)";
        out->routerId = U32(id.octets[0]) << 24 | U32(id.octets[1]) << 16 | U32(id.octets[2]) << 8 |
                        id.octets[3];
    } else if (name == "--listen") {
        if (!parseEndpoint(value, bgpPort, &out->listenAddr, &out->listenPort))
            return "bad --listen '" + value + "' (ADDR:PORT or [ADDR]:PORT)";
        out->listenGiven = true;
    } else if (name == "--hold-time") {
        if (!parseNumber(value, 65535, &number) || number == 1 || number == 2)
            return "bad --hold-time '" + value + "' (0 or 3..65535 seconds)";
        out->holdTime = U16(number);
    } else {
        PeerConfig peer;
        if (auto error = parsePeer(value, &peer))
            return error;
        out->peers.push_back(peer);
    }
    return std::nullopt;
}

std::optional<std::string> finishSessionOptions(SessionOptions* out, bool passiveByDefault) {
    if (out->localAs == 0)
        return std::string("--local-as is required");
    if (!out->routerId)
        return std::string("--router-id is required");
    if (out->peers.empty())
        return std::string("at least one --peer is required");
    for (PeerConfig& peer : out->peers)
        if (!peer.passiveGiven)
            peer.passive = passiveByDefault;
    return std::nullopt;
}

std::optional<std::string> parseCommandLine(std::vector<std::string>& args,
                                            std::set<std::string> const& commandNames,
                                            SessionOptions* session, OtherArgument const& other) {
    std::set<std::string> known = sessionOptionNames();
    known.insert(commandNames.begin(), commandNames.end());
    if (auto error = expandConfig(args, known))
        return error;
    for (std::size_t i = 0; i < args.size(); ++i) {
        bool taken = false;
        if (auto error = takeSessionOption(args, i, session, &taken))
            return error;
        if (taken)
            continue;
        if (auto error = other(args, i))
            return error;
    }
    return std::nullopt;
}

int usageExit(char const* command, std::string const& problem, char const* help) {
    if (problem == "help") {
        std::fputs(help, stdout);
        return 0;
    }
    std::fprintf(stderr, "bgpcomm %s: %s\nTry 'bgpcomm %s --help'.\n", command, problem.c_str(),
                 command);
    return 2;
}

}  // namespace Bgpcomm::Session
