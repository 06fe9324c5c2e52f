// Route output formats of `bgpcomm mrt`: one line per route.
//
//   text  <prefix> peer <ip> AS<asn>[ path-id <n>][ withdrawn]
//         [ communities [..]][ large [..]][ extended [..]][ ipv6-extended [..]]
//         (only the kinds the route carries)
//   json  JSON Lines, one object per route, in the key order and value forms
//         that other programs rely on (docs/BGPCOMM.md). Absent lists are
//         [], "path_id" appears for
//         ADDPATH records only, "origin_asn" and "next_hop" are null when the
//         route has none, "as_path" is "" then.
//   psv   the columns of bgpdump -m (bgpcomm/Bgpdump.h), then on route
//         lines one column per community kind from the interned lists,
//         values separated by blanks; a header line with --header.
//
// Community texts come from the interned lists (sorted, without duplicates);
// the JSON "_raw" arrays are the attribute octets as received.
#pragma once

#include <cstdio>
#include <string_view>
#include <vector>

#include "VoBgp/Parse/ExtCommCache.h"
#include "VoFmt/StackBackedBuffer.h"
#include "bgpcomm/Ingest.h"
#include "bgpcomm/Mrt.h"
#include "bgpcomm/Notes.h"

namespace Bgpcomm {

enum class Format { text, json, psv };

// Everything one output line says about one route.
struct RouteView {
    std::string_view file;
    RouteBatch const* batch = nullptr;
    Nlri const* nlri = nullptr;
    RouteComms const* comms = nullptr;
    std::vector<AsPathEntry> const* asPath = nullptr;  // null for withdrawals
};

class Output {
  public:
    Output(Format format, bool asdot, Ingest& ingest, std::FILE* out)
        : format_(format), asdot_(asdot), ingest_(ingest), out_(out) {}

    // The psv header line when asked for; nothing for the other formats.
    void headerIs(bool header) { header_ = header; }
    // Text and psv: each attribute's values as received (order, duplicates)
    // instead of the interned list.
    void wireOrderIs(bool wireOrder) { wireOrder_ = wireOrder; }
    // Text: the exact bandwidth after each link bandwidth ("(999999744 bit/s)").
    void exactIs(bool exact) { exact_ = exact; }
    // Notes beside communities (bgpcomm/Notes.h); none when null.
    void notesIs(Notes* notes) { notes_ = notes; }
    void begin();
    void route(RouteView const& route);

    // The line as it would be written.
    std::string_view formatted(RouteView const& route);
    // A show string cache of this formatter's own, for a formatter on a
    // thread of its own.
    void ownCacheIs() { cache_ = BgpShowCli::extCommCacheFactory(); }

  private:
    void text(RouteView const& route);
    void json(RouteView const& route);
    void psv(RouteView const& route);
    // The kind's texts separated by blanks.
    void texts(RouteView const& route, CommKind kind);
    void jsonLinkBandwidths(RouteView const& route);
    void jsonTexts(RouteComms const& comms, CommKind kind);
    void jsonRaw(RouteView const& route, CommKind kind);
    void jsonString(std::string_view text);

    Format format_;
    bool asdot_;
    bool header_ = false;
    bool wireOrder_ = false;
    bool exact_ = false;
    Ingest& ingest_;
    std::FILE* out_;
    BgpShowCli::ExtCommCache::Ptr cache_;  // null: the parser container's
    Notes* notes_ = nullptr;
    VoFmt::StackBackedBuffer<4096, (1u << 20)> line_;
};

}  // namespace Bgpcomm
