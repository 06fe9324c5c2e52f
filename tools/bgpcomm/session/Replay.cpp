#include "bgpcomm/session/Replay.h"

#include <poll.h>

#include <algorithm>
#include <string_view>
#include <unordered_map>

#include "bgpcomm/Filter.h"
#include "bgpcomm/Mrt.h"
#include "bgpcomm/Synth.h"
#include "bgpcomm/session/Policy.h"
#include "bgpcomm/session/Transport.h"

namespace Bgpcomm::Session {

char const* const replayHelp =
    "Usage: bgpcomm replay --local-as N --router-id A.B.C.D --peer SPEC\n"
    "                      (FILE... | --synth N [--seed S]) [OPTIONS]\n"
    "Announces the routes of MRT files, or of a synthetic table, to one BGP peer,\n"
    "then End-of-RIB; stays established until --hold-open or a signal, then Cease.\n"
    "\n"
    "Session (as for 'bgpcomm collect'): --local-as, --router-id, --listen,\n"
    "  --peer ADDR[:PORT],as=N[,active|passive] (active by default), --hold-time,\n"
    "  --config FILE\n"
    "\n"
    "  --synth N               the routes of 'bgpcomm synth --routes N'\n"
    "  --seed S                its seed (default 1)\n"
    "  --hold-open S           seconds to stay established after End-of-RIB\n"
    "  --kind standard|large|extended|ipv6\n"
    "                          list kind for the --strip options that follow\n"
    "  --strip REGEX           remove the communities whose text matches\n"
    "  --add VALUE             add a:b, a:b:c, 0x+16 hex (extended), 0x+40 hex (IPv6)\n"
    "  --next-hop ADDR         next hop of the routes of ADDR's family (repeatable)\n"
    "  --stats                 routes, UPDATEs and time to End-of-RIB on stderr\n"
    "\n"
    "Exit status: 0 success, 1 the session failed or ended in error, or an input\n"
    "was skipped, 2 usage error.\n";

namespace {

struct ReplayOptions {
    SessionOptions session;
    std::vector<std::string> files;
    U64 synthRoutes = 0;
    U64 seed = 1;
    double holdOpen = -1;  // until a signal
    CommPolicy policy;
    std::optional<IpAddress> nextHop[familyCount];
    bool stats = false;
};

std::optional<std::string> parseReplay(std::vector<std::string> args, ReplayOptions* out) {
    CommKind kind = CommKind::standard;
    auto other = [&](std::vector<std::string> const& args,
                     std::size_t& i) -> std::optional<std::string> {
        std::string const& a = args[i];
        if (a == "--help" || a == "-h")
            return std::string("help");
        if (a == "--stats") {
            out->stats = true;
            return std::nullopt;
        }
        if (a.rfind("--", 0) != 0) {
            out->files.push_back(a);
            return std::nullopt;
        }
        if (a != "--synth" && a != "--seed" && a != "--hold-open" && a != "--kind" &&
            a != "--strip" && a != "--add" && a != "--next-hop")
            return "unknown option '" + a + "'";
        if (i + 1 == args.size())
            return a + " needs a value";
        std::string const& v = args[++i];
        U64 number = 0;
        if (a == "--synth" || a == "--seed" || a == "--hold-open") {
            if (!parseNumber(v, U64(1) << 40, &number) || (a == "--synth" && number == 0))
                return "bad " + a + " '" + v + "'";
            (a == "--synth" ? out->synthRoutes : a == "--seed" ? out->seed : number) = number;
            if (a == "--hold-open")
                out->holdOpen = double(number);
        } else if (a == "--kind") {
            if (!parseCommKind(v, &kind))
                return "bad --kind '" + v + "' (standard, large, extended, ipv6)";
        } else if (a == "--strip") {
            if (auto error = out->policy.stripIs(kind, v))
                return "bad regular expression: " + *error;
        } else if (a == "--add") {
            if (auto error = out->policy.addIs(v))
                return *error;
        } else {
            IpAddress addr;
            if (!parseAddress(v, &addr))
                return "bad --next-hop '" + v + "'";
            out->nextHop[unsigned(afiFamily(addr.afi))] = addr;
        }
        return std::nullopt;
    };
    if (auto error = parseCommandLine(
            args, {"synth", "seed", "hold-open", "kind", "strip", "add", "next-hop", "stats"},
            &out->session, other))
        return error;
    if (out->files.empty() == (out->synthRoutes == 0))
        return std::string("give MRT files or --synth N (one of the two)");
    if (auto error = finishSessionOptions(&out->session, /*passiveByDefault=*/false))
        return error;
    if (out->session.peers.size() != 1)
        return std::string("replay takes exactly one --peer");
    return std::nullopt;
}

// The table to announce: attribute sets written once, prefixes pointing at them.
struct Table {
    std::vector<Octets> attrSets;
    // Keys view the sets' own octets (a vector's buffer stays put when
    // attrSets grows), so that each set is stored once.
    std::unordered_map<std::string_view, U32> setIndex;
    struct PrefixHash {
        std::size_t operator()(Prefix const& p) const {
            std::size_t h = p.length;
            for (U8 o : p.addr.octets)
                h = h * 131 + o;
            return h;
        }
    };
    std::unordered_map<Prefix, U32, PrefixHash> routes;
};

void putAsPath(Octets& out, std::vector<AsPathEntry> const& path, U32 prepend) {
    // Segments of one type, at most 255 ASes each (RFC 4271 section 4.3).
    Octets value;
    std::vector<AsPathEntry> all;
    if (prepend)
        all.push_back({prepend, 2});
    all.insert(all.end(), path.begin(), path.end());
    for (std::size_t i = 0; i < all.size();) {
        std::size_t n = 1;
        while (i + n < all.size() && all[i + n].segmentType == all[i].segmentType && n < 255)
            ++n;
        value.push_back(all[i].segmentType);
        value.push_back(U8(n));
        for (std::size_t j = 0; j < n; ++j)
            putBig(value, all[i + j].asn, 4);
        i += n;
    }
    append(out, {0x50, attrAsPath});  // well-known transitive, extended length
    putBig(out, value.size(), 2);
    out.insert(out.end(), value.begin(), value.end());
}

// The attributes for a peer without 4-octet AS numbers (RFC 6793 section
// 4.2.2): AS_PATH with 2-octet numbers, AS_TRANS for the larger ones, and
// the 4-octet path in AS4_PATH when there was such a number.
Octets twoOctetAsPath(Octets const& attrs) {
    Octets out;
    Cursor in(attrs.data(), attrs.size(), 0);
    while (!in.empty()) {
        U8 const* start = in.data();
        U8 flags = 0, type = 0, length8 = 0;
        U16 length = 0;
        in.u8(&flags);
        in.u8(&type);
        if (flags & attrFlagExtendedLength)
            in.u16(&length);
        else if (in.u8(&length8))
            length = length8;
        Cursor value;
        in.sub(length, &value);
        if (type != attrAsPath) {
            out.insert(out.end(), start, in.data());
            continue;
        }
        Octets path2;
        bool large = false;
        for (U8 segType = 0, count = 0; value.u8(&segType) && value.u8(&count);) {
            append(path2, {segType, count});
            for (U32 asn = 0, i = 0; i < count && value.u32(&asn); ++i) {
                large = large || asn > 0xFFFF;
                putBig(path2, asn > 0xFFFF ? asTrans : asn, 2);
            }
        }
        append(out, {0x50, attrAsPath});
        putBig(out, path2.size(), 2);
        out.insert(out.end(), path2.begin(), path2.end());
        if (large) {  // optional transitive, extended length
            append(out, {0xD0, attrAs4Path});
            putBig(out, length, 2);
            out.insert(out.end(), start + (in.data() - start) - length, in.data());
        }
    }
    return out;
}

class Loader {
  public:
    Loader(ReplayOptions const& options, bool ibgp, Table& table)
        : options_(options), ibgp_(ibgp), table_(table) {}

