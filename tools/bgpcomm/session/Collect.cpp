#include "bgpcomm/session/Collect.h"

#include <poll.h>

#include <algorithm>
#include <ctime>
#include <map>
#include <memory>

#include "Kiv/Assert.h"
#include "VoBgp/VoBgpGlobals.h"
#include "bgpcomm/MrtCommand.h"
#include "bgpcomm/session/AdjRib.h"
#include "bgpcomm/session/MrtWriter.h"
#include "bgpcomm/session/Transport.h"

namespace Bgpcomm::Session {

char const* const collectHelp =
    "Usage: bgpcomm collect --local-as N --router-id A.B.C.D --peer SPEC... [OPTIONS]\n"
    "Receives live BGP tables and interns every route's communities.\n"
    "\n"
    "Session:\n"
    "  --local-as N            our AS\n"
    "  --router-id A.B.C.D     our BGP identifier\n"
    "  --listen ADDR:PORT      where passive peers connect ([v6]:PORT; default 0.0.0.0:179)\n"
    "  --peer ADDR[:PORT],as=N[,passive|active][,addpath]\n"
    "                          a peer (repeatable); passive by default\n"
    "  --hold-time S           hold time offered (default 90)\n"
    "  --config FILE           options one per line, without the leading --\n"
    "  --max-prefixes N        per peer; more ends the session with Cease (RFC 4486)\n"
    "\n"
    "Output: route lines as 'bgpcomm mrt' prints them (--format, --json, --asdot,\n"
    "--count, and its filters --prefix, --peer-ip, --peer-asn, --origin-asn, --type,\n"
    "--kind, --match), streamed as UPDATEs arrive; and\n"
    "  --stats                 report on stderr at each End-of-RIB and at exit\n"
    "  --write-updates FILE    every UPDATE as MRT BGP4MP_ET\n"
    "  --dump-rib FILE         the Adj-RIBs-In at exit as MRT TABLE_DUMP_V2\n"
    "\n"
    "Until SIGINT/SIGTERM, or:\n"
    "  --exit-after-eor        every peer sent End-of-RIB for every family\n"
    "  --exit-after-close      every peer's session was established and closed\n"
    "  --duration S            S seconds passed\n"
    "\n"
    "Exit status: 0 success, 1 a peer was never established, a session ended in\n"
    "error or the tables were not empty at exit, 2 usage error or port in use.\n";

namespace {

struct CollectOptions {
    SessionOptions session;
    MrtOptions output;
    U64 maxPrefixes = 0;
    std::string writeUpdates, dumpRib;
    bool exitAfterEor = false, exitAfterClose = false;
    double duration = 0;
};

std::optional<std::string> parseCollect(std::vector<std::string> args, CollectOptions* out) {
    std::vector<std::string> rest;
    auto other = [&](std::vector<std::string> const& args,
                     std::size_t& i) -> std::optional<std::string> {
        std::string const& a = args[i];
        bool const valued = a == "--max-prefixes" || a == "--write-updates" || a == "--dump-rib" ||
                            a == "--duration";
        if (valued && i + 1 == args.size())
            return a + " needs a value";
        U64 number = 0;
        if (a == "--max-prefixes") {
            if (!parseNumber(args[++i], ~U64(0) >> 1, &number) || number == 0)
                return "bad --max-prefixes '" + args[i] + "'";
            out->maxPrefixes = number;
        } else if (a == "--duration") {
            if (!parseNumber(args[++i], 1u << 30, &number) || number == 0)
                return "bad --duration '" + args[i] + "' (whole seconds)";
            out->duration = double(number);
        } else if (a == "--write-updates") {
            out->writeUpdates = args[++i];
        } else if (a == "--dump-rib") {
            out->dumpRib = args[++i];
        } else if (a == "--exit-after-eor") {
            out->exitAfterEor = true;
        } else if (a == "--exit-after-close") {
            out->exitAfterClose = true;
        } else if (a == "--verify" || a == "--no-progress" || a == "--default-parser") {
            return "'" + a + "' is an option of 'bgpcomm mrt' only";
        } else {
            rest.push_back(a);
        }
        return std::nullopt;
    };
    if (auto error = parseCommandLine(
            args,
            {"max-prefixes", "write-updates", "dump-rib", "exit-after-eor", "exit-after-close",
             "duration", "stats", "format", "json", "asdot", "count"},
            &out->session, other))
        return error;
    // The route options are `bgpcomm mrt`'s own; its parser wants a file,
    // which a placeholder stands for.
    static char const* const noFile = "\x01";
    rest.push_back(noFile);
    if (auto error = parseMrtOptions(rest, &out->output))
        return error;
    if (out->output.files.size() != 1)
        return "unexpected argument '" + out->output.files.front() + "'";
    return finishSessionOptions(&out->session, /*passiveByDefault=*/true);
}

class CollectPeer;

// What all peers share: the interning tables, the output, the MRT file.
struct Collector {
    Collector(CollectOptions const& options, std::function<U64()> heap)
        : options(options),
          output(options.output.format, options.output.asdot, ingest, stdout),
          heap(std::move(heap)),
          heapAtStart(this->heap ? this->heap() : 0),
          nodeBlock(measureNodeBlock()) {}

