#include "Routing/RouteMap/PosixRegex.h"

#include "Kiv/Errors.h"

namespace Routing::RouteMap {

PosixRegex::PosixRegex(std::string const& pattern) : pattern_(pattern) {
    int const error = ::regcomp(&regex_, pattern_.c_str(), REG_EXTENDED | REG_NOSUB);
    if (error != 0) {
        char text[256];
        ::regerror(error, &regex_, text, sizeof text);
        // regcomp leaves nothing to free when it fails.
        throw Kiv::ParseError(std::string(text) + " in regular expression '" + pattern_ + "'");
    }
}

PosixRegex::~PosixRegex() {
    ::regfree(&regex_);
}

int PosixRegex::execute(char const* text) const {
    return ::regexec(&regex_, text, 0, nullptr, 0);
}

}  // namespace Routing::RouteMap
