// The locks every lifetime notifier shares (see the header), defined out of
// line so that all code, inline or not and in whichever shared object, locks
// the one array.
#include "Vok/DedupHandleLifeTimeNotifier.h"

#include <cstdint>

namespace Vok {

namespace {

constexpr unsigned mutexBits = 6;
// Constant-initialized: usable from any static constructor or destructor.
std::mutex mutexes[1u << mutexBits];

}  // namespace

std::mutex& DedupHandleLifeTimeNotifier::mutex() const noexcept {
    // Notifiers come from the allocator at a regular stride; multiplying by
    // an odd constant and keeping the top bits spreads them over the mutexes.
    U64 const mixed = U64(reinterpret_cast<std::uintptr_t>(this)) * 0x9e3779b97f4a7c15ull;
    return mutexes[mixed >> (64 - mutexBits)];
}

}  // namespace Vok