    void batch(RouteBatch const& batch) {
        if (batch.kind == RouteKind::withdraw) {
            for (Nlri const& n : *batch.nlri)
                table_.routes.erase(n.prefix);
            return;
        }
        U32 const set = attrSet(*batch.attrs);
        for (Nlri const& n : *batch.nlri)
            table_.routes[n.prefix] = set;
    }

  private:
    U32 attrSet(PathAttrs const& attrs) {
        RouteComms received, sent;
        ingest_.path(attrs, &received);
        // Hold every set's lists until the table is loaded: a RIB dump
        // repeats the same lists route after route, and without a holder
        // each route would build them afresh and drop them again.
        held_.push_back(received);
        options_.policy.apply(ingest_, received, &sent);
        asPathEntries(attrs, &path_);
        Octets out{0x40, attrOrigin, 1, 0};  // ORIGIN IGP (RFC 4271 section 5.1.1)
        putAsPath(out, path_, ibgp_ ? 0 : options_.session.localAs);
        if (ibgp_)
            append(out, {0x40, 5, 4, 0, 0, 0, 100});  // LOCAL_PREF (RFC 4271 5.1.5)
        // Written by the library from the interned lists; towards eBGP
        // without the non-transitive extended communities.
        Kiv::String texts[] = {
            sent.standard ? sent.standard->serialize() : Kiv::String(),
            sent.extended ? sent.extended->serialize(
                                Routing::Bgp::ExtCommList::serialization(ibgp_, false, false))
                          : Kiv::String(),
            sent.ipv6 ? sent.ipv6->serialize(ibgp_) : Kiv::String(),
            sent.large ? sent.large->serialize() : Kiv::String(),
        };
        for (Kiv::String const& attr : texts)
            if (!attr.isNull())
                out.insert(out.end(), attr.view().begin(), attr.view().end());
        auto const view = [](Octets const& o) {
            return std::string_view(reinterpret_cast<char const*>(o.data()), o.size());
        };
        if (auto it = table_.setIndex.find(view(out)); it != table_.setIndex.end()) {
            held_.pop_back();  // the same lists as the set's first route
            return it->second;
        }
        U32 const index = U32(table_.attrSets.size());
        table_.attrSets.push_back(std::move(out));
        table_.setIndex.emplace(view(table_.attrSets.back()), index);
        return index;
    }

