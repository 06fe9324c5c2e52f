#include "bgpcomm/Bgpdump.h"

namespace Bgpcomm {

namespace {

// RFC 6793: the two-octet AS that stands for a four-octet one.
constexpr U32 asTrans = 23456;

char const* typeName(RouteBatch const& batch) {
    if (batch.mrtType == mrtTableDumpV2)
        return batch.addPath ? "TABLE_DUMP2_AP" : "TABLE_DUMP2";
    if (batch.addPath)
        return "BGP4MP_AP";
    return batch.mrtType == mrtBgp4mpEt ? "BGP4MP_ET" : "BGP4MP";
}

// ORIGIN values (RFC 4271 section 4.3).
char const* originName(U8 origin) {
    static char const* const names[] = {"IGP", "EGP", "INCOMPLETE"};
    return origin < std::size(names) ? names[origin] : "";
}

void appendCommunities(VoFmt::TextBuffer& out, AttrSpan const& span) {
    for (U32 i = 0; span.present && i + 4 <= span.size; i += 4) {
        if (i != 0)
            out.append(' ');
        U32 const value = be32(span.data + i);
        // Well-known communities (RFC 1997) by bgpdump's names.
        if (value == 0xFFFFFF01)
            out.append("no-export");
        else if (value == 0xFFFFFF02)
            out.append("no-advertise");
        else if (value == 0xFFFFFF03)
            out.append("local-AS");
        else {
            out.appendDecimal(value >> 16);
            out.append(':');
            out.appendDecimal(value & 0xFFFF);
        }
    }
}

void appendAggregator(VoFmt::TextBuffer& out, PathAttrs const& attrs, bool asdot) {
    AttrSpan const& agg = attrs.aggregator;
    if (!agg.present)
        return;
    bool const twoOctet = agg.size == 6;
    U32 asn = twoOctet ? U32(agg.data[0]) << 8 | agg.data[1] : be32(agg.data);
    U8 const* address = agg.data + (twoOctet ? 2 : 4);
    if (twoOctet && asn == asTrans && attrs.as4Aggregator.present) {
        asn = be32(attrs.as4Aggregator.data);
        address = attrs.as4Aggregator.data + 4;
    }
    out.appendAsNumber(asn, asdot);
    out.append(' ');
    out.appendIpv4Address(be32(address));
}

}  // namespace

void appendBgpdumpColumns(VoFmt::TextBuffer& out, RouteView const& route, bool asdot) {
    RouteBatch const& batch = *route.batch;
    out.append(typeName(batch));
    out.append('|');
    out.appendDecimal(batch.timestamp);
    if (batch.mrtType == mrtBgp4mpEt) {
        out.append('.');
        for (U32 scale = 100000; scale != 0; scale /= 10)
            out.append(char('0' + batch.microseconds / scale % 10));
    }
    out.append('|');
    out.append(batch.kind == RouteKind::rib ? 'B' : batch.kind == RouteKind::announce ? 'A' : 'W');
    out.append('|');
    formatAddress(out, batch.peer.ip);
    out.append('|');
    out.appendAsNumber(batch.peer.asn, asdot);
    out.append('|');
    formatPrefix(out, route.nlri->prefix);
    if (batch.addPath) {
        out.append('|');
        out.appendDecimal(route.nlri->pathId);
    }
    if (batch.kind == RouteKind::withdraw || !batch.attrs)
        return;
    PathAttrs const& attrs = *batch.attrs;
    out.append('|');
    if (route.asPath)
        formatAsPath(out, *route.asPath, asdot);
    out.append('|');
    out.append(originName(attrs.origin));
    out.append('|');
    if (attrs.hasNextHop)
        formatAddress(out, attrs.nextHop);
    out.append('|');
    out.appendDecimal(attrs.localPref);
    out.append('|');
    out.appendDecimal(attrs.med);
    out.append('|');
    appendCommunities(out, attrs.of(CommKind::standard));
    out.append(attrs.atomicAggregate ? "|AG|" : "|NAG|");
    appendAggregator(out, attrs, asdot);
    out.append('|');
}

}  // namespace Bgpcomm
