// The progress line of `bgpcomm mrt` on a terminal:
//
//   bgpcomm: file 3/16 x.mrt: 22% 1234567 routes, 456789 routes/s
//
// Contract: drawn on stderr only when stderr is a terminal and stdout is
// not that same terminal (route lines and the progress line would otherwise
// share the screen and cut into each other), or when no route lines are
// printed (--count, --stats) at all. Timed from the start of the run, not of
// each file: the first line appears one second into the run, then at most
// five a second. clear() erases it; every message on stderr is preceded by
// it (Diag::beforeMessageIs), and so is the end of the run.
#pragma once

#include <string>

#include "bgpcomm/Input.h"
#include "bgpcomm/Stats.h"

namespace Bgpcomm {

class Progress {
  public:
    // Whether a progress line may be drawn on `errFd` while route lines go
    // to `outFd` (printsRoutes false: nothing is written there until the end).
    static bool wanted(int outFd, int errFd, bool printsRoutes);

    // `files` is the number of files of the run (0: unknown, not shown).
    Progress(RunCounts const& counts, U64 files);

    void fileIs(std::string const& label, ByteSource const* source);
    // Draws when it is time to.
    void tick();
    static void clear(void* self);

  private:
    RunCounts const& counts_;
    U64 files_;
    std::string label_;
    ByteSource const* source_ = nullptr;
    double started_;
    double drawn_ = 0;
    bool shown_ = false;
};

}  // namespace Bgpcomm
