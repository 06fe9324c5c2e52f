// The extended community parser (both widths) and every text form of what it
// returns: each 8- or 20-octet value of the input is interned through the
// parse rules (the default plug-ins, or with the opt-in ones), then printed
// in each form. Properties: nothing crashes or throws; every form printed
// into a stream left in hexadecimal or octal (with base prefix, upper case)
// reads the same as in a fresh stream and leaves the stream's flags alone;
// the content's own text reads back to the same value.
#include <ios>
#include <sstream>

#include "FuzzUtil.h"
#include "VoBgp/ExtCommIp6DedupTable.h"
#include "VoBgp/Parse/ExtComm.h"
#include "VoBgp/Parse/ExtCommOptInPlugins.h"
#include "VoBgp/VoBgpCommunity.h"

using namespace Routing::Bgp;

namespace {

// The parser as the agent starts it; the opt-in plug-ins join before the
// first value is parsed.
struct Parser {
    BgpParseExtCommContainerSm::Ptr container = bgpParseExtCommContainerSmFactory();
    ExtCommDedupTable::Ptr table = extCommDedupTableFactory(container->extCommParser());
    ExtCommIp6DedupTable::Ptr ip6Table = extCommIp6DedupTableFactory(container->extCommParser());
};

// What `print` writes into a fresh stream must come out of streams set to
// other bases too, and their flags must survive.
template <class Print>
void printed(Print&& print) {
    std::ostringstream plain;
    print(plain);
    for (auto base : {std::ios_base::hex, std::ios_base::oct}) {
        std::ostringstream other;
        other.flags(base | std::ios_base::showbase | std::ios_base::uppercase);
        auto const flags = other.flags();
        print(other);
        Fuzz::check(other.str() == plain.str(), "a form depends on the stream's base",
                    plain.str() + " | " + other.str());
        Fuzz::check(other.flags() == flags, "printing changed the stream's flags", plain.str());
    }
}

void formsOf(ExtComm::PtrConst const& comm, ExtComm::PtrConst const& other, U8 selector) {
    printed([&](std::ostream& os) { os << comm; });
    printed([&](std::ostream& os) { comm->formatCommunityValue(os); });
    printed([&](std::ostream& os) { comm->formatSubtype(os); });
    printed([&](std::ostream& os) { os << comm->getContent(); });
    (void)comm->toStrep();
    (void)comm->toStrepForPolicy(ExtComm::StrepFormat(selector % 64));
    for (unsigned ui = 0; ui < 8; ++ui)
        (void)comm->toStrepForUI(ui & 1, ui & 2, ui & 4);
#define VOBGP_FUZZ_ACCESSOR_(accessor, typeMember, Subtype)                   \
    if (comm->pktType() == typeMember && !comm->pktSubtype().isUnspecified()) \
        (void)comm->accessor();
    VOBGP_EXT_COMM_SUBTYPE_ACCESSORS(VOBGP_FUZZ_ACCESSOR_)
#undef VOBGP_FUZZ_ACCESSOR_
    (void)comm->isValid();
    (void)comm->isBetterThan(other);
    Kiv::String const text = valueToStrep(comm->getContent());
    Fuzz::check(strepToValue<ExtCommContent>(text) == comm->getContent(),
                "an extended community's content does not read back", text.str());
}

void formsOf(ExtCommIp6::PtrConst const& comm, U8 selector) {
    printed([&](std::ostream& os) { os << comm.ptr(); });
    printed([&](std::ostream& os) { comm->formatDerivedType(os); });
    printed([&](std::ostream& os) { os << comm->getContent(); });
    (void)comm->toStrep();
    (void)valueToStrep(comm->getContent());
    (void)comm->toStrepForPolicy(ExtCommIp6::StrepFormat(selector % 32));
}

}  // namespace

VOBGP_FUZZ_TARGET(input) {
    static Parser parsers[2];
    [[maybe_unused]] static bool const optIn =
        (bgpParseExtCommOptInPluginsEnq(*parsers[1].container), true);
    U8 const selector = input.octet();
    Parser const& parser = parsers[selector & 1];
    ExtComm::PtrConst previous = ExtComm::dedupContent(parser.table.ptr(), ExtCommContent(0));
    while (input.left() > 0) {
        if (input.octet() & 1) {
            ExtComm::PtrConst comm =
                ExtComm::dedupContent(parser.table.ptr(), ExtCommContent(input.number(8)));
            formsOf(comm, previous, selector >> 1);
            previous = comm;
            continue;
        }
        U8 const type = input.octet(), subtype = input.octet();
        Vonet::Ip6Addr::Octets addr;
        for (U8& octet : addr)
            octet = input.octet();
        ExtCommIp6Content const content{type, subtype, Vonet::Ip6Addr(addr),
                                        static_cast<U16>(input.number(2))};
        formsOf(ExtCommIp6::dedupContent(parser.ip6Table.ptr(), content), selector >> 1);
    }
}
