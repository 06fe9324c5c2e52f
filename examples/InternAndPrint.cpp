// What an agent does with one route's communities: start the extended
// community parser once, intern received values, print them for a show
// command, and intern and re-serialize a COMMUNITIES attribute.
#include <cstdio>
#include <vector>

#include "VoBgp/Parse/ExtComm.h"
#include "VoBgp/VoBgpCommunity.h"
#include "VoBgp/VoBgpCommunityList.h"

using namespace Routing::Bgp;

int main() {
    // Once per process: the parser with its plug-ins, and the interning table.
    auto parser = BgpParseExtCommContainerSm::BgpParseExtCommContainerSmIs();
    auto extCommTable = extCommDedupTableFactory(parser->extCommParser());

    // Per received EXTENDED COMMUNITIES value: 8 octets each, in wire order.
    U64 const received[] = {
        0x0002FDE800000064,  // route target 65000:100
        0x0202000100000064,  // route target 1.0:100 (four-octet AS)
        0x030B00000000002A,  // color 42
        0x4300000000000000,  // origin validation state: valid
    };
    std::vector<ExtComm::PtrConst> route;  // what a path holds on to
    for (U64 value : received) {
        ExtComm::PtrConst comm = ExtComm::dedupContent(extCommTable.ptr(), ExtCommContent(value));
        route.push_back(comm);
        std::printf("%-40s %s\n", comm->toStrepForUI(/*asdot=*/true).c_str(),
                    comm->toStrep().c_str());
    }
    std::printf("route targets interned: %zu\n", extCommTable->producerRtList()->rtCount());
    route.clear();  // the last holder lets go: the values leave the table
    std::printf("route targets interned after release: %zu\n",
                extCommTable->producerRtList()->rtCount());

    // A COMMUNITIES attribute: the list is private until dedup, then shared.
    auto commTable = commListDedupTableFactory();
    auto list = commListFactory();
    for (U32 comm : {0xFFFFFF01u, 0x00010002u, 0x00010002u})
        list->commIs(comm);
    CommList::PtrConst shared = list->dedup(commTable.ptr());
    Kiv::String wire = shared->serialize();
    std::printf("communities: %s (%zu octets on the wire, no-export %s)\n",
                shared->toStrep().c_str(), wire.size(), shared->noExport() ? "yes" : "no");
    return 0;
}
