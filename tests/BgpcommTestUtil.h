// Hand-built MRT octets and a captured run of `bgpcomm mrt` for the tool's
// tests.
#pragma once

#include <bzlib.h>
#include <zlib.h>

#include <cstdio>
#include <string>
#include <vector>

#include "bgpcomm/MrtCommand.h"

namespace BgpcommTest {

using Bytes = std::vector<U8>;

inline void put(Bytes& out, U64 value, unsigned octets) {
    for (unsigned i = octets; i-- > 0;)
        out.push_back(static_cast<U8>(value >> (8 * i)));
}
inline Bytes cat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (Bytes const& part : parts)
        out.insert(out.end(), part.begin(), part.end());
    return out;
}
// A path attribute with a one-octet length. Built by cat: gcc 12 at -O3
// takes the growth path of an insert into a 3-octet vector for an overrun
// (-Warray-bounds).
inline Bytes attr(U8 flags, U8 type, Bytes const& value, int length = -1) {
    return cat(
        {{flags, type, static_cast<U8>(length < 0 ? value.size() : unsigned(length))}, value});
}
inline Bytes u32s(std::initializer_list<U32> values) {
    Bytes out;
    for (U32 v : values)
        put(out, v, 4);
    return out;
}
inline Bytes mrt(U16 type, U16 subtype, Bytes const& body, U32 timestamp = 1700000000) {
    Bytes out;
    put(out, timestamp, 4);
    put(out, type, 2);
    put(out, subtype, 2);
    put(out, body.size(), 4);
    out.insert(out.end(), body.begin(), body.end());
    return out;
}

// PEER_INDEX_TABLE: 192.0.2.1 AS65001, 2001:db8::2 AS65002.
inline Bytes peerTable() {
    Bytes body = u32s({0xC0000201});
    put(body, 0, 2);
    put(body, 2, 2);
    body.push_back(0x02);
    put(body, 0xC0000201, 4);
    put(body, 0xC0000201, 4);
    put(body, 65001, 4);
    body.push_back(0x03);
    put(body, 0xC0000202, 4);
    body.insert(body.end(), {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2});
    put(body, 65002, 4);
    return mrt(13, 1, body);
}

inline Bytes origin() {
    return attr(0x40, 1, {0});
}
// AS_SEQUENCE of four-octet numbers.
inline Bytes asPath(std::initializer_list<U32> asns) {
    Bytes value{2, static_cast<U8>(asns.size())};
    for (U32 asn : asns)
        put(value, asn, 4);
    return attr(0x40, 2, value);
}

struct RibEntry {
    U16 peerIndex;
    Bytes attrs;
};
// RIB_IPV4_UNICAST (or `subtype`) of 10.0.0.0/24 (or `prefix`: length
// octet and address octets); `count` overrides the entry count written.
inline Bytes rib(std::vector<RibEntry> const& entries, int count = -1, U16 subtype = 2,
                 Bytes const& prefix = {24, 10, 0, 0}) {
    Bytes body = cat({u32s({0}), prefix});
    put(body, count < 0 ? entries.size() : unsigned(count), 2);
    for (RibEntry const& entry : entries) {
        put(body, entry.peerIndex, 2);
        put(body, 1690000000, 4);
        put(body, entry.attrs.size(), 2);
        body.insert(body.end(), entry.attrs.begin(), entry.attrs.end());
    }
    return mrt(13, subtype, body);
}

// BGP4MP MESSAGE_AS4 (or `subtype`) from 192.0.2.1 AS65001 carrying one
// UPDATE.
inline Bytes update(Bytes const& withdrawn, Bytes const& attrs, Bytes const& nlri,
                    U16 subtype = 4) {
    Bytes body = u32s({65001, 65000});
    put(body, 0, 2);
    put(body, 1, 2);
    put(body, 0xC0000201, 4);
    put(body, 0xC0000209, 4);
    Bytes message;
    put(message, withdrawn.size(), 2);
    message.insert(message.end(), withdrawn.begin(), withdrawn.end());
    put(message, attrs.size(), 2);
    message.insert(message.end(), attrs.begin(), attrs.end());
    message.insert(message.end(), nlri.begin(), nlri.end());
    body.insert(body.end(), 16, 0xFF);
    put(body, message.size() + 19, 2);
    body.push_back(2);
    body.insert(body.end(), message.begin(), message.end());
    return mrt(16, subtype, body);
}

// gzip (RFC 1952) and bzip2 streams of `data`.
inline Bytes gzipped(Bytes const& data) {
    z_stream z{};
    deflateInit2(&z, 6, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY);
    Bytes out(deflateBound(&z, uLong(data.size())));
    z.next_in = const_cast<U8*>(data.data());
    z.avail_in = uInt(data.size());
    z.next_out = out.data();
    z.avail_out = uInt(out.size());
    deflate(&z, Z_FINISH);
    out.resize(z.total_out);
    deflateEnd(&z);
    return out;
}
inline Bytes bzipped(Bytes const& data) {
    Bytes out(data.size() + data.size() / 100 + 600);
    auto size = unsigned(out.size());
    BZ2_bzBuffToBuffCompress(reinterpret_cast<char*>(out.data()), &size,
                             const_cast<char*>(reinterpret_cast<char const*>(data.data())),
                             unsigned(data.size()), 1, 0, 0);
    out.resize(size);
    return out;
}

// The run's route lines and its messages.
struct Result {
    std::string out;
    std::string err;
    int status = -1;
};

inline Result run(Bgpcomm::MrtOptions options, Bytes const& data,
                  std::string const& label = "x.mrt") {
    Result result;
    char* buffer = nullptr;
    std::size_t size = 0;
    std::FILE* out = open_memstream(&buffer, &size);
    {
        options.progress = false;
        Bgpcomm::MrtRun run(std::move(options), out);
        run.diag().captureIs(&result.err);
        auto source = Bgpcomm::openSource(Bgpcomm::RawInput::fromMemory(data));
        run.source(label, *source);
        result.status = run.finish();
    }
    std::fclose(out);
    result.out.assign(buffer, size);
    std::free(buffer);
    return result;
}

inline Bgpcomm::MrtOptions textOptions() {
    return Bgpcomm::MrtOptions{};
}

}  // namespace BgpcommTest