    ReplayOptions const& options_;
    bool ibgp_;
    Table& table_;
    Ingest ingest_;
    std::vector<AsPathEntry> path_;
    std::vector<RouteComms> held_;  // destroyed before ingest_
};

class Replayer : public PeerApp {
  public:
    Replayer(ReplayOptions const& options, Table& table) : options_(options), table_(table) {
        for (auto const& [prefix, set] : table.routes)
            order_.push_back({set, prefix});
        std::sort(order_.begin(), order_.end(), [](Item const& a, Item const& b) {
            return std::tie(a.prefix.addr.afi, a.set) < std::tie(b.prefix.addr.afi, b.set);
        });
    }

    void established(Fsm& fsm, double now, IpAddress const& local) override {
        next_ = 0;
        sent_ = updates_ = 0;
        eorSent_ = false;
        startedAt_ = now;
        for (unsigned f = 0; f < familyCount; ++f) {
            nextHop_[f] = options_.nextHop[f].value_or(local);
            if (!options_.nextHop[f] && local.afi != familyAfi(Family(f))) {
                if (local.afi == Afi::ipv4) {  // IPv4-mapped (RFC 4291 section 2.5.5.2)
                    nextHop_[f] = IpAddress{Afi::ipv6, {}};
                    nextHop_[f].octets[10] = nextHop_[f].octets[11] = 0xFF;
                    std::copy_n(local.octets.begin(), 4, nextHop_[f].octets.begin() + 12);
                } else {
                    canSend_[f] = false;
                }
            }
        }
        (void)fsm;
    }

    void pump(Fsm& fsm, double now) override {
        if (eorSent_)
            return;
        std::size_t budget = 256 * 1024;
        while (next_ < order_.size() && budget > 0) {
            Item const& first = order_[next_];
            Family const family = afiFamily(first.prefix.addr.afi);
            if (!fsm.negotiated(family) || !canSend_[unsigned(family)]) {
                ++next_;
                ++skipped_;
                continue;
            }
            Octets const& attrs = table_.attrSets[first.set];
            std::size_t size = announceOverhead(family) + attrs.size();
            prefixes_.clear();
            while (next_ < order_.size() && order_[next_].set == first.set &&
                   order_[next_].prefix.addr.afi == first.prefix.addr.afi &&
                   size + prefixSize(order_[next_].prefix) <= fsm.maxMessage()) {
                size += prefixSize(order_[next_].prefix);
                prefixes_.push_back(order_[next_++].prefix);
            }
            if (prefixes_.empty()) {  // attributes alone exceed the message size
                ++next_;
                ++skipped_;
                continue;
            }
            Octets const& sentAttrs =
                fsm.peerOpen().fourOctetAs ? attrs : (twoOctet_ = twoOctetAsPath(attrs));
            fsm.sendUpdate(encodeAnnounce(sentAttrs, family, nextHop_[unsigned(family)], prefixes_),
                           now);
            sent_ += prefixes_.size();
            ++updates_;
            budget -= std::min(budget, size);
        }
        if (next_ < order_.size())
            return;
        for (unsigned f = 0; f < familyCount; ++f)
            if (fsm.negotiated(Family(f)))
                fsm.sendUpdate(encodeEndOfRib(Family(f)), now);
        eorSent_ = true;
        eorAt_ = now;
        char line[200];
        std::snprintf(
            line, sizeof line, "peer %s: end-of-rib sent: %llu routes in %llu UPDATEs, %.2f s",
            options_.session.peers[0].text().c_str(), static_cast<unsigned long long>(sent_),
            static_cast<unsigned long long>(updates_), now - startedAt_);
        logEvent(line);
        if (skipped_)
            logEvent(std::to_string(skipped_) +
                     " routes not sent (family not negotiated, no next hop, or too large)");
        if (options_.stats) {
            std::snprintf(line, sizeof line, "stats: %.0f routes/s from Established to End-of-RIB",
                          now > startedAt_ ? double(sent_) / (now - startedAt_) : 0.0);
            logEvent(line);
        }
    }

