// Typed extended communities described by a table rather than written class
// by class: the opt-in EVPN and flowspec contents (ExtCommEvpn.h,
// ExtCommFlowspec.h). A layout holds the content's classification and words
// and lists its fields, each a mask over the 48 value bits (octets 2-7, octet
// 2 the most significant) and a format; one template prints every layout.
//
// Policy form, by format flags (Json and LinkBwWeighted change nothing):
//   classification + UI   <uiWord>[:<field>]...      EVPN-MAC-Mobility:5:sticky
//   classification only   <shortWord>[:<field>]...   MM:5:sticky
//   otherwise             <field>[:<field>]...       5:sticky
// the UI form with each field's spelled-out text, the others with its short
// text; AS numbers in asdot when strepFormatAsdot is set.
// Derived form: "<", the derived word, a blank and the short fields when
// there are any, a blank, the hexadecimal content, ">":
//   <EvpnMacMobility 5:sticky 0x0600010000000005>   (AS numbers never asdot)
//
// Field formats:
//   decimal       the value in decimal
//   asNumber      an AS number
//   ipv4Address   dotted decimal
//   macAddress    six colon-separated pairs of lower-case hex digits
//   rateBytes     an IEEE 754 float of bytes per second. Short: the default
//                 stream form of the float (1.25e+06, 0, nan, -5, inf). UI:
//                 the bandwidth library's rate in bits per second ("10
//                 Mbps"), "invalid" for NaN, infinite or negative
//   ratePackets   a float of packets per second. Short as above; UI
//                 "<float> pps", or "invalid" as above
//   flags         the names of the set bits that have one, joined by ",",
//                 then the set bits without a name as one "0x<hex>"; with no
//                 bit set the field's none texts, or, when they are empty,
//                 nothing: the field and its separator are left out
//   choice        the name of the value, else the value in decimal
//   reserved      bits that must be zero: left out while they are; else
//                 "rsv=0x<hex>" (UI "reserved=0x<hex>"), the bits in their
//                 place within the 48, so a malformed value shows what is
//                 wrong with it
//
// A malformed value still parses to its typed content and prints; like the
// base community it is always valid (isValid): shown, never pruned.
#pragma once

#include <cstddef>
#include <iosfwd>
#include <span>
#include <string_view>

#include "Kiv/Ptr.h"
#include "Kiv/Types.h"
#include "VoBgp/Parse/ExtCommTypedPlugin.h"
#include "VoBgp/VoBgpCommunity.h"

namespace Routing::Bgp {

enum class ExtCommFieldFormat : U8 {
    decimal,
    asNumber,
    ipv4Address,
    macAddress,
    rateBytes,
    ratePackets,
    flags,
    choice,
    reserved,
};

// A flag's bit(s) within its field, or a choice's value, with its two texts.
struct ExtCommFieldName {
    U64 value;
    std::string_view shortText;
    std::string_view uiText;
};

struct ExtCommField {
    ExtCommFieldFormat format;
    U64 mask;  // over octets 2-7: octet 7 is bits 7-0
    std::span<ExtCommFieldName const> names = {};
    // What a flags field with no bit set shows (its value unused); nothing
    // when its texts are empty.
    ExtCommFieldName none = {};
};

struct ExtCommLayout {
    ExtCommClassification classification;
    std::string_view derivedWord;  // "EvpnMacMobility"
    std::string_view shortWord;    // "MM"
    std::string_view uiWord;       // "EVPN-MAC-Mobility"
    std::span<ExtCommField const> fields;
};

// The forms themselves, once for every layout.
namespace ExtCommLaidOutForms {
// The field's bits of octets 2-7, shifted down to bit 0.
U64 fieldValue(ExtCommContent content, ExtCommField const& field);
void policy(VoFmt::TextBuffer& out, ExtCommContent content, ExtComm::StrepFormat format,
            ExtCommLayout const& layout);
void derived(std::ostream& os, ExtCommContent content, ExtCommLayout const& layout);
}  // namespace ExtCommLaidOutForms

// The base of the laid-out contents; Derived has `static ExtCommLayout const
// layout`.
template <class Derived>
class ExtCommLaidOut : public ExtCommSubtyped {
  public:
    // Field `index` of the layout, as a number (a rate as its float's bits).
    U64 field(std::size_t index) const {
        return ExtCommLaidOutForms::fieldValue(getContent(), Derived::layout.fields[index]);
    }

    void formatPolicy(VoFmt::TextBuffer& out, StrepFormat format) const override {
        ExtCommLaidOutForms::policy(out, getContent(), format, Derived::layout);
    }
    void formatDerivedType(std::ostream& os) const override {
        ExtCommLaidOutForms::derived(os, getContent(), Derived::layout);
    }

  protected:
    using ExtCommSubtyped::ExtCommSubtyped;
};

// One laid-out content: the class with its factories, and the sub-type rule
// that builds it (VoBgp/Parse/ExtCommTypedPlugin.h). The layout itself is
// defined beside the others of its family, in their source file.
#define VOBGP_EXT_COMM_LAID_OUT_KIND(Class, factory, Rule, SubRuleBase, subtype)        \
    class Class final : public ExtCommLaidOut<Class> {                                  \
      public:                                                                           \
        using Ptr = Kiv::Ptr<Class>;                                                    \
        using PtrConst = Kiv::Ptr<Class const>;                                         \
        static ExtCommLayout const layout;                                              \
        static Ptr Class##Is(ExtCommContent const& content) {                           \
            return makeExtComm<Class>(content);                                         \
        }                                                                               \
                                                                                        \
      private:                                                                          \
        explicit Class(ExtCommContent const& content)                                   \
            : ExtCommLaidOut(layout.classification, content) {}                         \
        template <class T, class... Args>                                               \
        friend Kiv::Ptr<T> makeExtComm(Args&&... args);                                 \
    };                                                                                  \
    static_assert(sizeof(Class) == sizeof(ExtComm), "a typed content adds no storage"); \
    inline Class::Ptr factory(ExtCommContent const& content) {                          \
        return Class::Class##Is(content);                                               \
    }                                                                                   \
    VOBGP_PARSE_TYPED_SUB_RULE(Rule, SubRuleBase, subtype, factory)

}  // namespace Routing::Bgp
