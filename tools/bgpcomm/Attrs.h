// The BGP path attribute walker (RFC 4271 section 4.3): finds, in the
// attributes of one RIB entry or UPDATE, what the tool uses - the four
// community attributes, AS_PATH / AS4_PATH, the next hop and the
// multiprotocol NLRI - and checks their lengths in the spirit of RFC 7606.
//
// Contract: walking never fails. A community attribute whose length is not a
// multiple of its element size, a duplicate attribute or a malformed
// MP_REACH/MP_UNREACH is reported and skipped ("attribute skipped"); an
// attribute header or length that runs past the attributes ends the walk
// ("remaining attributes skipped"). What was found before stays. Spans point
// into the caller's record buffer and live as long as it.
#pragma once

#include <vector>

#include "bgpcomm/Diag.h"
#include "bgpcomm/Wire.h"

namespace Bgpcomm {

// Path attribute type codes (IANA BGP Path Attributes registry).
inline constexpr U8 attrOrigin = 1;             // RFC 4271
inline constexpr U8 attrAsPath = 2;             // RFC 4271
inline constexpr U8 attrNextHop = 3;            // RFC 4271
inline constexpr U8 attrMed = 4;                // RFC 4271 MULTI_EXIT_DISC
inline constexpr U8 attrLocalPref = 5;          // RFC 4271
inline constexpr U8 attrAtomicAggregate = 6;    // RFC 4271
inline constexpr U8 attrAggregator = 7;         // RFC 4271
inline constexpr U8 attrCommunities = 8;        // RFC 1997
inline constexpr U8 attrMpReachNlri = 14;       // RFC 4760
inline constexpr U8 attrMpUnreachNlri = 15;     // RFC 4760
inline constexpr U8 attrExtCommunities = 16;    // RFC 4360
inline constexpr U8 attrAs4Path = 17;           // RFC 6793
inline constexpr U8 attrAs4Aggregator = 18;     // RFC 6793
inline constexpr U8 attrIpv6ExtCommunity = 25;  // RFC 5701
inline constexpr U8 attrLargeCommunity = 32;    // RFC 8092

// Attribute flag bits (RFC 4271 section 4.3).
inline constexpr U8 attrFlagOptional = 0x80;
inline constexpr U8 attrFlagExtendedLength = 0x10;

// Subsequent address family identifiers the tool reads (IANA SAFI registry,
// RFC 4760).
inline constexpr U8 safiUnicast = 1;
inline constexpr U8 safiMulticast = 2;

// One attribute's value octets and the stream offset of its header.
struct AttrSpan {
    U8 const* data = nullptr;
    U32 size = 0;
    U64 offset = 0;
    bool present = false;
};

// The four community attribute kinds, with their element sizes and names.
enum class CommKind : U8 { standard, extended, ipv6, large };
inline constexpr unsigned commKindCount = 4;
struct CommKindInfo {
    U8 attrType;
    U32 elementSize;
    char const* attrName;  // as the IANA registry names the attribute
    char const* name;      // the tool's short name (--kind, stats)
};
CommKindInfo const& commKindInfo(CommKind kind);

struct AsPathEntry {
    U32 asn;
    U8 segmentType;  // RFC 4271: 1 AS_SET, 2 AS_SEQUENCE; RFC 5065: 3, 4 confederation
};

struct PathAttrs {
    AttrSpan comm[commKindCount];
    AttrSpan asPath;
    AttrSpan as4Path;
    // AS numbers of AS_PATH are 4 octets (TABLE_DUMP_V2, BGP4MP *_AS4).
    bool asPathFourOctet = true;
    bool hasNextHop = false;
    IpAddress nextHop;
    // What bgpdump -m prints beside the path (first of each kind kept).
    U8 origin = 0xFF;  // RFC 4271: 0 IGP, 1 EGP, 2 INCOMPLETE; 0xFF absent
    bool hasMed = false;
    U32 med = 0;
    bool hasLocalPref = false;
    U32 localPref = 0;
    bool atomicAggregate = false;
    AttrSpan aggregator;     // 6 octets (two-octet AS) or 8
    AttrSpan as4Aggregator;  // 8 octets
    // Multiprotocol NLRI (BGP4MP updates only).
    bool hasMpReach = false;
    Afi mpReachAfi = Afi::ipv4;
    Cursor mpReachNlri;
    bool hasMpUnreach = false;
    Afi mpUnreachAfi = Afi::ipv4;
    Cursor mpUnreachNlri;

    AttrSpan const& of(CommKind kind) const { return comm[static_cast<unsigned>(kind)]; }
};

// Where the attributes come from: a TABLE_DUMP_V2 RIB entry carries an
// abbreviated MP_REACH_NLRI (RFC 6396 section 4.3.4), an UPDATE the full one.
enum class AttrContext { ribEntry, update };

void walkAttributes(Cursor attrs, AttrContext context, bool asPathFourOctet, Diag& diag,
                    PathAttrs* out);

// The effective AS path: AS_PATH, its tail replaced by AS4_PATH when
// AS_PATH has two-octet numbers (RFC 6793 section 4.2.3, counting each AS).
// Malformed segments end the path where they start.
void asPathEntries(PathAttrs const& attrs, std::vector<AsPathEntry>* out);
// The last AS of the path; false for an empty path or one ending in a set of
// more than one AS.
bool originAsn(std::vector<AsPathEntry> const& path, U32* out);
// "65001 65002 {65003,65004}" (confederation segments in parentheses).
void formatAsPath(VoFmt::TextBuffer& out, std::vector<AsPathEntry> const& path, bool asdot);

}  // namespace Bgpcomm
