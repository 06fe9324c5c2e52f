#include "bgpcomm/WellKnown.h"

#include <cctype>
#include <iterator>

namespace Bgpcomm {

namespace {

constexpr WellKnown registry[] = {
#define VOBGP_WELL_KNOWN(value, name, reference) {value, name, reference},
#include "bgpcomm/WellKnown.def"
#undef VOBGP_WELL_KNOWN
};

bool sameLetters(std::string_view a, std::string_view b) {
    if (a.size() != b.size())
        return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        char x = a[i] == '-' || a[i] == ' ' ? '_' : a[i];
        char y = b[i] == '-' || b[i] == ' ' ? '_' : b[i];
        if (std::tolower(static_cast<unsigned char>(x)) !=
            std::tolower(static_cast<unsigned char>(y)))
            return false;
    }
    return true;
}

}  // namespace

std::span<WellKnown const> wellKnownRegistry() {
    return registry;
}

WellKnown const* wellKnownByValue(U32 value) {
    if (value < 0xFFFF0000u)  // the registry holds the top block only
        return nullptr;
    for (WellKnown const& row : registry)
        if (row.value == value)
            return &row;
    return nullptr;
}

std::optional<U32> wellKnownByName(std::string_view name) {
    for (WellKnown const& row : registry)
        if (sameLetters(row.name, name))
            return row.value;
    return std::nullopt;
}

}  // namespace Bgpcomm
