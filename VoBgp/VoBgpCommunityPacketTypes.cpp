#include "VoBgp/VoBgpCommunityPacketTypes.h"

#include <ostream>

namespace Routing::Bgp {

std::ostream& operator<<(std::ostream& os, BgpExtCommPktSubtype const& v) {
    return os << static_cast<BgpMaybeU63 const&>(v);
}

void sequenceToValue(Kiv::String::IteratorConst& it, Kiv::String::IteratorConst const& end,
                     BgpExtCommPktSubtype* out) {
    // The base parser ends with the target's own checkValue(): 0-255 here.
    sequenceToValue(it, end, static_cast<BgpMaybeU63*>(out));
}

}  // namespace Routing::Bgp
