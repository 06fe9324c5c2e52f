// `bgpcomm mrt`: options, and the run that reads MRT files through the
// reader, ingest, filters and one output.
//
// Output streams: route lines go to stdout. --count prints only the number
// of matched routes. --stats prints its report at the end, to stdout when no
// route lines are printed (--stats alone or with --count) and to stderr when
// they are (--stats with an explicit --format or --json). Messages about bad
// input always go to stderr. Exit status: 0, or 1 when a record, attribute or
// file was skipped or --verify found a mismatch; usage errors exit with 2
// before anything is read.
#pragma once

#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "bgpcomm/Diag.h"
#include "bgpcomm/Dictionary.h"
#include "bgpcomm/Filter.h"
#include "bgpcomm/Ingest.h"
#include "bgpcomm/Input.h"
#include "bgpcomm/Notes.h"
#include "bgpcomm/Output.h"
#include "bgpcomm/Progress.h"
#include "bgpcomm/Stats.h"

namespace Bgpcomm {

struct MrtOptions {
    std::vector<std::string> files;
    Format format = Format::text;
    bool formatGiven = false;
    bool asdot = false;
    bool header = false;  // psv: a line naming the columns first
    bool wireOrder = false;
    bool exact = false;
    bool stats = false;
    bool count = false;
    bool verify = false;
    bool progress = true;  // only ever shown on a terminal
    // Threads that decode and intern (0: one per core). With more than one
    // the tables are created thread-safe and the output stays in file order.
    unsigned threads = 1;  // the command line's default is 0
    // Only the library's default parser plug-ins (Ingest::Parser).
    bool defaultParser = false;
    RouteFilter filter;
    // Community dictionaries (bgpcomm/CommOptions.h) and --match warnings.
    std::vector<std::string> dictionaries;
    bool noDictionary = false;
    // Loaded by mrtCommand / topCommand from the two above; none in a run
    // built without it (names only).
    std::shared_ptr<Dictionary const> dictionary;
    std::vector<std::string> warnings;
    // When set, every matching route goes here instead of the output
    // (bgpcomm top).
    std::function<void(RouteView const&)> observer;
};

// Parses the arguments after "mrt". On a usage error returns the message
// (without the program prefix); "help" asks for the help text.
std::optional<std::string> parseMrtOptions(std::vector<std::string> const& args, MrtOptions* out);
// The help text: mrtHelp, communityOptionsHelp (bgpcomm/CommOptions.h), mrtHelpEnd.
extern char const* const mrtHelp;
extern char const* const mrtHelpEnd;

class MrtRun {
  public:
    MrtRun(MrtOptions options, std::FILE* out, std::function<U64()> liveHeapBytes = nullptr);
    ~MrtRun();

    // Reads one file (any compression).
    void file(std::string const& path);
    // Reads a stream already opened; `label` names it in messages and JSON.
    void source(std::string const& label, ByteSource& source);
    // Prints --count / --stats and returns the exit status.
    int finish();

    Diag& diag() { return diag_; }
    Notes const* notes() const { return &main_->notes; }
    Ingest& ingest() { return *ingest_; }
    RunCounts const& counts() const { return counts_; }
    RouteFilter const& filter() const { return options_.filter; }

  private:
    // What one thread needs to turn batches into output: its own formatter,
    // scratch space and messages; where the results go (the run itself, or
    // a chunk of records another thread emits in order).
    struct Lane {
        Lane(MrtRun& run, Diag* diag);
        Notes notes;  // one per thread: it reuses its buffers
        Output output;
        Diag* diag;
        KeptTally* tally;  // --stats: what this thread's kept routes hold
        std::vector<AsPathEntry> asPath;
        RouteComms comms;
        RunCounts* counts = nullptr;
        std::string* text = nullptr;              // null: straight to the run's stream
        std::vector<RouteComms>* held = nullptr;  // null: straight to the run's stats
        // The lanes of --threads: each intern through a cache of their own
        // (popular lists without the tables' locks or shared counts).
        std::unique_ptr<Ingest::Cache> cache;
    };
    // The lanes of --threads (MrtThreads.cpp), made for the first file.
    struct Threads {
        explicit Threads(MrtRun& run);
        std::vector<Diag> diags;
        std::vector<std::unique_ptr<Lane>> lanes;
    };

    void batch(Lane& lane, RouteBatch const& batch);
    void verify(Lane& lane, RouteComms const& comms, PathAttrs const& attrs);
    bool printsRoutes() const;
    // The file's records framed here and decoded by the thread pool
    // (MrtThreads.cpp).
    void sourceThreaded(std::string const& label, ByteSource& source);
    void progressIs(MrtReader& reader, std::string const& label, ByteSource const& source);

    MrtOptions options_;
    std::FILE* out_;
    Diag diag_;
    Stats stats_;
    std::unique_ptr<Ingest> ingest_;
    RunCounts counts_;
    std::unique_ptr<Lane> main_;
    std::unique_ptr<Threads> threads_;
    std::unique_ptr<Progress> progress_;
    std::string label_;
    U64 failures_ = 0;
};

// The whole subcommand: parse, run every file, report. Returns the exit status.
int mrtCommand(std::vector<std::string> const& args, std::function<U64()> liveHeapBytes);

}  // namespace Bgpcomm
