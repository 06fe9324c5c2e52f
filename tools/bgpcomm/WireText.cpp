#include "bgpcomm/WireText.h"

#include <bit>
#include <cmath>
#include <cstdio>

#include "bgpcomm/Ingest.h"

namespace Bgpcomm {

using namespace Routing::Bgp;

bool isLinkBandwidth(U64 value) {
    U8 const type = U8(value >> 56);
    return (type == 0x00 || type == 0x40) && U8(value >> 48) == 0x04;
}

void appendLinkBandwidthBps(VoFmt::TextBuffer& out, U64 value) {
    double const bps = double(std::bit_cast<float>(U32(value))) * 8;
    if (!std::isfinite(bps)) {
        out.append("null");
    } else if (bps >= 0 && bps < 0x1p53 && bps == std::floor(bps)) {
        out.appendDecimal(U64(bps));
    } else {
        char text[32];
        int n = std::snprintf(text, sizeof text, "%.9g", bps);
        out.append(std::string_view(text, std::size_t(n)));
    }
}

void Ingest::forEachWireText(AttrSpan const& span, CommKind kind, bool asdot,
                             BgpShowCli::ExtCommCache* cache,
                             std::function<void(std::string_view, U64)> const& each) {
    if (!span.present)
        return;
    U32 const size = commKindInfo(kind).elementSize;
    VoFmt::StackBackedBuffer<64> buffer;
    if (kind == CommKind::extended && !cache)
        cache = parser_->extCommCache().ptr();
    ExtCommIp6::StrepFormat ip6Format;
    ip6Format.strepFormatClassificationIs(true);
    ip6Format.strepFormatUIIs(true);
    ip6Format.strepFormatAsdotIs(asdot);
    for (U32 i = 0; i + size <= span.size; i += size) {
        U8 const* p = span.data + i;
        buffer.clear();
        switch (kind) {
            case CommKind::standard:
                CommunityFormatter<true>::format(buffer, CommListTraits<U32>::fromWire(p));
                break;
            case CommKind::large:
                LargeCommunityFormatter::format(
                    buffer, CommListTraits<Acl::CommunityValue>::fromWire(p), asdot);
                break;
            case CommKind::extended: {
                U64 const value = U64(p[0]) << 56 | U64(p[1]) << 48 | U64(p[2]) << 40 |
                                  U64(p[3]) << 32 | U64(p[4]) << 24 | U64(p[5]) << 16 |
                                  U64(p[6]) << 8 | p[7];
                Kiv::String text = cache->lookup(value, asdot);
                if (text.isNull()) {
                    text = ExtComm::dedupContent(extTable_.ptr(), ExtCommContent(value))
                               ->toStrepForUI(asdot);
                    cache->insert(value, text, asdot);
                }
                each(text.view(), value);
                continue;
            }
            case CommKind::ipv6:
                ExtCommIp6::dedupContent(ip6Table_.ptr(), ip6Content(p))
                    ->formatPolicy(buffer, ip6Format);
                break;
        }
        each(buffer.view(), 0);
    }
}

}  // namespace Bgpcomm
