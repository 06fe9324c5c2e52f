// Acl::CommunityValue: a BGP large community (RFC 8092), three 32-bit fields.
//
// Lists sort and deduplicate large communities with operator< and
// operator==; the order is field by field, which is also the order in which
// the text forms print them.
#pragma once

#include <cstddef>
#include <functional>
#include <iosfwd>

#include "Kiv/String.h"
#include "Kiv/Types.h"

namespace Acl {

class CommunityValue {
  public:
    static constexpr char const* typeName = "Acl::CommunityValue";

    constexpr CommunityValue() = default;
    constexpr CommunityValue(U32 globalAdmin, U32 localData1, U32 localData2)
        : globalAdmin_(globalAdmin), localData1_(localData1), localData2_(localData2) {}
    // Parses the framework text form at `it`, advancing it; RangeError (with
    // the attribute's name) for a field above 32 bits, ParseError for text of
    // another shape.
    CommunityValue(Kiv::String::IteratorConst& it, Kiv::String::IteratorConst end);

    // Global administrator: the AS that defined the community.
    constexpr U32 globalAdmin() const { return globalAdmin_; }
    // Local data parts 1 and 2: the administrator's own meaning.
    constexpr U32 localData1() const { return localData1_; }
    constexpr U32 localData2() const { return localData2_; }

    friend constexpr bool operator==(CommunityValue const&, CommunityValue const&) = default;
    friend constexpr bool operator<(CommunityValue const& a, CommunityValue const& b) {
        if (a.globalAdmin_ != b.globalAdmin_)
            return a.globalAdmin_ < b.globalAdmin_;
        if (a.localData1_ != b.localData1_)
            return a.localData1_ < b.localData1_;
        return a.localData2_ < b.localData2_;
    }

    // The framework hash of the three fields.
    U32 hash() const;

  private:
    U32 globalAdmin_ = 0;
    U32 localData1_ = 0;
    U32 localData2_ = 0;
};

// "Value('Acl::CommunityValue', ** {'globalAdmin': 1, 'localData1': 2, 'localData2': 3})"
Kiv::String valueToStrep(CommunityValue const& value);
std::ostream& operator<<(std::ostream& os, CommunityValue const& value);
void sequenceToValue(Kiv::String::IteratorConst& it, Kiv::String::IteratorConst const& end,
                     CommunityValue* out);
// The whole text must be one value; ParseError for anything left over.
void strepToValue(Kiv::String const& text, CommunityValue* out);

}  // namespace Acl

template <>
struct std::hash<Acl::CommunityValue> {
    std::size_t operator()(Acl::CommunityValue const& value) const noexcept { return value.hash(); }
};
