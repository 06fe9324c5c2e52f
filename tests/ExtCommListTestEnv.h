// What the extended community list tests share: a parser and the two
// interning tables as the agent creates them, sample communities of every
// classification, and the recorders of collection events.
#pragma once

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "Kiv/OrderedMap.h"
#include "TestUtil.h"
#include "VoBgp/Parse/ExtComm.h"
#include "VoBgp/Parse/ExtCommOptInPlugins.h"
#include "VoBgp/VoBgpCommunityList.h"

namespace ExtCommListTestEnv {

using namespace Routing::Bgp;
using Octets = std::vector<U8>;

// One community of each classification the parser types (VRF route import
// only with "Mvpn"; without it that value stays unclassified).
inline constexpr U64 unspecifiedValue = 0x0005FDE800000064;     // OSPF domain id, RFC 4577
inline constexpr U64 rtValue = 0x0002FDE800000064;              // RT 65000:100, RFC 4360
inline constexpr U64 rt2Value = 0x0002FDE8000000C8;             // RT 65000:200
inline constexpr U64 routeOriginValue = 0x0003FDE800000064;     // RFC 4360
inline constexpr U64 tunnelEncapValue = 0x030C000000000008;     // vxlan, RFC 9012
inline constexpr U64 defaultGatewayValue = 0x030D000000000000;  // RFC 7432
// Link bandwidth (draft-ietf-idr-link-bandwidth): AS 65000, 1.25e9 bytes/s.
inline constexpr U64 lbwValue = 0x4004FDE84E9502F9;
inline constexpr U64 colorValue = 0x030B000000000064;  // RFC 9012
inline constexpr U64 color2Value = 0x030B0000000000C8;
inline constexpr U64 ovsValue = 0x4300000000000000;             // valid, RFC 8097
inline constexpr U64 vrfRouteImportValue = 0x010B0A0102030007;  // RFC 6514
// Non-transitive two-octet AS, subtype 0x80 (IANA BGP extended communities).
inline constexpr U64 nonTransValue = 0x4080FDE800000064;

// A link bandwidth community: AS and the float's bit pattern.
constexpr U64 lbw(U32 as, U32 floatBits) {
    return U64(0x4004) << 48 | U64(as & 0xFFFF) << 32 | floatBits;
}
inline constexpr U32 bw1 = 0x3F800000;  // 1.0
inline constexpr U32 bw2 = 0x40000000;  // 2.0
inline constexpr U32 bw3 = 0x40400000;  // 3.0
inline constexpr U32 bwNaN = 0x7FC00000;
inline constexpr U32 bwNegative = 0xBF800000;  // -1.0
inline constexpr U32 bwInfinity = 0x7F800000;

struct Env {
    BgpParseExtCommContainerSm::Ptr container = bgpParseExtCommContainerSmFactory();
    ExtCommDedupTable::Ptr values = extCommDedupTableFactory(container->extCommParser());
    ExtCommListDedupTable::Ptr lists = extCommListDedupTableFactory();

    Env() = default;
    // With the opt-in plug-ins too, joined before the first value is parsed.
    explicit Env(bool optIn) {
        if (optIn)
            bgpParseExtCommOptInPluginsEnq(*container);
    }
    ExtComm::PtrConst comm(U64 value) const {
        return ExtComm::dedupContent(values.ptr(), ExtCommContent(value));
    }
    ExtCommList::Ptr privateList(std::vector<U64> const& members) const {
        auto list = extCommListFactory();
        list->expectedCommunityCountIs(static_cast<U32>(members.size()));
        for (U64 value : members)
            list->commIs(comm(value));
        return list;
    }
    ExtCommList::PtrConst list(std::vector<U64> const& members) const {
        return privateList(members)->dedup(lists.ptr());
    }
};

inline Octets octetsOf(Kiv::String const& s) {
    return Octets(s.begin(), s.end());
}
inline void appendBe64(Octets& out, U64 value) {
    for (int shift = 56; shift >= 0; shift -= 8)
        out.push_back(static_cast<U8>(value >> shift));
}
// An EXTENDED COMMUNITIES attribute written out by hand.
inline Octets extCommAttribute(std::vector<U64> const& values) {
    std::size_t const length = values.size() * 8;
    Octets out =
        length > 255 ? Octets{0xD0, 16, U8(length >> 8), U8(length)} : Octets{0xC0, 16, U8(length)};
    for (U64 value : values)
        appendBe64(out, value);
    return out;
}

// The number of values of `octets` each in an attribute that serialize
// wrote, read from its header, which must announce the octets that follow.
inline std::size_t valuesIn(Kiv::String const& attribute, std::size_t octets) {
    if (attribute.empty())
        return 0;
    Octets const a(attribute.begin(),
                   attribute.begin() + std::min<std::size_t>(4, attribute.size()));
    bool const extended = (a[0] & 0x10) != 0;
    std::size_t const length = extended ? std::size_t(a[2]) << 8 | a[3] : a[2];
    EXPECT_EQ((extended ? 4 : 3) + length, attribute.size());
    EXPECT_EQ(0u, length % octets);
    return length / octets;
}

inline std::vector<U64> valuesOf(ExtCommList::CommVector const& vector) {
    std::vector<U64> out;
    for (auto const& comm : vector)
        out.push_back(comm->community());
    return out;
}

// Every collection event of one attribute with key type Key.
template <class Key>
struct EventRecorder : Kiv::Notifiee {
    explicit EventRecorder(Kiv::PtrInterface const* notifier) {
        notifierIs(notifier);
        hasNotificationActiveIs(true);
    }
    ~EventRecorder() override { notifierIs(nullptr); }
    void onAttribute(Kiv::AttributeId attribute, void const* key) override {
        auto const& event = *static_cast<Kiv::CollectionEvent<Key> const*>(key);
        events.push_back({attribute, event.change, event.key});
    }
    struct Event {
        Kiv::AttributeId attribute;
        Kiv::CollectionChange change;
        Key key;
        bool operator==(Event const&) const = default;
    };
    std::vector<Event> events;
};

// Death tests on a contract check: the assertion text and the function named
// in the abort message (a distinctive part of it: the two compilers spell
// parameter lists and template arguments differently).
#define EXPECT_CHECK_DEATH(statement, text, function)                                          \
    EXPECT_DEATH(statement, ::testing::AllOf(::testing::HasSubstr(function),                   \
                                             ::testing::HasSubstr(std::string("Assertion `") + \
                                                                  (text) + "' failed")))

}  // namespace ExtCommListTestEnv
