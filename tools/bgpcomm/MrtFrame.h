// Framing of MRT records (RFC 6396 section 2, the common header: timestamp,
// type, subtype, length) out of a stream, and finding the records again
// after a header whose length is damaged.
//
// A record is taken at its length when the header its length leads to looks
// like an MRT header (a type and subtype of RFC 6396 or RFC 8050, a length
// that kind of record can have), or when the stream ends there or within 12
// octets. Otherwise the length is suspect, and the framer looks for the next
// plausible header from the damaged one on: such a type and subtype, a
// length that kind can have and that the stream holds, a timestamp
// within a day of the last good record, and followed by another plausible
// header (or the end of the stream). A candidate inside the octets the
// damaged record claims wins: the octets before it are skipped, with one
// message saying how many and where the records resume. Without one, a
// header of such a kind is taken at its length (the damage, if
// any, is further on); any other header, and a length beyond the stream or
// any real record, is searched past to the next plausible header, to the end
// of the stream if need be.
//
// Contract: a clean stream is framed exactly at its lengths; every octet
// skipped is reported through Diag (file and offset); a broken stream
// (corrupt compression) ends the records with one message. The stream is read
// through a Lookahead, holding one record, the header after it and, while
// searching, the candidate record: never the whole stream.
#pragma once

#include "bgpcomm/Diag.h"
#include "bgpcomm/Input.h"
#include "bgpcomm/Wire.h"

namespace Bgpcomm {

// MRT types (RFC 6396 section 4).
inline constexpr U16 mrtTableDumpV2 = 13;
inline constexpr U16 mrtBgp4mp = 16;
inline constexpr U16 mrtBgp4mpEt = 17;

// TABLE_DUMP_V2 subtypes (RFC 6396 section 4.3, RFC 8050 section 4).
inline constexpr U16 td2PeerIndexTable = 1;
inline constexpr U16 td2RibIpv4Unicast = 2;
inline constexpr U16 td2RibIpv4Multicast = 3;
inline constexpr U16 td2RibIpv6Unicast = 4;
inline constexpr U16 td2RibIpv6Multicast = 5;
inline constexpr U16 td2RibGeneric = 6;
// 7: GEO_PEER_TABLE (RFC 6397): framed, not read.
inline constexpr U16 td2RibIpv4UnicastAddPath = 8;
inline constexpr U16 td2RibIpv4MulticastAddPath = 9;
inline constexpr U16 td2RibIpv6UnicastAddPath = 10;
inline constexpr U16 td2RibIpv6MulticastAddPath = 11;
inline constexpr U16 td2RibGenericAddPath = 12;

// BGP4MP subtypes (RFC 6396 section 4.4, RFC 8050 section 3).
inline constexpr U16 bgp4mpStateChange = 0;
inline constexpr U16 bgp4mpMessage = 1;
inline constexpr U16 bgp4mpMessageAs4 = 4;
inline constexpr U16 bgp4mpStateChangeAs4 = 5;
inline constexpr U16 bgp4mpMessageLocal = 6;
inline constexpr U16 bgp4mpMessageAs4Local = 7;
inline constexpr U16 bgp4mpMessageAddPath = 8;
inline constexpr U16 bgp4mpMessageAs4AddPath = 9;
inline constexpr U16 bgp4mpMessageLocalAddPath = 10;
inline constexpr U16 bgp4mpMessageAs4LocalAddPath = 11;

inline constexpr std::size_t mrtHeaderSize = 12;

struct MrtHeader {
    U32 timestamp = 0;
    U16 type = 0;
    U16 subtype = 0;
    U32 length = 0;
};

class MrtFramer {
  public:
    MrtFramer(ByteSource& source, Diag& diag) : in_(source), diag_(diag) {}

    // The next record: its header, and its body with stream offsets. False
    // at the end of the stream. The body is valid until the next call.
    bool next(MrtHeader* header, Cursor* body);
    // Stream offset of the first octet not yet framed.
    U64 offset() const { return in_.offset() + pending_; }

  private:
    // Where the next plausible record starts, from `from` octets into the
    // window up to `limit` (exclusive); 0 when there is none.
    std::size_t search(std::size_t from, std::size_t limit, bool consumeBehind);
    bool plausible(std::size_t at, U32 const* near) const;

    Lookahead in_;
    Diag& diag_;
    std::size_t pending_ = 0;
    bool haveTimestamp_ = false;
    U32 lastTimestamp_ = 0;
};

}  // namespace Bgpcomm
