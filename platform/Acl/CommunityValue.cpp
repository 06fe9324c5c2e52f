#include "Acl/CommunityValue.h"

#include <ostream>
#include <string>

#include "Kiv/Errors.h"
#include "Kiv/Hash.h"
#include "Kiv/ValueText.h"

namespace Acl {

namespace {

U32 readField(Kiv::ValueParser& parser, char const* name) {
    parser.attr(name);
    try {
        U64 const value = parser.readUnsigned();
        if (value > 0xFFFFFFFFu)
            throw Kiv::RangeError("value < min or > max not allowed");
        return static_cast<U32>(value);
    } catch (Kiv::RangeError const& e) {
        Kiv::rethrowWithAttribute(e, name);
    }
}

}  // namespace

CommunityValue::CommunityValue(Kiv::String::IteratorConst& it, Kiv::String::IteratorConst end) {
    Kiv::ValueParser parser(it, end, typeName);
    globalAdmin_ = readField(parser, "globalAdmin");
    localData1_ = readField(parser, "localData1");
    localData2_ = readField(parser, "localData2");
    parser.close();
}

U32 CommunityValue::hash() const {
    U32 const h = Kiv::hashU64((U64(globalAdmin_) << 32) | localData1_);
    return Kiv::hashCombine(h, localData2_);
}

Kiv::String valueToStrep(CommunityValue const& value) {
    Kiv::ValueFormatter f(CommunityValue::typeName);
    f.attr("globalAdmin", std::to_string(value.globalAdmin()))
        .attr("localData1", std::to_string(value.localData1()))
        .attr("localData2", std::to_string(value.localData2()));
    return Kiv::String(f.str());
}

std::ostream& operator<<(std::ostream& os, CommunityValue const& value) {
    return os << valueToStrep(value);
}

void sequenceToValue(Kiv::String::IteratorConst& it, Kiv::String::IteratorConst const& end,
                     CommunityValue* out) {
    *out = CommunityValue(it, end);
}

void strepToValue(Kiv::String const& text, CommunityValue* out) {
    Kiv::String::IteratorConst it = text.begin();
    CommunityValue const value(it, text.end());
    if (it != text.end())
        throw Kiv::ParseError("unexpected text after Acl::CommunityValue");
    *out = value;
}

}  // namespace Acl
