// What an agent does with one route's communities: start the extended
// community parser once, intern received values, print them for a show
// command, and intern and re-serialize a COMMUNITIES attribute.
#include <cstdio>

#include "VoBgp/Parse/ExtComm.h"
#include "VoBgp/VoBgpCommunity.h"
#include "VoBgp/VoBgpCommunityList.h"

using namespace Routing::Bgp;

int main() {
    // Once per process: the parser with its plug-ins, and the interning tables.
    auto parser = BgpParseExtCommContainerSm::BgpParseExtCommContainerSmIs();
    auto extCommTable = extCommDedupTableFactory(parser->extCommParser());
    auto extCommListTable = extCommListDedupTableFactory();

    // Per received EXTENDED COMMUNITIES attribute: 8 octets a value, in wire
    // order; each becomes the one shared, typed object, and the route holds
    // the one shared list of them.
    U64 const received[] = {
        0x0002FDE800000064,  // route target 65000:100
        0x0202000100000064,  // route target 1.0:100 (four-octet AS)
        0x030B00000000002A,  // color 42
        0x4300000000000000,  // origin validation state: valid
    };
    ExtCommList::Ptr extList = extCommListFactory();
    for (U64 value : received)
        extList->commIs(ExtComm::dedupContent(extCommTable.ptr(), ExtCommContent(value)));
    ExtCommList::PtrConst route = extList->dedup(extCommListTable.ptr());
    extList = nullptr;
    for (ExtComm::PtrConst const& comm : *route->commVectorRawPtr())
        std::printf("%-40s %s\n", comm->toStrepForUI(/*asdot=*/true).c_str(),
                    comm->toStrep().c_str());
    std::printf("route targets interned: %zu\n", extCommTable->producerRtList()->rtCount());
    route = nullptr;  // the last holder lets go: the list and its values leave the tables
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
