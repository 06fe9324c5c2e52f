#include "bgpcomm/MrtCommand.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <thread>

#include "VoBgp/VoBgpGlobals.h"
#include "bgpcomm/CommOptions.h"
#include "bgpcomm/Mrt.h"

namespace Bgpcomm {

namespace {

// Whether `bgpcomm mrt` frees its run before it exits: in the sanitizer
// builds (tools/bgpcomm/CMakeLists.txt), whose leak check must see the
// orderly teardown, and where the compiler says a sanitizer is on.
#if defined(BGPCOMM_FREE_AT_EXIT) || defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool freeAtExit = true;
#else
constexpr bool freeAtExit = false;
#endif

}  // namespace

// The run left for the operating system at exit, reachable for leak
// checkers (external, so that no build finds it unused).
MrtRun* mrtRunLeftToTheSystem = nullptr;

char const* const mrtHelp =
    "Usage: bgpcomm mrt [OPTIONS] FILE...   (FILE '-': standard input)\n"
    "Reads MRT files (TABLE_DUMP_V2, BGP4MP, BGP4MP_ET; plain, gzip or bzip2,\n"
    "recognised by their first octets) and interns every route's communities.\n"
    "\n"
    "Output (one line per route on stdout):\n"
    "  --format text|json|psv  text (default): prefix, peer and communities;\n"
    "                          json: JSON Lines; psv: the columns of bgpdump -m,\n"
    "                          then one per community kind (interned lists)\n"
    "                          (text and json add notes: 65535:666 {BLACKHOLE},\n"
    "                          1299:20100 {Copenhagen (Peer)}; psv names only)\n"
    "  --header                psv: a first line naming the columns\n"
    "  --wire-order            text and psv: each attribute's values as received\n"
    "                          (order, duplicates) instead of the interned list\n"
    "  --exact                 text: the exact bandwidth after each link bandwidth\n"
    "                          (JSON always has it in \"link_bandwidths\")\n"
    "  --json                  same as --format json\n"
    "  --asdot                 AS numbers above 65535 as high.low\n"
    "  --count                 print only the number of matching routes\n"
    "  --stats                 print counts, sharing, memory and speed at the end\n"
    "                          (stdout; stderr when routes are printed too, i.e.\n"
    "                          with an explicit --format or --json)\n"
    "  --verify                check that every interned list serializes back to\n"
    "                          the values received; mismatches go to stderr\n"
    "  --no-progress           no progress line (drawn on stderr when it is a\n"
    "                          terminal and stdout is not that same terminal)\n"
    "  --threads N             decode and intern on N threads (default: one per\n"
    "                          core; 1: no threads); the output is the same\n"
    "  --default-parser        decode extended communities with the library's\n"
    "                          default parser only, without the EVPN, flowspec\n"
    "                          and transitive link bandwidth plug-ins\n"
    "\n"
    "Filters (all must hold):\n"
    "  --prefix P              routes for prefix P\n"
    "  --include-super         ... and for prefixes covering P\n"
    "  --include-sub           ... and for prefixes inside P\n"
    "  --peer-ip ADDR          from this peer (repeatable: any of)\n"
    "  --peer-asn N            from this peer AS (repeatable)\n"
    "  --origin-asn N          originated by this AS (repeatable)\n"
    "  --type announce|withdraw  announce keeps RIB entries and announcements\n"
    "  --kind standard|large|extended|ipv6\n"
    "                          list kind for the --match options that follow\n"
    "                          (standard until given)\n"
    "  --match REGEX           the list matches REGEX (POSIX extended, matched\n"
    "                          as route policy matches it); repeatable: all.\n"
    "                          The text is the whole sorted list, one blank\n"
    "                          between communities: standard '65000:100 65535:65281'\n"
    "                          then, if that fails, '65000:100 no-export'; large\n"
    "                          '65000:1:2'; extended '65000:100' then\n"
    "                          'RT:65000:100' (never the printed\n"
    "                          'Route-Target-AS:65000:100'); no list: ''. '_' is\n"
    "                          not special: anchor with '(^| )65000:100( |$)'\n";

char const* const mrtHelpEnd =
    "\n"
    "Exit status: 0 success, 1 some input was skipped or did not verify,\n"
    "2 usage error.\n";

namespace {

bool parseU32(std::string const& text, U32* out) {
    if (text.empty() || text.size() > 10 ||
        !std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; }))
        return false;
    unsigned long long value = std::strtoull(text.c_str(), nullptr, 10);
    if (value > 0xFFFFFFFFull)
        return false;
    *out = static_cast<U32>(value);
    return true;
}

}  // namespace

