// What the extended community tests share: a parser as the agent starts it,
// with an interning table.
#pragma once

#include <string>

#include "TestUtil.h"
#include "VoBgp/Parse/ExtComm.h"
#include "VoBgp/Parse/ExtCommPlugins.h"
#include "VoBgp/VoBgpCommunity.h"

namespace Routing::Bgp::FormCheck {

// The parser container with an interning table on its root.
struct Parser {
    BgpParseExtCommContainerSm::Ptr container = bgpParseExtCommContainerSmFactory();
    ExtCommDedupTable::Ptr table = extCommDedupTableFactory(container->extCommParser());

    ExtComm::PtrConst intern(U64 value) const {
        return ExtComm::dedupContent(table.ptr(), ExtCommContent(value));
    }
};

}  // namespace Routing::Bgp::FormCheck
