#include "bgpcomm/session/Message.h"

#include <algorithm>

namespace Bgpcomm::Session {

namespace {

// Smallest message of each type (RFC 4271 section 4; RFC 2918 section 3),
// indexed by type; 0 for unknown types.
constexpr std::size_t minLength[] = {0, 29, 23, 21, 19, 23};

struct CodeName {
    U8 code, subcode;
    char const* name;
};
// IANA BGP Error (Sub)Codes; subcode 0 names the code itself.
constexpr CodeName codeNames[] = {
    {errHeader, 0, "Message Header Error"},
    {errHeader, hdrNotSynchronized, "Connection Not Synchronized"},
    {errHeader, hdrBadLength, "Bad Message Length"},
    {errHeader, hdrBadType, "Bad Message Type"},
    {errOpen, 0, "OPEN Message Error"},
    {errOpen, openBadVersion, "Unsupported Version Number"},
    {errOpen, openBadPeerAs, "Bad Peer AS"},
    {errOpen, openBadBgpId, "Bad BGP Identifier"},
    {errOpen, openBadOptParam, "Unsupported Optional Parameter"},
    {errOpen, openBadHoldTime, "Unacceptable Hold Time"},
    {errOpen, openBadCapability, "Unsupported Capability"},
    {errUpdate, 0, "UPDATE Message Error"},
    {errUpdate, updMalformedAttrList, "Malformed Attribute List"},
    {errUpdate, updUnrecognizedWellKnown, "Unrecognized Well-known Attribute"},
    {errUpdate, updMissingWellKnown, "Missing Well-known Attribute"},
    {errUpdate, updAttrFlags, "Attribute Flags Error"},
    {errUpdate, updAttrLength, "Attribute Length Error"},
    {errUpdate, updOptionalAttr, "Optional Attribute Error"},
    {errUpdate, updInvalidNetwork, "Invalid Network Field"},
    {errHoldTimer, 0, "Hold Timer Expired"},
    {errFsm, 0, "Finite State Machine Error"},
    {errFsm, fsmInOpenSent, "Unexpected Message in OpenSent"},
    {errFsm, fsmInOpenConfirm, "Unexpected Message in OpenConfirm"},
    {errFsm, fsmInEstablished, "Unexpected Message in Established"},
    {errCease, 0, "Cease"},
    {errCease, ceaseMaxPrefixes, "Maximum Number of Prefixes Reached"},
    {errCease, ceaseAdminShutdown, "Administrative Shutdown"},
    {errCease, ceaseConnectionRejected, "Connection Rejected"},
    {errCease, ceaseOutOfResources, "Out of Resources"},
};

char const* codeName(U8 code, U8 subcode) {
    for (auto const& entry : codeNames)
        if (entry.code == code && entry.subcode == subcode)
            return entry.name;
    return nullptr;
}

Notification notify(U8 code, U8 subcode, Octets data = {}) {
    return Notification{code, subcode, std::move(data)};
}

void capability(Octets& caps, U8 code, Octets const& value) {
    caps.push_back(code);
    caps.push_back(U8(value.size()));
    caps.insert(caps.end(), value.begin(), value.end());
}

// One capability of the OPEN (RFC 5492 section 4); unknown ones are ignored
// as the RFC asks.
void takeCapability(U8 code, Cursor value, OpenMsg* out) {
    U16 afi = 0;
    U8 safi = 0;
    Family family;
    switch (code) {
        case capMultiprotocol:  // AFI, reserved, SAFI
            out->anyMultiprotocol = true;
            if (value.u16(&afi) && value.skip(1) && value.u8(&safi) && familyOf(afi, safi, &family))
                out->family[unsigned(family)] = true;
            return;
        case capRouteRefresh:
            out->routeRefresh = true;
            return;
        case capExtendedMessage:
            out->extendedMessage = true;
            return;
        case capGracefulRestart:
            out->gracefulRestart = true;
            return;
        case capFourOctetAs:
            if (value.left() == 4) {
                out->fourOctetAs = true;
                value.u32(&out->asn);
            }
            return;
        case capAddPath:  // (AFI, SAFI, send/receive) tuples
            while (value.u16(&afi) && value.u8(&safi)) {
                U8 mode = 0;
                if (value.u8(&mode) && familyOf(afi, safi, &family))
                    out->addPath[unsigned(family)] = mode & (addPathReceive | addPathSend);
            }
            return;
        default:
            return;
    }
}

}  // namespace

char const* familyName(Family f) {
    return f == Family::ipv4Unicast ? "ipv4-unicast" : "ipv6-unicast";
}

bool familyOf(U16 afi, U8 safi, Family* out) {
    if (safi != 1 || (afi != 1 && afi != 2))
        return false;
    *out = afi == 1 ? Family::ipv4Unicast : Family::ipv6Unicast;
    return true;
}

std::string notificationText(U8 code, U8 subcode) {
    std::string text = std::to_string(code) + "/" + std::to_string(subcode);
    char const* major = codeName(code, 0);
    char const* minor = subcode ? codeName(code, subcode) : nullptr;
    if (major)
        text += std::string(" (") + major + (minor ? std::string(" / ") + minor : "") + ")";
    return text;
}

void putBig(Octets& out, U64 value, unsigned n) {
    for (unsigned i = n; i-- > 0;)
        out.push_back(U8(value >> (8 * i)));
}

Octets encodeMessage(MsgType type, U8 const* body, std::size_t size) {
    Octets out(16, 0xFF);
    putBig(out, headerSize + size, 2);
    out.push_back(U8(type));
    out.insert(out.end(), body, body + size);
    return out;
}

Octets encodeOpen(OpenMsg const& open) {
    Octets caps;
    for (unsigned f = 0; f < familyCount; ++f)
        if (open.family[f])
            capability(caps, capMultiprotocol, {0, U8(f + 1), 0, 1});
    if (open.routeRefresh)
        capability(caps, capRouteRefresh, {});
    if (open.extendedMessage)
        capability(caps, capExtendedMessage, {});
    if (open.gracefulRestart)
        capability(caps, capGracefulRestart, {0, 0});  // no restart, restart time 0
    if (open.fourOctetAs) {
        Octets asn;
        putBig(asn, open.asn, 4);
        capability(caps, capFourOctetAs, asn);
    }
    Octets tuples;
    for (unsigned f = 0; f < familyCount; ++f)
        if (open.addPath[f]) {
            putBig(tuples, f + 1, 2);
            tuples.push_back(1);
            tuples.push_back(open.addPath[f]);
        }
    if (!tuples.empty())
        capability(caps, capAddPath, tuples);

    Octets body;
    body.push_back(open.version);
    putBig(body, open.asn > 0xFFFF ? asTrans : open.asn, 2);
    putBig(body, open.holdTime, 2);
    putBig(body, open.bgpId, 4);
    // One Capabilities parameter holds them all (RFC 5492 section 4).
    body.push_back(U8(caps.size() + 2));
    body.push_back(optParamCapabilities);
    body.push_back(U8(caps.size()));
    body.insert(body.end(), caps.begin(), caps.end());
    return encodeMessage(MsgType::open, body.data(), body.size());
}

Octets encodeKeepalive() {
    return encodeMessage(MsgType::keepalive, nullptr, 0);
}

Octets encodeNotification(Notification const& n) {
    Octets body{n.code, n.subcode};
    body.insert(body.end(), n.data.begin(), n.data.end());
    return encodeMessage(MsgType::notification, body.data(), body.size());
}

Octets encodeRouteRefresh(Family family) {
    U8 const body[] = {0, U8(unsigned(family) + 1), 0, 1};
    return encodeMessage(MsgType::routeRefresh, body, sizeof body);
}

std::optional<Notification> checkHeader(U8 const* p, std::size_t maxSize, MsgType* type,
                                        std::size_t* length) {
    if (!std::all_of(p, p + 16, [](U8 o) { return o == 0xFF; }))
        return notify(errHeader, hdrNotSynchronized);
    std::size_t const size = std::size_t(p[16]) << 8 | p[17];
    U8 const code = p[18];
    // The Data field of Bad Message Length is the erroneous length, of Bad
    // Message Type the type (RFC 4271 section 6.1).
    if (code == 0 || code >= std::size(minLength))
        return notify(errHeader, hdrBadType, {code});
    if (size < minLength[code] || size > maxSize ||
        (code == U8(MsgType::keepalive) && size != headerSize))
        return notify(errHeader, hdrBadLength, {p[16], p[17]});
    *type = MsgType(code);
    *length = size;
    return std::nullopt;
}

std::optional<Notification> decodeOpen(Cursor body, OpenMsg* out) {
    *out = OpenMsg{};
    U16 myAs = 0;
    U8 paramsLength = 0;
    if (!body.u8(&out->version) || !body.u16(&myAs) || !body.u16(&out->holdTime) ||
        !body.u32(&out->bgpId) || !body.u8(&paramsLength))
        return notify(errHeader, hdrBadLength);
    if (out->version != bgpVersion)  // data: the largest version we support
        return notify(errOpen, openBadVersion, {0, bgpVersion});
    if (out->holdTime == 1 || out->holdTime == 2)
        return notify(errOpen, openBadHoldTime);
    if (out->bgpId == 0)
        return notify(errOpen, openBadBgpId);
    Cursor params;
    if (!body.sub(paramsLength, &params) || !body.empty())
        return notify(errOpen, 0);
    while (!params.empty()) {
        U8 type = 0, length = 0;
        Cursor value;
        if (!params.u8(&type) || !params.u8(&length) || !params.sub(length, &value))
            return notify(errOpen, 0);
        if (type != optParamCapabilities)
            return notify(errOpen, openBadOptParam);
        while (!value.empty()) {
            U8 code = 0, capLength = 0;
            Cursor capValue;
            if (!value.u8(&code) || !value.u8(&capLength) || !value.sub(capLength, &capValue))
                return notify(errOpen, 0);
            takeCapability(code, capValue, out);
        }
    }
    if (!out->fourOctetAs)
        out->asn = myAs;
    return std::nullopt;
}

bool decodeNotification(Cursor body, Notification* out) {
    if (!body.u8(&out->code) || !body.u8(&out->subcode))
        return false;
    out->data.assign(body.data(), body.data() + body.left());
    return true;
}

bool decodeRouteRefresh(Cursor body, U16* afi, U8* safi) {
    return body.u16(afi) && body.skip(1) && body.u8(safi) && body.empty();
}

}  // namespace Bgpcomm::Session
