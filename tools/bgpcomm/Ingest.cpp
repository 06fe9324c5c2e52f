#include "bgpcomm/Ingest.h"

#include <algorithm>
#include <array>
#include <vector>

#include "Routing/RouteMap/PosixRegex.h"
#include "VoBgp/Parse/ExtCommOptInPlugins.h"
#include "VoBgp/VoBgpSerialize.h"
#include "bgpcomm/WordSet.h"

namespace Bgpcomm {

using namespace Routing::Bgp;

namespace {

// Texts joined by single blanks, the way lists present themselves to a
// regular expression.
template <class Container, class Format>
std::string joined(Container const& items, Format&& format) {
    std::string text;
    for (auto const& item : items) {
        if (!text.empty())
            text += ' ';
        format(text, item);
    }
    return text;
}

bool regexMatches(Routing::RouteMap::PosixRegex const* regex, std::string const& text) {
    return regex->execute(text) == 0;
}

// Route policy sees a route without the attribute as the empty text.
template <class ListPtr>
bool listMatches(ListPtr const& list, Routing::RouteMap::PosixRegex const* regex) {
    return list ? list->matchCommunitiesRegex(regex) : regexMatches(regex, "");
}

// The classification lists that splitting every list of `lists` (the
// interned extended lists) would intern, counted without building one: a
// list's part of one classification is its members of that classification
// in the list's order, and two parts are one classification list when they
// hold the same interned values (the classification tables' own identity).
std::size_t classificationListsOfSplit(Vok::DedupHashTable const& lists) {
    constexpr std::size_t classifications = extCommClassificationOneBeyondLast;
    // A part: one list's members of one classification.
    struct Part {
        ExtCommList const* list;
        U32 classification;
        U32 count;
    };
    // Whether two parts of one classification and count hold the same
    // members in the same order.
    auto const same = [](Part const& a, Part const& b) {
        auto const& ours = *a.list->commVectorRawPtr();
        auto const& theirs = *b.list->commVectorRawPtr();
        auto mine = ours.begin();
        auto other = theirs.begin();
        auto const skip = [&](auto& at) {
            while (static_cast<U32>((*at)->classification()) != a.classification)
                ++at;
        };
        for (U32 n = 0; n < a.count; ++n, ++mine, ++other) {
            skip(mine);
            skip(other);
            if (mine->ptr() != other->ptr())
                return false;
        }
        return true;
    };
    // The first part met of each key (hash, classification, count): a part
    // whose key is known is nearly always that same classification list, and
    // the members decide. The rare other parts of a known key are kept aside.
    // (A list has fewer than 2^13 members: an attribute is under 64 KiB.)
    WordMap<U64, ExtCommList const*> firstOfKey;
    std::vector<std::pair<U64, Part>> collided;
    std::size_t distinct = 0;
    lists.forEach([&](Vok::DedupHandle const* handle) {
        auto const* const list = Vok::fromDedupHandle<ExtCommList>(handle);
        // The hash an interned classification list of these members has.
        std::array<Vok::HashMix, classifications> mix{};
        std::array<U32, classifications> count{};
        for (ExtComm::PtrConst const& comm : *list->commVectorRawPtr()) {
            auto const c = static_cast<std::size_t>(comm->classification());
            BgpHashMix(mix[c], comm.ptr());
            ++count[c];
        }
        for (std::size_t c = 0; c < classifications; ++c) {
            if (count[c] == 0)
                continue;
            Part const part{list, U32(c), count[c]};
            U64 const key = U64(mix[c].result()) << 32 | U64(c) << 24 | count[c];
            if (firstOfKey.insert(key, list)) {
                ++distinct;
            } else if (!same(Part{*firstOfKey.find(key), part.classification, part.count}, part) &&
                       std::none_of(collided.begin(), collided.end(), [&](auto const& other) {
                           return other.first == key && same(other.second, part);
                       })) {
                collided.emplace_back(key, part);
                ++distinct;
            }
        }
    });
    return distinct;
}

}  // namespace

ExtCommIp6Content ip6Content(U8 const* p) {
    return CommListTraits<ExtCommIp6Content>::fromWire(p);
}

bool RouteComms::has(CommKind kind) const {
    switch (kind) {
        case CommKind::standard:
            return bool(standard);
        case CommKind::large:
            return bool(large);
        case CommKind::extended:
            return extended && !extended->empty();
        case CommKind::ipv6:
            return ipv6 && !ipv6->empty();
    }
    return false;
}

namespace {

// Plug-ins join before the tables exist, so no value is parsed without them.
BgpParseExtCommContainerSm::Ptr parserContainer(Ingest::Parser parser) {
    auto container = BgpParseExtCommContainerSm::BgpParseExtCommContainerSmIs();
    if (parser == Ingest::Parser::withOptInPlugins)
        bgpParseExtCommOptInPluginsEnq(*container);
    return container;
}

}  // namespace

Ingest::Ingest(Parser parser)
    : parser_(parserContainer(parser)),
      extTable_(extCommDedupTableFactory(parser_->extCommParser())),
      extListTable_(extCommListDedupTableFactory()),
      commTable_(commListDedupTableFactory()),
      largeTable_(largeCommListDedupTableFactory()),
      ip6Table_(extCommIp6DedupTableFactory(parser_->extCommParser())),
      ip6ListTable_(extCommIp6ListDedupTableFactory()) {}

Ingest::~Ingest() = default;

CommList::PtrConst Ingest::standard(AttrSpan const& attr) {
    return attr.present ? CommList::internReceived(commTable_.ptr(), attr.data, attr.size)
                        : nullptr;
}

LargeCommList::PtrConst Ingest::large(AttrSpan const& attr) {
    return attr.present ? LargeCommList::internReceived(largeTable_.ptr(), attr.data, attr.size)
                        : nullptr;
}

ExtCommList::PtrConst Ingest::extended(AttrSpan const& attr) {
    return attr.present ? ExtCommList::internReceived(extTable_.ptr(), extListTable_.ptr(),
                                                      attr.data, attr.size)
                        : nullptr;
}

ExtCommIp6List::PtrConst Ingest::ipv6(AttrSpan const& attr) {
    return attr.present ? ExtCommIp6List::internReceived(ip6Table_.ptr(), ip6ListTable_.ptr(),
                                                         attr.data, attr.size)
                        : nullptr;
}

void Ingest::path(PathAttrs const& attrs, RouteComms* out) {
    out->standard = standard(attrs.of(CommKind::standard));
    out->large = large(attrs.of(CommKind::large));
    out->extended = extended(attrs.of(CommKind::extended));
    out->ipv6 = ipv6(attrs.of(CommKind::ipv6));
}

Ingest::Cache::Cache(Ingest const& ingest)
    : standard_({ingest.commTable_.ptr()}),
      large_({ingest.largeTable_.ptr()}),
      extended_({ingest.extTable_.ptr(), ingest.extListTable_.ptr()}),
      ipv6_({ingest.ip6Table_.ptr(), ingest.ip6ListTable_.ptr()}) {}

namespace {

template <class Cache>
auto internVia(Cache& cache, AttrSpan const& attr) {
    return attr.present ? cache.internReceived(attr.data, attr.size) : nullptr;
}
template <class Cache, class ListPtr>
ListPtr copyVia(Cache& cache, ListPtr const& list) {
    return list ? cache.copy(list) : nullptr;
}

}  // namespace

void Ingest::Cache::path(PathAttrs const& attrs, RouteComms* out) {
    out->standard = internVia(standard_, attrs.of(CommKind::standard));
    out->large = internVia(large_, attrs.of(CommKind::large));
    out->extended = internVia(extended_, attrs.of(CommKind::extended));
    out->ipv6 = internVia(ipv6_, attrs.of(CommKind::ipv6));
}

RouteComms Ingest::Cache::copy(RouteComms const& comms) {
    return {copyVia(standard_, comms.standard), copyVia(large_, comms.large),
            copyVia(extended_, comms.extended), copyVia(ipv6_, comms.ipv6)};
}

void Ingest::Cache::giveBack(RouteComms& comms) {
    standard_.giveBack(comms.standard);
    large_.giveBack(comms.large);
    extended_.giveBack(comms.extended);
    ipv6_.giveBack(comms.ipv6);
}

void Ingest::forEachText(RouteComms const& comms, CommKind kind, bool asdot,
                         std::function<void(std::string_view)> const& each,
                         BgpShowCli::ExtCommCache* cache) {
    VoFmt::StackBackedBuffer<64> buffer;
    switch (kind) {
        case CommKind::standard:
            if (comms.standard)
                for (U32 comm : comms.standard->commVectorRawPtr()) {
                    buffer.clear();
                    CommunityFormatter<true>::format(buffer, comm);
                    each(buffer.view());
                }
            return;
        case CommKind::large:
            if (comms.large)
                for (Acl::CommunityValue const& value : comms.large->commVectorRawPtr()) {
                    buffer.clear();
                    LargeCommunityFormatter::format(buffer, value, asdot);
                    each(buffer.view());
                }
            return;
        case CommKind::extended: {
            if (!cache)
                cache = parser_->extCommCache().ptr();
            if (!comms.extended)
                return;
            for (ExtComm::PtrConst const& comm : *comms.extended->commVectorRawPtr()) {
                Kiv::String text = cache->lookup(comm->community(), asdot);
                if (text.isNull()) {
                    text = comm->toStrepForUI(asdot);
                    cache->insert(comm->community(), text, asdot);
                }
                each(text.view());
            }
            return;
        }
        case CommKind::ipv6: {
            ExtCommIp6::StrepFormat format;
            format.strepFormatClassificationIs(true);
            format.strepFormatUIIs(true);
            format.strepFormatAsdotIs(asdot);
            if (!comms.ipv6)
                return;
            for (ExtCommIp6::PtrConst const& comm : *comms.ipv6->commVectorRawPtr()) {
                buffer.clear();
                comm->formatPolicy(buffer, format);
                each(buffer.view());
            }
            return;
        }
    }
}

bool Ingest::matches(RouteComms const& comms, CommKind kind,
                     Routing::RouteMap::PosixRegex const* regex) const {
    switch (kind) {
        case CommKind::standard:
            return listMatches(comms.standard, regex);
        case CommKind::large:
            return listMatches(comms.large, regex);
        case CommKind::extended:
            return listMatches(comms.extended, regex);
        // IPv6-address-specific lists have no matcher of their own: their
        // policy forms, joined as the other lists join theirs.
        case CommKind::ipv6: {
            if (!comms.ipv6)
                return regexMatches(regex, "");
            for (unsigned bit : {unsigned(ExtCommIp6::StrepFormat::strepFormatDefaultBit),
                                 unsigned(ExtCommIp6::StrepFormat::strepFormatClassificationBit)}) {
                ExtCommIp6::StrepFormat format;
                format.set(bit, true);
                if (regexMatches(regex,
                                 joined(*comms.ipv6->commVectorRawPtr(),
                                        [&](std::string& text, ExtCommIp6::PtrConst const& c) {
                                            text += c->toStrepForPolicy(format).view();
                                        })))
                    return true;
            }
            return false;
        }
    }
    return false;
}

Kiv::String Ingest::serialize(RouteComms const& comms, CommKind kind) const {
    switch (kind) {
        case CommKind::standard:
            return comms.standard ? comms.standard->serialize() : Kiv::String();
        case CommKind::large:
            return comms.large ? comms.large->serialize() : Kiv::String();
        case CommKind::extended:
            return comms.extended ? comms.extended->serialize(ExtCommList::serialization(
                                        /*includeNonTransitive=*/true, false, false))
                                  : Kiv::String();
        case CommKind::ipv6:
            return comms.ipv6 ? comms.ipv6->serialize(true) : Kiv::String();
    }
    return {};
}

std::size_t Ingest::extCommsInterned() const {
    return extTable_->dedupTable()->size();
}

std::size_t Ingest::extListsInterned() const {
    return extListTable_->dedupTable()->size();
}

std::size_t Ingest::extClassificationListsInterned() const {
    // Reaching the classification tables would split every list first (the
    // table set's switch to eager building): count what that would intern.
    if (!extListTable_->classificationListsEager())
        return classificationListsOfSplit(*extListTable_->dedupTable());
    return extListTable_->extCommClassificationListDedupTable()->size() +
           extListTable_->rtExtCommClassificationListDedupTable()->size();
}

Vok::DedupHashTable const& Ingest::listTable(CommKind kind) const {
    switch (kind) {
        case CommKind::standard:
            return *commTable_->dedupTable();
        case CommKind::large:
            return *largeTable_->dedupTable();
        case CommKind::extended:
            return *extListTable_->dedupTable();
        case CommKind::ipv6:
            break;
    }
    return *ip6ListTable_->dedupTable();
}

std::size_t Ingest::standardListsInterned() const {
    return commTable_->dedupTable()->size();
}

std::size_t Ingest::largeListsInterned() const {
    return largeTable_->dedupTable()->size();
}

std::size_t Ingest::ip6CommsInterned() const {
    return ip6Table_->dedupTable()->size();
}

std::size_t Ingest::ip6ListsInterned() const {
    return ip6ListTable_->dedupTable()->size() +
           ip6ListTable_->extCommIp6ClassificationListDedupTable()->size();
}

}  // namespace Bgpcomm
