#include "bgpcomm/session/Policy.h"

#include <cstdlib>

#include "Kiv/Errors.h"
#include "VoBgp/ExtCommIp6List.h"

namespace Bgpcomm::Session {

using namespace Routing::Bgp;

namespace {

void put(std::vector<U8>& out, U64 value, unsigned n) {
    for (unsigned i = n; i-- > 0;)
        out.push_back(U8(value >> (8 * i)));
}

// Decimal fields separated by ':' each within `max`; false otherwise.
bool decimalFields(std::string const& text, std::vector<U64> const& max, std::vector<U64>* out) {
    std::size_t at = 0;
    for (std::size_t i = 0; i < max.size(); ++i) {
        std::size_t end = text.find(':', at);
        if ((end == std::string::npos) != (i + 1 == max.size()))
            return false;
        std::string field =
            text.substr(at, end == std::string::npos ? std::string::npos : end - at);
        if (field.empty() || field.size() > 10 ||
            field.find_first_not_of("0123456789") != std::string::npos)
            return false;
        U64 value = std::strtoull(field.c_str(), nullptr, 10);
        if (value > max[i])
            return false;
        out->push_back(value);
        at = end + 1;
    }
    return true;
}

// The values of one kind of list as wire octets, with their texts.
void valuesOf(RouteComms const& comms, CommKind kind, std::vector<std::vector<U8>>* out) {
    switch (kind) {
        case CommKind::standard:
            if (comms.standard)
                for (U32 v : comms.standard->commVectorRawPtr())
                    put(out->emplace_back(), v, 4);
            return;
        case CommKind::large:
            if (comms.large)
                for (Acl::CommunityValue const& v : comms.large->commVectorRawPtr()) {
                    auto& octets = out->emplace_back();
                    put(octets, v.globalAdmin(), 4);
                    put(octets, v.localData1(), 4);
                    put(octets, v.localData2(), 4);
                }
            return;
        case CommKind::extended:
            if (comms.extended)
                for (ExtComm::PtrConst const& c : *comms.extended->commVectorRawPtr())
                    put(out->emplace_back(), c->community(), 8);
            return;
        case CommKind::ipv6:
            if (comms.ipv6)
                for (ExtCommIp6::PtrConst const& c : *comms.ipv6->commVectorRawPtr()) {
                    ExtCommIp6Content const& content = c->getContent();
                    auto& octets = out->emplace_back();
                    octets.push_back(content.type);
                    octets.push_back(content.subtype);
                    octets.insert(octets.end(), content.addr.octets().begin(),
                                  content.addr.octets().end());
                    put(octets, content.localAdmin, 2);
                }
            return;
    }
}

}  // namespace

std::optional<std::string> CommPolicy::stripIs(CommKind kind, std::string const& pattern) {
    try {
        strips_.push_back(std::make_unique<Strip>(kind, pattern));
    } catch (Kiv::ParseError const& error) {
        return std::string(error.what());
    }
    return std::nullopt;
}

std::optional<std::string> CommPolicy::addIs(std::string const& text) {
    std::vector<U64> fields;
    if (decimalFields(text, {0xFFFF, 0xFFFF}, &fields)) {
        put(adds_[unsigned(CommKind::standard)], fields[0] << 16 | fields[1], 4);
        return std::nullopt;
    }
    fields.clear();
    if (decimalFields(text, {0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF}, &fields)) {
        for (U64 f : fields)
            put(adds_[unsigned(CommKind::large)], f, 4);
        return std::nullopt;
    }
    std::string const hex = text.rfind("0x", 0) == 0 ? text.substr(2) : "";
    if ((hex.size() == 16 || hex.size() == 40) &&
        hex.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos) {
        auto& to = adds_[unsigned(hex.size() == 16 ? CommKind::extended : CommKind::ipv6)];
        for (std::size_t i = 0; i < hex.size(); i += 2)
            to.push_back(U8(std::strtoul(hex.substr(i, 2).c_str(), nullptr, 16)));
        return std::nullopt;
    }
    return "cannot read community '" + text + "' (a:b, a:b:c, or 0x with 16 or 40 hex digits)";
}

void CommPolicy::apply(Ingest& ingest, RouteComms const& in, RouteComms* out) const {
    *out = in;
    for (unsigned k = 0; k < commKindCount; ++k) {
        auto const kind = CommKind(k);
        bool stripping = false;
        for (auto const& strip : strips_)
            stripping = stripping || strip->kind == kind;
        if (!stripping && adds_[k].empty())
            continue;
        std::vector<std::vector<U8>> values;
        valuesOf(in, kind, &values);
        std::vector<U8> kept;
        std::size_t index = 0;
        ingest.forEachText(in, kind, false, [&](std::string_view text) {
            bool drop = false;
            std::string const owned(text);
            for (auto const& strip : strips_)
                drop = drop || (strip->kind == kind && strip->regex.execute(owned) == 0);
            if (!drop && index < values.size())
                kept.insert(kept.end(), values[index].begin(), values[index].end());
            ++index;
        });
        kept.insert(kept.end(), adds_[k].begin(), adds_[k].end());
        AttrSpan span{kept.data(), U32(kept.size()), 0, !kept.empty()};
        switch (kind) {
            case CommKind::standard:
                out->standard = ingest.standard(span);
                break;
            case CommKind::large:
                out->large = ingest.large(span);
                break;
            case CommKind::extended:
                out->extended = ingest.extended(span);
                break;
            case CommKind::ipv6:
                out->ipv6 = ingest.ipv6(span);
                break;
        }
    }
}

}  // namespace Bgpcomm::Session
