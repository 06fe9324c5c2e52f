// Enumerations that the BGP stack uses to talk about path attributes: the
// attribute type code, the flag octet, the ORIGIN value, the TLV type inside
// the Prefix-SID attribute and the kind of source a path came from.
//
// The storage widths are deliberate. BgpPathAttrType and OriginCode are one
// octet on the wire but need a member (256) that no octet can hold, so they are
// 16 bits wide; the other three fit one octet.
#pragma once

#include "Kiv/Enum.h"
#include "Kiv/Types.h"

namespace Routing::Bgp {

// aspTypeMax is the number of real kinds (an array bound), not a kind.
#define VOBGP_ASP_TYPE_MEMBERS(X) \
    X(aspTypeLocal, 0)            \
    X(aspTypeAggregate, 1)        \
    X(aspTypeDefaultOriginate, 2) \
    X(aspTypeEbgp, 3) X(aspTypeIbgp, 4) X(aspTypeConfedEbgp, 5) X(aspTypeMax, 6)
KIV_ENUM(AspType, U8, "Routing::Bgp::AspType", VOBGP_ASP_TYPE_MEMBERS)

// Bit masks of the flag octet (RFC 4271 section 4.3) and the two combinations
// the stack writes; combine with operator| below.
#define VOBGP_BGP_PATH_ATTR_FLAG_MEMBERS(X) \
    X(opt, 0x80)                            \
    X(transitive, 0x40)                     \
    X(partial, 0x20)                        \
    X(extLen, 0x10) X(optionalTransitive, 0xC0) X(optionalTransitivePartial, 0xE0)
KIV_ENUM(BgpPathAttrFlag, U8, "Routing::Bgp::BgpPathAttrFlag", VOBGP_BGP_PATH_ATTR_FLAG_MEMBERS)

constexpr BgpPathAttrFlag operator|(BgpPathAttrFlag a, BgpPathAttrFlag b) {
    return static_cast<BgpPathAttrFlag>(static_cast<U8>(a) | static_cast<U8>(b));
}

// Type codes of the IANA registry of BGP path attributes that the stack knows.
// attrTypeUnknown lies outside the octet range: it can never go on the wire.
#define VOBGP_BGP_PATH_ATTR_TYPE_MEMBERS(X) \
    X(invalidPathAttr, 0)                   \
    X(origin, 1)                            \
    X(asPath, 2)                            \
    X(nextHop, 3)                           \
    X(multiExitDisc, 4)                     \
    X(localPref, 5)                         \
    X(atomicAggregate, 6)                   \
    X(aggregator, 7)                        \
    X(community, 8)                         \
    X(originatorId, 9)                      \
    X(clusterList, 10)                      \
    X(advertiser, 12)                       \
    X(rcidPath, 13)                         \
    X(mpReachNlri, 14)                      \
    X(mpUnreachNlri, 15)                    \
    X(extCommunity, 16)                     \
    X(as4Path, 17)                          \
    X(as4Aggregator, 18)                    \
    X(pmsiTunnel, 22)                       \
    X(tunnelEncapsulation, 23)              \
    X(extCommunityIp6, 25)                  \
    X(accumulatedIgpMetric, 26)             \
    X(bgpLs, 29)                            \
    X(largeCommunity, 32)                   \
    X(domainPath, 36)                       \
    X(prefixSid, 40)                        \
    X(attrSet, 128) X(reservedForDevelopment, 255) X(attrTypeUnknown, 256)
KIV_ENUM(BgpPathAttrType, U16, "Routing::Bgp::BgpPathAttrType", VOBGP_BGP_PATH_ATTR_TYPE_MEMBERS)

// originUnknown (256) is outside the octet range on purpose: "not known".
#define VOBGP_ORIGIN_CODE_MEMBERS(X) \
    X(originIgp, 0) X(originEgp, 1) X(originIncomplete, 2) X(originUnknown, 256)
KIV_ENUM(OriginCode, U16, "Routing::Bgp::OriginCode", VOBGP_ORIGIN_CODE_MEMBERS)

#define VOBGP_PREFIX_SID_TLV_TYPE_MEMBERS(X) \
    X(invalidTlv, 0) X(labelIndexTlv, 1) X(ipv6SidTlv, 2) X(originatorSrgbTlv, 3)
KIV_ENUM(PrefixSidTlvType, U8, "Routing::Bgp::PrefixSidTlvType", VOBGP_PREFIX_SID_TLV_TYPE_MEMBERS)

// Label of an attribute type for show commands: a static string, never to be
// freed. Code 0 reads "Invalid Path Attribute"; every other code without a
// label, and every value above 255, reads "Invalid attribute".
// The storage widths hold the Unknown members (256) of the two-octet
// enumerations; the one-octet ones have none.
static_assert(sizeof(AspType) == 1 && sizeof(BgpPathAttrFlag) == 1 &&
              sizeof(PrefixSidTlvType) == 1);
static_assert(sizeof(BgpPathAttrType) == 2 && sizeof(OriginCode) == 2);
static_assert(Kiv::enumTable<AspType>().members.size() == 7);
static_assert(Kiv::enumTable<BgpPathAttrFlag>().members.size() == 6);
static_assert(Kiv::enumTable<BgpPathAttrType>().members.size() == 29);
static_assert(Kiv::enumTable<OriginCode>().members.size() == 4);
static_assert(Kiv::enumTable<PrefixSidTlvType>().members.size() == 4);

char const* bgpPathAttrTypeShowString(BgpPathAttrType type);

}  // namespace Routing::Bgp
