// `bgpcomm collect`: receives live tables from BGP peers.
//
// One thread per peer runs its session (Transport.h); every UPDATE's four
// community attributes go through the one Ingest, whose tables are created
// thread-safe, into that peer's Adj-RIB-In; route lines go through the same
// filters and Output as `bgpcomm mrt`, under one lock. Withdrawals, implicit
// withdrawals and a session going down release what the routes held; when
// every session has ended the tables are empty again, which the run checks
// at exit (exit status 1 otherwise).
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Kiv/Types.h"

namespace Bgpcomm::Session {

extern char const* const collectHelp;

int collectCommand(std::vector<std::string> const& args, std::function<U64()> liveHeapBytes);

}  // namespace Bgpcomm::Session