    // ROUTE-REFRESH (RFC 2918 section 4): the whole table again, then
    // End-of-RIB.
    void routeRefresh(Family family, Fsm&, double) override {
        logEvent(std::string("route refresh for ") + familyName(family) +
                 ": sending the table again");
        if (eorSent_) {
            next_ = 0;
            sent_ = updates_ = skipped_ = 0;
            eorSent_ = false;
        }
    }
    void closed(std::string const&, bool error) override { failed_ = failed_ || error; }
    bool done(double now) override {
        return eorSent_ && options_.holdOpen >= 0 && now - eorAt_ >= options_.holdOpen;
    }
    bool finished() const { return eorSent_ && !failed_; }

  private:
    struct Item {
        U32 set;
        Prefix prefix;
    };
    ReplayOptions const& options_;
    Table& table_;
    std::vector<Item> order_;
    std::vector<Prefix> prefixes_;
    Octets twoOctet_;
    std::size_t next_ = 0;
    U64 sent_ = 0, updates_ = 0, skipped_ = 0;
    bool eorSent_ = false, failed_ = false;
    bool canSend_[familyCount] = {true, true};
    IpAddress nextHop_[familyCount];
    double startedAt_ = 0, eorAt_ = 0;
};

}  // namespace

int replayCommand(std::vector<std::string> const& args) {
    logCommandIs("replay");
    ReplayOptions options;
    if (auto problem = parseReplay(args, &options))
        return usageExit("replay", *problem, replayHelp);
    PeerConfig const& peer = options.session.peers[0];
    bool const ibgp = peer.asn == options.session.localAs;
    Table table;
    U64 skippedInput = 0;
    {
        Loader loader(options, ibgp, table);
        auto read = [&](std::string const& label, std::unique_ptr<RawInput> raw) {
            Diag diag(label);
            std::unique_ptr<ByteSource> source = openSource(std::move(raw));
            MrtReader reader(*source, diag, [&](RouteBatch const& b) { loader.batch(b); });
            reader.run();
            if (!source->error().empty())
                diag.fileProblem(source->error());
            skippedInput += diag.reports();
        };
        if (options.synthRoutes) {
            SynthOptions synth;
            synth.routes = options.synthRoutes;
            synth.seed = options.seed;
            read("synth", RawInput::fromMemory(synthesizeToMemory(synth)));
        }
        for (std::string const& file : options.files) {
            std::string error;
            auto raw = RawInput::openFile(file, &error);
            if (!raw) {
                std::fprintf(stderr, "bgpcomm replay: %s: %s\n", file.c_str(), error.c_str());
                ++skippedInput;
                continue;
            }
            read(file, std::move(raw));
        }
    }
    logEvent(std::to_string(table.routes.size()) + " routes, " +
             std::to_string(table.attrSets.size()) + " attribute sets to announce");

    FsmConfig config;
    config.localAs = options.session.localAs;
    config.routerId = *options.session.routerId;
    config.holdTime = options.session.holdTime;
    config.peerAs = peer.asn;
    config.passive = peer.passive;
    Replayer replayer(options, table);
    PeerSession session(peer, config, replayer);
    installStopSignals();
    Listener listener;
    if (peer.passive) {
        if (std::string error =
                listener.open(options.session.listenAddr, options.session.listenPort);
            !error.empty()) {
            std::fprintf(stderr, "bgpcomm replay: %s\n", error.c_str());
            return 2;
        }
        listener.start({&session}, stopRequested());
    }
    RunPolicy policy;
    policy.retry = peer.passive;  // a passive replayer waits; an active one tries once
    policy.oneSession = true;
    session.run(stopRequested(), policy);
    stopRequested().store(true);
    listener.join();
    return replayer.finished() && skippedInput == 0 ? 0 : 1;
}

}  // namespace Bgpcomm::Session
