#include "bgpcomm/CommPattern.h"

#include <cctype>

namespace Bgpcomm {

std::string_view trim(std::string_view text) {
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front())))
        text.remove_prefix(1);
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back())))
        text.remove_suffix(1);
    return text;
}

namespace {

// Extended community types and subtypes with a key (RFC 4360 section 5,
// RFC 5668 section 2).
constexpr U8 extTypeTwoOctetAs = 0x00;
constexpr U8 extTypeIpv4 = 0x01;
constexpr U8 extTypeFourOctetAs = 0x02;
constexpr U8 extSubtypeRouteTarget = 0x02;
constexpr U8 extSubtypeRouteOrigin = 0x03;

bool parseNumber(std::string_view text, U64 max, U32* out) {
    if (text.empty() || text.size() > 10)
        return false;
    U64 value = 0;
    for (char c : text) {
        if (c < '0' || c > '9')
            return false;
        value = value * 10 + U64(c - '0');
    }
    if (value > max)
        return false;
    *out = static_cast<U32>(value);
    return true;
}

std::optional<std::string> parseField(std::string_view text, U64 max, FieldPattern* out) {
    std::string const shown(text);
    if (text == "*") {
        out->glob = true;
        out->digits.assign(1, 'n');
        return std::nullopt;
    }
    if (auto dash = text.find('-'); dash != std::string_view::npos) {
        if (!parseNumber(text.substr(0, dash), max, &out->low) ||
            !parseNumber(text.substr(dash + 1), max, &out->high) || out->low > out->high)
            return "bad range '" + shown + "'";
        return std::nullopt;
    }
    if (text.find_first_of("xn") == std::string_view::npos) {
        if (!parseNumber(text, max, &out->low))
            return "bad number '" + shown + "'";
        out->high = out->low;
        return std::nullopt;
    }
    out->glob = true;
    for (std::size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (c == 'n') {
            if (text.substr(i, 3) != "nnn")
                return "'n' stands only in 'nnn' in '" + shown + "'";
            i += 2;
        } else if (c != 'x' && (c < '0' || c > '9')) {
            return "bad wildcard field '" + shown + "'";
        }
        out->digits += c;
    }
    return std::nullopt;
}

// The decimal glob over `text`, longest run first for 'n'; the captures of
// the first full match in `caps`.
bool globMatch(std::string_view pat, std::string_view text, std::string_view* caps,
               unsigned depth) {
    if (pat.empty())
        return text.empty();
    char const c = pat.front();
    if (c == 'n') {
        for (std::size_t len = text.size(); len >= 1; --len) {
            caps[depth] = text.substr(0, len);
            if (globMatch(pat.substr(1), text.substr(len), caps, depth + 1))
                return true;
        }
        return false;
    }
    if (text.empty() || text.front() < '0' || text.front() > '9')
        return false;
    if (c == 'x') {
        caps[depth] = text.substr(0, 1);
        return globMatch(pat.substr(1), text.substr(1), caps, depth + 1);
    }
    return c == text.front() && globMatch(pat.substr(1), text.substr(1), caps, depth);
}

}  // namespace

std::size_t CommKeyHash::operator()(CommKey const& key) const {
    U64 h = U64(key.kind) * 0x9E3779B97F4A7C15ull;
    for (U32 f : key.field)
        h = (h ^ f) * 0x100000001B3ull;
    return static_cast<std::size_t>(h ^ (h >> 29));
}

CommKey standardKey(U32 value) {
    return CommKey{KeyKind::standard, 2, {value >> 16, value & 0xFFFF, 0}};
}

CommKey largeKey(U32 global, U32 local1, U32 local2) {
    return CommKey{KeyKind::large, 3, {global, local1, local2}};
}

bool extendedKey(U64 value, CommKey* out) {
    auto const type = static_cast<U8>(value >> 56);
    auto const subtype = static_cast<U8>(value >> 48);
    if (subtype != extSubtypeRouteTarget && subtype != extSubtypeRouteOrigin)
        return false;
    out->kind = subtype == extSubtypeRouteTarget ? KeyKind::routeTarget : KeyKind::routeOrigin;
    out->fieldCount = 2;
    out->field[2] = 0;
    if (type == extTypeTwoOctetAs) {
        out->field[0] = static_cast<U32>(value >> 32) & 0xFFFF;
        out->field[1] = static_cast<U32>(value);
        return true;
    }
    if (type == extTypeIpv4 || type == extTypeFourOctetAs) {
        out->field[0] = static_cast<U32>(value >> 16);
        out->field[1] = static_cast<U32>(value) & 0xFFFF;
        return true;
    }
    return false;
}