std::optional<std::string> parseMrtOptions(std::vector<std::string> const& args, MrtOptions* out) {
    CommKind kind = CommKind::standard;
    for (std::size_t i = 0; i < args.size(); ++i) {
        std::string arg = args[i];
        std::string value;
        bool hasValue = false;
        if (arg.rfind("--", 0) == 0 && arg.find('=') != std::string::npos) {
            value = arg.substr(arg.find('=') + 1);
            arg = arg.substr(0, arg.find('='));
            hasValue = true;
        }
        auto takeValue = [&]() -> std::optional<std::string> {
            if (hasValue)
                return std::nullopt;
            if (i + 1 >= args.size())
                return "option '" + arg + "' needs a value";
            value = args[++i];
            return std::nullopt;
        };
        auto valued = [&](char const* name) { return arg == name; };
        if (arg == "--help" || arg == "-h")
            return std::string("help");
        if (arg == "--json" || arg == "--asdot" || arg == "--stats" || arg == "--count" ||
            arg == "--verify" || arg == "--include-super" || arg == "--include-sub" ||
            arg == "--no-progress" || arg == "--default-parser" || arg == "--header" ||
            arg == "--wire-order" || arg == "--exact" || arg == "--no-dictionary") {
            if (hasValue)
                return "option '" + arg + "' takes no value";
            if (arg == "--json") {
                out->format = Format::json;
                out->formatGiven = true;
            }
            out->asdot |= arg == "--asdot";
            out->header |= arg == "--header";
            out->wireOrder |= arg == "--wire-order";
            out->exact |= arg == "--exact";
            out->stats |= arg == "--stats";
            out->count |= arg == "--count";
            out->verify |= arg == "--verify";
            out->filter.includeSuper |= arg == "--include-super";
            out->filter.includeSub |= arg == "--include-sub";
            if (arg == "--no-progress")
                out->progress = false;
            out->defaultParser |= arg == "--default-parser";
            out->noDictionary |= arg == "--no-dictionary";
            continue;
        }
        if (arg.rfind("-", 0) == 0 && arg != "-") {
            static char const* const withValue[] = {"--format",   "--prefix",     "--peer-ip",
                                                    "--peer-asn", "--origin-asn", "--type",
                                                    "--kind",     "--match",      "--threads"};
            if (std::none_of(std::begin(withValue), std::end(withValue), valued) &&
                !isCommunityValueOption(arg))
                return "unknown option '" + arg + "'";
            if (auto problem = takeValue())
                return problem;
            U32 number = 0;
            if (arg == "--format") {
                if (value == "text")
                    out->format = Format::text;
                else if (value == "json")
                    out->format = Format::json;
                else if (value == "psv")
                    out->format = Format::psv;
                else
                    return "unknown format '" + value + "' (text, json or psv)";
                out->formatGiven = true;
            } else if (arg == "--prefix") {
                Prefix prefix;
                if (!parsePrefix(value, &prefix))
                    return "bad prefix '" + value + "'";
                out->filter.prefix = prefix;
            } else if (arg == "--peer-ip") {
                IpAddress addr;
                if (!parseAddress(value, &addr))
                    return "bad address '" + value + "'";
                out->filter.peerIps.push_back(addr);
            } else if (arg == "--peer-asn" || arg == "--origin-asn") {
                if (!parseU32(value, &number))
                    return "bad AS number '" + value + "'";
                (arg == "--peer-asn" ? out->filter.peerAsns : out->filter.originAsns)
                    .push_back(number);
            } else if (arg == "--type") {
                if (value == "announce")
                    out->filter.type = TypeFilter::announce;
                else if (value == "withdraw")
                    out->filter.type = TypeFilter::withdraw;
                else
                    return "unknown type '" + value + "' (announce or withdraw)";
            } else if (arg == "--threads") {
                if (!parseU32(value, &number) || number > 256)
                    return "bad thread count '" + value + "' (0 for one per core, at most 256)";
                out->threads = number;
            } else if (arg == "--kind") {
                if (!parseCommKind(value, &kind))
                    return "unknown kind '" + value + "' (standard, large, extended or ipv6)";
            } else if (isCommunityValueOption(arg)) {
                if (auto problem = communityOption(arg, value, out))
                    return problem;
            } else if (auto problem = out->filter.matchIs(kind, value)) {
                return "bad regular expression: " + *problem;
            } else if (auto warning = matchWarning(kind, value)) {
                out->warnings.push_back(*warning);
            }
            continue;
        }
        out->files.push_back(args[i]);
    }
    if ((out->filter.includeSuper || out->filter.includeSub) && !out->filter.prefix)
        return std::string("--include-super and --include-sub need --prefix");
    if (out->files.empty())
        return std::string("no MRT file given");
    return std::nullopt;
}

