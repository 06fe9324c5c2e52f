#include "bgpcomm/Progress.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

namespace Bgpcomm {

bool Progress::wanted(int outFd, int errFd, bool printsRoutes) {
    if (!isatty(errFd))
        return false;
    if (!printsRoutes)
        return true;
    struct stat out {};
    struct stat err {};
    if (fstat(outFd, &out) != 0 || fstat(errFd, &err) != 0)
        return false;
    // The same terminal: one device, whichever descriptors lead to it.
    return !(out.st_dev == err.st_dev && out.st_ino == err.st_ino);
}

Progress::Progress(RunCounts const& counts, U64 files)
    : counts_(counts), files_(files), started_(monotonicSeconds()) {}

void Progress::fileIs(std::string const& label, ByteSource const* source) {
    label_ = label;
    source_ = source;
}

void Progress::tick() {
    double const now = monotonicSeconds();
    if (now - started_ < 1.0 || now - drawn_ < 0.2)
        return;
    drawn_ = now;
    shown_ = true;
    std::string file;
    if (files_ > 1)
        file = "file " + std::to_string(counts_.files) + "/" + std::to_string(files_) + " ";
    double const total = source_ ? double(source_->total()) : 0.0;
    double const percent = total > 0 ? 100.0 * double(source_->consumed()) / total : 0.0;
    std::fprintf(stderr, "\rbgpcomm: %s%s: %3.0f%% %llu routes, %.0f routes/s\033[K", file.c_str(),
                 label_.c_str(), percent, static_cast<unsigned long long>(counts_.routesRead),
                 double(counts_.routesRead) / (now - started_));
    std::fflush(stderr);
}

void Progress::clear(void* self) {
    auto* progress = static_cast<Progress*>(self);
    if (progress && progress->shown_) {
        std::fputs("\r\033[K", stderr);
        std::fflush(stderr);
        progress->shown_ = false;
    }
}

}  // namespace Bgpcomm
