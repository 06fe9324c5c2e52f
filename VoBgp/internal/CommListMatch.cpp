#include "VoBgp/internal/CommListMatch.h"

#include <ostream>
#include <sstream>

#include "VoBgp/VoBgpCommunityList.h"

namespace Routing::Bgp {

namespace {

ExtComm::StrepFormat matchFormat(MatchMode matchMode) {
    ExtComm::StrepFormat format;
    switch (matchMode) {
        case MatchMode::policy:
            format.strepFormatDefaultIs(true);
            break;
        case MatchMode::classification:
            format.strepFormatClassificationIs(true);
            break;
        case MatchMode::ui:
            return ExtComm::uiFormat(false, false, false);
    }
    return format;
}

}  // namespace

bool matchExtCommList(CommListMatchText& text, ExtCommList const* list, MatchMode matchMode,
                      RouteMap::PosixRegex const* regex) {
    KIV_ASSERT(list != nullptr, "__null != list");
    KIV_ASSERT(regex != nullptr, "__null != regex");
    ExtComm::StrepFormat const format = matchFormat(matchMode);
    bool const uiOnly = matchMode == MatchMode::ui;
    std::string_view const strVal = text.write(
        *list->commVectorRawPtr(),
        [uiOnly](ExtComm::PtrConst const& comm) { return !uiOnly || comm->policyMatchStrepUI(); },
        [format](VoFmt::TextBuffer& out, ExtComm::PtrConst const& comm) {
            comm->formatPolicy(out, format);
        });
    KIV_ASSERT(!strVal.empty() || matchMode != MatchMode::ui);
    return text.matches(regex);
}

bool matchExtCommList(ExtCommList const* list, MatchMode matchMode,
                      RouteMap::PosixRegex const* regex) {
    CommListMatchText text(list != nullptr ? list->comms() : 0, CommListMatchText::longestExtended);
    return matchExtCommList(text, list, matchMode, regex);
}

bool ExtCommList::matchCommunitiesRegex(RouteMap::PosixRegex const* regex) const {
    CommListMatchText text(comms(), CommListMatchText::longestExtended);
    return matchExtCommList(text, this, MatchMode::policy, regex) ||
           matchExtCommList(text, this, MatchMode::classification, regex) ||
           (hasPolicyMatchStrepUICommunities() &&
            matchExtCommList(text, this, MatchMode::ui, regex));
}

bool CommList::matchCommunitiesRegex(RouteMap::PosixRegex const* regex) const {
    return matchCommPasses(
        commVectorRawPtr(), CommListMatchText::longestStandard, regex,
        [](VoFmt::TextBuffer& out, U32 comm) {
            CommunityFormatter<false>::formatNotWellKnown(out, comm);
        },
        [](VoFmt::TextBuffer& out, U32 comm) { CommunityFormatter<true>::format(out, comm); });
}

bool LargeCommList::matchCommunitiesRegex(RouteMap::PosixRegex const* regex) const {
    return matchCommPasses(commVectorRawPtr(), CommListMatchText::longestLarge, regex,
                           [](VoFmt::TextBuffer& out, Acl::CommunityValue const& comm) {
                               LargeCommunityFormatter::format(out, comm, false);
                           });
}

std::ostream& operator<<(std::ostream& os, ExtCommList const* list) {
    return formatCommList(os, list);
}

std::ostream& operator<<(std::ostream& os, ExtCommList const& list) {
    return formatCommList(os, &list);
}

Kiv::String ExtCommList::toStrep() const {
    std::ostringstream os;
    formatCommList(os, this);
    return Kiv::String(os.str());
}

}  // namespace Routing::Bgp
