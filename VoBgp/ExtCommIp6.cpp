#include "VoBgp/ExtCommIp6.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <ostream>
#include <sstream>

#include "Kiv/Assert.h"
#include "Kiv/ValueText.h"
#include "VoBgp/Parse/ExtCommDerivedForm.h"
#include "VoBgp/VoBgpCommunity.h"
#include "Vok/HashMix.h"
#include "Vok/PlacementHash.h"

namespace Routing::Bgp {

U32 ExtCommIp6Content::hash() const {
    Vok::HashMix mix;
    mix.mixOctet(type);
    mix.mixOctet(subtype);
    for (U8 octet : addr.octets())
        mix.mixOctet(octet);
    mix.mixOctet(static_cast<U8>(localAdmin));
    mix.mixOctet(static_cast<U8>(localAdmin >> 8));
    return mix.result();
}

U32 ExtCommIp6Content::placementHash() const {
    Vok::PlacementHash h;
    h.mixU64(U64(type) << 24 | U64(subtype) << 16 | localAdmin);
    U64 words[2];
    std::memcpy(words, addr.octets().data(), sizeof words);
    h.mixU64(words[0]);
    h.mixU64(words[1]);
    return h.result();
}

void ExtCommIp6Content::stashWordsTo(U32* words) const {
    std::array<U8, 20> octets{type, subtype};
    std::copy(addr.octets().begin(), addr.octets().end(), octets.begin() + 2);
    octets[18] = static_cast<U8>(localAdmin >> 8);
    octets[19] = static_cast<U8>(localAdmin);
    for (std::size_t i = 0; i < stashWords; ++i)
        words[i] = U32(octets[4 * i]) << 24 | U32(octets[4 * i + 1]) << 16 |
                   U32(octets[4 * i + 2]) << 8 | octets[4 * i + 3];
}

ExtCommIp6Content ExtCommIp6Content::fromStashWords(U32 const* words) {
    std::array<U8, 20> octets;
    for (std::size_t i = 0; i < octets.size(); ++i)
        octets[i] = static_cast<U8>(words[i / 4] >> (24 - 8 * (i % 4)));
    Vonet::Ip6Addr::Octets address;
    std::copy(octets.begin() + 2, octets.begin() + 18, address.begin());
    return ExtCommIp6Content{octets[0], octets[1], Vonet::Ip6Addr(address),
                             static_cast<U16>(octets[18] << 8 | octets[19])};
}

namespace {

// Room for the longest form: two raw octets, a 45-character address, five
// digits and the labels.
using ContentBuffer = VoFmt::StackBackedBuffer<96>;

void formatContent(VoFmt::TextBuffer& out, ExtCommIp6Content const& content) {
    // The octets go out as characters, exactly as streaming a U8 does.
    out.append("type=");
    out.append(static_cast<char>(content.type));
    out.append(";subtype=");
    out.append(static_cast<char>(content.subtype));
    out.append(";addr=");
    content.addr.format(out);
    out.append(";localAdmin=");
    out.appendDecimal(content.localAdmin);
}

}  // namespace

std::ostream& operator<<(std::ostream& os, ExtCommIp6Content const& content) {
    ContentBuffer text;
    formatContent(text, content);
    return os << text.view();
}

Kiv::String valueToStrep(ExtCommIp6Content const& content) {
    ContentBuffer text;
    formatContent(text, content);
    return text.kivString();
}

void sequenceToValue(Kiv::String::IteratorConst& it, Kiv::String::IteratorConst const& end,
                     ExtCommIp6Content* out) {
    auto cursor = it;
    ExtCommIp6Content content;
    Kiv::parseLiteral(cursor, end, "type=");
    content.type = static_cast<U8>(Kiv::parseSigned(cursor, end));
    Kiv::parseLiteral(cursor, end, ";subtype=");
    content.subtype = static_cast<U8>(Kiv::parseSigned(cursor, end));
    Kiv::parseLiteral(cursor, end, ";addr=");
    sequenceToValue(cursor, end, &content.addr);
    Kiv::parseLiteral(cursor, end, ";localAdmin=");
    content.localAdmin = static_cast<U16>(Kiv::parseSigned(cursor, end));
    *out = content;
    it = cursor;
}

ExtCommIp6::Ptr ExtCommIp6::ExtCommIp6Is(ExtCommClassification classification,
                                         ExtCommIp6Content const& content) {
    return Ptr(new ExtCommIp6(classification, content));
}

ExtCommIp6::Ptr ExtCommIp6::destash(void const* image, KivStash::StoreManager* storeManager) {
    return destashWith(image, storeManager, [](ExtCommIp6Content const& content, U32 tag) {
        return ExtCommIp6Is(extCommClassificationFromStash(tag), content);
    });
}

BgpExtCommPktSubtype ExtCommIp6::pktSubtype() const {
    return BgpExtCommPktSubtype();
}

Kiv::String ExtCommIp6::pktSubtypeTransIpv6AddressAsString() const {
    KIV_ASSERT(extCommIp6PktTypeTransIpv6Address == pktType(),
               "extCommIp6PktTypeTransIpv6Address_ == pktType()");
    KIV_ASSERT(!pktSubtype().isUnspecified());
    return extCommSubtypeString<BgpExtCommIp6PktSubtypeTransIpv6Address>(content_.subtype);
}

Kiv::String ExtCommIp6::pktSubtypeNonTransIpv6AddressAsString() const {
    // The non-transitive family names no octet yet, so every subtype prints
    // as "subtype=" and its number.
    KIV_ASSERT(extCommIp6PktTypeNonTransIpv6Address == pktType(),
               "extCommIp6PktTypeNonTransIpv6Address_ == pktType()");
    KIV_ASSERT(!pktSubtype().isUnspecified());
    return extCommSubtypeString<BgpExtCommIp6PktSubtypeNonTransIpv6Address>(content_.subtype);
}

void ExtCommIp6::formatSubtypeToBuffer(VoFmt::TextBuffer& out) const {
    if (pktSubtype().isUnspecified()) {
        out.append("unspecified");
        return;
    }
    switch (pktType()) {
        case extCommIp6PktTypeTransIpv6Address:
            appendExtCommSubtypeString<BgpExtCommIp6PktSubtypeTransIpv6Address>(out,
                                                                                content_.subtype);
            return;
        case extCommIp6PktTypeNonTransIpv6Address:
            appendExtCommSubtypeString<BgpExtCommIp6PktSubtypeNonTransIpv6Address>(
                out, content_.subtype);
            return;
        default:
            out.append("none");
    }
}

void ExtCommIp6::formatSubtype(std::ostream& os) const {
    VoFmt::StackBackedBuffer<64> text;
    formatSubtypeToBuffer(text);
    os << text.view();
}

void ExtCommIp6::formatDerivedType(std::ostream& os) const {
    ExtCommDerivedBuffer text;
    appendExtCommDerivedOpening(text, *this);
    text.append(" addr=");
    content_.addr.format(text);
    text.append(" localAdmin=");
    text.appendDecimal(content_.localAdmin);
    text.append('>');
    os << text.view();
}

Kiv::String ExtCommIp6::toStrep() const {
    std::ostringstream os;
    os << this;
    return Kiv::String(os.str());
}

void ExtCommIp6::formatPolicy(VoFmt::TextBuffer& out, StrepFormat format) const {
    if (format.strepFormatClassification() && format.strepFormatUI()) {
        addExtCommTypeAsString(out, "-IP6", content_.type, content_.subtype, isTransitive());
        out.append(':');
    }
    content_.addr.format(out);
    out.append(':');
    out.appendDecimal(content_.localAdmin);
}

Kiv::String ExtCommIp6::toStrepForPolicy(StrepFormat format) const {
    VoFmt::StackBackedBuffer<80u, 1024u> buffer;
    formatPolicy(buffer, format);
    return buffer.kivString();
}

ExtCommIp6Subtyped::Ptr ExtCommIp6Subtyped::ExtCommIp6SubtypedIs(
    ExtCommClassification classification, ExtCommIp6Content const& content) {
    return Ptr(new ExtCommIp6Subtyped(classification, content));
}

BgpExtCommPktSubtype ExtCommIp6Subtyped::pktSubtype() const {
    return BgpExtCommPktSubtype(getContent().subtype);
}

std::ostream& operator<<(std::ostream& os, ExtCommIp6 const* comm) {
    if (comm == nullptr)
        return os << "NULL";
    std::ios_base::fmtflags flags = os.flags();
    comm->formatDerivedType(os);
    os.flags(flags);
    return os;
}

std::ostream& operator<<(std::ostream& os, ExtCommIp6::StrepFormat format) {
    return os << format.toStrep();
}

void sequenceToValue(Kiv::String::IteratorConst& it, Kiv::String::IteratorConst const& end,
                     ExtCommIp6::StrepFormat* out) {
    *out = ExtCommIp6::StrepFormat::parse(it, end);
}

}  // namespace Routing::Bgp
