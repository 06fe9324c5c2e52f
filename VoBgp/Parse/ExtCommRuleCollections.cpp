#include "VoBgp/Parse/ExtCommRuleCollections.h"

#include <ostream>

#include "Kiv/Errors.h"

namespace Routing::Bgp {

namespace BgpParseDetail {

void const* readRulePointer(Kiv::String::IteratorConst& it, Kiv::String::IteratorConst const& end) {
    try {
        return Kiv::parsePointer(it, end);
    } catch (Kiv::RangeError const& error) {
        Kiv::rethrowWithAttribute(error, "rule");
    }
}

}  // namespace BgpParseDetail

BgpParseExtCommRuleCollections::Ptr bgpParseExtCommRuleCollectionsFactory() {
    return Kiv::makeActive<BgpParseExtCommRuleCollections>();
}

BgpParseExtCommRuleCollections::Ptr
BgpParseExtCommRuleCollections::BgpParseExtCommRuleCollectionsIs() {
    return bgpParseExtCommRuleCollectionsFactory();
}

BgpParseExtCommRuleCollections::~BgpParseExtCommRuleCollections() {
    // Reactors first, so that nobody hears the sets go; then the sets, last
    // attribute first.
    notifieeListClear();
    [this]<std::size_t... index>(std::index_sequence<index...>) {
        (std::get<bgpParseExtCommRuleSetCount - 1 - index>(sets_).keys_.clear(), ...);
    }
    (std::make_index_sequence<bgpParseExtCommRuleSetCount>());
}

BgpParseExtCommControl::BgpParseExtCommControl(Kiv::String::IteratorConst& it,
                                               Kiv::String::IteratorConst const& end) {
    void const* collections;
    try {
        collections = Kiv::parsePointer(it, end);
    } catch (Kiv::RangeError const& error) {
        Kiv::rethrowWithAttribute(error, "ruleCollections");
    }
    ruleCollections_ = BgpParseExtCommRuleCollections::Ptr(
        static_cast<BgpParseExtCommRuleCollections*>(const_cast<void*>(collections)));
}

U32 BgpParseExtCommControl::hash() const {
    throw Kiv::UnhashableValueError("Routing::Bgp::BgpParseExtCommControl is not hashable");
}

Kiv::String valueToStrep(BgpParseExtCommControl const& control) {
    return Kiv::String(Kiv::pointerText(control.ruleCollections().ptr()));
}

std::ostream& operator<<(std::ostream& os, BgpParseExtCommControl const& control) {
    return os << Kiv::pointerText(control.ruleCollections().ptr());
}

void sequenceToValue(Kiv::String::IteratorConst& it, Kiv::String::IteratorConst const& end,
                     BgpParseExtCommControl* out) {
    *out = BgpParseExtCommControl(it, end);
}

}  // namespace Routing::Bgp
