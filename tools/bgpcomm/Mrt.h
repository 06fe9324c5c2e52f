// The MRT reader (RFC 6396, RFC 8050): turns a stream of MRT records into
// batches of routes that share one set of path attributes.
//
// Read: TABLE_DUMP_V2 (type 13) PEER_INDEX_TABLE, RIB_IPV4/IPV6 UNICAST and
// MULTICAST, RIB_GENERIC (IPv4/IPv6 unicast and multicast) and their ADDPATH
// variants; BGP4MP (16) and BGP4MP_ET (17) MESSAGE, MESSAGE_AS4, their LOCAL
// and ADDPATH variants, UPDATE messages only (withdrawn routes, NLRI,
// MP_REACH_NLRI and MP_UNREACH_NLRI). State changes and other BGP messages are
// passed over silently.
//
// Contract: a record that cannot be read (unknown type or subtype, truncated)
// is reported through Diag and skipped; the batches already delivered stand,
// and the next record is read. Records are framed by MrtFramer, which finds
// the records again after a damaged length. A RIB record keeps the entries
// before a broken one, and every entry beside one it refuses. An entry
// whose peer index is not in the peer table keeps its route under the
// unknown peer (0.0.0.0, AS 0, `known` false): gobgpd writes such entries
// for the routes it originates. A broken stream (truncated file, corrupt
// compression) ends the file with one message. The batch and what it points
// to are valid during the sink call only.
#pragma once

#include <functional>
#include <vector>

#include "bgpcomm/Attrs.h"
#include "bgpcomm/Diag.h"
#include "bgpcomm/Input.h"
#include "bgpcomm/MrtFrame.h"
#include "bgpcomm/Wire.h"

namespace Bgpcomm {

enum class RouteKind : U8 { rib, announce, withdraw };

struct Peer {
    IpAddress ip;
    U32 asn = 0;
    // False for an entry whose peer index is not in the peer table.
    bool known = true;
};

struct Nlri {
    Prefix prefix;
    U32 pathId = 0;
};

struct RouteBatch {
    RouteKind kind = RouteKind::rib;
    U16 mrtType = 0;
    U32 timestamp = 0;
    U32 microseconds = 0;  // BGP4MP_ET only
    Peer peer;
    // RFC 8050 / RFC 7911: the prefixes carry path identifiers.
    bool addPath = false;
    // Null for withdrawals.
    PathAttrs const* attrs = nullptr;
    std::vector<Nlri> const* nlri = nullptr;
    // Stream offset of the MRT record.
    U64 recordOffset = 0;
};

// The mark markUnknownPeersIs puts before the report of an unknown peer index.
std::string unknownPeerMark(U64 peerTableNumber, U16 peerIndex);

class MrtReader {
  public:
    using Sink = std::function<void(RouteBatch const&)>;

    MrtReader(ByteSource& source, Diag& diag, Sink sink)
        : framer_(source, diag), diag_(diag), sink_(std::move(sink)) {}

    // Called every `every` records (progress display).
    void progressIs(std::function<void()> progress, U64 every) {
        progress_ = std::move(progress);
        progressEvery_ = every;
    }

    // Reads every record to the end of the stream.
    void run();

    // Framing only: run() hands each whole record to `framed` instead of
    // decoding it, so that other threads can decode records with decode().
    using Framed = std::function<void(U32 timestamp, U16 type, U16 subtype, Cursor body)>;
    void framedIs(Framed framed) { framed_ = std::move(framed); }
    // Decodes one framed record into the sink, as run() does (the body's
    // offset is the stream offset of the octet after the 12-octet header;
    // `number` counts records from 1 in the stream, for messages).
    void decode(U32 timestamp, U16 type, U16 subtype, Cursor body, U64 number) {
        records_ = number;
        record(MrtHeader{timestamp, type, subtype, static_cast<U32>(body.left())}, body);
    }

    // Decoding on threads, each chunk of records by a reader of its own: the
    // "not in the peer table" report is made for every chunk, marked with
    // unknownPeerMark(table, index), so that the thread emitting chunks in
    // order keeps only the first per peer table (MrtThreads.cpp).
    void markUnknownPeersIs(bool mark) { markUnknownPeers_ = mark; }

    U64 records() const { return records_; }
    U64 offset() const { return framer_.offset(); }

  private:
    void record(MrtHeader const& header, Cursor body);
    void peerIndexTable(Cursor body);
    void ribAfi(Cursor body, U16 subtype, Afi afi, bool addPath);
    void ribGeneric(Cursor body, bool addPath);
    void ribEntries(Cursor& body, Nlri const& nlri, bool addPath, char const* what);
    void bgp4mpRecord(Cursor body, U16 subtype);
    void update(Cursor message, bool as4, bool addPath);
    // Reads prefixes (with path identifiers under ADDPATH) until `in` ends;
    // false (reported) when one is malformed.
    bool readNlri(Cursor in, Afi afi, bool addPath, std::vector<Nlri>* out, char const* what);

    MrtFramer framer_;
    Diag& diag_;
    Sink sink_;
    std::function<void()> progress_;
    Framed framed_;
    U64 progressEvery_ = 0;

    std::vector<Peer> peers_;
    bool havePeerTable_ = false;
    // Peer indexes out of range already reported since the peer table.
    std::vector<bool> unknownReported_;
    bool markUnknownPeers_ = false;
    U64 peerTableNumber_ = 0;  // the record number of the table in force
    RouteBatch batch_;
    PathAttrs attrs_;
    std::vector<Nlri> nlri_;
    std::vector<Nlri> withdrawn_;
    U64 records_ = 0;
};

}  // namespace Bgpcomm