MrtRun::Lane::Lane(MrtRun& run, Diag* diag)
    : notes(run.options_.dictionary.get()),
      output(run.options_.format, run.options_.asdot, *run.ingest_, run.out_),
      diag(diag),
      tally(run.options_.stats ? &run.stats_.newTally() : nullptr) {
    output.notesIs(&notes);
    output.headerIs(run.options_.header);
    output.wireOrderIs(run.options_.wireOrder);
    output.exactIs(run.options_.exact);
}

MrtRun::MrtRun(MrtOptions options, std::FILE* out, std::function<U64()> liveHeapBytes)
    : options_(std::move(options)), out_(out), stats_(std::move(liveHeapBytes)) {
    stats_.start();
    // One lane per core: every kind of run gains on two (docs/PERFORMANCE.md:
    // --count 2.1x, --stats 1.6x, route lines 1.6x).
    if (options_.threads == 0)
        options_.threads = std::max(1u, std::thread::hardware_concurrency());
    // `bgpcomm top` observes routes in order on one thread.
    if (options_.observer)
        options_.threads = 1;
    stats_.runIs(options_.filter.keepsEverything(), options_.threads);
    // Tables are made thread-safe or plain when created: only a run that
    // interns from several threads pays for the locks.
    bool const wasMultiThreaded = VoBgpGlobals::multiThreaded();
    VoBgpGlobals::multiThreadedIs(options_.threads > 1);
    ingest_ = std::make_unique<Ingest>(options_.defaultParser ? Ingest::Parser::libraryDefault
                                                              : Ingest::Parser::withOptInPlugins);
    VoBgpGlobals::multiThreadedIs(wasMultiThreaded);
    main_ = std::make_unique<Lane>(*this, &diag_);
    // Looking a note up is const, so every lane's filter may share the main lane's.
    options_.filter.comm.notesIs(&main_->notes);
    options_.filter.comm.oneThreadIs(options_.threads == 1);
    main_->counts = &counts_;
    if (printsRoutes())
        main_->output.begin();
    if (options_.progress && Progress::wanted(fileno(out_), STDERR_FILENO, printsRoutes())) {
        progress_ = std::make_unique<Progress>(counts_, options_.files.size());
        diag_.beforeMessageIs(&Progress::clear, progress_.get());
    }
}

bool MrtRun::printsRoutes() const {
    return !options_.observer && !options_.count && (!options_.stats || options_.formatGiven);
}

