// Text forms of standard and large communities.
//
// Every list printer, show command and policy match of the community lists
// goes through the two formatters below, so that each form is written in one
// place. They append to any VoFmt::StackBackedBuffer and return the number of
// characters appended; the kivString wrappers format into a buffer whose
// inline part holds the longest form, so one community never allocates more
// than its result string.
//
//   standard, numeric:  <high 16 bits>:<low 16 bits>            65535:65281
//   standard, named:    the well-known short name, else numeric  no-export
//   large:              <global admin>:<local 1>:<local 2>       65536:1:2
//                       (asdot: global admin >= 65536 as hi.lo)  1.0:1:2
#pragma once

#include <cstddef>
#include <string_view>

#include "Acl/CommunityValue.h"
#include "Kiv/String.h"
#include "Kiv/Types.h"
#include "VoFmt/Numbers.h"

namespace Routing::Bgp {

struct WellKnownCommunity {
    U32 value;
    std::string_view name;
};

// The standard communities that print by name. Only these seven: nearby
// values (0xFFFF0001 to 0xFFFF0005, 0xFFFFFF04) stay numeric. 0xFFFFFF03 is
// known to operators as "local-as".
inline constexpr WellKnownCommunity wellKnownCommunities[] = {
    {0x00000000u, "internet"}, {0xFFFFFF01u, "no-export"}, {0xFFFFFF02u, "no-advertise"},
    {0xFFFFFF03u, "local-as"}, {0xFFFF0000u, "GSHUT"},     {0xFFFF0006u, "llgr-stale"},
    {0xFFFF0007u, "no-llgr"},
};

// The short name of a well-known community; an empty view for any other value.
constexpr std::string_view wellKnownCommunityName(U32 comm) {
    for (auto const& known : wellKnownCommunities)
        if (known.value == comm)
            return known.name;
    return {};
}

namespace CommunityFormatDetail {

// Room the formatters reserve: the longest texts, "65535:65535" and
// "65535.65535:4294967295:4294967295" (asdot makes the largest global
// administrator one character longer than its plain 4294967295).
inline constexpr std::size_t maxStandardLength = 11;
inline constexpr std::size_t maxLargeLength = 33;
// Inline capacities of the kivString wrappers' buffers.
inline constexpr std::size_t standardInline = 20;
inline constexpr std::size_t largeInline = 42;

}  // namespace CommunityFormatDetail

// wellKnownNames chooses whether format() prints the seven well-known values
// by name; formatNotWellKnown() always prints the numeric form.
template <bool wellKnownNames>
class CommunityFormatter {
  public:
    template <class Buffer>
    static std::size_t format(Buffer& buffer, U32 comm) {
        if constexpr (wellKnownNames) {
            std::string_view const name = wellKnownCommunityName(comm);
            if (!name.empty()) {
                buffer.append(name);
                return name.size();
            }
        }
        return formatNotWellKnown(buffer, comm);
    }

    template <class Buffer>
    static std::size_t formatNotWellKnown(Buffer& buffer, U32 comm) {
        using VoFmt::writeDecimal;
        char* const out = buffer.reserve(CommunityFormatDetail::maxStandardLength);
        std::size_t n = writeDecimal(out, comm >> 16);
        out[n++] = ':';
        n += writeDecimal(out + n, comm & 0xFFFF);
        buffer.commit(n);
        return n;
    }

    // format() as a string.
    static Kiv::String kivString(U32 comm);
};

extern template class CommunityFormatter<true>;
extern template class CommunityFormatter<false>;

class LargeCommunityFormatter {
  public:
    // asdot applies to the global administrator alone, and only from 65536 on
    // (100 stays "100", never "0.100"); the local data parts are always plain.
    template <class Buffer>
    static std::size_t format(Buffer& buffer, Acl::CommunityValue const& value, bool asdot) {
        using VoFmt::writeDecimal;
        char* const out = buffer.reserve(CommunityFormatDetail::maxLargeLength);
        std::size_t n = 0;
        U32 const admin = value.globalAdmin();
        n += VoFmt::writeAsNumber(out, admin, asdot);
        out[n++] = ':';
        n += writeDecimal(out + n, value.localData1());
        out[n++] = ':';
        n += writeDecimal(out + n, value.localData2());
        buffer.commit(n);
        return n;
    }

    static Kiv::String kivString(Acl::CommunityValue const& value, bool asdot);
};

// For the list types: the short name of a well-known community, the empty
// string (not null) for any other value.
Kiv::String communityWellKnownName(U32 comm);
// The numeric form, also for well-known values (0 gives "0:0").
Kiv::String communityNumericString(U32 comm);

}  // namespace Routing::Bgp
