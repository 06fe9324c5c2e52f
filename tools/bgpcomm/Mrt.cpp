#include "bgpcomm/Mrt.h"

#include <algorithm>
#include <string>

namespace Bgpcomm {

namespace {

char const* td2SubtypeName(U16 subtype) {
    static char const* const names[] = {
        "",
        "PEER_INDEX_TABLE",
        "RIB_IPV4_UNICAST",
        "RIB_IPV4_MULTICAST",
        "RIB_IPV6_UNICAST",
        "RIB_IPV6_MULTICAST",
        "RIB_GENERIC",
        "",
        "RIB_IPV4_UNICAST_ADDPATH",
        "RIB_IPV4_MULTICAST_ADDPATH",
        "RIB_IPV6_UNICAST_ADDPATH",
        "RIB_IPV6_MULTICAST_ADDPATH",
        "RIB_GENERIC_ADDPATH",
    };
    return subtype < std::size(names) ? names[subtype] : "";
}

// BGP message (RFC 4271 section 4.1): 16-octet marker, length, type.
constexpr std::size_t bgpHeaderSize = 19;
constexpr U8 bgpTypeUpdate = 2;

bool readAddress(Cursor& in, Afi afi, IpAddress* out) {
    *out = IpAddress{};
    out->afi = afi;
    return in.octets(out->octets.data(), afi == Afi::ipv4 ? 4 : 16);
}

}  // namespace

std::string unknownPeerMark(U64 peerTableNumber, U16 peerIndex) {
    return '\x01' + std::to_string(peerTableNumber) + '/' + std::to_string(peerIndex) + '\x01';
}

void MrtReader::run() {
    MrtHeader header;
    Cursor body;
    while (framer_.next(&header, &body)) {
        ++records_;
        if (framed_)
            framed_(header.timestamp, header.type, header.subtype, body);
        else
            record(header, body);
        if (progress_ && records_ % progressEvery_ == 0)
            progress_();
    }
}

void MrtReader::record(MrtHeader const& header, Cursor body) {
    U16 const type = header.type, subtype = header.subtype;
    batch_ = RouteBatch{};
    batch_.mrtType = type;
    batch_.timestamp = header.timestamp;
    batch_.recordOffset = body.offset() - mrtHeaderSize;
    U64 const at = batch_.recordOffset;
    if (type == mrtTableDumpV2) {
        switch (subtype) {
            case td2PeerIndexTable:
                return peerIndexTable(body);
            case td2RibIpv4Unicast:
            case td2RibIpv4Multicast:
                return ribAfi(body, subtype, Afi::ipv4, false);
            case td2RibIpv6Unicast:
            case td2RibIpv6Multicast:
                return ribAfi(body, subtype, Afi::ipv6, false);
            case td2RibIpv4UnicastAddPath:
            case td2RibIpv4MulticastAddPath:
                return ribAfi(body, subtype, Afi::ipv4, true);
            case td2RibIpv6UnicastAddPath:
            case td2RibIpv6MulticastAddPath:
                return ribAfi(body, subtype, Afi::ipv6, true);
            case td2RibGeneric:
            case td2RibGenericAddPath:
                return ribGeneric(body, subtype == td2RibGenericAddPath);
            default:
                diag_.at(at, "unknown TABLE_DUMP_V2 subtype " + std::to_string(subtype) +
                                 "; record skipped");
                return;
        }
    }
    if (type == mrtBgp4mp || type == mrtBgp4mpEt) {
        // BGP4MP_ET: a microsecond timestamp leads the body (RFC 6396 section 3).
        if (type == mrtBgp4mpEt && !body.u32(&batch_.microseconds)) {
            diag_.at(at,
                     "BGP4MP_ET record too short for its microsecond timestamp; record "
                     "skipped");
            return;
        }
        switch (subtype) {
            case bgp4mpStateChange:
            case bgp4mpStateChangeAs4:
                return;
            case bgp4mpMessage:
            case bgp4mpMessageAs4:
            case bgp4mpMessageLocal:
            case bgp4mpMessageAs4Local:
            case bgp4mpMessageAddPath:
            case bgp4mpMessageAs4AddPath:
            case bgp4mpMessageLocalAddPath:
            case bgp4mpMessageAs4LocalAddPath:
                return bgp4mpRecord(body, subtype);
            default:
                diag_.at(at,
                         std::string(type == mrtBgp4mp ? "unknown BGP4MP" : "unknown BGP4MP_ET") +
                             " subtype " + std::to_string(subtype) + "; record skipped");
                return;
        }
    }
    diag_.at(at, "unknown MRT type " + std::to_string(type) + "; record skipped");
}

void MrtReader::peerIndexTable(Cursor body) {
    U64 const at = batch_.recordOffset;
    U16 nameLength = 0, count = 0;
    if (!body.skip(4) || !body.u16(&nameLength) || !body.skip(nameLength) || !body.u16(&count)) {
        diag_.at(at, "PEER_INDEX_TABLE truncated; record skipped");
        return;
    }
    peers_.clear();
    havePeerTable_ = true;
    unknownReported_.assign(0x10000, false);
    peerTableNumber_ = records_;
    for (unsigned i = 0; i < count; ++i) {
        // Peer type bits (RFC 6396 section 4.3.1): 0x01 IPv6 address, 0x02 four-octet AS.
        U8 peerType = 0;
        Peer peer;
        bool ok = body.u8(&peerType) && body.skip(4) &&
                  readAddress(body, (peerType & 0x01) ? Afi::ipv6 : Afi::ipv4, &peer.ip);
        if (ok && (peerType & 0x02)) {
            ok = body.u32(&peer.asn);
        } else if (ok) {
            U16 asn = 0;
            ok = body.u16(&asn);
            peer.asn = asn;
        }
        if (!ok) {
            diag_.at(at, "PEER_INDEX_TABLE truncated after " + std::to_string(i) + " of " +
                             std::to_string(count) + " peers; remaining peers skipped");
            return;
        }
        peers_.push_back(peer);
    }
}

void MrtReader::ribAfi(Cursor body, U16 subtype, Afi afi, bool addPath) {
    char const* what = td2SubtypeName(subtype);
    Nlri nlri;
    std::string problem = body.skip(4) ? readPrefix(body, afi, &nlri.prefix) : "record truncated";
    if (!problem.empty()) {
        diag_.at(batch_.recordOffset, std::string(what) + " " + problem + "; record skipped");
        return;
    }
    ribEntries(body, nlri, addPath, what);
}

void MrtReader::ribGeneric(Cursor body, bool addPath) {
    char const* what = addPath ? "RIB_GENERIC_ADDPATH" : "RIB_GENERIC";
    U16 afiCode = 0;
    U8 safi = 0;
    if (!body.skip(4) || !body.u16(&afiCode) || !body.u8(&safi)) {
        diag_.at(batch_.recordOffset, std::string(what) + " record truncated; record skipped");
        return;
    }
    // IANA Address Family Numbers 1 and 2; SAFI 1 and 2 carry plain prefixes.
    if ((afiCode != 1 && afiCode != 2) || (safi != safiUnicast && safi != safiMulticast)) {
        diag_.at(batch_.recordOffset, std::string(what) + " AFI " + std::to_string(afiCode) +
                                          " SAFI " + std::to_string(safi) +
                                          " not supported; record skipped");
        return;
    }
    Nlri nlri;
    std::string problem = readPrefix(body, afiCode == 1 ? Afi::ipv4 : Afi::ipv6, &nlri.prefix);
    if (!problem.empty()) {
        diag_.at(batch_.recordOffset, std::string(what) + " " + problem + "; record skipped");
        return;
    }
    ribEntries(body, nlri, addPath, what);
}

void MrtReader::ribEntries(Cursor& body, Nlri const& nlri, bool addPath, char const* what) {
    if (!havePeerTable_) {
        diag_.at(batch_.recordOffset,
                 std::string(what) + " record before any PEER_INDEX_TABLE; record skipped");
        return;
    }
    U16 count = 0;
    if (!body.u16(&count)) {
        diag_.at(batch_.recordOffset, std::string(what) + " record truncated; record skipped");
        return;
    }
    batch_.kind = RouteKind::rib;
    batch_.addPath = addPath;
    for (unsigned i = 0; i < count; ++i) {
        U64 const at = body.offset();
        // RIB entry (RFC 6396 section 4.3.4, RFC 8050 section 4): peer index,
        // originated time, [path identifier], attribute length, attributes.
        U16 peerIndex = 0, attrLength = 0;
        nlri_.assign(1, nlri);
        Cursor attrs;
        bool ok = body.u16(&peerIndex) && body.skip(4) &&
                  (!addPath || body.u32(&nlri_[0].pathId)) && body.u16(&attrLength) &&
                  body.sub(attrLength, &attrs);
        if (!ok) {
            diag_.at(at, std::string(what) + " entry " + std::to_string(i + 1) + " of " +
                             std::to_string(count) + " truncated; rest of record skipped");
            return;
        }
        if (peerIndex < peers_.size()) {
            batch_.peer = peers_[peerIndex];
        } else {
            batch_.peer = Peer{IpAddress{}, 0, false};
            // Once per index: gobgpd writes one such entry per route it originates.
            if (!unknownReported_[peerIndex]) {
                unknownReported_[peerIndex] = true;
                diag_.at(at, (markUnknownPeers_ ? unknownPeerMark(peerTableNumber_, peerIndex)
                                                : std::string()) +
                                 what + " record " + std::to_string(records_) + " at offset " +
                                 std::to_string(batch_.recordOffset) + ", entry " +
                                 std::to_string(i + 1) + " of " + std::to_string(count) +
                                 ": peer index " + std::to_string(peerIndex) +
                                 " is not in the peer table (" + std::to_string(peers_.size()) +
                                 " peers); route kept under the unknown peer 0.0.0.0 AS0 "
                                 "(reported once per peer index)");
            }
        }
        walkAttributes(attrs, AttrContext::ribEntry, true, diag_, &attrs_);
        batch_.attrs = &attrs_;
        batch_.nlri = &nlri_;
        sink_(batch_);
    }
}

void MrtReader::bgp4mpRecord(Cursor body, U16 subtype) {
    U64 const at = batch_.recordOffset;
    bool const as4 = subtype == bgp4mpMessageAs4 || subtype == bgp4mpMessageAs4Local ||
                     subtype == bgp4mpMessageAs4AddPath || subtype == bgp4mpMessageAs4LocalAddPath;
    bool const addPath = subtype >= bgp4mpMessageAddPath;
    // RFC 6396 section 4.4.2: peer AS, local AS, interface index, AFI, peer
    // and local address, then the BGP message.
    U32 peerAsn = 0;
    U16 peerAsn16 = 0, afiCode = 0;
    bool ok = as4 ? body.u32(&peerAsn) && body.skip(4) : body.u16(&peerAsn16) && body.skip(2);
    ok = ok && body.skip(2) && body.u16(&afiCode);
    if (ok && afiCode != 1 && afiCode != 2) {
        diag_.at(at,
                 "BGP4MP address family " + std::to_string(afiCode) + " unknown; record skipped");
        return;
    }
    Afi const afi = afiCode == 2 ? Afi::ipv6 : Afi::ipv4;
    IpAddress local;
    ok = ok && readAddress(body, afi, &batch_.peer.ip) && readAddress(body, afi, &local);
    batch_.peer.asn = as4 ? peerAsn : peerAsn16;
    U16 length = 0;
    U8 type = 0;
    ok = ok && body.skip(16) && body.u16(&length) && body.u8(&type);
    if (!ok) {
        diag_.at(at, "BGP4MP message truncated; record skipped");
        return;
    }
    if (length < bgpHeaderSize || length - bgpHeaderSize > body.left()) {
        diag_.at(at, "BGP message length " + std::to_string(length) + " does not fit the record (" +
                         std::to_string(body.left() + bgpHeaderSize) + " octets); record skipped");
        return;
    }
    if (type != bgpTypeUpdate)
        return;
    Cursor message;
    body.sub(length - bgpHeaderSize, &message);
    update(message, as4, addPath);
}

void MrtReader::update(Cursor message, bool as4, bool addPath) {
    U64 const at = batch_.recordOffset;
    // UPDATE (RFC 4271 section 4.3): withdrawn routes, path attributes, NLRI.
    U16 withdrawnLength = 0, attrsLength = 0;
    Cursor withdrawn, attrs;
    if (!message.u16(&withdrawnLength) || !message.sub(withdrawnLength, &withdrawn)) {
        diag_.at(at, "UPDATE withdrawn routes run past the message; record skipped");
        return;
    }
    if (!message.u16(&attrsLength) || !message.sub(attrsLength, &attrs)) {
        diag_.at(at, "UPDATE path attributes run past the message; record skipped");
        return;
    }
    walkAttributes(attrs, AttrContext::update, as4, diag_, &attrs_);
    batch_.addPath = addPath;

    withdrawn_.clear();
    readNlri(withdrawn, Afi::ipv4, addPath, &withdrawn_, "withdrawn routes");
    if (attrs_.hasMpUnreach)
        readNlri(attrs_.mpUnreachNlri, attrs_.mpUnreachAfi, addPath, &withdrawn_,
                 "MP_UNREACH_NLRI");
    if (!withdrawn_.empty()) {
        batch_.kind = RouteKind::withdraw;
        batch_.attrs = nullptr;
        batch_.nlri = &withdrawn_;
        sink_(batch_);
    }

    nlri_.clear();
    readNlri(message, Afi::ipv4, addPath, &nlri_, "NLRI");
    if (attrs_.hasMpReach)
        readNlri(attrs_.mpReachNlri, attrs_.mpReachAfi, addPath, &nlri_, "MP_REACH_NLRI");
    if (!nlri_.empty()) {
        batch_.kind = RouteKind::announce;
        batch_.attrs = &attrs_;
        batch_.nlri = &nlri_;
        sink_(batch_);
    }
}

bool MrtReader::readNlri(Cursor in, Afi afi, bool addPath, std::vector<Nlri>* out,
                         char const* what) {
    while (!in.empty()) {
        U64 const at = in.offset();
        Nlri nlri;
        std::string problem = addPath && !in.u32(&nlri.pathId) ? "prefix truncated"
                                                               : readPrefix(in, afi, &nlri.prefix);
        if (!problem.empty()) {
            diag_.at(at, std::string(what) + " " + problem + "; remaining prefixes skipped");
            return false;
        }
        out->push_back(nlri);
    }
    return true;
}

}  // namespace Bgpcomm
