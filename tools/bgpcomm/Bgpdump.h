// The columns `bgpdump -m` writes for a route, in its order and forms, so
// that scripts written for it read `bgpcomm mrt --format psv` unchanged:
//
//   TYPE|TIME|B/A|PEER_IP|PEER_AS|PREFIX|AS_PATH|ORIGIN|NEXT_HOP|LOCAL_PREF|MED|
//     COMMUNITIES|AG/NAG|AGGREGATOR|
//   TYPE|TIME|W|PEER_IP|PEER_AS|PREFIX
//
// TYPE is TABLE_DUMP2, BGP4MP or BGP4MP_ET, with ADDPATH records
// TABLE_DUMP2_AP or BGP4MP_AP and the path identifier as a column of its own
// after PREFIX; TIME of BGP4MP_ET is seconds.microseconds. COMMUNITIES are
// as received (order and duplicates kept), no-export, no-advertise and
// local-AS by name, the others as high:low; LOCAL_PREF and MED are 0 when
// absent; AGGREGATOR is "AS ADDRESS" (AS4_AGGREGATOR's AS when AGGREGATOR
// carries AS_TRANS), empty when absent. A route line ends with '|', a
// withdrawal with its prefix (or path identifier).
#pragma once

#include "bgpcomm/Output.h"

namespace Bgpcomm {

void appendBgpdumpColumns(VoFmt::TextBuffer& out, RouteView const& route, bool asdot);

}  // namespace Bgpcomm