    bool printsRoutes() const {
        return !options.output.count && (!options.output.stats || options.output.formatGiven);
    }
    void routes(RouteBatch const& batch, RouteComms const& comms);
    void stats();
    // What the heap counter counts for one Adj-RIB-In node: the allocator
    // rounds the node up to its block size, and over a million routes that
    // rounding is megabytes the report would otherwise count as interned
    // state. Measured before any peer thread allocates.
    U64 measureNodeBlock() const {
        if (!heap)
            return AdjRibIn::nodeSize;
        U64 const before = heap();
        void* node = ::operator new(AdjRibIn::nodeSize);
        U64 const block = heap() - before;
        ::operator delete(node);
        return block ? block : AdjRibIn::nodeSize;
    }

    CollectOptions const& options;
    Ingest ingest;
    std::mutex lock;  // output, filters, the MRT file, the report
    Output output;
    MrtFile updates;
    std::function<U64()> heap;
    U64 heapAtStart = 0;
    U64 nodeBlock = 0;
    U64 matched = 0;
    std::vector<std::unique_ptr<CollectPeer>> peers;
    std::atomic<bool> stopping{false};
    std::vector<AsPathEntry> asPath;
};

class CollectPeer : public PeerApp {
  public:
    CollectPeer(Collector& c, PeerConfig const& config) : c_(c), config_(config) {}

    void established(Fsm& fsm, double now, IpAddress const& local) override {
        (void)now;
        rib_.clear();
        routes_.store(0);
        mapBytes_.store(0);
        local_ = local;
        bgpId = fsm.peerOpen().bgpId;
        openAt_ = fsm.openSentAt();
        for (unsigned f = 0; f < familyCount; ++f)
            eor_[f] = !fsm.negotiated(Family(f));
        eorAll_.store(false);
        updates_ = 0;
        up_ = true;
    }
    void update(UpdateMsg const& msg, Fsm& fsm, double now) override;
    void closed(std::string const& why, bool error) override {
        (void)why;
        // A failed attempt before Established is retried; the exit status
        // tells of it only if no session ever came up.
        failed_ = failed_ || (error && up_);
        up_ = false;
        // A RIB dump at exit wants the last session's routes; the next
        // session starts afresh.
        if (!c_.options.dumpRib.empty())
            return;
        if (rib_.size())
            logEvent("peer " + config_.text() + ": " + std::to_string(rib_.size()) +
                     " routes released");
        rib_.clear();
        routes_.store(0);
        mapBytes_.store(0);
    }

    PeerConfig const& config() const { return config_; }
    AdjRibIn& rib() { return rib_; }
    U64 routes() const { return routes_.load(); }
    U64 mapBytes() const { return mapBytes_.load(); }
    bool eorAll() const { return eorAll_.load(); }
    bool failed() const { return failed_; }
    U32 bgpId = 0;