void MrtRun::file(std::string const& path) {
    diag_.fileIs(path);
    std::string error;
    auto raw = RawInput::openFile(path == "-" ? "/dev/stdin" : path, &error);
    if (!raw) {
        diag_.fileProblem("cannot open: " + error);
        ++failures_;
        return;
    }
    auto source = openSource(std::move(raw));
    this->source(path, *source);
}

void MrtRun::source(std::string const& label, ByteSource& source) {
    if (options_.threads > 1)
        return sourceThreaded(label, source);
    label_ = label;
    diag_.fileIs(label);
    ++counts_.files;
    MrtReader reader(source, diag_,
                     [this](RouteBatch const& batch) { this->batch(*main_, batch); });
    progressIs(reader, label, source);
    reader.run();
    counts_.records += reader.records();
}

void MrtRun::batch(Lane& lane, RouteBatch const& batch) {
    RunCounts& counts = *lane.counts;
    std::vector<AsPathEntry>& asPath = lane.asPath;
    RouteComms& comms = lane.comms;
    counts.routesRead += batch.nlri->size();
    RouteFilter const& filter = options_.filter;
    if (!filter.passesBatch(batch))
        return;
    bool anyPrefix = false;
    for (Nlri const& nlri : *batch.nlri)
        anyPrefix |= filter.passesPrefix(nlri.prefix);
    if (!anyPrefix)
        return;
    bool const needPath =
        batch.attrs && (printsRoutes() || options_.observer || !filter.originAsns.empty());
    if (needPath)
        asPathEntries(*batch.attrs, &asPath);
    else
        asPath.clear();
    if (!filter.originAsns.empty()) {
        U32 origin = 0;
        bool hasOrigin = batch.attrs && originAsn(asPath, &origin);
        if (!filter.passesOrigin(hasOrigin, origin))
            return;
    }
    if (lane.cache) {
        // The previous route's lists go back into credit, unless kept.
        lane.cache->giveBack(comms);
        if (batch.attrs)
            lane.cache->path(*batch.attrs, &comms);
    } else if (batch.attrs) {
        ingest_->path(*batch.attrs, &comms);
    } else {
        comms = RouteComms{};
    }
    if (!filter.passesComms(comms, *ingest_))
        return;
    if (batch.attrs) {
        for (unsigned k = 0; k < commKindCount; ++k)
            counts.attributes[k] += batch.attrs->comm[k].present;
        if (options_.verify)
            verify(lane, comms, *batch.attrs);
    }
    RouteView view{label_, &batch, nullptr, &comms, batch.attrs ? &asPath : nullptr};
    U64 matched = 0;
    for (Nlri const& nlri : *batch.nlri) {
        if (!filter.passesPrefix(nlri.prefix))
            continue;
        ++matched;
        view.nlri = &nlri;
        if (printsRoutes()) {
            if (lane.text)
                lane.text->append(lane.output.formatted(view));
            else
                lane.output.route(view);
        }
        if (options_.observer)
            options_.observer(view);
    }
    counts.routesMatched += matched;
    if (options_.stats && matched != 0) {
        lane.tally->see(comms, matched);
        // Each kept route holds references of its own; the last takes the
        // lane's (the next route's interning has nothing to give back then).
        auto const keep = [&](RouteComms&& kept) {
            if (lane.held)
                lane.held->push_back(std::move(kept));
            else
                stats_.hold(std::move(kept));
        };
        for (U64 i = 1; i < matched; ++i)
            keep(lane.cache ? lane.cache->copy(comms) : RouteComms(comms));
        keep(std::move(comms));
    }
}

