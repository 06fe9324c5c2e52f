// The received table of the whole-table ingest benchmark (IngestBench.cpp):
// the routes of a `bgpcomm synth` RIB read back, each community attribute
// kind's value octets back to back in route order, as read from a socket,
// and each route's attribute length. Loaded once per process.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "Kiv/Types.h"
#include "bgpcomm/Mrt.h"
#include "bgpcomm/Synth.h"

namespace IngestBench {

// The kinds in the order an agent handles a route's attributes.
constexpr unsigned kindCount = 4;
constexpr unsigned allKinds = kindCount;
constexpr char const* kindNames[] = {"standard", "large", "extended", "ipv6", "all"};
constexpr U8 attrTypes[kindCount] = {8, 32, 16, 25};  // RFC 1997, 8092, 4360, 5701
constexpr U32 absent = ~U32(0);

// The received table: per kind, the attributes' octets back to back and
// each route's attribute length (`absent` when it has none).
struct Table {
    std::vector<U8> octets[kindCount];
    std::vector<U32> sizes[kindCount];
    std::size_t carrying[kindCount] = {};
    std::size_t routes = 0;
};

Table& table() {
    static Table table;
    return table;
}

void loadTable(U64 routes) {
    Bgpcomm::SynthOptions options;
    options.routes = routes;
    auto source =
        Bgpcomm::openSource(Bgpcomm::RawInput::fromMemory(Bgpcomm::synthesizeToMemory(options)));
    Bgpcomm::Diag diag("synth");
    Table& t = table();
    Bgpcomm::MrtReader reader(*source, diag, [&](Bgpcomm::RouteBatch const& batch) {
        for (std::size_t n = 0; n < batch.nlri->size(); ++n) {
            for (unsigned kind = 0; kind < kindCount; ++kind) {
                Bgpcomm::AttrSpan attr;
                for (unsigned c = 0; c < Bgpcomm::commKindCount; ++c)
                    if (Bgpcomm::commKindInfo(Bgpcomm::CommKind(c)).attrType == attrTypes[kind])
                        attr = batch.attrs->comm[c];
                t.sizes[kind].push_back(attr.present ? attr.size : absent);
                if (attr.present) {
                    t.octets[kind].insert(t.octets[kind].end(), attr.data, attr.data + attr.size);
                    ++t.carrying[kind];
                }
            }
            ++t.routes;
        }
    });
    reader.run();
    if (diag.reports() != 0 || t.routes != routes) {
        std::fprintf(stderr, "synthetic table unreadable (%zu routes)\n", t.routes);
        std::exit(1);
    }
#ifdef INGEST_EXTENDED_VALUES_ONLY
    if (t.carrying[3] != 0) {
        std::fprintf(stderr, "this library cannot intern IPv6-specific extended communities\n");
        std::exit(1);
    }
#endif
}

// Routes carrying `kind` (any route for allKinds).
inline std::size_t carryingRoutes(unsigned kind) {
    return kind == allKinds ? table().routes : table().carrying[kind];
}

// Routes [begin, end) and where their attributes start in each buffer.
struct Range {
    std::size_t begin = 0;
    std::size_t end = 0;
    std::size_t offset[kindCount] = {};
};

Range rangeOf(std::size_t begin, std::size_t end) {
    Range range{begin, end, {}};
    for (unsigned kind = 0; kind < kindCount; ++kind)
        for (std::size_t i = 0; i < begin; ++i)
            if (table().sizes[kind][i] != absent)
                range.offset[kind] += table().sizes[kind][i];
    return range;
}

// The routes asked for: `--routes=N` (taken out of the arguments) or
// VOBGP_INGEST_ROUTES, else 1,000,000.
U64 routesWanted(int* argc, char** argv) {
    U64 routes = 1000000;
    if (char const* env = std::getenv("VOBGP_INGEST_ROUTES"))
        routes = std::strtoull(env, nullptr, 10);
    int kept = 1;
    for (int i = 1; i < *argc; ++i) {
        if (std::strncmp(argv[i], "--routes=", 9) == 0)
            routes = std::strtoull(argv[i] + 9, nullptr, 10);
        else
            argv[kept++] = argv[i];
    }
    *argc = kept;
    return routes;
}

std::string firstLine(char const* path) {
    std::ifstream in(path);
    std::string line;
    std::getline(in, line);
    return line;
}

}  // namespace IngestBench