  private:
    Collector& c_;
    PeerConfig config_;
    AdjRibIn rib_;
    IpAddress local_;
    double openAt_ = 0;
    bool eor_[familyCount] = {};
    std::atomic<bool> eorAll_{false};
    std::atomic<U64> routes_{0};
    std::atomic<U64> mapBytes_{0};  // the Adj-RIB-In map's heap, for the report
    U64 updates_ = 0;
    bool failed_ = false;
    bool up_ = false;
};

void Collector::routes(RouteBatch const& batch, RouteComms const& comms) {
    RouteFilter const& filter = options.output.filter;
    if (!filter.passesBatch(batch))
        return;
    if (batch.attrs)
        asPathEntries(*batch.attrs, &asPath);
    if (!filter.originAsns.empty()) {
        U32 origin = 0;
        bool hasOrigin = batch.attrs && originAsn(asPath, &origin);
        if (!filter.passesOrigin(hasOrigin, origin))
            return;
    }
    if (!filter.passesComms(comms, ingest))
        return;
    RouteView view{"", &batch, nullptr, &comms, batch.attrs ? &asPath : nullptr};
    std::string const label = addressText(batch.peer.ip);
    view.file = label;
    for (Nlri const& nlri : *batch.nlri) {
        if (!filter.passesPrefix(nlri.prefix))
            continue;
        ++matched;
        if (printsRoutes()) {
            view.nlri = &nlri;
            output.route(view);
        }
    }
    if (printsRoutes())
        std::fflush(stdout);
}

void CollectPeer::update(UpdateMsg const& msg, Fsm& fsm, double now) {
    ++updates_;
    UpdateContext const& context = fsm.updateContext();
    RouteBatch batch;
    batch.mrtType = mrtBgp4mp;
    batch.timestamp = U32(std::time(nullptr));
    batch.peer = Peer{config_.addr, config_.asn};
    batch.addPath = context.addPath[0] || context.addPath[1];
    if (!c_.options.writeUpdates.empty()) {
        std::lock_guard<std::mutex> hold(c_.lock);
        c_.updates.update(batch.peer, local_, c_.options.session.localAs, context.fourOctetAs,
                          batch.addPath, msg.body.data(), msg.body.left());
    }
    if (!msg.treatAsWithdraw.empty())
        logEvent("peer " + config_.text() + ": UPDATE " + msg.treatAsWithdraw +
                 "; treat-as-withdraw (" + std::to_string(msg.withdrawn.size()) + " prefixes)");
    if (!msg.discarded.empty())
        logEvent("peer " + config_.text() + ": UPDATE " + msg.discarded + "; attribute discarded");

    for (Nlri const& nlri : msg.withdrawn)
        rib_.withdraw(nlri);
    if (!msg.withdrawn.empty()) {
        batch.kind = RouteKind::withdraw;
        batch.nlri = &msg.withdrawn;
        std::lock_guard<std::mutex> hold(c_.lock);
        c_.routes(batch, RouteComms{});
    }
    if (!msg.announced.empty()) {
        RibRoute route;
        c_.ingest.path(msg.attrs, &route.comms);
        route.originated = batch.timestamp;
        if (!c_.options.dumpRib.empty())
            route.attrs = std::make_shared<Octets const>(ribAttributes(
                msg.rawAttrs, msg.attrs, msg.announced[0].prefix.addr.afi == Afi::ipv6));
        for (Nlri const& nlri : msg.announced)
            rib_.announce(nlri, route);
        batch.kind = RouteKind::announce;
        batch.attrs = &msg.attrs;
        batch.nlri = &msg.announced;
        std::lock_guard<std::mutex> hold(c_.lock);
        c_.routes(batch, route.comms);
    }
    routes_.store(rib_.size());
    mapBytes_.store(rib_.mapBytes(c_.nodeBlock));
    if (c_.options.maxPrefixes && rib_.size() > c_.options.maxPrefixes) {
        logEvent("peer " + config_.text() + ": more than " +
                 std::to_string(c_.options.maxPrefixes) + " prefixes");
        fsm.stop(now, ceaseMaxPrefixes);
        return;
    }
    if (msg.endOfRib) {
        eor_[unsigned(msg.eorFamily)] = true;
        double const seconds = now - openAt_;
        char rate[64];
        std::snprintf(rate, sizeof rate, "%.3f s from OPEN, %.0f routes/s", seconds,
                      seconds > 0 ? double(rib_.size()) / seconds : 0.0);
        logEvent("peer " + config_.text() + ": end-of-rib " + familyName(msg.eorFamily) + " (" +
                 std::to_string(rib_.size()) + " routes, " + std::to_string(updates_) +
                 " UPDATEs, " + rate + ")");
        eorAll_.store(std::all_of(std::begin(eor_), std::end(eor_), [](bool b) { return b; }));
        if (c_.options.output.stats) {
            std::lock_guard<std::mutex> hold(c_.lock);
            c_.stats();
        }
    }
}

// The report, on stderr; the caller holds the lock.
void Collector::stats() {
    U64 total = 0, mapBytes = 0;
    for (auto const& peer : peers) {
        total += peer->routes();
        // As of the peer's last UPDATE: its thread may be changing the map.
        mapBytes += peer->mapBytes();
        logEvent("stats: peer " + peer->config().text() + ": " + std::to_string(peer->routes()) +
                 " routes");
    }
    logEvent("stats: interned: " + std::to_string(ingest.standardListsInterned()) +
             " standard lists, " + std::to_string(ingest.largeListsInterned()) + " large lists, " +
             std::to_string(ingest.extCommsInterned()) + " extended values, " +
             std::to_string(ingest.extListsInterned()) + " extended lists (" +
             std::to_string(ingest.extClassificationListsInterned()) + " classification lists), " +
             std::to_string(ingest.ip6CommsInterned()) + " IPv6 extended values, " +
             std::to_string(ingest.ip6ListsInterned()) + " IPv6 extended lists");
    if (heap) {
        U64 const now = heap();
        U64 const held = now > heapAtStart + mapBytes ? now - heapAtStart - mapBytes : 0;
        char line[160];
        std::snprintf(line, sizeof line,
                      "stats: interned state %llu bytes (%.1f per route; heap held beyond the "
                      "Adj-RIB-In maps)",
                      static_cast<unsigned long long>(held),
                      total ? double(held) / double(total) : 0.0);
        logEvent(line);
    }
}

void dumpRib(Collector& c, std::string const& path) {
    MrtFile file;
    if (std::string error = file.open(path); !error.empty())
        return logEvent(error);
    std::vector<MrtFile::RibPeer> peers;
    // Entries by prefix, IPv4 first, in address order.
    auto order = [](Prefix const& a, Prefix const& b) {
        return std::tie(a.addr.afi, a.addr.octets, a.length) <
               std::tie(b.addr.afi, b.addr.octets, b.length);
    };
    std::map<Prefix, std::vector<MrtFile::RibEntry>, decltype(order)> byPrefix(order);
    bool addPath = false;
    for (auto const& peer : c.peers) {
        U16 const index = U16(peers.size());
        peers.push_back({Peer{peer->config().addr, peer->config().asn}, peer->bgpId});
        for (auto const& [key, route] : peer->rib().routes()) {
            addPath = addPath || key.pathId != 0;
            if (route.attrs)
                byPrefix[key.prefix].push_back(
                    {index, key.pathId, route.originated, route.attrs.get()});
        }
    }
    file.peerIndex(c.options.session.routerId.value_or(0), peers);
    U32 sequence = 0;
    for (auto const& [prefix, entries] : byPrefix)
        file.rib(sequence++, prefix, addPath, entries);
    if (std::string error = file.close(); !error.empty())
        logEvent("writing '" + path + "': " + error);
}

}  // namespace

int collectCommand(std::vector<std::string> const& args, std::function<U64()> liveHeapBytes) {
    logCommandIs("collect");
    CollectOptions options;
    if (auto problem = parseCollect(args, &options))
        return usageExit("collect", *problem, collectHelp);
    // Peers intern from their own threads into the one set of tables.
    VoBgpGlobals::multiThreadedIs(true);
    Collector c(options, std::move(liveHeapBytes));
    if (!options.writeUpdates.empty())
        if (std::string error = c.updates.open(options.writeUpdates); !error.empty()) {
            std::fprintf(stderr, "bgpcomm collect: %s\n", error.c_str());
            return 2;
        }
    FsmConfig base;
    base.localAs = options.session.localAs;
    base.routerId = *options.session.routerId;
    base.holdTime = options.session.holdTime;
    std::vector<std::unique_ptr<PeerSession>> sessions;
    std::vector<PeerSession*> raw;
    bool anyPassive = false;
    for (PeerConfig const& peer : options.session.peers) {
        c.peers.push_back(std::make_unique<CollectPeer>(c, peer));
        FsmConfig config = base;
        config.peerAs = peer.asn;
        config.passive = peer.passive;
        config.addPathReceive = peer.addPath;
        sessions.push_back(std::make_unique<PeerSession>(peer, config, *c.peers.back()));
        raw.push_back(sessions.back().get());
        anyPassive = anyPassive || peer.passive;
    }
    installStopSignals();
    if (c.printsRoutes())
        c.output.begin();
    std::atomic<bool> stopAll{false};
    Listener listener;
    if (anyPassive) {
        if (std::string error =
                listener.open(options.session.listenAddr, options.session.listenPort);
            !error.empty()) {
            std::fprintf(stderr, "bgpcomm collect: %s\n", error.c_str());
            return 2;
        }
        listener.start(raw, stopAll);
    }
    RunPolicy policy;
    policy.oneSession = options.exitAfterClose;
    std::vector<std::thread> threads;
    std::atomic<unsigned> running{unsigned(sessions.size())};
    for (auto& session : sessions)
        threads.emplace_back([&, s = session.get()] {
            s->run(stopAll, policy);
            --running;
        });
    double const started = monotonicSeconds();
    while (running.load() > 0) {
        ::poll(nullptr, 0, 100);
        bool const allEor =
            std::all_of(c.peers.begin(), c.peers.end(), [](auto const& p) { return p->eorAll(); });
        if (stopRequested().load() ||
            (options.duration > 0 && monotonicSeconds() - started >= options.duration) ||
            (options.exitAfterEor && allEor))
            break;
    }
    c.stopping.store(true);
    stopAll.store(true);
    for (auto& thread : threads)
        thread.join();
    listener.join();
    if (!options.dumpRib.empty())
        dumpRib(c, options.dumpRib);
    {
        std::lock_guard<std::mutex> hold(c.lock);
        if (options.output.stats)
            c.stats();
        if (options.output.count)
            std::printf("%llu\n", static_cast<unsigned long long>(c.matched));
    }
    int status = 0;
    for (std::size_t i = 0; i < sessions.size(); ++i) {
        if (!sessions[i]->everEstablished()) {
            logEvent("peer " + sessions[i]->peer().text() + ": never established");
            status = 1;
        }
        if (c.peers[i]->failed())
            status = 1;
        c.peers[i]->rib().clear();
    }
    std::size_t const left = c.ingest.standardListsInterned() + c.ingest.largeListsInterned() +
                             c.ingest.extListsInterned() +
                             c.ingest.extClassificationListsInterned() +
                             c.ingest.ip6ListsInterned();
    std::size_t const values = c.ingest.extCommsInterned() + c.ingest.ip6CommsInterned();
    logEvent("interned at exit: " + std::to_string(values) + " values, " + std::to_string(left) +
             " lists");
#ifndef NDEBUG
    KIV_ASSERT(left == 0 && values == 0, "every table is empty once every Adj-RIB-In is");
#endif
    if (left || values)
        status = 1;
    std::string const error = c.updates.close();
    if (!error.empty()) {
        logEvent("writing '" + options.writeUpdates + "': " + error);
        status = 1;
    }
    std::fflush(stdout);
    return status;
}

}  // namespace Bgpcomm::Session
