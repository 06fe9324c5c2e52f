// Checks shared by the typed extended community tests.
#pragma once

#include <sstream>
#include <string>

#include "TestUtil.h"
#include "VoBgp/VoBgpCommunity.h"

namespace Routing::Bgp::FormCheck {

inline std::string derived(ExtComm const& comm) {
    std::ostringstream os;
    os << comm;
    return os.str();
}

// Every one of the 64 formats against `expected(format)`, and the
// show-command entry against the format number it stands for
// (classification 2 + UI 4 + json 8 + asdot 16 + weighted 32).
template <class Expected>
void expectEveryFormat(ExtComm const& comm, Expected expected) {
    for (unsigned bits = 0; bits < 64; ++bits) {
        ExtComm::StrepFormat format(static_cast<U8>(bits));
        EXPECT_EQ(std::string(expected(format)), comm.toStrepForPolicy(format).view())
            << derived(comm) << " format " << bits;
    }
    for (bool asdot : {false, true})
        for (bool weighted : {false, true})
            for (bool json : {false, true}) {
                U8 bits =
                    static_cast<U8>(6 + (json ? 8 : 0) + (asdot ? 16 : 0) + (weighted ? 32 : 0));
                EXPECT_EQ(comm.toStrepForPolicy(ExtComm::StrepFormat(bits)),
                          comm.toStrepForUI(asdot, weighted, json))
                    << derived(comm) << " format " << unsigned(bits);
            }
}

// The three prefixes a format selects: neither flag, classification alone,
// classification with UI (UI alone counts as neither).
inline char const* byClassification(ExtComm::StrepFormat format, char const* plain,
                                    char const* classification, char const* ui) {
    if (!format.strepFormatClassification())
        return plain;
    return format.strepFormatUI() ? ui : classification;
}

}  // namespace Routing::Bgp::FormCheck
