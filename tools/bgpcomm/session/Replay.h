// `bgpcomm replay`: announces a table to one BGP peer.
//
// The routes of MRT files (RIB dumps or updates; a later announcement of a
// prefix replaces an earlier one, a withdrawal removes it) or of a `synth`
// table are read first. Each distinct set of path attributes is written
// once: ORIGIN IGP, the AS path (our AS prepended towards an eBGP peer),
// LOCAL_PREF 100 towards an iBGP peer, and the community attributes
// serialized by the library from the interned lists after --strip/--add -
// towards an eBGP peer without non-transitive extended communities.
// Prefixes sharing a set go out packed in as few UPDATEs as the negotiated
// message size allows, then End-of-RIB for each family; the session stays up
// until --hold-open runs out or a signal comes, then ends with Cease.
#pragma once

#include <string>
#include <vector>

namespace Bgpcomm::Session {

extern char const* const replayHelp;

int replayCommand(std::vector<std::string> const& args);

}  // namespace Bgpcomm::Session
