// What the extended community form tests share: a parser as the agent
// starts it, and the expected form of a community under every format.
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

// Every one of the 64 formats against `expected(format)`, and the
// show-command entry against the format number it stands for
// (classification 2 + UI 4 + json 8 + asdot 16 + weighted 32).
template <class Expected>
void expectEveryFormat(ExtComm const& comm, Expected expected) {
    for (unsigned bits = 0; bits < 64; ++bits) {
        ExtComm::StrepFormat format(static_cast<U8>(bits));
        EXPECT_EQ(std::string(expected(format)), comm.toStrepForPolicy(format).view())
            << streamed(comm) << " format " << bits;
    }
    for (unsigned bits = 6; bits < 64; bits += 8)
        EXPECT_EQ(comm.toStrepForPolicy(ExtComm::StrepFormat(static_cast<U8>(bits))),
                  comm.toStrepForUI(bits & 16, bits & 32, bits & 8))
            << streamed(comm) << " format " << bits;
}

}  // namespace Routing::Bgp::FormCheck