Precedence CommPattern::precedence() const {
    Precedence result = Precedence::exact;
    for (unsigned i = 0; i < fieldCount; ++i) {
        if (field[i].glob)
            return Precedence::wildcard;
        if (field[i].low != field[i].high)
            result = Precedence::range;
    }
    return result;
}

U64 CommPattern::breadth() const {
    U64 sum = 0;
    for (unsigned i = 0; i < fieldCount; ++i) {
        FieldPattern const& f = field[i];
        if (!f.glob) {
            sum += U64(f.high) - f.low;
            continue;
        }
        for (char c : f.digits)
            sum += c == 'x' ? 1 : c == 'n' ? 10 : 0;
    }
    return sum;
}

bool CommPattern::matches(CommKey const& key, std::vector<std::string>* captures) const {
    if (key.kind != kind)
        return false;
    std::string_view caps[maxCaptures + 1];
    char texts[3][12];
    unsigned depth = 0;
    for (unsigned i = 0; i < fieldCount; ++i) {
        FieldPattern const& f = field[i];
        U32 const value = key.field[i];
        if (!f.glob) {
            if (value < f.low || value > f.high)
                return false;
            continue;
        }
        char* end = texts[i] + sizeof texts[i];
        char* begin = end;
        U32 rest = value;
        do {
            *--begin = static_cast<char>('0' + rest % 10);
            rest /= 10;
        } while (rest != 0);
        std::string_view text(begin, static_cast<std::size_t>(end - begin));
        if (!globMatch(f.digits, text, caps + depth, 0))
            return false;
        for (char c : f.digits)
            depth += c == 'x' || c == 'n';
    }
    if (captures) {
        captures->clear();
        for (unsigned i = 0; i < depth; ++i)
            captures->emplace_back(caps[i]);
    }
    return true;
}

void CommPattern::bounds(unsigned i, U32* low, U32* high) const {
    FieldPattern const& f = field[i];
    if (!f.glob) {
        *low = f.low;
        *high = f.high;
        return;
    }
    if (f.digits.find('n') != std::string::npos || f.digits.size() > 9) {
        *low = 0;
        *high = 0xFFFFFFFF;
        return;
    }
    U32 lo = 0, hi = 0;
    for (char c : f.digits) {
        lo = lo * 10 + U32(c == 'x' ? 0 : c - '0');
        hi = hi * 10 + U32(c == 'x' ? 9 : c - '0');
    }
    *low = lo;
    *high = hi;
}

CommKey CommPattern::exactKey() const {
    CommKey key{kind, fieldCount, {field[0].low, field[1].low, field[2].low}};
    if (fieldCount < 3)
        key.field[2] = 0;
    return key;
}

std::optional<std::string> parseCommPattern(std::string_view text, CommPattern* out) {
    *out = CommPattern{};
    text = trim(text);
    std::string const shown(text);
    for (auto [label, kind] :
         {std::pair{"rt ", KeyKind::routeTarget}, std::pair{"soo ", KeyKind::routeOrigin}}) {
        std::string_view l(label);
        if (text.size() > l.size()) {
            std::string head(text.substr(0, l.size()));
            for (char& c : head)
                c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
            if (head == l) {
                out->kind = kind;
                text = trim(text.substr(l.size()));
                break;
            }
        }
    }
    std::vector<std::string_view> parts;
    std::size_t start = 0;
    for (std::size_t i = 0; i <= text.size(); ++i) {
        if (i == text.size() || text[i] == ':') {
            parts.push_back(text.substr(start, i - start));
            start = i + 1;
        }
    }
    bool const extended = out->kind != KeyKind::standard;
    if (parts.size() == 3 && !extended)
        out->kind = KeyKind::large;
    if (parts.size() != 2 && (parts.size() != 3 || extended))
        return "'" + shown + "' is not a:b, a:b:c, rt a:b or soo a:b";
    out->fieldCount = static_cast<U8>(parts.size());
    U64 const max = out->kind == KeyKind::standard ? 0xFFFF : 0xFFFFFFFF;
    unsigned wildcards = 0;
    for (unsigned i = 0; i < parts.size(); ++i) {
        if (auto problem = parseField(parts[i], max, &out->field[i]))
            return problem;
        for (char c : out->field[i].digits)
            wildcards += c == 'x' || c == 'n';
    }
    if (wildcards > maxCaptures)
        return "more than " + std::to_string(maxCaptures) + " wildcards in '" + shown + "'";
    return std::nullopt;
}

}  // namespace Bgpcomm
