#include "VoBgp/VoBgpCommunityListImpl.h"

#include <array>

#include "VoFmt/StackBackedBuffer.h"

namespace Routing::Bgp {

template <bool wellKnownNames>
Kiv::String CommunityFormatter<wellKnownNames>::kivString(U32 comm) {
    VoFmt::StackBackedBuffer<CommunityFormatDetail::standardInline> buffer;
    format(buffer, comm);
    return buffer.kivString();
}

template class CommunityFormatter<true>;
template class CommunityFormatter<false>;

Kiv::String LargeCommunityFormatter::kivString(Acl::CommunityValue const& value, bool asdot) {
    VoFmt::StackBackedBuffer<CommunityFormatDetail::largeInline> buffer;
    format(buffer, value, asdot);
    return buffer.kivString();
}

namespace {

constexpr std::size_t kWellKnownCount = std::size(wellKnownCommunities);

// The names as shared strings, made once: looking one up then costs a
// reference count, not an allocation.
struct WellKnownNameStrings {
    WellKnownNameStrings() {
        for (std::size_t i = 0; i < kWellKnownCount; ++i)
            names[i] = Kiv::String(wellKnownCommunities[i].name);
    }
    std::array<Kiv::String, kWellKnownCount> names;
    Kiv::String empty{""};
};

WellKnownNameStrings const& wellKnownNameStrings() {
    static WellKnownNameStrings const strings;
    return strings;
}

}  // namespace

Kiv::String communityWellKnownName(U32 comm) {
    auto const& strings = wellKnownNameStrings();
    for (std::size_t i = 0; i < kWellKnownCount; ++i)
        if (wellKnownCommunities[i].value == comm)
            return strings.names[i];
    return strings.empty;
}

Kiv::String communityNumericString(U32 comm) {
    return CommunityFormatter<false>::kivString(comm);
}

}  // namespace Routing::Bgp
