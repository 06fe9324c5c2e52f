#include "Kiv/Assert.h"

#include <cstdio>
#include <cstdlib>

namespace Kiv {

namespace {

// Writes a function signature as gcc spells it: clang puts a blank before the
// '&' and '*' of a parameter type ("const Foo &"), gcc does not, and the
// documented texts follow gcc. Nothing is allocated: the process is failing.
void putFunction(char const* function) {
    for (char const* p = function; *p != '\0'; ++p) {
        if (*p == ' ' && (p[1] == '&' || p[1] == '*'))
            continue;
        std::fputc(*p, stderr);
    }
}

}  // namespace

void assertFailed(AssertSite site, char const* function, char const* file, int line) noexcept {
    std::fprintf(stderr, "%s:%d: ", file, line);
    putFunction(site.function ? site.function : function);
    std::fprintf(stderr, ": Assertion `%s' failed.\n", site.text);
    std::fflush(stderr);
    std::abort();
}

}  // namespace Kiv
