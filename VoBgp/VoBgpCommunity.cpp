#include "VoBgp/VoBgpCommunity.h"

#include <ostream>
#include <sstream>
#include <string>

#include "Kiv/Errors.h"
#include "Kiv/Hash.h"
#include "Kiv/ValueText.h"
#include "VoBgp/Parse/ExtComm.h"
#include "VoBgp/Parse/ExtCommDerivedForm.h"
#include "VoBgp/VoBgpGlobals.h"

namespace Routing::Bgp {

void formatExtCommContent(VoFmt::TextBuffer& out, ExtCommContent content) {
    if (content.value() == 0) {
        out.append("000000000000000000");
        return;
    }
    out.append("0x");
    for (unsigned i = 0; i < 8; ++i)
        out.appendHex2(content.octet(i));
}

std::ostream& operator<<(std::ostream& os, ExtCommContent content) {
    VoFmt::StackBackedBuffer<24> buffer;
    formatExtCommContent(buffer, content);
    return os << buffer.view();
}

Kiv::String valueToStrep(ExtCommContent content) {
    VoFmt::StackBackedBuffer<24> buffer;
    formatExtCommContent(buffer, content);
    return buffer.kivString();
}

void sequenceToValue(Kiv::String::IteratorConst& it, Kiv::String::IteratorConst const& end,
                     ExtCommContent* out) {
    auto cursor = it;
    if (end - cursor >= 2 && cursor[0] == '0' && (cursor[1] == 'x' || cursor[1] == 'X'))
        cursor += 2;
    U64 value = 0;
    unsigned digits = 0;
    for (; cursor != end; ++cursor, ++digits) {
        int digit = Kiv::hexDigitValue(*cursor);
        if (digit < 0)
            break;
        unsigned d = static_cast<unsigned>(digit);
        if (value >> 60)
            throw Kiv::RangeError("extended community content exceeds 64 bits");
        value = value << 4 | d;
    }
    if (digits == 0)
        throw Kiv::ParseError("expected an extended community content 0x...");
    it = cursor;
    *out = ExtCommContent(value);
}

ExtComm::ExtComm(ExtCommClassification classification, ExtCommContent const& content)
    : ContentHandle(content) {
    userDataIs(classification);
}

ExtComm::Ptr ExtComm::ExtCommIs(ExtCommClassification classification,
                                ExtCommContent const& content) {
    return makeExtComm<ExtComm>(classification, content);
}

BgpExtCommPktSubtype ExtComm::pktSubtype() const {
    return BgpExtCommPktSubtype();
}

#define VOBGP_DEFINE_SUBTYPE_ACCESSOR_(accessor, typeMember, Subtype)      \
    Kiv::String ExtComm::accessor() const {                                \
        KIV_ASSERT(typeMember == pktType(), #typeMember "_ == pktType()"); \
        KIV_ASSERT(!pktSubtype().isUnspecified());                         \
        return extCommSubtypeString<Subtype>(content_.subtypeOctet());     \
    }
VOBGP_EXT_COMM_SUBTYPE_ACCESSORS(VOBGP_DEFINE_SUBTYPE_ACCESSOR_)
#undef VOBGP_DEFINE_SUBTYPE_ACCESSOR_

void ExtComm::formatSubtypeToBuffer(VoFmt::TextBuffer& out) const {
    if (pktSubtype().isUnspecified()) {
        out.append("unspecified");
        return;
    }
    U8 const octet = content_.subtypeOctet();
    bool const hasFamily = withExtCommSubtypeEnum(pktType(), [&out, octet](auto family) {
        appendExtCommSubtypeString<typename decltype(family)::type>(out, octet);
    });
    if (!hasFamily)
        out.append("none");
}

void ExtComm::formatSubtype(std::ostream& os) const {
    VoFmt::StackBackedBuffer<64> text;
    formatSubtypeToBuffer(text);
    os << text.view();
}

void ExtComm::formatCommunityValue(std::ostream& os) const {
    os << content_;
}

void ExtComm::formatDerivedType(std::ostream& os) const {
    ExtCommDerivedBuffer text;
    appendExtCommDerivedOpening(text, *this);
    text.append(' ');
    finishExtCommDerived(os, text, content_);
}

Kiv::String ExtComm::toStrep() const {
    std::ostringstream os;
    os << this;
    return Kiv::String(os.str());
}

void ExtComm::formatPolicy(VoFmt::TextBuffer& out, StrepFormat format) const {
    if (!format.strepFormatClassification() || !format.strepFormatUI())
        return;
    addExtCommTypeAsString(out, "", content_.typeOctet(), content_.subtypeOctet(), isTransitive());
    for (unsigned i = 2; i < 8; ++i)
        out.appendHex2(content_.octet(i));
}

Kiv::String ExtComm::toStrepForPolicy(StrepFormat format) const {
    VoFmt::StackBackedBuffer<64> buffer;
    formatPolicy(buffer, format);
    return buffer.kivString();
}

ExtComm::StrepFormat ExtComm::uiFormat(bool asdot, bool linkBwWeighted, bool json) {
    StrepFormat format;
    format.strepFormatClassificationIs(true);
    format.strepFormatUIIs(true);
    format.strepFormatAsdotIs(asdot);
    format.strepFormatLinkBwWeightedIs(linkBwWeighted);
    format.strepFormatJsonIs(json);
    return format;
}

Kiv::String ExtComm::toStrepForUI(bool asdot, bool linkBwWeighted, bool json) const {
    return toStrepForPolicy(uiFormat(asdot, linkBwWeighted, json));
}

bool ExtComm::isBetterThan(PtrConst const& other) const {
    return content_.value() < other->content_.value();
}

ExtCommSubtyped::Ptr ExtCommSubtyped::ExtCommSubtypedIs(ExtCommClassification classification,
                                                        ExtCommContent const& content) {
    return makeExtComm<ExtCommSubtyped>(classification, content);
}

BgpExtCommPktSubtype ExtCommSubtyped::pktSubtype() const {
    return BgpExtCommPktSubtype(getContent().subtypeOctet());
}

void formatAsNumber(VoFmt::TextBuffer& out, U32 asNumber, bool asdot) {
    out.appendAsNumber(asNumber, asdot);
}

void formatIpv4Address(VoFmt::TextBuffer& out, U32 address) {
    out.appendIpv4Address(address);
}

ExtCommAsNumber::ExtCommAsNumber(ExtCommClassification classification,
                                 ExtCommContent const& content, bool fourOctetAs)
    : ExtCommSubtyped(classification, content) {
    if (fourOctetAs)
        userDataIs(userData() | fourOctetAsFlag);
}

ExtCommAsNumber::Ptr ExtCommAsNumber::ExtCommAsNumberIs(ExtCommClassification classification,
                                                        ExtCommContent const& content,
                                                        bool fourOctetAs) {
    return makeExtComm<ExtCommAsNumber>(classification, content, fourOctetAs);
}

U32 ExtCommAsNumber::asNumber() const {
    return fourOctetAs() ? static_cast<U32>(community() >> 16)
                         : static_cast<U16>(community() >> 32);
}

void ExtCommAsNumber::formatAsNumberToBuffer(VoFmt::TextBuffer& out, bool asdot) const {
    Routing::Bgp::formatAsNumber(out, asNumber(), asdot);
}

Kiv::String ExtCommAsNumber::formatAsNumber(bool asdot) const {
    VoFmt::StackBackedBuffer<16> buffer;
    formatAsNumberToBuffer(buffer, asdot);
    return buffer.kivString();
}

void ExtCommAsNumber::formatAsAndAdmin(VoFmt::TextBuffer& out, bool asdot) const {
    formatAsNumberToBuffer(out, asdot);
    out.append(':');
    out.appendDecimal(localAdmin());
}

void ExtCommAsNumber::formatPolicy(VoFmt::TextBuffer& out, StrepFormat format) const {
    if (format.strepFormatClassification() && format.strepFormatUI()) {
        ExtCommContent content = getContent();
        addExtCommTypeAsString(out, fourOctetAs() ? "-AS4" : "-AS", content.typeOctet(),
                               content.subtypeOctet(), isTransitive());
        out.append(':');
    }
    formatAsAndAdmin(out, format.strepFormatAsdot());
}

void ExtCommAsNumber::formatDerivedType(std::ostream& os) const {
    ExtCommDerivedBuffer text;
    appendExtCommDerivedOpening(text, *this);
    text.append(" ASN=");
    text.appendDecimal(asNumber());
    text.append(' ');
    finishExtCommDerived(os, text, content_);
}

ExtCommIpv4Address::Ptr ExtCommIpv4Address::ExtCommIpv4AddressIs(
    ExtCommClassification classification, ExtCommContent const& content) {
    return makeExtComm<ExtCommIpv4Address>(classification, content);
}

void ExtCommIpv4Address::formatAddressAndAdmin(VoFmt::TextBuffer& out) const {
    formatIpv4Address(out, ipv4Address());
    out.append(':');
    out.appendDecimal(localAdmin());
}

void ExtCommIpv4Address::formatPolicy(VoFmt::TextBuffer& out, StrepFormat format) const {
    if (format.strepFormatClassification() && format.strepFormatUI()) {
        ExtCommContent content = getContent();
        addExtCommTypeAsString(out, "-IP", content.typeOctet(), content.subtypeOctet(),
                               isTransitive());
        out.append(':');
    }
    formatAddressAndAdmin(out);
}

void ExtCommIpv4Address::formatDerivedType(std::ostream& os) const {
    ExtCommDerivedBuffer text;
    appendExtCommDerivedOpening(text, *this);
    text.append(' ');
    formatIpv4Address(text, ipv4Address());
    text.append(' ');
    finishExtCommDerived(os, text, content_);
}

std::ostream& operator<<(std::ostream& os, ExtComm const* comm) {
    if (comm == nullptr)
        return os << "NULL";
    std::ios_base::fmtflags flags = os.flags();
    comm->formatDerivedType(os);
    os.flags(flags);
    return os;
}

std::ostream& operator<<(std::ostream& os, ExtComm const& comm) {
    return os << &comm;
}

std::ostream& operator<<(std::ostream& os, ExtComm::StrepFormat format) {
    return os << format.toStrep();
}

void sequenceToValue(Kiv::String::IteratorConst& it, Kiv::String::IteratorConst const& end,
                     ExtComm::StrepFormat* out) {
    *out = ExtComm::StrepFormat::parse(it, end);
}

void addExtCommTypeAsString(VoFmt::TextBuffer& out, std::string_view name, U8 type, U8 subtype,
                            bool transitive) {
    out.appendHex2(static_cast<U8>(type & ~0x40));
    out.appendHex2(subtype);
    out.append(name);
    if (!transitive)
        out.append("(NT)");
}

Kiv::String extCommTypeAsString(std::string_view name, U8 type, U8 subtype, bool transitive) {
    VoFmt::StackBackedBuffer<32> buffer;
    addExtCommTypeAsString(buffer, name, type, subtype, transitive);
    return buffer.kivString();
}

ExtCommClassification extCommClassificationFromStash(U32 word) {
    if (word >= extCommClassificationOneBeyondLast)
        throw Kiv::ParseError("stash record holds no extended community classification: " +
                              std::to_string(word));
    return static_cast<ExtCommClassification>(word);
}

ExtComm::Ptr ExtComm::destash(void const* image, KivStash::StoreManager* storeManager) {
    return destashWith(image, storeManager, [](ExtCommContent const& content, U32 tag) {
        return ExtCommIs(extCommClassificationFromStash(tag), content);
    });
}

namespace {

// The rule's entry point for each content width.
ExtComm::PtrConst parseFresh(BgpParseExtendedCommunityRule const& rule,
                             ExtCommContent const& content) {
    return rule.parseExtendedCommunity(content);
}
ExtCommIp6::PtrConst parseFresh(BgpParseExtendedCommunityRule const& rule,
                                ExtCommIp6Content const& content) {
    return rule.parseExtendedCommunityIp6(content);
}

}  // namespace

template <class Comm>
ExtCommDedupTableOf<Comm>::ExtCommDedupTableOf(ParseRulePtrConst const& parseExtCommRule)
    : dedupTable_(Vok::DedupHashTableUnorderedSet::create(VoBgpGlobals::multiThreaded())),
      parseExtCommRule_(parseExtCommRule) {}

template <class Comm>
ExtCommDedupTableOf<Comm>::~ExtCommDedupTableOf() = default;

template <class Comm>
typename ExtCommDedupTableOf<Comm>::CommPtrConst ExtCommDedupTableOf<Comm>::internFresh(
    Content const& content) const {
    CommPtrConst fresh = parseFresh(*parseExtCommRule_, content);
    // Another thread may have interned an equal community since the lookup;
    // dedup then hands back that one and `fresh` dies here.
    Vok::DedupHandle::PtrConst dedupHandle = dedupTable_->dedup(fresh.ptr());
    KIV_ASSERT(dedupHandle != nullptr, "dedupHandle");
    return CommPtrConst::adopt(static_cast<Comm const*>(dedupHandle.release()));
}

template <class Comm>
void ExtCommDedupTableOf<Comm>::dumpLine(Vok::DumpContext const& dumpCtx, U32 indent,
                                         char const* text) {
    if (indent == 0)
        dumpCtx.print("%s\n", text);
    else
        dumpCtx.print("%*c%s\n", static_cast<int>(indent), ' ', text);
}

template <class Comm>
void ExtCommDedupTableOf<Comm>::dumpTable(Vok::DumpContext const& dumpCtx, U32 indentCount,
                                          char const* name) const {
    dumpLine(dumpCtx, indentCount, name);
    dumpLine(dumpCtx, indentCount + 2, "dedupTable");
    dedupTable_->dumpState(dumpCtx, indentCount + 4);
}

template class ExtCommDedupTableOf<ExtComm>;
template class ExtCommDedupTableOf<ExtCommIp6>;

namespace {

// The route target an interned community stands for, if it is one.
bool routeTargetOf(Vok::DedupHandle const* handle, RouteTarget* rt) {
    auto const* comm = static_cast<ExtComm const*>(handle);
    if (comm->classification() != extCommClassificationRouteTarget)
        return false;
    *rt = RouteTarget(comm->community());
    return true;
}

}  // namespace

ExtCommLifeTimeNotifiee::Ptr extCommLifeTimeNotifieeFactory(
    NotifyingRouteTargetList::Ptr const& rtList) {
    return Kiv::makeActive<ExtCommLifeTimeNotifiee>(rtList);
}

ExtCommLifeTimeNotifiee::Ptr ExtCommLifeTimeNotifiee::ExtCommLifeTimeNotifieeIs(
    NotifyingRouteTargetList::Ptr const& rtList) {
    return extCommLifeTimeNotifieeFactory(rtList);
}

void ExtCommLifeTimeNotifiee::handleInsert(Vok::DedupHandle const* handle) {
    RouteTarget rt;
    if (routeTargetOf(handle, &rt))
        rtList_->rtIs(rt);
}

void ExtCommLifeTimeNotifiee::handleRemove(Vok::DedupHandle const* handle) {
    RouteTarget rt;
    if (routeTargetOf(handle, &rt))
        rtList_->rtDel(rt);
}

void ExtCommLifeTimeNotifiee::handleNotificationStop(Vok::DedupHashTable const*) {
    rtList_->rtDelAll();
}

ExtCommDedupTable::ExtCommDedupTable(ParseRulePtrConst const& parseExtCommRule)
    : ExtCommDedupTableOf(parseExtCommRule) {
    handleInitialized();
}

ExtCommDedupTable::~ExtCommDedupTable() = default;

ExtCommDedupTable::Ptr extCommDedupTableFactory(
    ExtCommDedupTable::ParseRulePtrConst const& parseExtCommRule) {
    return Kiv::makeActive<ExtCommDedupTable>(parseExtCommRule);
}

ExtCommDedupTable::Ptr ExtCommDedupTable::ExtCommDedupTableIs(
    ParseRulePtrConst const& parseExtCommRule) {
    return extCommDedupTableFactory(parseExtCommRule);
}

void ExtCommDedupTable::handleInitialized() {
    producerRtList_ = notifyingRouteTargetListFactory();
    lifeTimeNotifiee_ = extCommLifeTimeNotifieeFactory(producerRtList_);
    dedupTable()->lifeTimeNotifieeIs(lifeTimeNotifiee_);
}

void ExtCommDedupTable::dumpState(Vok::DumpContext const& dumpCtx, U32 indentCount) const {
    dumpTable(dumpCtx, indentCount, "ExtCommDedupTable");
    dumpLine(dumpCtx, indentCount + 2, "producerRtList");
    producerRtList_->dumpState(dumpCtx, indentCount + 4);
}

}  // namespace Routing::Bgp
