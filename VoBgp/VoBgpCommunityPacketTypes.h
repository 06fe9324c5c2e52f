// The octet vocabulary of extended communities: the type octet, one subtype
// enumeration per type family, the IPv6-address-specific type and subtypes,
// the optional subtype value, the classification under which lists file a
// community, and the well-known standard communities.
//
// Every packet enumeration is 16 bits wide and has an Unknown member of 256,
// a value no octet can hold, standing for "not a known member". Membership is
// asked with bgpIsValidEnumMember: it accepts exactly the named octet values,
// except members that carry a name for display only (see
// bgpNameOnlyMember). Member names appear in dumps and show output,
// misspellings included, so they are kept as they are.
#pragma once

#include <array>
#include <iosfwd>
#include <string>
#include <type_traits>

#include "Kiv/Enum.h"
#include "Kiv/String.h"
#include "Kiv/Types.h"
#include "VoBgp/VoBgpMiscTypes.h"

namespace Routing::Bgp {

// Member tables, one per enumeration (name, value).

#define BgpExtCommPktType_MEMBERS(X)                    \
    X(extCommPktTypeTransTwoOctetAs, 0x00)              \
    X(extCommPktTypeTransIpv4Address, 0x01)             \
    X(extCommPktTypeTransFourOctetAs, 0x02)             \
    X(extCommPktTypeTransOpaque, 0x03)                  \
    X(extCommPktTypeTransQosMarking, 0x04)              \
    X(extCommPktTypeTransCosCapability, 0x05)           \
    X(extCommPktTypeTransEvpn, 0x06)                    \
    X(extCommPktTypeTransFlowspecRedirectNexthop, 0x08) \
    X(extCommPktTypeTransGeneric, 0x80)                 \
    X(extCommPktTypeTransGenericPart2, 0x81)            \
    X(extCommPktTypeTransGenericPart3, 0x82)            \
    X(extCommPktTypeNonTransTwoOctetAs, 0x40)           \
    X(extCommPktTypeNonTransIpv4Address, 0x41)          \
    X(extCommPktTypeNonTransFourOctetAs, 0x42)          \
    X(extCommPktTypeNonTransOpaque, 0x43)               \
    X(extCommPktTypeNonTransQosMarking, 0x44)           \
    X(extCommPktTypeUnknown, 0x100)

// 0x14 carries the non-transitive link-bandwidth name but is not accepted as
// a subtype of this family (bgpNameOnlyMember): a community 0x00 0x14 ...
// shows its subtype as a number.
#define BgpExtCommPktSubtypeTransTwoOctetAs_MEMBERS(X)             \
    X(extCommPktSubtypeTransTwoOctetAsRouteTarget, 0x02)           \
    X(extCommPktSubtypeTransTwoOctetAsRouteOrigin, 0x03)           \
    X(extCommPktSubtypeTransTwoOctetAsOspfDomainIdentifier, 0x05)  \
    X(extCommPktSubtypeTransTwoOctetAsBgpDataCollection, 0x08)     \
    X(extCommPktSubtypeTransTwoOctetAsSourceAs, 0x09)              \
    X(extCommPktSubtypeTransTwoOctetAsL2VpnIdentifier, 0x0a)       \
    X(extCommPktSubtypeTransTwoOctetAsCiscoVpnDistinguisher, 0x10) \
    X(extCommPktSubtypeNonTransTwoOctetAsLinkBandwidthAny, 0x14)   \
    X(extCommPktSubtypeTransTwoOctetAsUnknown, 0x100)

#define BgpExtCommPktSubtypeTransIpv4Address_MEMBERS(X)             \
    X(extCommPktSubtypeTransIpv4AddressRouteTarget, 0x02)           \
    X(extCommPktSubtypeTransIpv4AddressRouteOrigin, 0x03)           \
    X(extCommPktSubtypeTransIpv4AddressOspfDomainIdentifier, 0x05)  \
    X(extCommPktSubtypeTransIpv4AddressOspfRouteId, 0x07)           \
    X(extCommPktSubtypeTransIpv4AddressL2VpnIdentifier, 0x0a)       \
    X(extCommPktSubtypeTransIpv4AddressVrfRouteImport, 0x0b)        \
    X(extCommPktSubtypeTransIpv4AddressFlowspecRedirectIp, 0x0c)    \
    X(extCommPktSubtypeTransIpv4AddressCiscoVpnDistinguisher, 0x10) \
    X(extCommPktSubtypeTransIpv4AddressUnknown, 0x100)

#define BgpExtCommPktSubtypeTransFourOctetAs_MEMBERS(X)             \
    X(extCommPktSubtypeTransFourOctetAsRouteTarget, 0x02)           \
    X(extCommPktSubtypeTransFourOctetAsRouteOrigin, 0x03)           \
    X(extCommPktSubtypeTransFourOctetAsGeneric, 0x04)               \
    X(extCommPktSubtypeTransFourOctetAsOspfDomainIdentifier, 0x05)  \
    X(extCommPktSubtypeTransFourOctetAsBgpDataCollection, 0x08)     \
    X(extCommPktSubtypeTransFourOctetAsSourceAs, 0x09)              \
    X(extCommPktSubtypeTransFourOctetAsCiscoVpnDistinguisher, 0x10) \
    X(extCommPktSubtypeTransFourOctetAsUnknown, 0x100)

#define BgpExtCommPktSubtypeTransOpaque_MEMBERS(X)                      \
    X(extCommPktSubtypeTransOpaqueCostCommunity, 0x01)                  \
    X(extCommPktSubtypeTransOpaqueOutboundRouteFilter, 0x03)            \
    X(extCommPktSubtypeTransOpaqueOspfRouteType, 0x06)                  \
    X(extCommPktSubtypeTransOpaqueColorExtendedCommunity, 0x0b)         \
    X(extCommPktSubtypeTransOpaqueEncapsulationExtendedCommunity, 0x0c) \
    X(extCommPktSubtypeTransOpaqueDefaultGateway, 0x0d)                 \
    X(extCommPktSubtypeTransOpaqeUnknown, 0x100)

#define BgpExtCommPktSubtypeEvpn_MEMBERS(X)        \
    X(extCommPktSubtypeEvpnMacMobility, 0x00)      \
    X(extCommPktSubtypeEvpnEsiMplsLabel, 0x01)     \
    X(extCommPktSubtypeEvpnEsImport, 0x02)         \
    X(extCommPktSubtypeEvpnRouterMac, 0x03)        \
    X(extCommPktSubtypeEvpnLayer2Attributes, 0x04) \
    X(extCommPktSubtypeEvpnEtree, 0x05)            \
    X(extCommPktSubtypeEvpnDFElection, 0x06)       \
    X(extCommPktSubtypeEvpnNdFlags, 0x08)          \
    X(extCommPktSubtypeEvpnMulticastFlags, 0x09)   \
    X(extCommPktSubtypeEvpnEviRtType0, 0x0a)       \
    X(extCommPktSubtypeEvpnEviRtType1, 0x0b)       \
    X(extCommPktSubtypeEvpnEviRtType2, 0x0c)       \
    X(extCommPktSubtypeEvpnUnknown, 0x100)

#define BgpExtCommPktSubtypeTransFlowspecRedirectNexthop_MEMBERS(X) \
    X(extCommPktSubtypeFlowspecRedirectNexthop, 0x00)               \
    X(extCommPktSubtypeFlowspecRedirectUnknown, 0x100)

#define BgpExtCommPktSubtypeTransGeneric_MEMBERS(X)                   \
    X(extCommPktSubtypeTransGenericFlowspecTrafficRate, 0x06)         \
    X(extCommPktSubtypeTransGenericFlowspecTrafficAction, 0x07)       \
    X(extCommPktSubtypeTransGenericFlowspecRedirectAs2Byte, 0x08)     \
    X(extCommPktSubtypeTransGenericFlowspecTrafficRemarking, 0x09)    \
    X(extCommPktSubtypeTransGenericLayer2InfoExtendedCommunity, 0x0a) \
    X(extCommPktSubtypeTransGenericEtreeInfo, 0x0b)                   \
    X(extCommPktSubtypeTransGenericUnknown, 0x100)

#define BgpExtCommPktSubtypeTransGenericPart2_MEMBERS(X)            \
    X(extCommPktSubtypeTransGenericPart2FlowspecRedirectIpv4, 0x08) \
    X(extCommPktSubtypeTransGenericPart2Unknown, 0x100)

#define BgpExtCommPktSubtypeTransGenericPart3_MEMBERS(X)               \
    X(extCommPktSubtypeTransGenericPart3FlowspecRedirectAs4Byte, 0x08) \
    X(extCommPktSubtypeTransGenericPart3Unknown, 0x100)

#define BgpExtCommPktSubtypeNonTransTwoOctetAs_MEMBERS(X)                \
    X(extCommPktSubtypeNonTransTwoOctetAsLinkBandwidth, 0x04)            \
    X(extCommPktSubtypeNonTransTwoOctetAsVirtualNetworkIdentifier, 0x80) \
    X(extCommPktSubtypeNonTransTwoOctetAsUnknown, 0x100)

#define BgpExtCommPktSubtypeNonTransIpv4Address_MEMBERS(X) \
    X(extCommPktSubtypeNonTransIpv4AddressUnknown, 0x100)

#define BgpExtCommPktSubtypeNonTransFourOctetAs_MEMBERS(X) \
    X(extCommPktSubtypeNonTransFourOctetAsGeneric, 0x04)   \
    X(extCommPktSubNonTransFourOctetAsUnknown, 0x100)

#define BgpExtCommPktSubtypeNonTransOpaque_MEMBERS(X)       \
    X(extCommPktSubtypeNonTransOriginValidationState, 0x00) \
    X(extCommPktSubtypeNonTransCostCommunity, 0x01)         \
    X(extCommPktSubtypeNonTransOpaqueUnknown, 0x100)

#define BgpExtCommIp6PktType_MEMBERS(X)           \
    X(extCommIp6PktTypeTransIpv6Address, 0x00)    \
    X(extCommIp6PktTypeNonTransIpv6Address, 0x40) \
    X(extCommIp6PktTypeUnknown, 0x100)

#define BgpExtCommIp6PktSubtypeTransIpv6Address_MEMBERS(X) \
    X(extCommIp6PktSubtypeRouteTarget, 0x02)               \
    X(extCommIp6PktSubtypeRouteOrigin, 0x03)               \
    X(extCommIp6PktSubtypeOspf3RouteAttributes, 0x04)      \
    X(extCommIp6PktSubtypeVrfRouteImport, 0x0b)            \
    X(extCommIp6PktSubtypeFlowspecRedirectIpv6, 0x0c)      \
    X(extCommIp6PktSubtypeCiscoVpnDistinguisher, 0x10)     \
    X(extCommIp6PktSubtypeUuidRouteTarget, 0x11)           \
    X(extCommIp6PktSubtypeInterAreaP2MPNextHop, 0x12)      \
    X(extCommIp6PktSubtypeTransIpv6AddressUnknown, 0x100)

#define BgpExtCommIp6PktSubtypeNonTransIpv6Address_MEMBERS(X) \
    X(extCommIp6PktSubtypeNonTransIpv6AddressUnknown, 0x100)

#define ExtCommClassification_MEMBERS(X)             \
    X(extCommClassificationUnSpecified, 0)           \
    X(extCommClassificationRouteTarget, 1)           \
    X(extCommClassificationRouteOrigin, 2)           \
    X(extCommClassificationEvpn, 3)                  \
    X(extCommClassificationTunnelEncap, 4)           \
    X(extCommClassificationDefaultGateway, 5)        \
    X(extCommClassificationFlowspec, 6)              \
    X(extCommClassificationLinkBandwidth, 7)         \
    X(extCommClassificationColor, 8)                 \
    X(extCommClassificationOriginValidationState, 9) \
    X(extCommClassificationVrfRouteImport, 10)       \
    X(extCommClassificationOneBeyondLast, 11)

#define BgpCommunityValue_MEMBERS(X)          \
    X(communityInternet, 0x00000000)          \
    X(communityNoExport, 0xFFFFFF01)          \
    X(communityNoAdvertise, 0xFFFFFF02)       \
    X(communityNoExportSubconfed, 0xFFFFFF03) \
    X(communityGshut, 0xFFFF0000)             \
    X(communityLlgrStale, 0xFFFF0006)         \
    X(communityNoLlgr, 0xFFFF0007)

// The subtype families: (type member, subtype enumeration of that type).
// Types without an entry (0x04, 0x05, 0x44, unknown) have no subtype octet.
#define VOBGP_EXT_COMM_SUBTYPE_FAMILIES(X)                                        \
    X(extCommPktTypeTransTwoOctetAs, BgpExtCommPktSubtypeTransTwoOctetAs)         \
    X(extCommPktTypeTransIpv4Address, BgpExtCommPktSubtypeTransIpv4Address)       \
    X(extCommPktTypeTransFourOctetAs, BgpExtCommPktSubtypeTransFourOctetAs)       \
    X(extCommPktTypeTransOpaque, BgpExtCommPktSubtypeTransOpaque)                 \
    X(extCommPktTypeTransEvpn, BgpExtCommPktSubtypeEvpn)                          \
    X(extCommPktTypeTransFlowspecRedirectNexthop,                                 \
      BgpExtCommPktSubtypeTransFlowspecRedirectNexthop)                           \
    X(extCommPktTypeTransGeneric, BgpExtCommPktSubtypeTransGeneric)               \
    X(extCommPktTypeTransGenericPart2, BgpExtCommPktSubtypeTransGenericPart2)     \
    X(extCommPktTypeTransGenericPart3, BgpExtCommPktSubtypeTransGenericPart3)     \
    X(extCommPktTypeNonTransTwoOctetAs, BgpExtCommPktSubtypeNonTransTwoOctetAs)   \
    X(extCommPktTypeNonTransIpv4Address, BgpExtCommPktSubtypeNonTransIpv4Address) \
    X(extCommPktTypeNonTransFourOctetAs, BgpExtCommPktSubtypeNonTransFourOctetAs) \
    X(extCommPktTypeNonTransOpaque, BgpExtCommPktSubtypeNonTransOpaque)

// Every packet enumeration (those bgpIsValidEnumMember answers for).
#define VOBGP_PACKET_ENUMS(X)                           \
    X(BgpExtCommPktType)                                \
    X(BgpExtCommPktSubtypeTransTwoOctetAs)              \
    X(BgpExtCommPktSubtypeTransIpv4Address)             \
    X(BgpExtCommPktSubtypeTransFourOctetAs)             \
    X(BgpExtCommPktSubtypeTransOpaque)                  \
    X(BgpExtCommPktSubtypeEvpn)                         \
    X(BgpExtCommPktSubtypeTransFlowspecRedirectNexthop) \
    X(BgpExtCommPktSubtypeTransGeneric)                 \
    X(BgpExtCommPktSubtypeTransGenericPart2)            \
    X(BgpExtCommPktSubtypeTransGenericPart3)            \
    X(BgpExtCommPktSubtypeNonTransTwoOctetAs)           \
    X(BgpExtCommPktSubtypeNonTransIpv4Address)          \
    X(BgpExtCommPktSubtypeNonTransFourOctetAs)          \
    X(BgpExtCommPktSubtypeNonTransOpaque)               \
    X(BgpExtCommIp6PktType)                             \
    X(BgpExtCommIp6PktSubtypeTransIpv6Address)          \
    X(BgpExtCommIp6PktSubtypeNonTransIpv6Address)

#define VOBGP_DECLARE_PACKET_ENUM_(Name) KIV_ENUM(Name, U16, "Routing::Bgp::" #Name, Name##_MEMBERS)
VOBGP_PACKET_ENUMS(VOBGP_DECLARE_PACKET_ENUM_)
#undef VOBGP_DECLARE_PACKET_ENUM_

KIV_ENUM(ExtCommClassification, U8, "Routing::Bgp::ExtCommClassification",
         ExtCommClassification_MEMBERS)
KIV_ENUM(BgpCommunityValue, U32, "Routing::Bgp::BgpCommunityValue", BgpCommunityValue_MEMBERS)

// Classifications 0 to 10 and the array bound after them; the
// classification lives in one octet of a handle's user-data word.
static_assert(sizeof(ExtCommClassification) == 1 && sizeof(BgpCommunityValue) == 4);
static_assert(Kiv::enumTable<ExtCommClassification>().members.size() == 12 &&
              extCommClassificationOneBeyondLast == 11);
// Every packet enumeration is 16 bits wide, for its Unknown member 256.
#define VOBGP_PACKET_ENUM_WIDTH_(Name) static_assert(sizeof(Name) == 2);
VOBGP_PACKET_ENUMS(VOBGP_PACKET_ENUM_WIDTH_)
#undef VOBGP_PACKET_ENUM_WIDTH_

// Members that have a name but no octet is accepted as (see the two-octet-AS
// table). Every other enumeration has none.
template <class E>
constexpr bool bgpNameOnlyMember(E) {
    return false;
}
constexpr bool bgpNameOnlyMember(BgpExtCommPktSubtypeTransTwoOctetAs value) {
    return value == extCommPktSubtypeNonTransTwoOctetAsLinkBandwidthAny;
}

namespace PacketTypesDetail {

// The octets an enumeration accepts, as a 256-bit set computed from its member
// table once, at compile time: membership is then one bit test.
template <class E>
inline constexpr std::array<U64, 4> validOctets = [] {
    std::array<U64, 4> bits{};
    for (auto const& m : Kiv::enumTable<E>().members) {
        U32 v = static_cast<U32>(m.value);
        if (v <= 0xff && !bgpNameOnlyMember(m.value))
            bits[v >> 6] |= U64(1) << (v & 63);
    }
    return bits;
}();

template <class E>
constexpr bool isValidOctet(E value) {
    U32 v = static_cast<U32>(value);
    return v <= 0xff && ((validOctets<E>[v >> 6] >> (v & 63)) & 1) != 0;
}

}  // namespace PacketTypesDetail

// True when `value` is a member that an octet can carry: never the Unknown
// member (256), never a name-only member.
#define VOBGP_DECLARE_IS_VALID_(Name)                  \
    constexpr bool bgpIsValidEnumMember(Name value) {  \
        return PacketTypesDetail::isValidOctet(value); \
    }
VOBGP_PACKET_ENUMS(VOBGP_DECLARE_IS_VALID_)
#undef VOBGP_DECLARE_IS_VALID_

// The member of packet enumeration E for an octet: the member of that value
// when valid, else E's Unknown member.
template <class E>
constexpr E bgpEnumFromOctet(U8 octet) {
    E value = static_cast<E>(octet);
    return bgpIsValidEnumMember(value) ? value : static_cast<E>(0x100);
}

constexpr BgpExtCommPktType extCommPktTypeFromOctet(U8 octet) {
    return bgpEnumFromOctet<BgpExtCommPktType>(octet);
}

// Calls f(std::type_identity<S>{}) with the subtype enumeration S of `type`
// and returns true; returns false when the type has no subtype octet.
template <class F>
bool withExtCommSubtypeEnum(BgpExtCommPktType type, F&& f) {
    switch (type) {
#define VOBGP_SUBTYPE_CASE_(typeMember, Subtype) \
    case typeMember:                             \
        f(std::type_identity<Subtype>{});        \
        return true;
        VOBGP_EXT_COMM_SUBTYPE_FAMILIES(VOBGP_SUBTYPE_CASE_)
#undef VOBGP_SUBTYPE_CASE_
        default:
            return false;
    }
}

// A subtype octet as text in family E: the member name when E accepts the
// octet, else "subtype=<decimal>" (so a declared-but-invalid value still
// shows what was received). The append form writes into any buffer with
// append(string_view) and appendDecimal(U64) without allocating.
template <class E, class Buffer>
void appendExtCommSubtypeString(Buffer& out, U8 octet) {
    E value = static_cast<E>(octet);
    if (bgpIsValidEnumMember(value)) {
        out.append(Kiv::enumMemberByValue(value)->name);
    } else {
        out.append("subtype=");
        out.appendDecimal(octet);
    }
}

template <class E>
Kiv::String extCommSubtypeString(U8 octet) {
    E value = static_cast<E>(octet);
    if (bgpIsValidEnumMember(value))
        return Kiv::String(Kiv::enumMemberByValue(value)->name);
    return Kiv::String("subtype=" + std::to_string(octet));
}

// The optional subtype octet of an extended community: a value 0-255, or
// unspecified for types that have no subtype octet. Text form: "-" or the
// decimal octet.
class BgpExtCommPktSubtype : public BgpMaybeU63 {
  public:
    // Unspecified.
    constexpr BgpExtCommPktSubtype() noexcept = default;
    // Raises Kiv::RangeError for a specified value above 255.
    explicit BgpExtCommPktSubtype(U64 word) : BgpMaybeU63(word) { checkValue(); }

    U64 min() const override { return 0; }
    U64 max() const override { return 255; }

    bool unspecified() const noexcept { return isUnspecified(); }
};

inline Kiv::String valueToStrep(BgpExtCommPktSubtype const& v) {
    return valueToStrep(static_cast<BgpMaybeU63 const&>(v));
}
std::ostream& operator<<(std::ostream& os, BgpExtCommPktSubtype const& v);
// Raises Kiv::RangeError for a number above 255 (the target is then unspecified).
void sequenceToValue(Kiv::String::IteratorConst& it, Kiv::String::IteratorConst const& end,
                     BgpExtCommPktSubtype* out);

}  // namespace Routing::Bgp
