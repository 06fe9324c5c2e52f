#include "bgpcomm/Notes.h"

using Routing::Bgp::CommList;

namespace Bgpcomm {

void appendJsonString(VoFmt::TextBuffer& out, std::string_view text) {
    out.append('"');
    for (char c : text) {
        auto u = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            out.append('\\');
            out.append(c);
        } else if (u < 0x20) {
            out.append("\\u00");
            out.appendHex2(u);
        } else {
            out.append(c);
        }
    }
    out.append('"');
}

Notes::Item Notes::item(CommKey const* key, U32 standardValue, CommKind kind,
                        Dictionary::Entry const* const* looked) const {
    Item item;
    if (!key)
        return item;
    item.key = *key;
    // Only 0 and 65535:* can have a name (the library's or the registry's).
    bool const mayBeNamed =
        kind == CommKind::standard && (standardValue == 0 || (standardValue >> 16) == 0xFFFF);
    bool const libraryNamed = mayBeNamed && !CommList::wellKnownName(standardValue).view().empty();
    if (mayBeNamed && !libraryNamed)
        item.name = wellKnownByValue(standardValue);
    if (looked)
        item.entry = *looked;
    else if (dictionary_)
        item.entry = dictionary_->lookup(*key);
    // One operator's range or wildcard over 65535:* says nothing about the
    // values every speaker gives a global meaning: only an exact entry
    // describes a well-known community.
    if ((item.name || libraryNamed) && item.entry &&
        item.entry->pattern.precedence() != Precedence::exact)
        item.entry = nullptr;
    return item;
}

void Notes::listIs(RouteComms const& comms, CommKind kind) {
    items_.clear();
    forEachKey(comms, kind, [&](CommKey const* key, U32 value) {
        Dictionary::Entry const* const* looked = nullptr;
        if (key && dictionary_) {
            auto found = looked_.find(*key);
            if (found == looked_.end())
                found = looked_.emplace(*key, dictionary_->lookup(*key)).first;
            looked = &found->second;
        }
        items_.push_back(item(key, value, kind, looked));
    });
}

void Notes::appendText(VoFmt::TextBuffer& out, std::size_t i, bool psv) {
    if (i >= items_.size())
        return;
    Item const& it = items_[i];
    bool const description = it.entry && !psv;
    if (!it.name && !description)
        return;
    out.append(psv ? "{" : " {");
    std::string const text = description ? dictionary_->describe(*it.entry, it.key) : "";
    // Operators often spell the registry's name out first ("NOPEER: ...").
    std::string_view const name = it.name ? std::string_view(it.name->name) : "";
    bool const repeated = description && !name.empty() && text.starts_with(name) &&
                          (text.size() == name.size() || text[name.size()] == ':');
    if (!name.empty() && !repeated)
        out.append(name);
    if (!name.empty() && description && !repeated)
        out.append(": ");
    out.append(text);
    out.append('}');
}

void Notes::appendJson(VoFmt::TextBuffer& out, RouteComms const& comms, Ingest& ingest, bool asdot,
                       BgpShowCli::ExtCommCache* cache) {
    bool first = true;
    for (CommKind kind :
         {CommKind::standard, CommKind::large, CommKind::extended, CommKind::ipv6}) {
        listIs(comms, kind);
        std::size_t i = 0;
        ingest.forEachText(
            comms, kind, asdot,
            [&](std::string_view text) {
                Item const& it = items_[i++];
                if (!it.name && !it.entry)
                    return;
                out.append(first ? ",\"notes\":[" : ",");
                first = false;
                out.append("{\"community\":");
                appendJsonString(out, text);
                if (it.name) {
                    out.append(",\"well_known\":");
                    appendJsonString(out, it.name->name);
                    out.append(",\"reference\":");
                    appendJsonString(out, it.name->reference);
                }
                if (it.entry) {
                    out.append(",\"description\":");
                    appendJsonString(out, dictionary_->describe(*it.entry, it.key));
                }
                out.append('}');
            },
            cache);
    }
    if (!first)
        out.append(']');
}

std::string Notes::note(CommKey const* key, U32 standardValue) const {
    Item it = item(key, standardValue,
                   key && key->kind == KeyKind::standard ? CommKind::standard : CommKind::large);
    std::string text = it.name ? it.name->name : "";
    if (it.entry) {
        if (!text.empty())
            text += ": ";
        text += dictionary_->describe(*it.entry, it.key);
    }
    return text;
}

}  // namespace Bgpcomm
