// Toggle: feature switches that a deployment sets without recompiling.
//
// A toggle is a named entry in a small JSON file that belongs to the code
// owning the feature (the parser's "Mvpn" lives in "MvpnLib.json"). The files
// are read from the directory named by the environment variable
// VOBGP_TOGGLE_DIR; a top-level object maps toggle names to their states:
//
//     {"Mvpn": true}          on
//     {"Mvpn": 1}             on (a number is returned as it is)
//     {"Mvpn": false}         off, as are 0, null and any string
//
// Everything that is not a readable answer means off: no VOBGP_TOGGLE_DIR,
// no file, a file larger than 64 KiB, malformed JSON, no entry of that name,
// a negative or fractional number. A broken toggle file must never stop the
// agent, so reading never raises and never aborts.
//
// getToggleState reads the file on every call; callers that must see one
// answer for the life of the process cache it themselves (a function-level
// static), which is also why tests of both states need separate processes.
#pragma once

#include <string_view>

#include "Kiv/Types.h"

namespace Toggle {

// The environment variable naming the toggle directory.
inline constexpr char const* toggleDirEnv = "VOBGP_TOGGLE_DIR";
// The toggle-file format this reader understands.
inline constexpr U32 toggleFormatVersion = 1;

// The state of toggle `name` in toggle file `file`: 0 when off, otherwise
// the entry's value (1 for true; callers test the lowest bit). `version` is
// the file format the caller was written for; a caller asking for a format
// this reader does not know gets 0.
U32 getToggleState(std::string_view name, std::string_view file, U32 version);

// The same answer for a JSON text already in memory (the file reader's core).
U32 toggleStateFromJson(std::string_view json, std::string_view name);

}  // namespace Toggle
