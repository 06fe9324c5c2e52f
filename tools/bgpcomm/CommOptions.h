// The community options `bgpcomm mrt` and `bgpcomm top` share: the --has
// family (bgpcomm/HasFilter.h) and the dictionaries.
//
//   --dictionary DIR   a folder of NLNOG-style community files; repeatable,
//                      earlier folders win ties; they come before the shipped
//                      one
//   --no-dictionary    not the shipped one (only the --dictionary folders)
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "bgpcomm/Dictionary.h"
#include "bgpcomm/MrtCommand.h"

namespace Bgpcomm {

extern char const* const communityOptionsHelp;

// Whether `arg` is one of these options taking a value.
bool isCommunityValueOption(std::string const& arg);
// Applies one of them; the usage problem, if any.
std::optional<std::string> communityOption(std::string const& arg, std::string const& value,
                                           MrtOptions* out);

// The --dictionary folders and then the shipped one (unless
// --no-dictionary), loaded and indexed; problems go to stderr. Null when
// no folder is to be read.
std::unique_ptr<Dictionary> loadDictionaries(MrtOptions const& options);

}  // namespace Bgpcomm
