// `bgpcomm top`: which communities and lists the input carries most, with
// route counts, share of routes and their notes; per origin AS with
// --by-origin. Takes every `bgpcomm mrt` filter.
//
// Counting is per distinct interned list (a route adds one to its lists'
// counts; values are counted from the lists at the end), so its cost does not
// grow with the number of communities a route carries.
#pragma once

#include <string>
#include <vector>

namespace Bgpcomm {

extern char const* const topHelp;

// Runs `bgpcomm top` over `args`, writing the report to `out`; returns the
// exit status.
int topCommand(std::vector<std::string> const& args, std::FILE* out);

}  // namespace Bgpcomm
