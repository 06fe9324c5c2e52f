// Each community list kind built from received octets, interned, serialized
// and decoded again, then matched against an arbitrary regular expression.
//
// Input: a selector octet (the kind), the pattern (text up to a NUL), then
// the values' wire octets. Properties: the interned list's attribute holds
// exactly the input's values, sorted and without duplicates (it writes the
// list in list order); decoding it and interning again gives the same list;
// a pattern is a Kiv::ParseError or compiles, and matching any list with it
// returns.
#include <memory>
#include <set>
#include <string>

#include "FuzzUtil.h"
#include "Routing/RouteMap/PosixRegex.h"
#include "VoBgp/ExtCommIp6ListDedupTable.h"
#include "VoBgp/Parse/ExtComm.h"
#include "VoBgp/VoBgpCommunityList.h"

using namespace Routing::Bgp;
using Octets = std::string;
using Routing::RouteMap::PosixRegex;

namespace {

// Per kind: the element width, the attribute type (IANA BGP path
// attributes), a new private list, adding one received value, serializing.
struct Standard {
    static constexpr std::size_t width = 4;
    static constexpr U8 attrType = 8;  // COMMUNITIES, RFC 1997
    CommListDedupTable::Ptr table = commListDedupTableFactory();
    static CommList::Ptr make() { return commListFactory(); }
    void add(CommList* list, Fuzz::Input& in) const { list->commIs(U32(in.number(4))); }
    static Kiv::String serialize(CommList const* list) { return list->serialize(); }
};
struct Large {
    static constexpr std::size_t width = 12;
    static constexpr U8 attrType = 32;  // LARGE_COMMUNITY, RFC 8092
    LargeCommListDedupTable::Ptr table = largeCommListDedupTableFactory();
    static LargeCommList::Ptr make() { return largeCommListFactory(); }
    void add(LargeCommList* list, Fuzz::Input& in) const {
        U32 const global = U32(in.number(4)), local1 = U32(in.number(4));
        list->commIs(Acl::CommunityValue(global, local1, U32(in.number(4))));
    }
    static Kiv::String serialize(LargeCommList const* list) { return list->serialize(); }
};
struct Extended {
    static constexpr std::size_t width = 8;
    static constexpr U8 attrType = 16;  // EXTENDED COMMUNITIES, RFC 4360
    BgpParseExtCommContainerSm::Ptr parser = bgpParseExtCommContainerSmFactory();
    ExtCommDedupTable::Ptr values = extCommDedupTableFactory(parser->extCommParser());
    ExtCommListDedupTable::Ptr table = extCommListDedupTableFactory();
    static ExtCommList::Ptr make() { return extCommListFactory(); }
    void add(ExtCommList* list, Fuzz::Input& in) const {
        list->commIs(ExtComm::dedupContent(values.ptr(), ExtCommContent(in.number(8))));
    }
    static Kiv::String serialize(ExtCommList const* list) {
        return list->serialize(ExtCommList::serialization(true, true, true));
    }
};
struct Ip6 {
    static constexpr std::size_t width = 20;
    static constexpr U8 attrType = 25;  // IPv6 Address Specific Extended Community, RFC 5701
    BgpParseExtCommContainerSm::Ptr parser = bgpParseExtCommContainerSmFactory();
    ExtCommIp6DedupTable::Ptr values = extCommIp6DedupTableFactory(parser->extCommParser());
    ExtCommIp6ListDedupTable::Ptr table = extCommIp6ListDedupTableFactory();
    static ExtCommIp6List::Ptr make() { return extCommIp6ListFactory(); }
    void add(ExtCommIp6List* list, Fuzz::Input& in) const {
        U8 const type = in.octet(), subtype = in.octet();
        Vonet::Ip6Addr::Octets addr;
        for (U8& octet : addr)
            octet = in.octet();
        ExtCommIp6Content const content{type, subtype, Vonet::Ip6Addr(addr), U16(in.number(2))};
        list->commIs(ExtCommIp6::dedupContent(values.ptr(), content));
    }
    static Kiv::String serialize(ExtCommIp6List const* list) { return list->serialize(true); }
};

template <class Kind>
void roundTrip(Kind const& kind, Fuzz::Input& input, PosixRegex const* regex) {
    std::set<Octets> received;
    auto list = Kind::make();
    while (input.left() >= Kind::width) {
        Octets const octets = input.octets(Kind::width);
        received.insert(octets);
        Fuzz::Input value(octets);
        kind.add(list.ptr(), value);
    }
    auto const interned = list->dedup(kind.table.ptr());
    Octets sorted;
    for (Octets const& octets : received)
        sorted += octets;

    Octets const a = Kind::serialize(interned.ptr()).str();
    Fuzz::Input attribute(a);
    std::size_t const header = attribute.octet() & 0x10 ? 4 : 3;  // extended length
    U8 const type = attribute.octet();
    Fuzz::check(a.empty() ? sorted.empty()
                          : a.size() >= header && type == Kind::attrType &&
                                attribute.number(header - 2) == a.size() - header &&
                                a.substr(header) == sorted,
                "the attribute does not hold the received values, sorted, once each");
    auto decoded = Kind::make();
    while (attribute.left() > 0)
        kind.add(decoded.ptr(), attribute);
    Fuzz::check(decoded->dedup(kind.table.ptr()) == interned,
                "the decoded attribute interns to another list");
    (void)interned->toStrep();
    if constexpr (requires { interned->matchCommunitiesRegex(regex); }) {
        if (regex)
            (void)interned->matchCommunitiesRegex(regex);
    }
}

}  // namespace

VOBGP_FUZZ_TARGET(input) {
    static Standard const standard;
    static Large const large;
    static Extended const extended;
    static Ip6 const ip6;
    U8 const selector = input.octet();
    std::string const pattern = input.text(256);
    std::unique_ptr<PosixRegex> regex;
    Fuzz::frameworkErrorsOnly([&] { regex = std::make_unique<PosixRegex>(pattern); });
    switch (selector % 4) {
        case 0:
            return roundTrip(standard, input, regex.get());
        case 1:
            return roundTrip(large, input, regex.get());
        case 2:
            return roundTrip(extended, input, regex.get());
        default:
            return roundTrip(ip6, input, regex.get());
    }
}
