#include "Vonet/Ip6Addr.h"

#include "Kiv/ValueText.h"

#include <ostream>
#include <string>

#include "Kiv/Errors.h"

namespace Vonet {

namespace {

char* appendHexGroup(char* out, U16 group) {
    static constexpr char kHex[] = "0123456789abcdef";
    bool started = false;
    for (int shift = 12; shift >= 0; shift -= 4) {
        unsigned digit = (group >> shift) & 0xf;
        if (digit != 0 || started || shift == 0) {
            *out++ = kHex[digit];
            started = true;
        }
    }
    return out;
}

char* appendDecimalOctet(char* out, U8 octet) {
    if (octet >= 100)
        *out++ = static_cast<char>('0' + octet / 100);
    if (octet >= 10)
        *out++ = static_cast<char>('0' + octet / 10 % 10);
    *out++ = static_cast<char>('0' + octet % 10);
    return out;
}

int hexValue(char c) {
    return Kiv::hexDigitValue(c);
}

// A dotted IPv4 address filling exactly `text`, into four octets.
bool parseIpv4(std::string_view text, U8* out) {
    std::size_t pos = 0;
    for (int part = 0; part < 4; ++part) {
        if (part > 0) {
            if (pos >= text.size() || text[pos] != '.')
                return false;
            ++pos;
        }
        unsigned value = 0;
        std::size_t digits = 0;
        while (pos < text.size() && text[pos] >= '0' && text[pos] <= '9') {
            value = value * 10 + unsigned(text[pos] - '0');
            ++pos;
            if (++digits > 3)
                return false;
        }
        // No empty parts, no values above 255, no leading zeros (ambiguous octal).
        if (digits == 0 || value > 255 || (digits > 1 && text[pos - digits] == '0'))
            return false;
        out[part] = static_cast<U8>(value);
    }
    return pos == text.size();
}

}  // namespace

std::size_t Ip6Addr::printToBuffer(char* out) const {
    char* p = out;
    // The longest run of zero groups; only runs of two or more are shortened.
    int bestStart = -1, bestLen = 0;
    for (int i = 0; i < 8;) {
        if (group(static_cast<std::size_t>(i)) != 0) {
            ++i;
            continue;
        }
        int start = i;
        while (i < 8 && group(static_cast<std::size_t>(i)) == 0)
            ++i;
        if (i - start > bestLen) {
            bestStart = start;
            bestLen = i - start;
        }
    }
    if (bestLen < 2)
        bestStart = -1;
    bool mapped = bestStart == 0 && bestLen == 5 && group(5) == 0xffff;
    int lastGroup = mapped ? 6 : 8;
    for (int i = 0; i < lastGroup; ++i) {
        if (i == bestStart) {
            *p++ = ':';
            *p++ = ':';
            i += bestLen - 1;
            continue;
        }
        if (i != 0 && i != bestStart + bestLen)
            *p++ = ':';
        p = appendHexGroup(p, group(static_cast<std::size_t>(i)));
    }
    if (mapped) {
        *p++ = ':';
        for (std::size_t i = 12; i < 16; ++i) {
            if (i != 12)
                *p++ = '.';
            p = appendDecimalOctet(p, octets_[i]);
        }
    }
    *p = '\0';
    return static_cast<std::size_t>(p - out);
}

void Ip6Addr::format(VoFmt::TextBuffer& out) const {
    char* p = out.reserve(strepSizeMax + 1);
    out.commit(printToBuffer(p));
}

Kiv::String Ip6Addr::toStrep() const {
    char text[strepSizeMax + 1];
    return Kiv::String(text, printToBuffer(text));
}

bool Ip6Addr::parse(std::string_view text, Ip6Addr* out) {
    // Groups before and after "::" are collected apart and joined at the end.
    U16 head[8], tail[8];
    int headCount = 0, tailCount = 0;
    bool compressed = false;
    Octets octets{};
    bool ipv4Tail = false;
    std::size_t pos = 0;

    if (text.substr(0, 2) == "::") {
        compressed = true;
        pos = 2;
    } else if (text.empty() || text[0] == ':') {
        return false;
    }
    while (pos < text.size()) {
        U16* groups = compressed ? tail : head;
        int& count = compressed ? tailCount : headCount;
        std::size_t start = pos;
        unsigned value = 0;
        while (pos < text.size() && hexValue(text[pos]) >= 0 && pos - start < 5) {
            value = value << 4 | unsigned(hexValue(text[pos]));
            ++pos;
        }
        if (pos < text.size() && text[pos] == '.') {
            // A dotted IPv4 tail takes the last two groups and ends the text.
            if (headCount + tailCount > 6 || !parseIpv4(text.substr(start), octets.data() + 12))
                return false;
            ipv4Tail = true;
            pos = text.size();
            break;
        }
        if (pos == start || pos - start > 4 || headCount + tailCount >= 8)
            return false;
        groups[count++] = static_cast<U16>(value);
        if (pos == text.size())
            break;
        if (text[pos] != ':')
            return false;
        ++pos;
        if (pos < text.size() && text[pos] == ':') {
            if (compressed)
                return false;
            compressed = true;
            ++pos;
        } else if (pos == text.size()) {
            // A single trailing colon.
            return false;
        }
    }
    int groupsWritten = headCount + tailCount + (ipv4Tail ? 2 : 0);
    if (compressed ? groupsWritten > 7 : groupsWritten != 8)
        return false;
    for (int i = 0; i < headCount; ++i) {
        octets[2 * i] = static_cast<U8>(head[i] >> 8);
        octets[2 * i + 1] = static_cast<U8>(head[i]);
    }
    int tailStart = 8 - tailCount - (ipv4Tail ? 2 : 0);
    for (int i = 0; i < tailCount; ++i) {
        octets[2 * (tailStart + i)] = static_cast<U8>(tail[i] >> 8);
        octets[2 * (tailStart + i) + 1] = static_cast<U8>(tail[i]);
    }
    *out = Ip6Addr(octets);
    return true;
}

std::ostream& operator<<(std::ostream& os, Ip6Addr const& addr) {
    char text[Ip6Addr::strepSizeMax + 1];
    std::size_t n = addr.printToBuffer(text);
    return os.write(text, static_cast<std::streamsize>(n));
}

void sequenceToValue(Kiv::String::IteratorConst& it, Kiv::String::IteratorConst const& end,
                     Ip6Addr* out) {
    auto stop = it;
    while (stop != end && (hexValue(*stop) >= 0 || *stop == ':' || *stop == '.'))
        ++stop;
    std::string_view text(it, static_cast<std::size_t>(stop - it));
    if (!Ip6Addr::parse(text, out))
        throw Kiv::ParseError("expected an IPv6 address but found \"" + std::string(text) + "\"");
    it = stop;
}

}  // namespace Vonet
