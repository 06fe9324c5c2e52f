#include "bgpcomm/session/AdjRib.h"

#include "Kiv/Hash.h"

namespace Bgpcomm::Session {

std::size_t AdjRibIn::KeyHash::operator()(Key const& k) const {
    U64 a = 0, b = 0;
    std::memcpy(&a, k.prefix.addr.octets.data(), 8);
    std::memcpy(&b, k.prefix.addr.octets.data() + 8, 8);
    U64 h = a * 0x9E3779B97F4A7C15ull ^ (b + 0x632BE59BD9B4E019ull) * 0xC2B2AE3D27D4EB4Full;
    h ^= (U64(k.prefix.length) << 40 | U64(k.prefix.addr.afi) << 32 | k.pathId) *
         0x165667B19E3779F9ull;
    return std::size_t(h ^ (h >> 29));
}

bool AdjRibIn::announce(Nlri const& nlri, RibRoute route) {
    auto [it, fresh] = routes_.try_emplace(Key{nlri.prefix, nlri.pathId}, std::move(route));
    if (!fresh)
        it->second = std::move(route);
    return fresh;
}

bool AdjRibIn::withdraw(Nlri const& nlri) {
    return routes_.erase(Key{nlri.prefix, nlri.pathId}) != 0;
}

U64 AdjRibIn::mapBytes(U64 nodeBlock) const {
    // One bucket is the map's own member, not on the heap.
    std::size_t const buckets = routes_.bucket_count() > 1 ? routes_.bucket_count() : 0;
    return U64(routes_.size()) * nodeBlock + U64(buckets) * sizeof(void*);
}

Octets ribAttributes(Cursor raw, PathAttrs const& attrs, bool ipv6) {
    Octets out;
    while (!raw.empty()) {
        U8 const* start = raw.data();
        U8 flags = 0, type = 0, length8 = 0;
        U16 length = 0;
        if (!raw.u8(&flags) || !raw.u8(&type))
            break;
        bool ok = (flags & attrFlagExtendedLength) ? raw.u16(&length)
                                                   : (raw.u8(&length8) && (length = length8, true));
        if (!ok || !raw.skip(length))
            break;
        if (type != attrMpReachNlri && type != attrMpUnreachNlri)
            out.insert(out.end(), start, raw.data());
    }
    if (ipv6 && attrs.hasNextHop && attrs.nextHop.afi == Afi::ipv6) {
        append(out, {attrFlagOptional, attrMpReachNlri, 17, 16});
        out.insert(out.end(), attrs.nextHop.octets.begin(), attrs.nextHop.octets.end());
    }
    return out;
}

}  // namespace Bgpcomm::Session
