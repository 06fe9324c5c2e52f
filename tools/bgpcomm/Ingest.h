// Ingest: the one place where a path's community attributes become interned
// library objects, and where everything that depends on the list types lives
// (their text forms, regular expression matching, serialization back to the
// wire). The rest of the tool handles RouteComms only through this interface.
//
// What an agent does, done here the same way: each attribute's value octets
// go to its list kind's internReceived (CommList, LargeCommList, ExtCommList,
// ExtCommIp6List), which sorts the received values on the stack and finds
// the interned list without building anything when it exists; only a list
// not seen yet is built, its extended values interned through
// ExtComm/ExtCommIp6 tables; all through one parser container and one set
// of tables for the whole run.
//
// The parser container is the library's default one plus, unless asked for
// the default alone, the opt-in plug-ins (EVPN, flowspec, transitive link
// bandwidth; VoBgp/Parse/ExtCommOptInPlugins.h): the tool is there to show
// engineers as much as the library can decode.
//
// Contract: the attribute spans handed in have a length that is a multiple of
// the element size (the attribute walker checks that). Absent attributes give
// null lists / empty sets. One Ingest serves several threads only when its
// tables were made thread-safe (VoBgpGlobals::multiThreaded at creation);
// its show string cache serves one thread (forEachText's `cache`).
//
// Threads interning into one Ingest each own a Cache (the library's
// per-thread ListInternCache for every list kind): a popular list is then
// found without the tables' locks and handed out from references the cache
// holds in credit, so two threads do not write one list's count per route.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "VoBgp/ExtCommIp6.h"
#include "VoBgp/ExtCommIp6ListDedupTable.h"
#include "VoBgp/Parse/ExtComm.h"
#include "VoBgp/VoBgpCommunity.h"
#include "VoBgp/VoBgpCommunityList.h"
#include "VoBgp/internal/ListInternCache.h"
#include "bgpcomm/Attrs.h"

namespace Routing::RouteMap {
class PosixRegex;
}

namespace Bgpcomm {

struct RouteComms {
    Routing::Bgp::CommList::PtrConst standard;
    Routing::Bgp::LargeCommList::PtrConst large;
    Routing::Bgp::ExtCommList::PtrConst extended;
    Routing::Bgp::ExtCommIp6List::PtrConst ipv6;

    bool has(CommKind kind) const;
};

// One IPv6-address-specific extended community's 20 wire octets (RFC 5701
// section 2: type, subtype, 16-octet global administrator, local
// administrator) as content.
Routing::Bgp::ExtCommIp6Content ip6Content(U8 const* octets);

class Ingest {
  public:
    // Which parser plug-ins the container has.
    enum class Parser { withOptInPlugins, libraryDefault };

    explicit Ingest(Parser parser = Parser::withOptInPlugins);
    ~Ingest();

    // One function per attribute kind: the attribute's value octets in, the
    // interned object out.
    Routing::Bgp::CommList::PtrConst standard(AttrSpan const& attr);
    Routing::Bgp::LargeCommList::PtrConst large(AttrSpan const& attr);
    Routing::Bgp::ExtCommList::PtrConst extended(AttrSpan const& attr);
    Routing::Bgp::ExtCommIp6List::PtrConst ipv6(AttrSpan const& attr);
    // All four of a path.
    void path(PathAttrs const& attrs, RouteComms* out);

    // One thread's interning cache over this Ingest's tables; destroyed
    // before the Ingest.
    class Cache {
      public:
        explicit Cache(Ingest const& ingest);
        // path() through the cache.
        void path(PathAttrs const& attrs, RouteComms* out);
        // Another reference on each of a route's lists, from credit.
        RouteComms copy(RouteComms const& comms);
        // A route's references back into credit; `comms` is empty after.
        void giveBack(RouteComms& comms);

      private:
        Routing::Bgp::ListInternCache<Routing::Bgp::CommList> standard_;
        Routing::Bgp::ListInternCache<Routing::Bgp::LargeCommList> large_;
        Routing::Bgp::ListInternCache<Routing::Bgp::ExtCommList> extended_;
        Routing::Bgp::ListInternCache<Routing::Bgp::ExtCommIp6List> ipv6_;
    };

    // Each community of one kind in its show-command text, in list order:
    // standard with the well-known names, large plain or asdot, extended
    // through toStrepForUI and the container's show string cache, IPv6
    // extended in its classification and UI policy form.
    // `cache` replaces the container's show string cache (which serves one
    // thread only) for a caller on another thread.
    void forEachText(RouteComms const& comms, CommKind kind, bool asdot,
                     std::function<void(std::string_view)> const& each,
                     BgpShowCli::ExtCommCache* cache = nullptr);
    // Each community of the attribute `span` (of `kind`) in the show text of
    // forEachText, as received: the attribute's order, duplicates included.
    // Extended and IPv6 extended values are looked up in the tables, where
    // the route's list put them (WireText.cpp).
    void forEachWireText(AttrSpan const& span, CommKind kind, bool asdot,
                         BgpShowCli::ExtCommCache* cache,
                         std::function<void(std::string_view, U64 extValue)> const& each);
    // Whether the list of `kind` matches `regex` the way route policy
    // matches it (the list's matchCommunitiesRegex; an absent list is
    // matched as the empty text).
    bool matches(RouteComms const& comms, CommKind kind,
                 Routing::RouteMap::PosixRegex const* regex) const;
    // The interned list of `kind` written back as its path attribute (all
    // extended communities, transitive or not); null when the route has
    // none, empty when a list has no community to write.
    Kiv::String serialize(RouteComms const& comms, CommKind kind) const;

    // Interned objects now alive in the tables.
    std::size_t extCommsInterned() const;
    std::size_t extListsInterned() const;
    // Route-target and other classification lists together.
    std::size_t extClassificationListsInterned() const;
    std::size_t standardListsInterned() const;
    std::size_t largeListsInterned() const;
    // IPv6-address-specific values, and their lists with classification lists.
    std::size_t ip6CommsInterned() const;
    std::size_t ip6ListsInterned() const;
    // The table of `kind`'s interned lists (their classification lists live
    // elsewhere); reaching it splits nothing.
    Vok::DedupHashTable const& listTable(CommKind kind) const;

    Routing::Bgp::BgpParseExtCommContainerSm::Ptr const& parser() const { return parser_; }

  private:
    Routing::Bgp::BgpParseExtCommContainerSm::Ptr parser_;
    Routing::Bgp::ExtCommDedupTable::Ptr extTable_;
    Routing::Bgp::ExtCommListDedupTable::Ptr extListTable_;
    Routing::Bgp::CommListDedupTable::Ptr commTable_;
    Routing::Bgp::LargeCommListDedupTable::Ptr largeTable_;
    Routing::Bgp::ExtCommIp6DedupTable::Ptr ip6Table_;
    Routing::Bgp::ExtCommIp6ListDedupTable::Ptr ip6ListTable_;
};

}  // namespace Bgpcomm
