#include "VoBgp/VoBgpMiscTypes.h"

#include <ostream>
#include <string>

#include "Kiv/Errors.h"
#include "Kiv/ValueText.h"

namespace Routing::Bgp {

void BgpMaybeU63::checkValue() {
    if (isUnspecified())
        return;
    if (value >= min() && value <= max())
        return;
    value = unspecifiedWord;
    throw Kiv::RangeError("value < min or > max not allowed");
}

Kiv::String BgpMaybeU63::toStrep() const {
    return Vok::valueToStrep(*this);
}

Kiv::String valueToStrep(BgpMaybeU63 const& v) {
    return Vok::valueToStrep(v);
}

std::ostream& operator<<(std::ostream& os, BgpMaybeU63 const& v) {
    return Vok::operator<<(os, v);
}

void sequenceToValue(Kiv::String::IteratorConst& it, Kiv::String::IteratorConst const& end,
                     BgpMaybeU63* out) {
    Vok::sequenceToValue(it, end, out);
    out->checkValue();
}

namespace {
constexpr char kDenseTypeName[] = "Routing::Bgp::BgpDenseU32Attr";
}

void BgpDenseU32Attr::throwRange(char const* operation) {
    throw Kiv::RangeError(operation);
}

void BgpDenseU32Attr::throwNonDeletable(char const* operation) {
    throw Kiv::NonDeletableAttributeError(operation);
}

Kiv::String valueToStrep(BgpDenseU32Attr v) {
    return Kiv::String(
        Kiv::ValueFormatter(kDenseTypeName).attr("value", std::to_string(v.value())).str());
}

std::ostream& operator<<(std::ostream& os, BgpDenseU32Attr v) {
    return os << valueToStrep(v);
}

void sequenceToValue(Kiv::String::IteratorConst& it, Kiv::String::IteratorConst const& end,
                     BgpDenseU32Attr* out) {
    Kiv::ValueParser parser(it, end, kDenseTypeName);
    parser.attr("value");
    U64 value = 0;
    try {
        value = parser.readUnsigned();
        if (value > 0xFFFFFFFFu)
            throw Kiv::RangeError(std::to_string(value) + " does not fit U32");
    } catch (Kiv::RangeError const& e) {
        Kiv::rethrowWithAttribute(e, "value");
    } catch (Kiv::ParseError const& e) {
        Kiv::rethrowWithAttribute(e, "value");
    }
    parser.close();
    out->valueIs(static_cast<U32>(value));
}

}  // namespace Routing::Bgp
