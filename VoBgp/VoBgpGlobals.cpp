#include "VoBgp/VoBgpGlobals.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

namespace VoBgpGlobals {

namespace {

std::atomic<bool>& flag() {
    static std::atomic<bool> value{[] {
        char const* env = std::getenv("VOBGP_MULTI_THREADED");
        return env != nullptr && std::strcmp(env, "1") == 0;
    }()};
    return value;
}

}  // namespace

bool multiThreaded() {
    return flag().load(std::memory_order_relaxed);
}

void multiThreadedIs(bool multiThreaded) {
    flag().store(multiThreaded, std::memory_order_relaxed);
}

}  // namespace VoBgpGlobals
