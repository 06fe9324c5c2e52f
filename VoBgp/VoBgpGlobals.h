// Process-wide settings of the BGP agent that this library reads.
//
// multiThreaded(): whether the agent interns from several threads. Dedup
// tables are created thread-safe when it is true, plain otherwise; it is read
// when a table is created, so set it before creating any. Defaults to false,
// or to true when the environment variable VOBGP_MULTI_THREADED is "1".
#pragma once

namespace VoBgpGlobals {

bool multiThreaded();
void multiThreadedIs(bool multiThreaded);

}  // namespace VoBgpGlobals
