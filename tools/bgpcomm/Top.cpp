#include "bgpcomm/Top.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <unordered_map>

#include "bgpcomm/CommOptions.h"
#include "bgpcomm/MrtCommand.h"

namespace Bgpcomm {

char const* const topHelp =
    "Usage: bgpcomm top [OPTIONS] FILE...\n"
    "The most common standard, large and extended communities and community\n"
    "lists of the routes read, with route counts, share and notes.\n"
    "  --limit N       rows per table (default 10)\n"
    "  --by-origin     one report per origin AS\n"
    "  --json          one JSON object per report\n"
    "Every filter of 'bgpcomm mrt' applies (see 'bgpcomm mrt --help').\n";

namespace {

constexpr CommKind topKinds[] = {CommKind::standard, CommKind::large, CommKind::extended};
char const* const kindKeys[commKindCount] = {"standard", "extended", "ipv6", "large"};

struct Group {
    U64 routes = 0;
    // Per kind: list address -> (a reference keeping it alive, routes).
    std::unordered_map<void const*, std::pair<RouteComms, U64>> lists[commKindCount];
};

struct Row {
    std::string text;
    std::string note;
    U64 routes = 0;
};

void sortRows(std::vector<Row>* rows, std::size_t limit) {
    std::sort(rows->begin(), rows->end(), [](Row const& a, Row const& b) {
        return a.routes != b.routes ? a.routes > b.routes : a.text < b.text;
    });
    if (rows->size() > limit)
        rows->resize(limit);
}

void printJsonString(std::FILE* out, std::string const& text) {
    VoFmt::StackBackedBuffer<256> buffer;
    appendJsonString(buffer, text);
    std::fwrite(buffer.view().data(), 1, buffer.view().size(), out);
}

}  // namespace

int topCommand(std::vector<std::string> const& args, std::FILE* out) {
    std::size_t limit = 10;
    bool byOrigin = false;
    std::vector<std::string> rest;
    for (std::size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--help" || args[i] == "-h") {
            std::fputs(topHelp, out);
            return 0;
        }
        if (args[i] == "--by-origin") {
            byOrigin = true;
        } else if (args[i] == "--limit" && i + 1 < args.size() &&
                   std::all_of(args[i + 1].begin(), args[i + 1].end(), ::isdigit) &&
                   !args[i + 1].empty() && args[i + 1].size() < 10) {
            limit = std::stoul(args[++i]);
        } else if (args[i] == "--limit") {
            std::fputs("bgpcomm top: --limit needs a number\n", stderr);
            return 2;
        } else {
            rest.push_back(args[i]);
        }
    }
    MrtOptions options;
    if (auto problem = parseMrtOptions(rest, &options)) {
        std::fprintf(stderr, "bgpcomm top: %s\nTry 'bgpcomm top --help'.\n",
                     *problem == "help" ? "see bgpcomm top --help" : problem->c_str());
        return 2;
    }
    bool const json = options.format == Format::json;
    options.dictionary = loadDictionaries(options);
    std::map<std::pair<bool, U32>, Group> groups;  // (has origin, origin)
    options.observer = [&](RouteView const& route) {
        U32 origin = 0;
        bool has = byOrigin && route.asPath && originAsn(*route.asPath, &origin);
        Group& group = groups[{has, origin}];
        ++group.routes;
        RouteComms const& c = *route.comms;
        void const* addresses[commKindCount] = {c.standard.ptr(), c.extended.ptr(), nullptr,
                                                c.large.ptr()};
        for (CommKind kind : topKinds) {
            auto k = static_cast<unsigned>(kind);
            if (!c.has(kind))
                continue;
            auto& entry = group.lists[k][addresses[k]];
            if (entry.second == 0)
                entry.first = c;
            ++entry.second;
        }
    };
    std::vector<std::string> files = options.files;
    MrtRun run(std::move(options), out);
    for (std::string const& path : files)
        run.file(path);
    Notes const* notes = run.notes();
    for (auto const& [key, group] : groups) {
        if (json) {
            std::fputs("{", out);
            if (byOrigin)
                key.first ? std::fprintf(out, "\"origin_asn\":%u,", key.second)
                          : std::fputs("\"origin_asn\":null,", out);
            std::fprintf(out, "\"routes\":%llu", static_cast<unsigned long long>(group.routes));
        } else {
            if (byOrigin)
                key.first ? std::fprintf(out, "origin AS%u\n", key.second)
                          : std::fputs("origin none\n", out);
            std::fprintf(out, "routes %llu\n", static_cast<unsigned long long>(group.routes));
        }
        for (CommKind kind : topKinds) {
            auto k = static_cast<unsigned>(kind);
            std::map<std::string, Row> values;
            std::vector<Row> lists;
            for (auto const& counted : group.lists[k]) {
                auto const& held = counted.second;
                Row list;
                list.routes = held.second;
                std::vector<std::string> notesOfList;
                forEachKey(held.first, kind, [&](CommKey const* commKey, U32 value) {
                    notesOfList.push_back(notes ? notes->note(commKey, value) : std::string());
                });
                std::size_t i = 0;
                run.ingest().forEachText(held.first, kind, false, [&](std::string_view text) {
                    Row& row = values[std::string(text)];
                    if (row.routes == 0) {
                        row.text = text;
                        row.note = i < notesOfList.size() ? notesOfList[i] : std::string();
                    }
                    row.routes += held.second;
                    if (!list.text.empty())
                        list.text += ' ';
                    list.text.append(text);
                    ++i;
                });
                lists.push_back(std::move(list));
            }
            std::vector<Row> rows;
            for (auto& [text, row] : values)
                rows.push_back(std::move(row));
            std::size_t const distinctValues = rows.size(), distinctLists = lists.size();
            sortRows(&rows, limit);
            sortRows(&lists, limit);
            for (int which = 0; which < 2; ++which) {
                std::vector<Row> const& table = which == 0 ? rows : lists;
                std::size_t const distinct = which == 0 ? distinctValues : distinctLists;
                if (json) {
                    std::fprintf(out, ",\"%s%s\":[", kindKeys[k], which == 0 ? "" : "_lists");
                } else {
                    std::fprintf(out, "%s %s (%zu distinct)\n", kindKeys[k],
                                 which == 0 ? "communities" : "lists", distinct);
                }
                bool first = true;
                for (Row const& row : table) {
                    double share =
                        group.routes ? 100.0 * double(row.routes) / double(group.routes) : 0;
                    if (json) {
                        std::fputs(first ? "{\"" : ",{\"", out);
                        std::fputs(which == 0 ? "community\":" : "list\":", out);
                        printJsonString(out, row.text);
                        std::fprintf(out, ",\"routes\":%llu,\"share\":%.4f",
                                     static_cast<unsigned long long>(row.routes), share / 100.0);
                        if (!row.note.empty()) {
                            std::fputs(",\"note\":", out);
                            printJsonString(out, row.note);
                        }
                        std::fputs("}", out);
                    } else {
                        std::fprintf(out, "  %10llu %6.2f%%  %s%s%s%s\n",
                                     static_cast<unsigned long long>(row.routes), share,
                                     row.text.c_str(), row.note.empty() ? "" : " {",
                                     row.note.c_str(), row.note.empty() ? "" : "}");
                    }
                    first = false;
                }
                if (json)
                    std::fputs("]", out);
            }
        }
        std::fputs(json ? "}\n" : "\n", out);
    }
    return run.finish();
}

}  // namespace Bgpcomm
