// The IANA well-known community registry (WellKnown.def) as the tool uses
// it: a name beside values the library prints as numbers, and names read in
// --has. The library's own names and text forms are not touched.
#pragma once

#include <optional>
#include <span>
#include <string_view>

#include "bgpcomm/Wire.h"

namespace Bgpcomm {

struct WellKnown {
    U32 value;
    char const* name;
    char const* reference;  // RFC or draft that registered it
};

// Every row, in value order.
std::span<WellKnown const> wellKnownRegistry();
// The registry row of `value`, or null.
WellKnown const* wellKnownByValue(U32 value);
// The value registered as `name`, case-insensitively, with '-', '_' and ' '
// alike (BLACKHOLE, blackhole; standby_pe for "Standby PE").
std::optional<U32> wellKnownByName(std::string_view name);

}  // namespace Bgpcomm
