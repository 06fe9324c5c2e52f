// What the collector saw, written as MRT (RFC 6396) so that `bgpcomm mrt`
// and other MRT readers read it back: every received UPDATE as a BGP4MP_ET
// record, and the Adj-RIBs-In as a TABLE_DUMP_V2 file.
//
// Contract: write errors are reported once through the return value of
// close(); records are written whole. Not thread-safe: the caller locks.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "bgpcomm/Mrt.h"
#include "bgpcomm/session/Message.h"

namespace Bgpcomm::Session {

class MrtFile {
  public:
    ~MrtFile();
    std::string open(std::string const& path);  // error text, empty on success
    // The file's first write error, or empty.
    std::string close();

    // BGP4MP_ET MESSAGE_AS4 (or MESSAGE for a 2-octet AS peer; the ADDPATH
    // variants of RFC 8050 when the peer sends path identifiers): `body` is
    // the UPDATE body, the header is written in front of it.
    void update(Peer const& peer, IpAddress const& local, U32 localAs, bool fourOctetAs,
                bool addPath, U8 const* body, std::size_t size);

    // TABLE_DUMP_V2: the PEER_INDEX_TABLE, then one RIB record per prefix.
    struct RibPeer {
        Peer peer;
        U32 bgpId = 0;
    };
    struct RibEntry {
        U16 peerIndex = 0;
        U32 pathId = 0;
        U32 originated = 0;
        Octets const* attrs = nullptr;  // as TABLE_DUMP_V2 holds them (RFC 6396 4.3.4)
    };
    void peerIndex(U32 collectorId, std::vector<RibPeer> const& peers);
    void rib(U32 sequence, Prefix const& prefix, bool addPath,
             std::vector<RibEntry> const& entries);

  private:
    void record(U16 type, U16 subtype, Octets const& body, bool extendedTime);

    std::FILE* file_ = nullptr;
    std::string error_;
};

}  // namespace Bgpcomm::Session
