// IPv6-address-specific extended communities (RFC 5701, 20 octets): the
// plain value ExtCommIp6Content and the interned object ExtCommIp6, the
// 20-octet twins of ExtCommContent and ExtComm.
//
// Wire layout: octet 0 type, octet 1 subtype, octets 2-17 the IPv6 global
// administrator, octets 18-19 the local administrator (network order).
//
// Text forms:
//   - the content alone (operator<<, valueToStrep):
//     "type=" <type octet as a raw character> ";subtype=" <raw character>
//     ";addr=" <address> ";localAdmin=" <decimal>. The octets are written
//     as characters but parsed back as numbers, so the form reads back only
//     for octets that happen to be digits; dumps have always looked this way.
//   - derived form (operator<<, toStrep):
//     <extCommIp6PktTypeTransIpv6Address extCommIp6PktSubtypeRouteTarget
//      addr=2001:db8::1 localAdmin=7>
//   - policy form (toStrepForPolicy): [<type text>-IP6:]<address>:<local admin>
// Numbers are written in decimal whatever base the caller's stream is set to.
#pragma once

#include <iosfwd>

#include "Kiv/DenseBoolSet.h"
#include "Kiv/Ptr.h"
#include "Kiv/String.h"
#include "KivStash/ContentHandle.h"
#include "VoBgp/VoBgpCommunityPacketTypes.h"
#include "VoFmt/StackBackedBuffer.h"
#include "Vonet/Ip6Addr.h"

namespace Routing::Bgp {

class ExtCommIp6DedupTable;

struct ExtCommIp6Content {
    static constexpr char const* typeName = "Routing::Bgp::ExtCommIp6Content";
    // Stash record: kind 4, the 20 wire octets as five words, four octets to
    // a word, the first octet in the top bits.
    static constexpr U32 stashKind = 4;
    static constexpr U32 stashWords = 5;

    U8 type = 0;
    U8 subtype = 0;
    Vonet::Ip6Addr addr;
    // Host order in memory.
    U16 localAdmin = 0;

    constexpr bool isTransitive() const { return (type & 0x40) == 0; }

    // Jenkins one-at-a-time over the 20 octets: type, subtype, the address
    // as stored, then localAdmin low octet first.
    U32 hash() const;
    // Where interning tables place it: type, subtype and local administrator
    // as one word, the address as two, through the seeded word-wise hash
    // (Vok/PlacementHash.h), which crafted contents cannot collide.
    U32 placementHash() const;

    void stashWordsTo(U32* words) const;
    static ExtCommIp6Content fromStashWords(U32 const* words);

    friend bool operator==(ExtCommIp6Content const& a, ExtCommIp6Content const& b) {
        return a.type == b.type && a.subtype == b.subtype && a.addr == b.addr &&
               a.localAdmin == b.localAdmin;
    }
    friend bool operator<(ExtCommIp6Content const& a, ExtCommIp6Content const& b) {
        if (a.type != b.type)
            return a.type < b.type;
        if (a.subtype != b.subtype)
            return a.subtype < b.subtype;
        if (a.addr != b.addr)
            return a.addr < b.addr;
        return a.localAdmin < b.localAdmin;
    }
};

std::ostream& operator<<(std::ostream& os, ExtCommIp6Content const& content);
Kiv::String valueToStrep(ExtCommIp6Content const& content);
// Reads "type=<int>;subtype=<int>;addr=<IPv6>;localAdmin=<int>"; the numbers
// are cut to their field widths without a range check. Kiv::ParseError when
// a literal or the address is missing.
void sequenceToValue(Kiv::String::IteratorConst& it, Kiv::String::IteratorConst const& end,
                     ExtCommIp6Content* out);

#define VOBGP_EXT_COMM_IP6_STREP_FORMAT_FLAGS(X) \
    X(strepFormatDefault)                        \
    X(strepFormatClassification)                 \
    X(strepFormatUI)                             \
    X(strepFormatAsdot)                          \
    X(strepFormatLinkBwWeighted)

class ExtCommIp6 : public KivStash::ContentHandle<ExtCommIp6Content> {
  public:
    using Ptr = Kiv::Ptr<ExtCommIp6>;
    using PtrConst = Kiv::Ptr<ExtCommIp6 const>;
    using RawPtrConst = ExtCommIp6 const*;

    static constexpr char const* typeName = "Routing::Bgp::ExtCommIp6";

