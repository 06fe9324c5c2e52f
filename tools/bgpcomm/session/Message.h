// BGP-4 messages as octets (RFC 4271 section 4) and the capabilities this
// speaker offers and understands (RFC 5492): pure functions, no sockets, so
// that tests drive them directly.
//
// Contract: decoders never throw and never read past the octets given; a
// malformed message yields the NOTIFICATION (code, subcode, data) that RFC
// 4271 section 6 (and the RFCs named beside each check) assigns to it.
// Encoders write whole messages, header included.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "bgpcomm/Wire.h"

namespace Bgpcomm::Session {

using Octets = std::vector<U8>;

inline constexpr std::size_t headerSize = 19;          // RFC 4271 section 4.1
inline constexpr std::size_t maxMessageSize = 4096;    // RFC 4271 section 4.1
inline constexpr std::size_t maxExtendedSize = 65535;  // RFC 8654 section 4
inline constexpr U8 bgpVersion = 4;                    // RFC 4271 section 4.2
inline constexpr U16 asTrans = 23456;                  // RFC 6793 section 9

// Message types (IANA BGP Message Types).
enum class MsgType : U8 {
    open = 1,          // RFC 4271
    update = 2,        // RFC 4271
    notification = 3,  // RFC 4271
    keepalive = 4,     // RFC 4271
    routeRefresh = 5,  // RFC 2918
};

// NOTIFICATION error codes (IANA BGP Error Codes, RFC 4271 section 4.5).
inline constexpr U8 errHeader = 1;
inline constexpr U8 errOpen = 2;
inline constexpr U8 errUpdate = 3;
inline constexpr U8 errHoldTimer = 4;
inline constexpr U8 errFsm = 5;
inline constexpr U8 errCease = 6;
// Message Header Error subcodes (RFC 4271 section 6.1).
inline constexpr U8 hdrNotSynchronized = 1;
inline constexpr U8 hdrBadLength = 2;
inline constexpr U8 hdrBadType = 3;
// OPEN Message Error subcodes (RFC 4271 section 6.2; 7 RFC 5492).
inline constexpr U8 openBadVersion = 1;
inline constexpr U8 openBadPeerAs = 2;
inline constexpr U8 openBadBgpId = 3;
inline constexpr U8 openBadOptParam = 4;
inline constexpr U8 openBadHoldTime = 6;
inline constexpr U8 openBadCapability = 7;
// UPDATE Message Error subcodes (RFC 4271 section 6.3).
inline constexpr U8 updMalformedAttrList = 1;
inline constexpr U8 updUnrecognizedWellKnown = 2;
inline constexpr U8 updMissingWellKnown = 3;
inline constexpr U8 updAttrFlags = 4;
inline constexpr U8 updAttrLength = 5;
inline constexpr U8 updOptionalAttr = 9;
inline constexpr U8 updInvalidNetwork = 10;
// Finite State Machine Error subcodes (RFC 6608 section 3).
inline constexpr U8 fsmInOpenSent = 1;
inline constexpr U8 fsmInOpenConfirm = 2;
inline constexpr U8 fsmInEstablished = 3;
// Cease subcodes (RFC 4486 section 4).
inline constexpr U8 ceaseMaxPrefixes = 1;
inline constexpr U8 ceaseAdminShutdown = 2;
inline constexpr U8 ceaseConnectionRejected = 5;
inline constexpr U8 ceaseOutOfResources = 8;

// Capability codes (IANA Capability Codes).
inline constexpr U8 capMultiprotocol = 1;     // RFC 4760
inline constexpr U8 capRouteRefresh = 2;      // RFC 2918
inline constexpr U8 capExtendedMessage = 6;   // RFC 8654
inline constexpr U8 capGracefulRestart = 64;  // RFC 4724
inline constexpr U8 capFourOctetAs = 65;      // RFC 6793
inline constexpr U8 capAddPath = 69;          // RFC 7911
// OPEN optional parameter type Capabilities (RFC 5492 section 4).
inline constexpr U8 optParamCapabilities = 2;
// ADD-PATH Send/Receive field bits (RFC 7911 section 4).
inline constexpr U8 addPathReceive = 1;
inline constexpr U8 addPathSend = 2;

// The address families this speaker exchanges: AFI (IANA Address Family
// Numbers) with SAFI 1 unicast (RFC 4760).
enum class Family : U8 { ipv4Unicast, ipv6Unicast };
inline constexpr unsigned familyCount = 2;
inline Afi familyAfi(Family f) {
    return f == Family::ipv4Unicast ? Afi::ipv4 : Afi::ipv6;
}
inline Family afiFamily(Afi a) {
    return a == Afi::ipv4 ? Family::ipv4Unicast : Family::ipv6Unicast;
}
char const* familyName(Family f);  // "ipv4-unicast", "ipv6-unicast"
// AFI/SAFI codes to a family; false for the ones not exchanged here.
bool familyOf(U16 afi, U8 safi, Family* out);

struct Notification {
    U8 code = 0;
    U8 subcode = 0;
    Octets data;
};
// "6/2 (Cease / Administrative Shutdown)"
std::string notificationText(U8 code, U8 subcode);

struct OpenMsg {
    U8 version = bgpVersion;
    // The speaker's AS: the 4-octet AS capability's when present, else My AS.
    U32 asn = 0;
    U16 holdTime = 90;
    U32 bgpId = 0;
    bool fourOctetAs = false;
    // Multiprotocol capabilities; without any, IPv4 unicast alone (RFC 4760
    // section 8).
    bool anyMultiprotocol = false;
    bool family[familyCount] = {};
    bool routeRefresh = false;
    bool extendedMessage = false;
    // Graceful restart with no family: we preserve no forwarding state but
    // want End-of-RIB markers (RFC 4724 section 3).
    bool gracefulRestart = false;
    U8 addPath[familyCount] = {};  // addPathReceive | addPathSend
    // Whether the peer offers `f` (its MP capability, or IPv4 by default).
    bool offers(Family f) const {
        return anyMultiprotocol ? family[unsigned(f)] : f == Family::ipv4Unicast;
    }
};

// A whole message: marker, length, type, body.
Octets encodeMessage(MsgType type, U8 const* body, std::size_t size);
Octets encodeOpen(OpenMsg const& open);
Octets encodeKeepalive();
Octets encodeNotification(Notification const& n);
Octets encodeRouteRefresh(Family family);

// Checks a message header (RFC 4271 section 6.1): marker all ones, length
// within [19, maxSize] and at least the minimum of its type, type known.
// `p` holds at least headerSize octets.
std::optional<Notification> checkHeader(U8 const* p, std::size_t maxSize, MsgType* type,
                                        std::size_t* length);
// OPEN body (RFC 4271 section 6.2; RFC 5492 capabilities). Checks the
// version, hold time (0 or at least 3) and identifier (non-zero, RFC 6286);
// the peer AS is the caller's to check.
std::optional<Notification> decodeOpen(Cursor body, OpenMsg* out);
// NOTIFICATION body; false when shorter than its two octets.
bool decodeNotification(Cursor body, Notification* out);
// ROUTE-REFRESH body (RFC 2918 section 3); false when malformed.
bool decodeRouteRefresh(Cursor body, U16* afi, U8* safi);

// Appends `value` big-endian in `n` octets.
void putBig(Octets& out, U64 value, unsigned n);
// Appends octets one by one: gcc 12 at -O3 mistakes a list insert into a
// short vector for an overrun (-Warray-bounds).
inline void append(Octets& out, std::initializer_list<U8> octets) {
    for (U8 o : octets)
        out.push_back(o);
}

}  // namespace Bgpcomm::Session
