#include "bgpcomm/session/MrtWriter.h"

#include <sys/time.h>

#include <cerrno>
#include <cstring>

#include "bgpcomm/MrtFrame.h"
#include "bgpcomm/session/Update.h"

namespace Bgpcomm::Session {

namespace {

void putAddress(Octets& out, IpAddress const& addr) {
    out.insert(out.end(), addr.octets.begin(), addr.octets.begin() + std::ptrdiff_t(addr.size()));
}

}  // namespace

MrtFile::~MrtFile() {
    close();
}

std::string MrtFile::open(std::string const& path) {
    file_ = std::fopen(path.c_str(), "wb");
    if (!file_)
        return "cannot write '" + path + "': " + std::strerror(errno);
    return {};
}

std::string MrtFile::close() {
    if (file_ && std::fclose(file_) != 0 && error_.empty())
        error_ = std::strerror(errno);
    file_ = nullptr;
    return error_;
}

void MrtFile::record(U16 type, U16 subtype, Octets const& body, bool extendedTime) {
    if (!file_)
        return;
    timeval now{};
    ::gettimeofday(&now, nullptr);
    // Common header (RFC 6396 section 2); the _ET microseconds count in the
    // length (section 3).
    Octets head;
    putBig(head, U64(now.tv_sec), 4);
    putBig(head, type, 2);
    putBig(head, subtype, 2);
    putBig(head, body.size() + (extendedTime ? 4 : 0), 4);
    if (extendedTime)
        putBig(head, U64(now.tv_usec), 4);
    if (std::fwrite(head.data(), 1, head.size(), file_) != head.size() ||
        std::fwrite(body.data(), 1, body.size(), file_) != body.size())
        if (error_.empty())
            error_ = std::strerror(errno);
}

void MrtFile::update(Peer const& peer, IpAddress const& local, U32 localAs, bool fourOctetAs,
                     bool addPath, U8 const* body, std::size_t size) {
    U16 const subtype = fourOctetAs ? (addPath ? bgp4mpMessageAs4AddPath : bgp4mpMessageAs4)
                                    : (addPath ? bgp4mpMessageAddPath : bgp4mpMessage);
    Octets out;
    unsigned const asSize = fourOctetAs ? 4 : 2;
    putBig(out, peer.asn, asSize);
    putBig(out, localAs, asSize);
    putBig(out, 0, 2);  // interface index
    putBig(out, U8(peer.ip.afi), 2);
    putAddress(out, peer.ip);
    IpAddress mine = local;
    if (mine.afi != peer.ip.afi)
        mine = IpAddress{peer.ip.afi, {}};
    putAddress(out, mine);
    Octets const message = encodeMessage(MsgType::update, body, size);
    out.insert(out.end(), message.begin(), message.end());
    record(mrtBgp4mpEt, subtype, out, true);
}

void MrtFile::peerIndex(U32 collectorId, std::vector<RibPeer> const& peers) {
    Octets out;
    putBig(out, collectorId, 4);
    putBig(out, 0, 2);  // no view name
    putBig(out, peers.size(), 2);
    for (RibPeer const& p : peers) {
        // Peer type: bit 0 IPv6 address, bit 1 4-octet AS (RFC 6396 4.3.1).
        out.push_back(U8((p.peer.ip.afi == Afi::ipv6 ? 1 : 0) | 2));
        putBig(out, p.bgpId, 4);
        putAddress(out, p.peer.ip);
        putBig(out, p.peer.asn, 4);
    }
    record(mrtTableDumpV2, td2PeerIndexTable, out, false);
}

void MrtFile::rib(U32 sequence, Prefix const& prefix, bool addPath,
                  std::vector<RibEntry> const& entries) {
    bool const v4 = prefix.addr.afi == Afi::ipv4;
    U16 const subtype = v4 ? (addPath ? td2RibIpv4UnicastAddPath : td2RibIpv4Unicast)
                           : (addPath ? td2RibIpv6UnicastAddPath : td2RibIpv6Unicast);
    Octets out;
    putBig(out, sequence, 4);
    putPrefix(out, prefix);
    putBig(out, entries.size(), 2);
    for (RibEntry const& e : entries) {
        putBig(out, e.peerIndex, 2);
        putBig(out, e.originated, 4);
        if (addPath)
            putBig(out, e.pathId, 4);
        putBig(out, e.attrs->size(), 2);
        out.insert(out.end(), e.attrs->begin(), e.attrs->end());
    }
    record(mrtTableDumpV2, subtype, out, false);
}

}  // namespace Bgpcomm::Session
