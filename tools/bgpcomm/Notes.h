// Notes printed beside communities: the IANA well-known name of a value the
// library prints as numbers (65535:666 is BLACKHOLE) and what the community
// means according to the dictionaries.
//
//   text  "65535:666 {BLACKHOLE}", "1299:20100 {Copenhagen (Peer)}",
//         both "65535:666 {BLACKHOLE: Blackhole}"
//   psv   the name only, attached: "65535:666{BLACKHOLE}" (a psv column is
//         values separated by blanks)
//   json  a last key "notes" (only on a route with a note): [{"community":"65535:666","well_known":
//         "BLACKHOLE","reference":"RFC 7999","description":"..."}, ...] for
//         the communities that have a note, in print order
//
// Contract: names only for standard communities the library has no name for;
// descriptions for standard, large and route-target / route-origin extended
// communities. One Notes per thread (it reuses its buffers).
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "VoFmt/StackBackedBuffer.h"
#include "bgpcomm/Dictionary.h"
#include "bgpcomm/Ingest.h"
#include "bgpcomm/WellKnown.h"

namespace Bgpcomm {

// Appends `text` as a JSON string.
void appendJsonString(VoFmt::TextBuffer& out, std::string_view text);

// Calls `each` with the key of every community of `kind` in list order (null
// for a community without one: IPv6 extended, extended other than route
// target and route origin), and the standard value (0 for other kinds).
template <class Each>
void forEachKey(RouteComms const& comms, CommKind kind, Each&& each);

class Notes {
  public:
    // `dictionary` may be null: well-known names only.
    explicit Notes(Dictionary const* dictionary) : dictionary_(dictionary) {}

    // The list whose communities the next appendText calls are about.
    void listIs(RouteComms const& comms, CommKind kind);
    // The note of the list's i-th community, if it has one.
    void appendText(VoFmt::TextBuffer& out, std::size_t i, bool psv);
    // ",\"notes\":[...]" for all kinds of the route; nothing without notes.
    // `cache` as for Ingest::forEachText: the printer's own on a thread of its own.
    void appendJson(VoFmt::TextBuffer& out, RouteComms const& comms, Ingest& ingest, bool asdot,
                    BgpShowCli::ExtCommCache* cache = nullptr);

    // The note of one community ("" when none): name, description or both.
    std::string note(CommKey const* key, U32 standardValue) const;
    Dictionary const* dictionary() const { return dictionary_; }

  private:
    struct Item {
        WellKnown const* name = nullptr;
        Dictionary::Entry const* entry = nullptr;
        CommKey key;
    };
    Item item(CommKey const* key, U32 standardValue, CommKind kind,
              Dictionary::Entry const* const* looked = nullptr) const;

    Dictionary const* dictionary_;
    std::vector<Item> items_;
    // Printing asks for the same values over and over: their lookups, kept.
    std::unordered_map<CommKey, Dictionary::Entry const*, CommKeyHash> looked_;
};

template <class Each>
void forEachKey(RouteComms const& comms, CommKind kind, Each&& each) {
    switch (kind) {
        case CommKind::standard:
            if (comms.standard)
                for (U32 value : comms.standard->commVectorRawPtr()) {
                    CommKey key = standardKey(value);
                    each(&key, value);
                }
            return;
        case CommKind::large:
            if (comms.large)
                for (auto const& value : comms.large->commVectorRawPtr()) {
                    CommKey key =
                        largeKey(value.globalAdmin(), value.localData1(), value.localData2());
                    each(&key, U32(0));
                }
            return;
        case CommKind::extended:
            if (comms.extended)
                for (auto const& comm : *comms.extended->commVectorRawPtr()) {
                    CommKey key;
                    each(extendedKey(comm->community(), &key) ? &key : nullptr, U32(0));
                }
            return;
        case CommKind::ipv6:
            if (comms.ipv6)
                for (std::size_t i = 0; i < comms.ipv6->commVectorRawPtr()->size(); ++i)
                    each(static_cast<CommKey const*>(nullptr), U32(0));
            return;
    }
}

}  // namespace Bgpcomm
