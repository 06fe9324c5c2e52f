#include "bgpcomm/session/Update.h"

namespace Bgpcomm::Session {

namespace {

// Path attribute types beyond those Attrs.h names (IANA BGP Path Attributes).
constexpr U8 attrMed = 4;              // RFC 4271
constexpr U8 attrLocalPref = 5;        // RFC 4271
constexpr U8 attrAtomicAggregate = 6;  // RFC 4271
constexpr U8 attrAggregator = 7;       // RFC 4271
constexpr U8 attrOriginatorId = 9;     // RFC 4456
constexpr U8 attrClusterList = 10;     // RFC 4456
constexpr U8 attrAs4Aggregator = 18;   // RFC 6793

// What RFC 7606 section 2 does with an UPDATE holding a malformed attribute.
enum class Action : U8 { discard, treatAsWithdraw, reset };

// The checks of one attribute type: its Optional bit, its length (exact, or
// a non-zero multiple of an element size) and the action when they fail.
struct AttrRule {
    U8 type;
    bool optional;
    U16 exactLength;  // 0: not fixed
    U16 multipleOf;   // 0: not a multiple rule
    Action action;
    char const* name;
};
constexpr U16 any = 0;
constexpr AttrRule attrRules[] = {
    {attrOrigin, false, 1, any, Action::treatAsWithdraw, "ORIGIN"},               // RFC 7606 7.1
    {attrAsPath, false, any, any, Action::treatAsWithdraw, "AS_PATH"},            // RFC 7606 7.2
    {attrNextHop, false, 4, any, Action::treatAsWithdraw, "NEXT_HOP"},            // RFC 7606 7.3
    {attrMed, true, 4, any, Action::treatAsWithdraw, "MULTI_EXIT_DISC"},          // RFC 7606 7.4
    {attrLocalPref, false, 4, any, Action::treatAsWithdraw, "LOCAL_PREF"},        // RFC 7606 7.5
    {attrAtomicAggregate, false, any, any, Action::discard, "ATOMIC_AGGREGATE"},  // RFC 7606 7.6
    {attrAggregator, true, any, any, Action::discard, "AGGREGATOR"},              // RFC 7606 7.7
    {attrCommunities, true, any, 4, Action::treatAsWithdraw, "COMMUNITIES"},      // RFC 7606 7.8
    {attrOriginatorId, true, 4, any, Action::treatAsWithdraw, "ORIGINATOR_ID"},   // RFC 7606 7.9
    {attrClusterList, true, any, 4, Action::treatAsWithdraw, "CLUSTER_LIST"},     // RFC 7606 7.10
    {attrMpReachNlri, true, any, any, Action::reset, "MP_REACH_NLRI"},            // RFC 7606 7.11
    {attrMpUnreachNlri, true, any, any, Action::reset, "MP_UNREACH_NLRI"},        // RFC 7606 7.12
    {attrExtCommunities, true, any, 8, Action::treatAsWithdraw,
     "EXTENDED COMMUNITIES"},                                              // RFC 7606 7.14
    {attrAs4Path, true, any, any, Action::discard, "AS4_PATH"},            // RFC 6793 section 6
    {attrAs4Aggregator, true, 8, any, Action::discard, "AS4_AGGREGATOR"},  // RFC 6793 section 6
    {attrIpv6ExtCommunity, true, any, 20, Action::treatAsWithdraw,
     "IPV6 ADDRESS SPECIFIC EXTENDED COMMUNITY"},  // RFC 7606 7.15
    {attrLargeCommunity, true, any, 12, Action::treatAsWithdraw, "LARGE_COMMUNITY"},  // RFC 8092 6
};

AttrRule const* ruleOf(U8 type) {
    for (auto const& rule : attrRules)
        if (rule.type == type)
            return &rule;
    return nullptr;
}

// AS_PATH / AS4_PATH segments (RFC 4271 section 4.3; RFC 5065 types 3, 4):
// known type, non-zero count, exactly filling the attribute.
bool segmentsWellFormed(Cursor in, unsigned asSize) {
    while (!in.empty()) {
        U8 type = 0, count = 0;
        if (!in.u8(&type) || !in.u8(&count) || type < 1 || type > 4 || count == 0 ||
            !in.skip(std::size_t(count) * asSize))
            return false;
    }
    return true;
}

// The value's own rules beyond its length.
bool valueWellFormed(AttrRule const& rule, Cursor value, UpdateContext const& context) {
    switch (rule.type) {
        case attrOrigin:  // IGP, EGP, INCOMPLETE (RFC 4271 section 5.1.1)
            return value.data()[0] <= 2;
        case attrAsPath:
            return segmentsWellFormed(value, context.fourOctetAs ? 4 : 2);
        case attrAs4Path:
            return segmentsWellFormed(value, 4);
        case attrAtomicAggregate:
            return value.left() == 0;
        case attrAggregator:  // AS and address; the AS is 4 octets when negotiated
            return value.left() == (context.fourOctetAs ? 8u : 6u);
        default:
            return true;
    }
}

// MP_REACH_NLRI (RFC 4760 section 3): for our families a next hop of the
// family's length (IPv6: global, or global and link-local, RFC 2545).
bool mpReachWellFormed(Cursor value) {
    U16 afi = 0;
    U8 safi = 0, nhLength = 0;
    Family family;
    if (!value.u16(&afi) || !value.u8(&safi) || !value.u8(&nhLength) || !value.skip(nhLength) ||
        !value.skip(1))
        return false;
    if (!familyOf(afi, safi, &family))
        return true;
    return family == Family::ipv4Unicast ? nhLength == 4 : nhLength == 16 || nhLength == 32;
}

bool mpUnreachWellFormed(Cursor value) {
    return value.skip(3);
}

// Reads prefixes until `in` ends; false when one is malformed.
bool readPrefixes(Cursor in, Afi afi, bool addPath, std::vector<Nlri>* out) {
    while (!in.empty()) {
        Nlri nlri;
        if ((addPath && !in.u32(&nlri.pathId)) || !readPrefix(in, afi, &nlri.prefix).empty())
            return false;
        out->push_back(nlri);
    }
    return true;
}

Notification updateError(U8 subcode) {
    return Notification{errUpdate, subcode, {}};
}

void note(std::string& to, std::string const& what) {
    if (!to.empty())
        to += ", ";
    to += what;
}

}  // namespace

std::optional<Notification> decodeUpdate(Cursor body, UpdateContext const& context,
                                         UpdateMsg* out) {
    out->withdrawn.clear();
    out->announced.clear();
    out->treatAsWithdraw.clear();
    out->discarded.clear();
    out->endOfRib = false;
    out->body = body;
    // Lengths that do not fit the message: RFC 4271 section 6.3, kept by RFC
    // 7606 section 4 as a session reset.
    U16 withdrawnLength = 0, attrsLength = 0;
    Cursor withdrawn, attrs;
    if (!body.u16(&withdrawnLength) || !body.sub(withdrawnLength, &withdrawn) ||
        !body.u16(&attrsLength) || !body.sub(attrsLength, &attrs))
        return updateError(updMalformedAttrList);
    out->rawAttrs = attrs;

    Action worst = Action::discard;
    bool seen[256] = {};
    bool onlyMpUnreach = true;
    std::string discardNote;
    bool discardAs4 = false;
    for (Cursor walk = attrs; !walk.empty();) {
        U8 flags = 0, type = 0;
        U16 length = 0;
        U8 length8 = 0;
        bool ok =
            walk.u8(&flags) && walk.u8(&type) &&
            ((flags & attrFlagExtendedLength) ? walk.u16(&length)
                                              : (walk.u8(&length8) && (length = length8, true)));
        Cursor value;
        if (!ok || !walk.sub(length, &value)) {
            // RFC 7606 section 4: an attribute running past the attributes.
            note(out->treatAsWithdraw, "path attribute " + std::to_string(type) + " length " +
                                           std::to_string(length) + " runs past the attributes");
            worst = Action::treatAsWithdraw;
            break;
        }
        onlyMpUnreach = onlyMpUnreach && type == attrMpUnreachNlri;
        AttrRule const* rule = ruleOf(type);
        bool const duplicate = seen[type];
        seen[type] = true;
        if (!rule) {
            // RFC 4271 section 6.3: an unknown attribute not marked optional.
            if (!(flags & attrFlagOptional))
                return Notification{errUpdate, updUnrecognizedWellKnown, {}};
            continue;
        }
        if (duplicate) {
            // RFC 7606 section 3 (g): all but the first are discarded; a
            // repeated MP_REACH/MP_UNREACH resets the session.
            if (rule->action == Action::reset)
                return updateError(updMalformedAttrList);
            note(discardNote, std::string("duplicate ") + rule->name);
            continue;
        }
        std::string problem;
        if (bool(flags & attrFlagOptional) != rule->optional)
            problem = rule->name + std::string(" attribute flags 0x") +
                      "0123456789abcdef"[flags >> 4] + "0123456789abcdef"[flags & 15] +
                      " are wrong";
        else if ((rule->exactLength && length != rule->exactLength) ||
                 (rule->multipleOf && (length == 0 || length % rule->multipleOf != 0)))
            problem =
                rule->name + std::string(" attribute length ") + std::to_string(length) +
                (rule->multipleOf ? " is not a multiple of " + std::to_string(rule->multipleOf)
                                  : " is not " + std::to_string(rule->exactLength));
        else if (type == attrMpReachNlri ? !mpReachWellFormed(value)
                 : type == attrMpUnreachNlri
                     ? !mpUnreachWellFormed(value)
                     : (length > 0 || type == attrAtomicAggregate || type == attrAggregator) &&
                           !valueWellFormed(*rule, value, context))
            problem = rule->name + std::string(" attribute is malformed");
        if (problem.empty())
            continue;
        Action action = rule->action;
        if (type == attrLocalPref && !context.ibgp)
            action = Action::discard;  // RFC 7606 section 7.5: eBGP LOCAL_PREF is dropped anyway
        if (action == Action::reset)
            return updateError(updOptionalAttr);  // RFC 4760 section 7
        if (action == Action::discard) {
            note(discardNote, problem);
            discardAs4 = discardAs4 || type == attrAs4Path;
        } else
            note(out->treatAsWithdraw, problem);
        if (action > worst)
            worst = action;
    }
    out->discarded = discardNote;

    // The walker extracts what the tool uses; its own reports repeat the
    // checks above and are not printed.
    std::string quiet;
    Diag diag;
    diag.captureIs(&quiet);
    walkAttributes(attrs, AttrContext::update, context.fourOctetAs, diag, &out->attrs);
    if (discardAs4)
        out->attrs.as4Path = AttrSpan{};

    bool ipv4Nlri = false;
    auto addPath = [&](Afi afi) { return context.addPath[unsigned(afiFamily(afi))]; };
    // RFC 7606 section 5.3: NLRI that cannot be parsed resets the session.
    PathAttrs const& a = out->attrs;
    if (!readPrefixes(withdrawn, Afi::ipv4, addPath(Afi::ipv4), &out->withdrawn) ||
        (a.hasMpUnreach && !readPrefixes(a.mpUnreachNlri, a.mpUnreachAfi, addPath(a.mpUnreachAfi),
                                         &out->withdrawn)) ||
        !readPrefixes(body, Afi::ipv4, addPath(Afi::ipv4), &out->announced))
        return updateError(updInvalidNetwork);
    ipv4Nlri = !out->announced.empty();
    if (a.hasMpReach &&
        !readPrefixes(a.mpReachNlri, a.mpReachAfi, addPath(a.mpReachAfi), &out->announced))
        return updateError(updInvalidNetwork);

    if (!out->announced.empty() && worst != Action::treatAsWithdraw) {
        // RFC 7606 section 3 (d): a missing well-known mandatory attribute.
        if (!seen[attrOrigin] || !seen[attrAsPath] || (ipv4Nlri && !seen[attrNextHop])) {
            note(out->treatAsWithdraw, !seen[attrOrigin]   ? "ORIGIN attribute missing"
                                       : !seen[attrAsPath] ? "AS_PATH attribute missing"
                                                           : "NEXT_HOP attribute missing");
            worst = Action::treatAsWithdraw;
        }
    }
    if (worst == Action::treatAsWithdraw) {
        out->withdrawn.insert(out->withdrawn.end(), out->announced.begin(), out->announced.end());
        out->announced.clear();
    }

    // End-of-RIB (RFC 4724 section 2).
    if (out->withdrawn.empty() && out->announced.empty() && body.empty() && withdrawnLength == 0) {
        if (attrsLength == 0) {
            out->endOfRib = true;
            out->eorFamily = Family::ipv4Unicast;
        } else if (onlyMpUnreach && out->attrs.hasMpUnreach) {
            out->endOfRib = true;
            out->eorFamily = afiFamily(out->attrs.mpUnreachAfi);
        }
    }
    return std::nullopt;
}

void putPrefix(Octets& out, Prefix const& p) {
    out.push_back(p.length);
    out.insert(out.end(), p.addr.octets.begin(), p.addr.octets.begin() + (p.length + 7) / 8);
}

std::size_t announceOverhead(Family family) {
    // header, two length fields; NEXT_HOP (3 + 4) or MP_REACH_NLRI with an
    // extended length (4 + AFI/SAFI 3 + next hop length 1 + 16 + reserved 1).
    return headerSize + 4 + (family == Family::ipv4Unicast ? 7 : 25);
}

Octets encodeAnnounce(Octets const& attrs, Family family, IpAddress const& nextHop,
                      std::vector<Prefix> const& prefixes) {
    Octets body{0, 0, 0, 0};  // no withdrawn routes; attribute length set below
    if (family == Family::ipv4Unicast) {
        append(body, {0x40, attrNextHop, 4});  // well-known transitive
        body.insert(body.end(), nextHop.octets.begin(), nextHop.octets.begin() + 4);
    } else {
        Octets nlri;
        for (Prefix const& p : prefixes)
            putPrefix(nlri, p);
        append(body, {attrFlagOptional | attrFlagExtendedLength, attrMpReachNlri});
        putBig(body, 5 + 16 + nlri.size(), 2);
        append(body, {0, 2, 1, 16});
        body.insert(body.end(), nextHop.octets.begin(), nextHop.octets.end());
        body.push_back(0);
        body.insert(body.end(), nlri.begin(), nlri.end());
    }
    body.insert(body.end(), attrs.begin(), attrs.end());
    std::size_t const attrsLength = body.size() - 4;
    body[2] = U8(attrsLength >> 8);
    body[3] = U8(attrsLength);
    if (family == Family::ipv4Unicast)
        for (Prefix const& p : prefixes)
            putPrefix(body, p);
    return encodeMessage(MsgType::update, body.data(), body.size());
}

Octets encodeWithdraw(Family family, std::vector<Prefix> const& prefixes) {
    Octets nlri;
    for (Prefix const& p : prefixes)
        putPrefix(nlri, p);
    Octets body;
    if (family == Family::ipv4Unicast) {
        putBig(body, nlri.size(), 2);
        body.insert(body.end(), nlri.begin(), nlri.end());
        putBig(body, 0, 2);
    } else {
        putBig(body, 0, 2);
        putBig(body, 4 + 3 + nlri.size(), 2);
        append(body, {attrFlagOptional | attrFlagExtendedLength, attrMpUnreachNlri});
        putBig(body, 3 + nlri.size(), 2);
        append(body, {0, 2, 1});
        body.insert(body.end(), nlri.begin(), nlri.end());
    }
    return encodeMessage(MsgType::update, body.data(), body.size());
}

Octets encodeEndOfRib(Family family) {
    return encodeWithdraw(family, {});
}

}  // namespace Bgpcomm::Session