    KIV_DENSE_BOOL_SET(StrepFormat, "Routing::Bgp::ExtCommIp6::StrepFormat",
                       VOBGP_EXT_COMM_IP6_STREP_FORMAT_FLAGS)

    static Ptr ExtCommIp6Is(ExtCommClassification classification, ExtCommIp6Content const& content);

    // The one interned community for `content`, built by the table's parse
    // rule on first sight (VoBgp/ExtCommIp6DedupTable.h).
    static PtrConst dedupContent(ExtCommIp6DedupTable const* table,
                                 ExtCommIp6Content const& content);

    // Writes the content and the classification into `storeManager`'s image
    // as one record; returns the record index.
    U32 stash(KivStash::StoreManager* storeManager) const {
        return stashWithTag(storeManager, classification_);
    }
    // A fresh, private, plain ExtCommIp6 with the content and classification
    // stashed at `image` (the parse rule chooses the subtyped class when the
    // content is interned). Kiv::ParseError for a record of another kind or
    // with no valid classification.
    static Ptr destash(void const* image, KivStash::StoreManager* storeManager);

    // Unspecified here; the subtype octet on ExtCommIp6Subtyped.
    virtual BgpExtCommPktSubtype pktSubtype() const;
    virtual void formatDerivedType(std::ostream& os) const;
    virtual Kiv::String toStrepForPolicy(StrepFormat format) const;

    ExtCommClassification classification() const { return classification_; }
    BgpExtCommIp6PktType pktType() const {
        return bgpEnumFromOctet<BgpExtCommIp6PktType>(content_.type);
    }
    bool isTransitive() const { return content_.isTransitive(); }
    // The subtype text of the transitive / non-transitive family; the
    // community must be of that type and subtyped.
    Kiv::String pktSubtypeTransIpv6AddressAsString() const;
    Kiv::String pktSubtypeNonTransIpv6AddressAsString() const;
    // "unspecified", the family's subtype text, or "none" for another type.
    void formatSubtype(std::ostream& os) const;
    void formatSubtypeToBuffer(VoFmt::TextBuffer& out) const;
    // The derived form (what operator<< writes).
    Kiv::String toStrep() const;
    // The policy form into any buffer, without allocating.
    void formatPolicy(VoFmt::TextBuffer& out, StrepFormat format) const;

  protected:
    ExtCommIp6(ExtCommClassification classification, ExtCommIp6Content const& content)
        : ContentHandle(content), classification_(classification) {}

  private:
    ExtCommClassification classification_;
};

// The variant whose subtype octet counts (every IPv6 community the parse
// rules build).
class ExtCommIp6Subtyped : public ExtCommIp6 {
  public:
    using Ptr = Kiv::Ptr<ExtCommIp6Subtyped>;
    using PtrConst = Kiv::Ptr<ExtCommIp6Subtyped const>;

    static constexpr char const* typeName = "Routing::Bgp::ExtCommIp6Subtyped";

    static Ptr ExtCommIp6SubtypedIs(ExtCommClassification classification,
                                    ExtCommIp6Content const& content);

    BgpExtCommPktSubtype pktSubtype() const override;

  protected:
    using ExtCommIp6::ExtCommIp6;
};

inline ExtCommIp6::Ptr extCommIp6Factory(ExtCommClassification classification,
                                         ExtCommIp6Content const& content) {
    return ExtCommIp6::ExtCommIp6Is(classification, content);
}
inline ExtCommIp6Subtyped::Ptr extCommIp6SubtypedFactory(ExtCommClassification classification,
                                                         ExtCommIp6Content const& content) {
    return ExtCommIp6Subtyped::ExtCommIp6SubtypedIs(classification, content);
}

// "NULL" for a null pointer, else the derived form (stream flags preserved).
std::ostream& operator<<(std::ostream& os, ExtCommIp6 const* comm);
inline std::ostream& operator<<(std::ostream& os, ExtCommIp6::PtrConst const& comm) {
    return os << comm.ptr();
}

std::ostream& operator<<(std::ostream& os, ExtCommIp6::StrepFormat format);
inline Kiv::String valueToStrep(ExtCommIp6::StrepFormat format) {
    return format.toStrep();
}
void sequenceToValue(Kiv::String::IteratorConst& it, Kiv::String::IteratorConst const& end,
                     ExtCommIp6::StrepFormat* out);

}  // namespace Routing::Bgp
