#include "bgpcomm/Filter.h"

#include <algorithm>

namespace Bgpcomm {

bool RouteFilter::keepsEverything() const {
    return !prefix && peerIps.empty() && peerAsns.empty() && originAsns.empty() &&
           type == TypeFilter::any && comm.empty();
}

bool RouteFilter::passesBatch(RouteBatch const& batch) const {
    if (type == TypeFilter::withdraw && batch.kind != RouteKind::withdraw)
        return false;
    if (type == TypeFilter::announce && batch.kind == RouteKind::withdraw)
        return false;
    if (!peerIps.empty() &&
        std::find(peerIps.begin(), peerIps.end(), batch.peer.ip) == peerIps.end())
        return false;
    return peerAsns.empty() ||
           std::find(peerAsns.begin(), peerAsns.end(), batch.peer.asn) != peerAsns.end();
}

bool RouteFilter::passesPrefix(Prefix const& route) const {
    if (!prefix)
        return true;
    if (route == *prefix)
        return true;
    return (includeSuper && route.covers(*prefix)) || (includeSub && prefix->covers(route));
}

bool RouteFilter::passesOrigin(bool hasOrigin, U32 origin) const {
    if (originAsns.empty())
        return true;
    return hasOrigin && std::find(originAsns.begin(), originAsns.end(), origin) != originAsns.end();
}

bool RouteFilter::passesComms(RouteComms const& comms, Ingest const& ingest) const {
    return comm.passes(comms, ingest);
}

bool parseCommKind(std::string const& text, CommKind* out) {
    for (CommKind kind :
         {CommKind::standard, CommKind::large, CommKind::extended, CommKind::ipv6}) {
        if (text == commKindInfo(kind).name) {
            *out = kind;
            return true;
        }
    }
    return false;
}

}  // namespace Bgpcomm
