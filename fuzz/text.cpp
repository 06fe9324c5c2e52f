// The framework text parsers: every value type's whole-text parser (the
// Value(...) forms among them exercise Kiv::ValueParser), the enumerations'
// member names and the free number and pointer readers, fed
// arbitrary text. Properties: only the framework's errors come out; a value
// that parses prints (valueToStrep) to a text that parses back to a value
// printing the same, except for the one form documented not to read back.
//
// Input: a selector octet (which parser), then the text.
#include <functional>
#include <string>

#include "FuzzUtil.h"
#include "Kiv/ValueText.h"
#include "VoBgp/BgpPathAttributeEnums.h"
#include "VoBgp/ExtCommIp6.h"
#include "VoBgp/Parse/ExtCommTunnelEncap.h"
#include "VoBgp/RouteTargetPrefix.h"
#include "VoBgp/VoBgpCommunityList.h"

using namespace Routing::Bgp;

namespace {

enum class ReadsBack : bool { no, yes };

template <class T>
T parsed(Kiv::String const& text) {
    if constexpr (requires { T::strepToValue(text); })
        return T::strepToValue(text);
    else
        return Vok::strepToValue<T>(text);
}

template <class T, ReadsBack readsBack = ReadsBack::yes>
void wholeText(std::string const& text) {
    T value{};
    if (!Fuzz::frameworkErrorsOnly([&] { value = parsed<T>(Kiv::String(text)); }))
        return;
    Kiv::String const printed = valueToStrep(value);
    if constexpr (readsBack == ReadsBack::yes) {
        T again{};
        bool const ok = Fuzz::frameworkErrorsOnly([&] { again = parsed<T>(printed); });
        Fuzz::check(ok && valueToStrep(again) == printed, "a printed value does not read back",
                    text + " -> " + printed.str());
    }
}

template <class Read>
void freeReader(std::string const& text, Read read) {
    Kiv::String const s(text);
    Kiv::String::IteratorConst it = s.begin();
    if (Fuzz::frameworkErrorsOnly([&] { read(it, s.end()); }))
        Fuzz::check(it >= s.begin() && it <= s.end(), "a reader left its text");
}

void ip6Address(std::string const& text) {
    Vonet::Ip6Addr addr, again;
    if (Vonet::Ip6Addr::parse(text, &addr))
        Fuzz::check(Vonet::Ip6Addr::parse(addr.toStrep().view(), &again) && again == addr,
                    "an IPv6 address does not read back", text);
}
using Parser = void (*)(std::string const&);
template <class... T>
constexpr Parser wholeTexts[sizeof...(T)] = {wholeText<T>...};
// Every value type with a whole-text parser, then the other readers. The
// IPv6 community's content prints its octets as raw characters
// (ExtCommIp6.h), so it does not read back.
constexpr auto& typed =
    wholeTexts<Vok::MaybeU63, BgpMaybeU63, BgpExtCommPktSubtype, BgpDenseU32Attr, ExtCommContent,
               ExtComm::StrepFormat, ExtCommIp6::StrepFormat, ExtCommList::Serialization,
               ExtCommList::CommVectorAttrs, ExtCommClassificationList::CommVectorAttrs,
               Acl::CommunityValue, Vonet::Ip6Addr, RouteTarget, RouteTargetPrefix, AspType,
               BgpPathAttrFlag, BgpPathAttrType, OriginCode, PrefixSidTlvType, TunnelType,
               ExtCommClassification, BgpCommunityValue>;
constexpr Parser others[] = {
    wholeText<ExtCommIp6Content, ReadsBack::no>,
    ip6Address,
    [](std::string const& text) { freeReader(text, Kiv::parseUnsigned); },
    [](std::string const& text) { freeReader(text, Kiv::parseSigned); },
    [](std::string const& text) { freeReader(text, Kiv::parsePointer); },
};

}  // namespace

VOBGP_FUZZ_TARGET(input) {
    U8 const selector = input.octet();
    std::size_t const which = selector % (std::size(typed) + std::size(others));
    (which < std::size(typed) ? typed[which] : others[which - std::size(typed)])(input.rest());
}
