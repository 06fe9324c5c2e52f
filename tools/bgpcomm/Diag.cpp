#include "bgpcomm/Diag.h"

namespace Bgpcomm {

void Diag::at(U64 offset, std::string_view what) {
    emit("bgpcomm: " + file_ + ": offset " + std::to_string(offset) + ": " + std::string(what) +
         "\n");
}

void Diag::fileProblem(std::string_view what) {
    emit("bgpcomm: " + file_ + ": " + std::string(what) + "\n");
}

void Diag::relay(std::string const& text, U64 reports) {
    reports_ += reports;
    if (text.empty())
        return;
    if (capture_) {
        *capture_ += text;
        return;
    }
    if (hook_)
        hook_(hookArg_);
    std::fputs(text.c_str(), stderr);
}

void Diag::emit(std::string const& line) {
    ++reports_;
    if (capture_) {
        *capture_ += line;
        return;
    }
    if (hook_)
        hook_(hookArg_);
    std::fputs(line.c_str(), stderr);
}

}  // namespace Bgpcomm
