#include "bgpcomm/Wire.h"

#include <arpa/inet.h>

#include "Vonet/Ip6Addr.h"

namespace Bgpcomm {

bool Prefix::covers(Prefix const& inner) const {
    if (inner.addr.afi != addr.afi || inner.length < length)
        return false;
    unsigned full = length / 8;
    if (std::memcmp(addr.octets.data(), inner.addr.octets.data(), full) != 0)
        return false;
    unsigned bits = length % 8;
    if (bits == 0)
        return true;
    U8 mask = static_cast<U8>(0xFF << (8 - bits));
    return (addr.octets[full] & mask) == (inner.addr.octets[full] & mask);
}

std::string readPrefix(Cursor& in, Afi afi, Prefix* out) {
    U8 length = 0;
    if (!in.u8(&length))
        return "prefix truncated";
    unsigned maxLength = afi == Afi::ipv4 ? 32 : 128;
    if (length > maxLength)
        return "prefix length " + std::to_string(length) + " too long for " +
               (afi == Afi::ipv4 ? "IPv4" : "IPv6");
    *out = Prefix{};
    out->addr.afi = afi;
    out->length = length;
    if (!in.octets(out->addr.octets.data(), (length + 7u) / 8))
        return "prefix truncated";
    return {};
}

void formatAddress(VoFmt::TextBuffer& out, IpAddress const& addr) {
    if (addr.afi == Afi::ipv4) {
        U32 v = U32(addr.octets[0]) << 24 | U32(addr.octets[1]) << 16 | U32(addr.octets[2]) << 8 |
                addr.octets[3];
        out.appendIpv4Address(v);
        return;
    }
    Vonet::Ip6Addr::Octets octets;
    std::memcpy(octets.data(), addr.octets.data(), 16);
    Vonet::Ip6Addr(octets).format(out);
}

void formatPrefix(VoFmt::TextBuffer& out, Prefix const& prefix) {
    formatAddress(out, prefix.addr);
    out.append('/');
    out.appendDecimal(prefix.length);
}

std::string addressText(IpAddress const& addr) {
    VoFmt::StackBackedBuffer<64> buffer;
    formatAddress(buffer, addr);
    return buffer.str();
}

std::string prefixText(Prefix const& prefix) {
    VoFmt::StackBackedBuffer<64> buffer;
    formatPrefix(buffer, prefix);
    return buffer.str();
}

bool parseAddress(std::string const& text, IpAddress* out) {
    IpAddress addr;
    if (inet_pton(AF_INET, text.c_str(), addr.octets.data()) == 1) {
        addr.afi = Afi::ipv4;
        *out = addr;
        return true;
    }
    Vonet::Ip6Addr ip6;
    if (!Vonet::Ip6Addr::parse(text, &ip6))
        return false;
    addr.afi = Afi::ipv6;
    std::memcpy(addr.octets.data(), ip6.octets().data(), 16);
    *out = addr;
    return true;
}

bool parsePrefix(std::string const& text, Prefix* out) {
    auto slash = text.find('/');
    if (slash == std::string::npos || slash + 1 == text.size())
        return false;
    Prefix prefix;
    if (!parseAddress(text.substr(0, slash), &prefix.addr))
        return false;
    unsigned length = 0;
    for (char c : text.substr(slash + 1)) {
        if (c < '0' || c > '9' || length > 128)
            return false;
        length = length * 10 + unsigned(c - '0');
    }
    if (length > (prefix.addr.afi == Afi::ipv4 ? 32u : 128u))
        return false;
    prefix.length = static_cast<U8>(length);
    // Host bits must be clear: the prefix covers itself only then.
    Prefix masked = prefix;
    for (unsigned bit = length; bit < 128; ++bit)
        masked.addr.octets[bit / 8] &= static_cast<U8>(~(0x80u >> (bit % 8)));
    if (!(masked == prefix))
        return false;
    *out = prefix;
    return true;
}

}  // namespace Bgpcomm
