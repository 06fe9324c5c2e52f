// UPDATE messages (RFC 4271 section 4.3, RFC 4760 multiprotocol NLRI, RFC
// 7911 path identifiers) as octets, and the revised error handling of RFC
// 7606: each malformed attribute gets the action that RFC (or the
// attribute's own RFC) assigns - attribute discard, treat-as-withdraw, or
// session reset with a NOTIFICATION.
//
// The path attributes are walked by the MRT reader's walker (Attrs.h) for
// what the tool uses; the checks here decide the action first.
//
// Contract: decoding never throws nor reads past the body. Spans in the
// result point into the body and live as long as it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "bgpcomm/Attrs.h"
#include "bgpcomm/Mrt.h"
#include "bgpcomm/session/Message.h"

namespace Bgpcomm::Session {

// What was negotiated and matters for reading an UPDATE.
struct UpdateContext {
    bool fourOctetAs = true;         // RFC 6793
    bool addPath[familyCount] = {};  // the peer sends path ids (RFC 7911)
    bool ibgp = false;               // LOCAL_PREF handling (RFC 7606 section 7.5)
};

struct UpdateMsg {
    std::vector<Nlri> withdrawn;  // withdrawn routes and MP_UNREACH_NLRI
    std::vector<Nlri> announced;  // NLRI and MP_REACH_NLRI
    PathAttrs attrs;
    Cursor body;      // the whole UPDATE body as received
    Cursor rawAttrs;  // its path attributes
    // RFC 4724 section 2: an UPDATE with nothing in it (IPv4) or with only an
    // empty MP_UNREACH_NLRI of the family.
    bool endOfRib = false;
    Family eorFamily = Family::ipv4Unicast;
    // Not empty: why the announced routes were treated as withdrawn (RFC
    // 7606 section 2); they are in `withdrawn` then, `announced` is empty.
    std::string treatAsWithdraw;
    // Attributes discarded (RFC 7606 section 2), for the log.
    std::string discarded;
};

// Decodes an UPDATE body. A NOTIFICATION when the session must be reset.
std::optional<Notification> decodeUpdate(Cursor body, UpdateContext const& context, UpdateMsg* out);

// Encoding, for the replayer. `attrs` are the path attributes without
// MP_REACH/MP_UNREACH; for IPv6 an MP_REACH_NLRI with `nextHop` and the
// prefixes is appended (RFC 4760 section 3). The caller keeps each message
// under the negotiated size (announceSize tells the room a prefix needs).
Octets encodeAnnounce(Octets const& attrs, Family family, IpAddress const& nextHop,
                      std::vector<Prefix> const& prefixes);
Octets encodeWithdraw(Family family, std::vector<Prefix> const& prefixes);
Octets encodeEndOfRib(Family family);
// Octets a prefix takes in NLRI: length octet and address octets.
inline std::size_t prefixSize(Prefix const& p) {
    return 1 + (p.length + 7u) / 8;
}
// Fixed octets of an announcement besides attributes and prefixes.
std::size_t announceOverhead(Family family);
void putPrefix(Octets& out, Prefix const& p);

}  // namespace Bgpcomm::Session
