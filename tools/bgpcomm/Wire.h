// Wire-level building blocks of the bgpcomm tool: a bounds-checked
// big-endian reader over one record, IP addresses and prefixes as MRT and BGP
// carry them, and their text forms.
//
// Contract: Cursor never reads past its end; every read reports success, so
// callers can turn a short record into a message instead of a crash. All
// multi-octet fields are in network byte order (RFC 4271 section 4, RFC 6396
// section 2).
#pragma once

#include <array>
#include <cstddef>
#include <cstring>
#include <string>

#include "Kiv/Types.h"
#include "VoFmt/StackBackedBuffer.h"

namespace Bgpcomm {

// The four octets at `p` as one number, the first octet the most significant.
inline U32 be32(U8 const* p) {
    return U32(p[0]) << 24 | U32(p[1]) << 16 | U32(p[2]) << 8 | p[3];
}

// A read-only view of octets with the stream offset of its first octet, so
// that every message can name the byte offset in the file.
class Cursor {
  public:
    Cursor() = default;
    Cursor(U8 const* data, std::size_t size, U64 offset)
        : p_(data), end_(data + size), offset_(offset) {}

    std::size_t left() const { return static_cast<std::size_t>(end_ - p_); }
    bool empty() const { return p_ == end_; }
    U8 const* data() const { return p_; }
    // Stream offset of the next octet.
    U64 offset() const { return offset_; }

    bool u8(U8* out) { return fixed(out); }
    bool u16(U16* out) { return fixed(out); }
    bool u32(U32* out) { return fixed(out); }
    bool skip(std::size_t n) {
        if (left() < n)
            return false;
        advance(n);
        return true;
    }
    bool octets(void* out, std::size_t n) {
        if (left() < n)
            return false;
        std::memcpy(out, p_, n);
        advance(n);
        return true;
    }
    // The next `n` octets as a cursor of their own, skipped here.
    bool sub(std::size_t n, Cursor* out) {
        if (left() < n)
            return false;
        *out = Cursor(p_, n, offset_);
        advance(n);
        return true;
    }

  private:
    template <class T>
    bool fixed(T* out) {
        if (left() < sizeof(T))
            return false;
        T value = 0;
        for (std::size_t i = 0; i < sizeof(T); ++i)
            value = static_cast<T>((value << 8) | p_[i]);
        *out = value;
        advance(sizeof(T));
        return true;
    }
    void advance(std::size_t n) {
        p_ += n;
        offset_ += n;
    }

    U8 const* p_ = nullptr;
    U8 const* end_ = nullptr;
    U64 offset_ = 0;
};

// Address families as MRT and BGP number them (IANA Address Family Numbers).
enum class Afi : U8 { ipv4 = 1, ipv6 = 2 };

struct IpAddress {
    Afi afi = Afi::ipv4;
    // Network order; only the first 4 octets count for IPv4.
    std::array<U8, 16> octets{};

    std::size_t size() const { return afi == Afi::ipv4 ? 4 : 16; }
    friend bool operator==(IpAddress const&, IpAddress const&) = default;
};

struct Prefix {
    IpAddress addr;
    U8 length = 0;

    friend bool operator==(Prefix const&, Prefix const&) = default;
    // Whether `inner` lies inside this prefix (equal prefixes included).
    bool covers(Prefix const& inner) const;
};

// An NLRI prefix (RFC 4271 section 4.3): length octet, then the fewest
// octets that hold it. Returns an empty string on success, else what was
// wrong ("prefix length 33 too long for IPv4", "prefix truncated").
std::string readPrefix(Cursor& in, Afi afi, Prefix* out);

// Text forms: dotted quad / RFC 5952, and "<address>/<length>".
void formatAddress(VoFmt::TextBuffer& out, IpAddress const& addr);
void formatPrefix(VoFmt::TextBuffer& out, Prefix const& prefix);
std::string addressText(IpAddress const& addr);
std::string prefixText(Prefix const& prefix);
// Parses "a.b.c.d" or an IPv6 text; false when it is neither.
bool parseAddress(std::string const& text, IpAddress* out);
// Parses "<address>/<length>"; false when malformed. Host bits must be zero.
bool parsePrefix(std::string const& text, Prefix* out);

}  // namespace Bgpcomm
