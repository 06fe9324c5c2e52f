#include "Vok/DumpContext.h"

#include <cstdarg>
#include <cstdio>
#include <vector>

namespace Vok {

void DumpContext::print(char const* format, ...) const {
    char stackBuffer[256];
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    int n = std::vsnprintf(stackBuffer, sizeof stackBuffer, format, args);
    va_end(args);
    if (n < 0) {
        va_end(again);
        return;
    }
    if (static_cast<std::size_t>(n) < sizeof stackBuffer) {
        va_end(again);
        print_(std::string_view(stackBuffer, static_cast<std::size_t>(n)));
        return;
    }
    std::vector<char> heap(static_cast<std::size_t>(n) + 1);
    std::vsnprintf(heap.data(), heap.size(), format, again);
    va_end(again);
    print_(std::string_view(heap.data(), static_cast<std::size_t>(n)));
}

}  // namespace Vok
