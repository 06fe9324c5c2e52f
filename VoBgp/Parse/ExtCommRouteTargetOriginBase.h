// The shared shape of route targets and route origins (site of origin).
//
// Both come in an AS-number form (ExtCommAsNumber layout) and an IPv4-address
// form (ExtCommIpv4Address layout) and differ only in their classification
// and in the words their text forms use. So the forms are written once, here,
// over a words table, and ExtCommRouteTarget.h / ExtCommRouteOrigin.h only
// supply the words and name the final classes.
//
// Policy form of the AS-number classes, by format flags:
//   classification + UI   <uiAsPrefix>["4"]":"<AS>:<admin>   Route-Target-AS4:1.0:100
//   classification only   <policyPrefix><AS>:<admin>          RT:65000:100
//   otherwise             <AS>:<admin>                        65000:100
// with the AS in asdot when strepFormatAsdot is set ("4" marks a four-octet
// AS). The IPv4-address classes write <uiIpv4Prefix> / <policyPrefix> / ""
// and then <a.b.c.d>:<admin>. Json and LinkBwWeighted change nothing.
//
// Derived (dump) forms, the AS never in asdot:
//   <RouteTarget2ByteASN 65000:100 0x0002fde800000064>   (type 0x00; 0x02 says 4Byte)
//   <RouteTarget 10.1.2.3:7 0x01020a0102030007>
// An AS-number route target or origin with any other type octet is a
// program error (the parse rules only build them for 0x00 and 0x02) and
// aborts with "unexpected type".
#pragma once

#include <iosfwd>
#include <string_view>

#include "VoBgp/VoBgpCommunity.h"

namespace Routing::Bgp {

struct ExtCommRouteWords {
    ExtCommClassification classification;
    std::string_view policyPrefix;        // "RT:"
    std::string_view uiAsPrefix;          // "Route-Target-AS", then "4" and ":"
    std::string_view uiIpv4Prefix;        // "Route-Target-IP:"
    std::string_view derivedTwoOctetAs;   // "RouteTarget2ByteASN "
    std::string_view derivedFourOctetAs;  // "RouteTarget4ByteASN "
    std::string_view derivedIpv4;         // "RouteTarget "
};

// The forms themselves, kept out of the templates so there is one copy.
namespace ExtCommRouteForms {
void asPolicy(VoFmt::TextBuffer& out, ExtCommAsNumber const& comm, ExtComm::StrepFormat format,
              ExtCommRouteWords const& words);
void asDerived(std::ostream& os, ExtCommAsNumber const& comm, ExtCommRouteWords const& words);
void ipv4Policy(VoFmt::TextBuffer& out, ExtCommIpv4Address const& comm, ExtComm::StrepFormat format,
                ExtCommRouteWords const& words);
void ipv4Derived(std::ostream& os, ExtCommIpv4Address const& comm, ExtCommRouteWords const& words);
}  // namespace ExtCommRouteForms

// Traits: a struct with `static constexpr ExtCommRouteWords words`.
template <class Traits>
class ExtCommRouteAs : public ExtCommAsNumber {
  public:
    void formatPolicy(VoFmt::TextBuffer& out, StrepFormat format) const override {
        ExtCommRouteForms::asPolicy(out, *this, format, Traits::words);
    }
    void formatDerivedType(std::ostream& os) const override {
        ExtCommRouteForms::asDerived(os, *this, Traits::words);
    }

  protected:
    ExtCommRouteAs(ExtCommContent const& content, bool fourOctetAs)
        : ExtCommAsNumber(Traits::words.classification, content, fourOctetAs) {}
};

template <class Traits>
class ExtCommRouteIpv4Address : public ExtCommIpv4Address {
  public:
    void formatPolicy(VoFmt::TextBuffer& out, StrepFormat format) const override {
        ExtCommRouteForms::ipv4Policy(out, *this, format, Traits::words);
    }
    void formatDerivedType(std::ostream& os) const override {
        ExtCommRouteForms::ipv4Derived(os, *this, Traits::words);
    }

  protected:
    explicit ExtCommRouteIpv4Address(ExtCommContent const& content)
        : ExtCommIpv4Address(Traits::words.classification, content) {}
};

}  // namespace Routing::Bgp