void MrtRun::verify(Lane& lane, RouteComms const& comms, PathAttrs const& attrs) {
    static char const* const kindNames[commKindCount] = {"standard", "extended", "ipv6 extended",
                                                         "large"};
    for (unsigned k = 0; k < commKindCount; ++k) {
        auto const kind = static_cast<CommKind>(k);
        AttrSpan const& span = attrs.of(kind);
        if (!span.present)
            continue;
        CommKindInfo const& info = commKindInfo(kind);
        auto elements = [&](U8 const* p, std::size_t n) {
            std::vector<std::string> values;
            for (std::size_t i = 0; i + info.elementSize <= n; i += info.elementSize)
                values.emplace_back(reinterpret_cast<char const*>(p + i), info.elementSize);
            std::sort(values.begin(), values.end());
            values.erase(std::unique(values.begin(), values.end()), values.end());
            return values;
        };
        std::vector<std::string> received = elements(span.data, span.size);
        Kiv::String wire = ingest_->serialize(comms, kind);
        std::string problem;
        auto const* p = reinterpret_cast<U8 const*>(wire.data());
        std::size_t header = wire.size() >= 1 && (p[0] & attrFlagExtendedLength) ? 4 : 3;
        if (wire.size() == 0 && received.empty()) {
            // A list with nothing to write serializes to no attribute at all.
        } else if (wire.size() < header || p[1] != info.attrType) {
            problem = "serialized attribute is not a " + std::string(info.attrName) + " attribute";
        } else {
            std::size_t length = header == 4 ? (std::size_t(p[2]) << 8 | p[3]) : p[2];
            std::vector<std::string> sent = elements(p + header, wire.size() - header);
            if (length != wire.size() - header)
                problem = "serialized length " + std::to_string(length) + " but " +
                          std::to_string(wire.size() - header) + " octets follow";
            else if (sent != received)
                problem = std::to_string(received.size()) + " distinct values received, " +
                          std::to_string(sent.size()) + " serialized, not the same set";
        }
        if (!problem.empty()) {
            lane.diag->at(span.offset,
                          std::string(kindNames[k]) + " list does not round-trip: " + problem);
        }
    }
}

void MrtRun::progressIs(MrtReader& reader, std::string const& label, ByteSource const& source) {
    if (!progress_)
        return;
    progress_->fileIs(label, &source);
    reader.progressIs([this] { progress_->tick(); }, 4096);
}

int MrtRun::finish() {
    Progress::clear(progress_.get());
    stats_.stop();
    counts_.skipped = diag_.reports();
    if (options_.count)
        std::fprintf(out_, "%llu\n", static_cast<unsigned long long>(counts_.routesMatched));
    if (options_.stats)
        stats_.print(printsRoutes() ? stderr : out_, counts_, *ingest_);
    std::fflush(out_);
    return diag_.reports() != 0 || failures_ != 0 ? 1 : 0;
}

int mrtCommand(std::vector<std::string> const& args, std::function<U64()> liveHeapBytes) {
    MrtOptions options;
    options.threads = 0;  // one per core unless --threads says otherwise
    if (auto problem = parseMrtOptions(args, &options)) {
        if (*problem == "help") {
            std::fputs(mrtHelp, stdout);
            std::fputs(communityOptionsHelp, stdout);
            std::fputs(mrtHelpEnd, stdout);
            return 0;
        }
        std::fprintf(stderr, "bgpcomm mrt: %s\nTry 'bgpcomm mrt --help'.\n", problem->c_str());
        return 2;
    }
    bool const describes =
        options.filter.comm.needsNotes() || (!options.count && options.format != Format::psv &&
                                             (!options.stats || options.formatGiven));
    if (describes)
        options.dictionary = loadDictionaries(options);
    for (std::string const& warning : options.warnings)
        std::fprintf(stderr, "bgpcomm mrt: warning: %s\n", warning.c_str());
    std::vector<std::string> files = options.files;
    auto run = std::make_unique<MrtRun>(std::move(options), stdout, std::move(liveHeapBytes));
    for (std::string const& path : files)
        run->file(path);
    int const status = run->finish();
    if constexpr (!freeAtExit) {
        // Everything is printed and flushed: the kept routes' million
        // references and the tables behind them go with the process, as a
        // compiler leaves its trees (freeing them cost a tenth of a --stats
        // run, on one thread whatever --threads says). Kept reachable from
        // here for leak checkers.
        mrtRunLeftToTheSystem = run.release();
    }
    return status;
}

}  // namespace Bgpcomm
