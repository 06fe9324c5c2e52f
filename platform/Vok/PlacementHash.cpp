#include "Vok/PlacementHash.h"

#include <sys/random.h>

#include <chrono>
#include <ctime>

namespace Vok::internal {

PlacementSeed const& placementSeedDraw() noexcept {
    static PlacementSeed const seed = [] {
        U64 words[2] = {0, 0};
        // getrandom never blocks once the pool is initialised (long before an
        // agent starts); should it fail, a clock-based seed still differs
        // from run to run.
        if (getrandom(words, sizeof words, 0) != static_cast<ssize_t>(sizeof words)) {
            U64 const now =
                static_cast<U64>(std::chrono::steady_clock::now().time_since_epoch().count());
            words[0] = now ^ 0x9e3779b97f4a7c15ull;
            words[1] = (now << 17) ^ static_cast<U64>(std::time(nullptr)) ^ 0xd6e8feb86659fd93ull;
        }
        return PlacementSeed{words[0], words[1] | 1};
    }();
    return seed;
}

}  // namespace Vok::internal
