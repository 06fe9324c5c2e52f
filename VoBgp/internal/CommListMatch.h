// Part of VoBgp/VoBgpCommunityList.h; include that header, not this one.
//
// Matching community lists against route-policy regular expressions, and
// the printed forms of the extended community lists.
//
// Each list kind presents its communities to an expression as one text, in
// list order, separated by single blanks. Lists whose communities have more
// than one form try the forms in passes, first match wins:
//   CommList       numeric (65535:65281), then named (no-export)
//   LargeCommList  plain decimal, one pass
//   ExtCommList    MatchMode::policy, then MatchMode::classification, then,
//                  only if the list has such communities, MatchMode::ui
// All passes of one match write into one buffer, sized once for the longest
// text the list can give: a match allocates at most once.
//
// Precondition of every match: `regex` is non-null and was compiled by
// RouteMap::PosixRegex, which refuses patterns that libc would take
// unbounded time or memory to compile (PosixRegex.h). Any list, of any
// length and content, may then be matched against any pattern it accepted.
//
// Printed forms:
//   ExtCommList                [ <derived form> <derived form> ]   (null: NULL)
//   ExtCommClassificationList  <classification> : <derived forms>  (null: nothing)
#pragma once

#include <iosfwd>
#include <ostream>

#include "Routing/RouteMap/PosixRegex.h"
#include "VoBgp/internal/ExtCommListDedupTable.h"
#include "VoFmt/StackBackedBuffer.h"

namespace Routing::Bgp {

// The form extended communities are written in for matching. Other values
// write every community with an empty StrepFormat.
enum class MatchMode : U8 {
    // toStrepForPolicy with {strepFormatDefault}
    policy = 0,
    // toStrepForPolicy with {strepFormatClassification}
    classification = 1,
    // toStrepForUI(), only the communities whose policyMatchStrepUI() is true
    ui = 2,
};

// One matching pass over an extended community list.
bool matchExtCommList(ExtCommList const* list, MatchMode matchMode,
                      RouteMap::PosixRegex const* regex);

// The buffer of one match: inline room for short lists, grown once, before
// the first pass, for longer ones.
class CommListMatchText {
  public:
    // Room for `comms` communities of at most `longest` characters each.
    CommListMatchText(std::size_t comms, std::size_t longest) {
        std::size_t const needed = comms * (longest + 1) + 1;
        if (needed > inlineSize)
            buffer_.reserve(needed);
    }

    // Writes the members of `comms` that `include` accepts, with `write`,
    // separated by single blanks; the text written.
    template <class Range, class Include, class Write>
    std::string_view write(Range const& comms, Include&& include, Write&& writeOne) {
        buffer_.clear();
        bool first = true;
        for (auto const& comm : comms) {
            if (!include(comm))
                continue;
            if (!first)
                buffer_.append(' ');
            first = false;
            writeOne(buffer_, comm);
        }
        return buffer_.view();
    }
    // Whether `regex` matches the text last written.
    bool matches(RouteMap::PosixRegex const* regex) {
        buffer_.append('\0');
        bool const matched = regex->execute(buffer_.data()) == 0;
        buffer_.clear();
        return matched;
    }

    // What the longest community of each kind writes, plus room to spare.
    static constexpr std::size_t longestStandard = 12;  // "no-advertise", "65535:65535"
    static constexpr std::size_t longestLarge = 33;     // "4294967295:4294967295:4294967295"
    static constexpr std::size_t longestExtended = 64;  // policy and show-command forms

  private:
    static constexpr std::size_t inlineSize = 512;
    VoFmt::StackBackedBuffer<inlineSize, 1 << 20> buffer_;
};

bool matchExtCommList(CommListMatchText& text, ExtCommList const* list, MatchMode matchMode,
                      RouteMap::PosixRegex const* regex);

// The passes of a list of plain values: each formatter writes every
// community in its form; true at the first pass `regex` matches.
template <class Range, class... Formatters>
bool matchCommPasses(Range const& comms, std::size_t longest, RouteMap::PosixRegex const* regex,
                     Formatters... formatters) {
    KIV_ASSERT(regex != nullptr, "__null != regex");
    CommListMatchText text(comms.size(), longest);
    auto const all = [](auto const&) { return true; };
    return ((text.write(comms, all, formatters), text.matches(regex)) || ...);
}

std::ostream& operator<<(std::ostream& os, ExtCommList const* list);
std::ostream& operator<<(std::ostream& os, ExtCommList const& list);

// The derived forms of a vector of interned communities, blank-separated
// (any community kind with a pointer operator<<).
template <class Vector>
void formatExtCommVector(std::ostream& os, Vector const& vector) {
    bool first = true;
    for (auto const& comm : vector) {
        if (!first)
            os << ' ';
        first = false;
        os << comm.ptr();
    }
}

// Writes the classification's member name, " : ", the derived forms
// separated by blanks; nothing for null (a classification list of either
// width).
template <class ClassificationList>
std::ostream& formatClassificationList(std::ostream& os, ClassificationList const* list) {
    if (list == nullptr)
        return os;
    os << list->classification() << " : ";
    formatExtCommVector(os, *list->commVectorRawPtr());
    return os;
}

// Writes "[ ", the derived forms separated by blanks, " ]"; "NULL" for null
// (an ExtCommList or its IPv6 twin).
template <class List>
std::ostream& formatCommList(std::ostream& os, List const* list) {
    if (list == nullptr)
        return os << "NULL";
    os << "[ ";
    formatExtCommVector(os, *list->commVectorRawPtr());
    return os << " ]";
}

}  // namespace Routing::Bgp
