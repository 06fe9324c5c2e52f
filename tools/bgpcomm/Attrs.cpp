#include "bgpcomm/Attrs.h"

namespace Bgpcomm {

namespace {

// Indexed by CommKind.
constexpr CommKindInfo commKinds[commKindCount] = {
    {attrCommunities, 4, "COMMUNITIES", "standard"},
    {attrExtCommunities, 8, "EXTENDED COMMUNITIES", "extended"},
    {attrIpv6ExtCommunity, 20, "IPV6 ADDRESS SPECIFIC EXTENDED COMMUNITY", "ipv6"},
    {attrLargeCommunity, 12, "LARGE_COMMUNITY", "large"},
};

// AS path segment types (RFC 4271 section 4.3, RFC 5065 section 3).
constexpr U8 segAsSet = 1;
constexpr U8 segAsSequence = 2;
constexpr U8 segConfedSequence = 3;
constexpr U8 segConfedSet = 4;

std::string attrLabel(U8 type) {
    switch (type) {
        case attrOrigin:
            return "ORIGIN attribute";
        case attrAsPath:
            return "AS_PATH attribute";
        case attrNextHop:
            return "NEXT_HOP attribute";
        case attrMpReachNlri:
            return "MP_REACH_NLRI attribute";
        case attrMpUnreachNlri:
            return "MP_UNREACH_NLRI attribute";
        case attrAs4Path:
            return "AS4_PATH attribute";
        default:
            break;
    }
    for (auto const& kind : commKinds)
        if (kind.attrType == type)
            return std::string(kind.attrName) + " attribute";
    return "path attribute " + std::to_string(type);
}

bool readAfiSafi(Cursor& in, Afi* afi, bool* supported) {
    U16 afiCode = 0;
    U8 safi = 0;
    if (!in.u16(&afiCode) || !in.u8(&safi))
        return false;
    // IANA Address Family Numbers: 1 IPv4, 2 IPv6.
    *supported = (afiCode == 1 || afiCode == 2) && (safi == safiUnicast || safi == safiMulticast);
    *afi = afiCode == 2 ? Afi::ipv6 : Afi::ipv4;
    return true;
}

void takeNextHop(U8 const* nh, U8 length, PathAttrs* out) {
    // 4: IPv4; 16: IPv6 global; 32: global then link-local (RFC 2545 section 3).
    if (length == 4 || length == 16 || length == 32) {
        out->hasNextHop = true;
        out->nextHop = IpAddress{};
        out->nextHop.afi = length == 4 ? Afi::ipv4 : Afi::ipv6;
        std::memcpy(out->nextHop.octets.data(), nh, length == 4 ? 4 : 16);
    }
}

// RFC 4760 section 3, or the abbreviated RIB-entry form of RFC 6396 section
// 4.3.4 (next hop length and next hop only).
bool readMpReach(Cursor value, AttrContext context, PathAttrs* out) {
    if (context == AttrContext::ribEntry && value.left() >= 1 &&
        value.data()[0] == value.left() - 1) {
        U8 length = 0;
        value.u8(&length);
        takeNextHop(value.data(), length, out);
        return true;
    }
    Afi afi;
    bool supported = false;
    U8 nhLength = 0;
    if (!readAfiSafi(value, &afi, &supported) || !value.u8(&nhLength) || value.left() < nhLength)
        return false;
    takeNextHop(value.data(), nhLength, out);
    value.skip(nhLength);
    if (!value.skip(1))  // reserved octet
        return false;
    if (supported && context == AttrContext::update) {
        out->hasMpReach = true;
        out->mpReachAfi = afi;
        out->mpReachNlri = value;
    }
    return true;
}

bool readMpUnreach(Cursor value, PathAttrs* out) {
    Afi afi;
    bool supported = false;
    if (!readAfiSafi(value, &afi, &supported))
        return false;
    if (supported) {
        out->hasMpUnreach = true;
        out->mpUnreachAfi = afi;
        out->mpUnreachNlri = value;
    }
    return true;
}

void decodeSegments(AttrSpan const& span, bool fourOctet, std::vector<AsPathEntry>* out) {
    Cursor in(span.data, span.size, span.offset);
    std::size_t asSize = fourOctet ? 4 : 2;
    while (!in.empty()) {
        U8 type = 0, count = 0;
        if (!in.u8(&type) || !in.u8(&count) || type < segAsSet || type > segConfedSet ||
            in.left() < count * asSize)
            return;
        for (unsigned i = 0; i < count; ++i) {
            U32 asn = 0;
            if (fourOctet) {
                in.u32(&asn);
            } else {
                U16 asn16 = 0;
                in.u16(&asn16);
                asn = asn16;
            }
            out->push_back({asn, type});
        }
    }
}

}  // namespace

CommKindInfo const& commKindInfo(CommKind kind) {
    return commKinds[static_cast<unsigned>(kind)];
}

void walkAttributes(Cursor in, AttrContext context, bool asPathFourOctet, Diag& diag,
                    PathAttrs* out) {
    *out = PathAttrs{};
    out->asPathFourOctet = asPathFourOctet;
    while (!in.empty()) {
        U64 const at = in.offset();
        U8 flags = 0, type = 0;
        U16 length = 0;
        bool ok = in.u8(&flags) && in.u8(&type);
        if (ok && (flags & attrFlagExtendedLength)) {
            ok = in.u16(&length);
        } else if (ok) {
            U8 length8 = 0;
            ok = in.u8(&length8);
            length = length8;
        }
        if (!ok) {
            diag.at(at, "path attribute header truncated; remaining attributes skipped");
            return;
        }
        Cursor value;
        if (!in.sub(length, &value)) {
            diag.at(at, attrLabel(type) + " length " + std::to_string(length) +
                            " runs past the end of the attributes (" + std::to_string(in.left()) +
                            " octets left); remaining attributes "
                            "skipped");
            return;
        }
        AttrSpan span{value.data(), length, at, true};
        bool community = false;
        for (unsigned k = 0; k < commKindCount; ++k) {
            if (commKinds[k].attrType != type)
                continue;
            if (out->comm[k].present)
                diag.at(at, "duplicate " + attrLabel(type) + "; attribute skipped");
            else if (length % commKinds[k].elementSize != 0)
                diag.at(at, attrLabel(type) + " length " + std::to_string(length) +
                                " is not a multiple of " +
                                std::to_string(commKinds[k].elementSize) + "; attribute skipped");
            else
                out->comm[k] = span;
            community = true;
        }
        if (community)
            continue;
        switch (type) {
            case attrAsPath:
            case attrAs4Path: {
                AttrSpan& slot = type == attrAsPath ? out->asPath : out->as4Path;
                if (slot.present)
                    diag.at(at, "duplicate " + attrLabel(type) + "; attribute skipped");
                else
                    slot = span;
                break;
            }
            case attrNextHop:
                if (length != 4)
                    diag.at(at, "NEXT_HOP attribute length " + std::to_string(length) +
                                    " is not 4; attribute skipped");
                else if (!out->hasNextHop)
                    takeNextHop(value.data(), 4, out);
                break;
            case attrOrigin:
                if (length == 1 && out->origin == 0xFF)
                    value.u8(&out->origin);
                break;
            case attrMed:
            case attrLocalPref: {
                bool& has = type == attrMed ? out->hasMed : out->hasLocalPref;
                if (length == 4 && !has)
                    has = value.u32(type == attrMed ? &out->med : &out->localPref);
                break;
            }
            case attrAtomicAggregate:
                out->atomicAggregate = true;
                break;
            case attrAggregator:
                if ((length == 6 || length == 8) && !out->aggregator.present)
                    out->aggregator = span;
                break;
            case attrAs4Aggregator:
                if (length == 8 && !out->as4Aggregator.present)
                    out->as4Aggregator = span;
                break;
            case attrMpReachNlri:
                if (!readMpReach(value, context, out))
                    diag.at(at, "MP_REACH_NLRI attribute truncated; attribute skipped");
                break;
            case attrMpUnreachNlri:
                if (!readMpUnreach(value, out))
                    diag.at(at, "MP_UNREACH_NLRI attribute truncated; attribute skipped");
                break;
            default:
                break;
        }
    }
}

void asPathEntries(PathAttrs const& attrs, std::vector<AsPathEntry>* out) {
    out->clear();
    if (attrs.asPath.present)
        decodeSegments(attrs.asPath, attrs.asPathFourOctet, out);
    if (attrs.asPathFourOctet || !attrs.as4Path.present)
        return;
    std::vector<AsPathEntry> as4;
    decodeSegments(attrs.as4Path, true, &as4);
    if (as4.size() > out->size())
        return;  // RFC 6793 section 4.2.3: AS4_PATH longer than AS_PATH is ignored
    out->resize(out->size() - as4.size());
    out->insert(out->end(), as4.begin(), as4.end());
}

bool originAsn(std::vector<AsPathEntry> const& path, U32* out) {
    if (path.empty())
        return false;
    AsPathEntry const& last = path.back();
    bool isSet = last.segmentType == segAsSet || last.segmentType == segConfedSet;
    if (isSet && path.size() > 1 && path[path.size() - 2].segmentType == last.segmentType)
        return false;
    *out = last.asn;
    return true;
}

void formatAsPath(VoFmt::TextBuffer& out, std::vector<AsPathEntry> const& path, bool asdot) {
    for (std::size_t i = 0; i < path.size(); ++i) {
        U8 type = path[i].segmentType;
        bool first = i == 0 || path[i - 1].segmentType != type;
        bool last = i + 1 == path.size() || path[i + 1].segmentType != type;
        bool isSet = type == segAsSet || type == segConfedSet;
        if (i != 0)
            out.append(first || !isSet ? ' ' : ',');
        if (first && type != segAsSequence)
            out.append(type == segAsSet ? '{' : type == segConfedSequence ? '(' : '[');
        out.appendAsNumber(path[i].asn, asdot);
        if (last && type != segAsSequence)
            out.append(type == segAsSet ? '}' : type == segConfedSequence ? ')' : ']');
    }
}

}  // namespace Bgpcomm
