// Messages about bad input, in one shape for every problem the tool finds:
//
//   bgpcomm: <file>: offset <n>: <what was wrong>; <what was skipped>
//
// Contract: every report counts as a skip (the exit status becomes 1); the
// text goes to stderr, or into a string when a test captures it. <file> is the
// path as given on the command line, <n> the byte offset in the (decompressed)
// stream of the record, attribute or field at fault.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

#include "Kiv/Types.h"

namespace Bgpcomm {

class Diag {
  public:
    // Reports go to stderr unless a capture is set.
    explicit Diag(std::string file = {}) : file_(std::move(file)) {}

    void fileIs(std::string file) { file_ = std::move(file); }
    std::string const& file() const { return file_; }
    // Appends every message (with its newline) to `capture` instead of stderr.
    void captureIs(std::string* capture) { capture_ = capture; }
    // Runs before each message, e.g. to clear a progress line on the terminal.
    void beforeMessageIs(void (*hook)(void*), void* arg) {
        hook_ = hook;
        hookArg_ = arg;
    }

    void at(U64 offset, std::string_view what);
    // A problem of the file as a whole (cannot open it).
    void fileProblem(std::string_view what);

    U64 reports() const { return reports_; }
    // Messages another Diag captured (on another thread), emitted here in
    // the order the input had them and counted as this one's reports.
    void relay(std::string const& text, U64 reports);

  private:
    void emit(std::string const& line);

    std::string file_;
    std::string* capture_ = nullptr;
    void (*hook_)(void*) = nullptr;
    void* hookArg_ = nullptr;
    U64 reports_ = 0;
};

}  // namespace Bgpcomm
