#include "bgpcomm/Output.h"

#include "bgpcomm/Bgpdump.h"
#include "bgpcomm/WireText.h"

namespace Bgpcomm {

namespace {

char const* kindName(RouteKind kind) {
    return kind == RouteKind::rib ? "rib" : kind == RouteKind::announce ? "announce" : "withdraw";
}

void appendHexOctets(VoFmt::TextBuffer& out, U8 const* p, std::size_t n) {
    out.append("0x");
    for (std::size_t i = 0; i < n; ++i)
        out.appendHex2(p[i]);
}

// The JSON keys of each kind's text and raw arrays, indexed by CommKind.
struct JsonKeys {
    char const* texts;
    char const* raw;
};
constexpr JsonKeys jsonKeys[commKindCount] = {
    {"communities", "communities_raw"},
    {"ext_communities", "ext_communities_raw"},
    {"ipv6_ext_communities", "ipv6_ext_communities_raw"},
    {"large_communities", "large_communities_raw"},
};
// Text and JSON order of the kinds.
constexpr CommKind printOrder[commKindCount] = {CommKind::standard, CommKind::large,
                                                CommKind::extended, CommKind::ipv6};
char const* const textLabels[commKindCount] = {"communities", "extended", "ipv6-extended", "large"};

bool originOf(RouteView const& route, U32* asn) {
    return route.asPath && originAsn(*route.asPath, asn);
}

}  // namespace

void Output::begin() {
    if (format_ != Format::psv || !header_)
        return;
    std::fputs(
        "type|timestamp|entry|peer_ip|peer_asn|prefix|as_path|origin|next_hop|local_pref|med|"
        "communities_received|atomic_aggregate|aggregator|communities|large_communities|"
        "ext_communities|ipv6_ext_communities\n",
        out_);
}

std::string_view Output::formatted(RouteView const& route) {
    line_.clear();
    switch (format_) {
        case Format::text:
            text(route);
            break;
        case Format::json:
            json(route);
            break;
        case Format::psv:
            psv(route);
            break;
    }
    line_.append('\n');
    return line_.view();
}

void Output::route(RouteView const& route) {
    std::string_view line = formatted(route);
    std::fwrite(line.data(), 1, line.size(), out_);
}

void Output::text(RouteView const& route) {
    formatPrefix(line_, route.nlri->prefix);
    line_.append(" peer ");
    formatAddress(line_, route.batch->peer.ip);
    line_.append(" AS");
    line_.appendAsNumber(route.batch->peer.asn, asdot_);
    if (route.batch->addPath) {
        line_.append(" path-id ");
        line_.appendDecimal(route.nlri->pathId);
    }
    if (route.batch->kind == RouteKind::withdraw)
        line_.append(" withdrawn");
    for (CommKind kind : printOrder) {
        if (!route.comms->has(kind))
            continue;
        line_.append(' ');
        line_.append(textLabels[static_cast<unsigned>(kind)]);
        line_.append(" [");
        texts(route, kind);
        line_.append(']');
    }
}

void Output::psv(RouteView const& route) {
    appendBgpdumpColumns(line_, route, asdot_);
    if (route.batch->kind == RouteKind::withdraw)
        return;
    // After bgpdump's closing '|': the interned lists, one column per kind.
    for (CommKind kind : printOrder) {
        if (kind != printOrder[0])
            line_.append('|');
        texts(route, kind);
    }
}

void Output::json(RouteView const& route) {
    RouteBatch const& batch = *route.batch;
    line_.append("{\"file\":");
    jsonString(route.file);
    line_.append(",\"type\":\"");
    line_.append(kindName(batch.kind));
    line_.append("\",\"timestamp\":");
    line_.appendDecimal(batch.timestamp);
    line_.append(",\"peer_ip\":\"");
    formatAddress(line_, batch.peer.ip);
    line_.append("\",\"peer_asn\":");
    line_.appendDecimal(batch.peer.asn);
    line_.append(",\"prefix\":\"");
    formatPrefix(line_, route.nlri->prefix);
    line_.append('"');
    if (batch.addPath) {
        line_.append(",\"path_id\":");
        line_.appendDecimal(route.nlri->pathId);
    }
    line_.append(",\"as_path\":\"");
    if (route.asPath)
        formatAsPath(line_, *route.asPath, false);
    line_.append("\",\"origin_asn\":");
    U32 origin = 0;
    if (originOf(route, &origin))
        line_.appendDecimal(origin);
    else
        line_.append("null");
    line_.append(",\"next_hop\":");
    if (batch.attrs && batch.attrs->hasNextHop) {
        line_.append('"');
        formatAddress(line_, batch.attrs->nextHop);
        line_.append('"');
    } else {
        line_.append("null");
    }
    for (CommKind kind : printOrder) {
        line_.append(",\"");
        line_.append(jsonKeys[static_cast<unsigned>(kind)].texts);
        line_.append("\":");
        jsonTexts(*route.comms, kind);
        line_.append(",\"");
        line_.append(jsonKeys[static_cast<unsigned>(kind)].raw);
        line_.append("\":");
        jsonRaw(route, kind);
    }
    jsonLinkBandwidths(route);
    if (notes_)
        notes_->appendJson(line_, *route.comms, ingest_, asdot_, cache_.ptr());
    line_.append('}');
}

void Output::texts(RouteView const& route, CommKind kind) {
    RouteComms const& comms = *route.comms;
    bool first = true;
    // Notes follow the interned list's order, which wire order does not keep.
    bool const noted = notes_ && !wireOrder_;
    if (noted)
        notes_->listIs(comms, kind);
    std::size_t i = 0;
    auto each = [&](std::string_view text, U64 extValue) {
        if (!first)
            line_.append(' ');
        first = false;
        line_.append(text);
        if (exact_ && kind == CommKind::extended && isLinkBandwidth(extValue)) {
            line_.append(" (");
            appendLinkBandwidthBps(line_, extValue);
            line_.append(" bit/s)");
        }
        if (noted)
            notes_->appendText(line_, i++, format_ == Format::psv);
    };
    if (wireOrder_) {
        if (route.batch->attrs)
            ingest_.forEachWireText(route.batch->attrs->of(kind), kind, asdot_, cache_.ptr(), each);
        return;
    }
    if (exact_ && kind == CommKind::extended) {
        if (comms.extended) {
            auto const& values = *comms.extended->commVectorRawPtr();
            std::size_t at = 0;
            ingest_.forEachText(
                comms, kind, asdot_,
                [&](std::string_view text) { each(text, values[at++]->community()); },
                cache_.ptr());
        }
        return;
    }
    // Only an extended community can be a link bandwidth, and this one is not asked for.
    ingest_.forEachText(
        comms, kind, asdot_, [&](std::string_view text) { each(text, 0); }, cache_.ptr());
}

void Output::jsonTexts(RouteComms const& comms, CommKind kind) {
    line_.append('[');
    bool first = true;
    ingest_.forEachText(
        comms, kind, asdot_,
        [&](std::string_view text) {
            if (!first)
                line_.append(',');
            first = false;
            jsonString(text);
        },
        cache_.ptr());
    line_.append(']');
}

void Output::jsonRaw(RouteView const& route, CommKind kind) {
    line_.append('[');
    if (route.batch->attrs) {
        AttrSpan const& span = route.batch->attrs->of(kind);
        U32 const size = commKindInfo(kind).elementSize;
        for (U32 i = 0; span.present && i + size <= span.size; i += size) {
            if (i != 0)
                line_.append(',');
            U8 const* p = span.data + i;
            switch (kind) {
                case CommKind::standard:
                    line_.appendDecimal(be32(p));
                    break;
                case CommKind::large:
                    line_.append('[');
                    line_.appendDecimal(be32(p));
                    line_.append(',');
                    line_.appendDecimal(be32(p + 4));
                    line_.append(',');
                    line_.appendDecimal(be32(p + 8));
                    line_.append(']');
                    break;
                case CommKind::extended:
                case CommKind::ipv6:
                    line_.append('"');
                    appendHexOctets(line_, p, size);
                    line_.append('"');
                    break;
            }
        }
    }
    line_.append(']');
}

// The exact bandwidth of each link bandwidth community, as received.
void Output::jsonLinkBandwidths(RouteView const& route) {
    line_.append(",\"link_bandwidths\":[");
    bool first = true;
    AttrSpan const* span =
        route.batch->attrs ? &route.batch->attrs->of(CommKind::extended) : nullptr;
    for (U32 i = 0; span && span->present && i + 8 <= span->size; i += 8) {
        U64 const value = U64(be32(span->data + i)) << 32 | be32(span->data + i + 4);
        if (!isLinkBandwidth(value))
            continue;
        if (!first)
            line_.append(',');
        first = false;
        line_.append("{\"ext_community\":\"");
        appendHexOctets(line_, span->data + i, 8);
        line_.append("\",\"transitive\":");
        line_.append(value >> 62 & 1 ? "false" : "true");
        line_.append(",\"asn\":");
        line_.appendDecimal(U32(value >> 32) & 0xFFFF);
        line_.append(",\"bits_per_second\":");
        appendLinkBandwidthBps(line_, value);
        line_.append('}');
    }
    line_.append(']');
}

void Output::jsonString(std::string_view text) {
    appendJsonString(line_, text);
}

}  // namespace Bgpcomm
