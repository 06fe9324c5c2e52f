#include "Kiv/Assert.h"

#include <cstdio>
#include <cstdlib>

namespace Kiv {

void assertFailed(char const* text, char const* function, char const* file, int line) noexcept {
    std::fprintf(stderr, "%s:%d: %s: Assertion `%s' failed.\n", file, line, function, text);
    std::fflush(stderr);
    std::abort();
}

}  // namespace Kiv
