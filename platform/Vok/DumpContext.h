// Vok::DumpContext: where state dumps go. Dumps are printf-style lines
// ("%*cNotifyingRouteTargetList #%u:\n") handed to one print function, so a
// caller can send them to a log, a socket or a string as it likes.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace Vok {

class DumpContext {
  public:
    using PrintFunction = std::function<void(std::string_view)>;

    explicit DumpContext(PrintFunction print) : print_(std::move(print)) {}

    // Formats like printf and passes the text to the print function.
    void print(char const* format, ...) const __attribute__((format(printf, 2, 3)));

    // A context that appends everything to `out` (tests, show commands).
    static DumpContext toString(std::string& out) {
        return DumpContext([&out](std::string_view text) { out.append(text); });
    }

  private:
    PrintFunction print_;
};

}  // namespace Vok
