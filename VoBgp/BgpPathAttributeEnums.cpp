#include "VoBgp/BgpPathAttributeEnums.h"

#include <array>
#include <cstddef>

namespace Routing::Bgp {

namespace {

struct AttrTypeLabel {
    BgpPathAttrType type;
    char const* label;
};

// Show-command labels. Some differ from the member names on purpose, because
// operators and scripts know them as they are ("Atomic Aggregator",
// "Nexthop", "MED", "Link State").
constexpr AttrTypeLabel kAttrTypeLabels[] = {
    {invalidPathAttr, "Invalid Path Attribute"},
    {origin, "Origin"},
    {asPath, "AS Path"},
    {nextHop, "Nexthop"},
    {multiExitDisc, "MED"},
    {localPref, "Local Preference"},
    {atomicAggregate, "Atomic Aggregator"},
    {aggregator, "Aggregator"},
    {community, "Community"},
    {originatorId, "Originator ID"},
    {clusterList, "Cluster List"},
    {advertiser, "Advertiser"},
    {rcidPath, "RCID Path"},
    {mpReachNlri, "MP Reach NLRI"},
    {mpUnreachNlri, "MP Unreach NLRI"},
    {extCommunity, "Extended Community"},
    {as4Path, "AS4 Path"},
    {as4Aggregator, "AS4 Aggregator"},
    {pmsiTunnel, "PMSI Tunnel"},
    {tunnelEncapsulation, "Tunnel Encapsulation"},
    {extCommunityIp6, "IPv6 Address Specific Extended Community"},
    {accumulatedIgpMetric, "Accumulated IGP Metric"},
    {bgpLs, "Link State"},
    {largeCommunity, "Large Community"},
    {domainPath, "Domain Path"},
    {prefixSid, "BGP Prefix-SID"},
    {attrSet, "Attribute Set"},
    {reservedForDevelopment, "Reserved for Development"},
};

constexpr char const* kInvalidAttribute = "Invalid attribute";

// One slot per type octet, filled at compile time: a show command costs one
// index operation.
constexpr std::array<char const*, 256> kShowStrings = [] {
    std::array<char const*, 256> table{};
    table.fill(kInvalidAttribute);
    for (auto const& entry : kAttrTypeLabels)
        table[entry.type] = entry.label;
    return table;
}();

}  // namespace

char const* bgpPathAttrTypeShowString(BgpPathAttrType type) {
    auto const code = static_cast<std::size_t>(type);
    return code < kShowStrings.size() ? kShowStrings[code] : kInvalidAttribute;
}

}  // namespace Routing::Bgp
