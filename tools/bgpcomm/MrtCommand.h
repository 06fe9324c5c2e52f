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
#include "bgpcomm/Stats.h"

namespace Bgpcomm {

struct MrtOptions {
    std::vector<std::string> files;
    Format format = Format::text;
    bool formatGiven = false;
    bool asdot = false;
    bool stats = false;
    bool count = false;
    bool verify = false;
    bool progress = true;  // only ever shown on a terminal
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
    Notes const* notes() const { return notes_.get(); }
    Ingest& ingest() { return *ingest_; }
    RunCounts const& counts() const { return counts_; }
    RouteFilter const& filter() const { return options_.filter; }

  private:
    void batch(RouteBatch const& batch);
    void verify(RouteComms const& comms, PathAttrs const& attrs);
    bool printsRoutes() const;

    MrtOptions options_;
    std::FILE* out_;
    Diag diag_;
    Stats stats_;
    std::unique_ptr<Ingest> ingest_;
    std::unique_ptr<Notes> notes_;
    Output output_;
    RunCounts counts_;
    std::string label_;
    std::vector<AsPathEntry> asPath_;
    RouteComms comms_;
    U64 failures_ = 0;
};

// The whole subcommand: parse, run every file, report. Returns the exit status.
int mrtCommand(std::vector<std::string> const& args, std::function<U64()> liveHeapBytes);

}  // namespace Bgpcomm
