// `bgpcomm decode`: every text form of a community, from its octets or its
// text.
//
// Each argument is one of
//   - a whole path attribute in hex (flags, type, length, value) of type 8
//     COMMUNITIES, 16 EXTENDED COMMUNITIES, 25 IPV6 ADDRESS SPECIFIC
//     EXTENDED COMMUNITY or 32 LARGE_COMMUNITY: recognised by the optional
//     bit in the flags and a length that fits exactly;
//   - one bare value in hex: 8 digits standard, 16 extended, 24 large, 40
//     IPv6 extended ("0x" and blanks/colons between octets allowed);
//   - "a:b" (standard) or "a:b:c" (large) in decimal.
// For each community it prints one "  <form>  <text>" line per text form the
// library has for that kind, extended communities parsed with the opt-in
// plug-ins too unless the argument --default-parser (anywhere) asks for the
// library's default parser alone. A community with a well-known registry name
// or a dictionary description gets a "note" line (--dictionary DIR,
// --no-dictionary as for `bgpcomm mrt`).
//
// Contract: an argument that is none of these is a usage error (status 2);
// an attribute whose length is not a multiple of its element size prints
// what it can and gives status 1.
#pragma once

#include <string>
#include <vector>

namespace Bgpcomm {

extern char const* const decodeHelp;

// Decodes `args` onto `out`; returns the exit status. Problems go to `err`.
// `dictionary` (may be null) gives the notes; decodeCommand loads the
// --dictionary folders and the shipped one.
class Dictionary;
int decode(std::vector<std::string> const& args, std::string* out, std::string* err,
           Dictionary const* dictionary = nullptr);
int decodeCommand(std::vector<std::string> const& args);

}  // namespace Bgpcomm
