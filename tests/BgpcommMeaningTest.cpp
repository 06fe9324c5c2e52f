// What communities mean and how routes are picked by them: dictionary
// precedence at its ties and boundaries, positional --has patterns, the
// per-list memo (counted), --match warnings, notes in every output format,
// and `bgpcomm top`.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "BgpcommTestUtil.h"
#include "bgpcomm/Dictionary.h"
#include "bgpcomm/Top.h"

namespace {

using namespace BgpcommTest;
using namespace Bgpcomm;

// Folder 0 is the user's, folder 1 the shipped one.
Dictionary testDictionary(std::vector<std::string>* problems) {
    Dictionary d;
    auto problem = [&](std::string const& text) { problems->push_back(text); };
    d.addText("user.txt", "65005:1x,user wildcard\n65009:1x,user wildcard\n", std::nullopt,
              problem);
    d.nextFolder();
    d.addText("shipped.txt",
              "# comment\n"
              "65000:100,exact\n65000:100-200,range\n65000:1xx,wildcard\n"
              "65001:2x,two digits $0\n65002:7nnn,seven $0\n65003:nnn:5,large $0\n"
              "rt 65004:nnn,target $0\nsoo 65004:1,origin\n"
              "65005:10,shipped exact\n65005:1x,shipped wildcard\n"
              "65006:0-100,wide\n65006:50-60,narrow\n65008:1xx,digits $0$1\n"
              "<ASN>:1,own\n65009:10-19,shipped range\n"
              "garbage\n65000:70000,too big\n65000:1n,bad\n",
              65007u, problem);
    d.finish();
    return d;
}

TEST(BgpcommMeaning, DictionaryPrecedenceAtTiesAndBoundaries) {
    std::vector<std::string> problems;
    Dictionary d = testDictionary(&problems);
    CommKey rt, soo;
    ASSERT_TRUE(extendedKey(0x0002FDEC0000002Aull, &rt));   // RT 65004:42
    ASSERT_TRUE(extendedKey(0x0003FDEC00000001ull, &soo));  // SoO 65004:1
    struct Case {
        CommKey key;
        char const* description;  // "" none
    } const cases[] = {
        {standardKey(65000u << 16 | 100), "exact"},
        {standardKey(65000u << 16 | 150), "range"},
        {standardKey(65000u << 16 | 199), "range"},  // range beats wildcard
        {standardKey(65000u << 16 | 200), "range"},  // ends included
        {standardKey(65000u << 16 | 201), ""},
        {standardKey(65000u << 16 | 99), ""},  // 1xx needs three digits
        {standardKey(65001u << 16 | 25), "two digits 5"},
        {standardKey(65001u << 16 | 250), ""},  // x is one digit
        {standardKey(65001u << 16 | 2), ""},
        {standardKey(65002u << 16 | 7123), "seven 123"},
        {standardKey(65002u << 16 | 70), "seven 0"},
        {standardKey(65002u << 16 | 7), ""},  // nnn is at least one digit
        {largeKey(65003, 42, 5), "large 42"},
        {largeKey(65003, 42, 6), ""},
        {rt, "target 42"},
        {soo, "origin"},
        {standardKey(65005u << 16 | 10), "shipped exact"},  // exact beats an earlier wildcard
        {standardKey(65005u << 16 | 11), "user wildcard"},  // earlier folder at a tie
        {standardKey(65006u << 16 | 55), "narrow"},
        {standardKey(65006u << 16 | 61), "wide"},
        {standardKey(65008u << 16 | 123), "digits 23"},
        {standardKey(65007u << 16 | 1), "own"},
        {standardKey(65009u << 16 | 12), "shipped range"},  // a later range beats a wildcard
    };
    for (Case const& c : cases) {
        Dictionary::Entry const* entry = d.lookup(c.key);
        EXPECT_EQ(entry ? d.describe(*entry, c.key) : "", c.description)
            << c.key.field[0] << ":" << c.key.field[1] << ":" << c.key.field[2];
    }
    EXPECT_EQ(problems,
              (std::vector<std::string>{
                  "shipped.txt: line 17: no comma between community and description; "
                  "line skipped",
                  "shipped.txt: line 18: bad number '70000'; line skipped",
                  "shipped.txt: line 19: 'n' stands only in 'nnn' in '1n'; line skipped"}));
}

TEST(BgpcommMeaning, ShippedDictionaryLoadsCleanlyWithItsSharedFiles) {
    std::vector<std::string> problems;
    Dictionary d;
    d.loadFolder(shippedDictionaryFolder(), [&](std::string const& p) { problems.push_back(p); });
    d.finish();
    EXPECT_EQ(problems, std::vector<std::string>{});
    Dictionary::Entry const* e = d.lookup(standardKey(1299u << 16 | 20100));
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(e->description, "Copenhagen (Peer)");
    // as6695.txt is a link to src_decix.txt, whose <ASN> is then 6695 (read
    // on its own, its <ASN> lines would be reported).
    e = d.lookup(largeKey(6695, 1914, 150));
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(e->description, "Continent: Europe");
    // well-known.txt, a general file, comes before every as<N>.txt.
    e = d.lookup(standardKey(0xFFFF029A));
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(e->description, "Blackhole");
}

// A RIB record of one entry per list; each list a COMMUNITIES,
// LARGE_COMMUNITY or EXTENDED COMMUNITIES attribute.
Bytes ribOf(std::vector<Bytes> const& commAttrs) {
    std::vector<RibEntry> entries;
    for (Bytes const& comm : commAttrs)
        entries.push_back({0, cat({origin(), asPath({65001, 65100}), comm})});
    return cat({peerTable(), rib(entries)});
}
Bytes std_(std::initializer_list<U32> v) {
    return attr(0xC0, 8, u32s(v));
}

TEST(BgpcommMeaning, HasPatternsAreWholeFieldsAndCombine) {
    Bytes const file = ribOf({
        std_({1403u << 16 | 1299}),                            // 0
        std_({1299u << 16 | 5, 0xFFFF029A}),                   // 1 BLACKHOLE
        attr(0xC0, 32, u32s({65000, 0, 7})),                   // 2
        attr(0xC0, 16, u32s({0x0002FDE8, 100})),               // 3 RT 65000:100
        attr(0xC0, 16, {0x00, 0x02, 0xFD, 0xE9, 0, 0, 0, 1}),  // 4 RT 65001:1
    });
    char const* const lines[] = {"communities [1403:1299]",
                                 "communities [1299:5 65535:666 {BLACKHOLE}]", "large [65000:0:7]",
                                 "extended [Route-Target-AS:65000:100]",
                                 "extended [Route-Target-AS:65001:1]"};
    struct Case {
        std::vector<std::pair<HasGroup, char const*>> has;
        char const* routes;  // which entries pass
    } const cases[] = {
        {{{HasGroup::all, "1299:*"}}, "1"},
        {{{HasGroup::all, "*:1299"}}, "0"},
        {{{HasGroup::all, "BlackHole"}}, "1"},
        {{{HasGroup::all, "*:0:*"}}, "2"},
        {{{HasGroup::all, "rt 65000:*"}}, "3"},
        {{{HasGroup::all, "Route-Target-AS:65000:100"}}, "3"},
        {{{HasGroup::all, "RT:*:1"}}, "4"},
        {{{HasGroup::all, "0x0002fde800000064"}}, "3"},
        {{{HasGroup::all, "1299:*|rt 65001:1"}}, "14"},
        {{{HasGroup::any, "1403:1299"}, {HasGroup::any, "65000:0:7"}}, "02"},
        {{{HasGroup::all, "1299:0-5"}, {HasGroup::all, "1299:5-9"}}, "1"},
        {{{HasGroup::none, "1299:*|*:*:*"}}, "034"},
    };
    for (Case const& c : cases) {
        MrtOptions options;
        for (auto const& [group, value] : c.has)
            ASSERT_EQ(options.filter.comm.hasIs(group, value), std::nullopt) << value;
        Result result = run(std::move(options), file);
        std::string passed;
        for (std::size_t at = 0; at < result.out.size(); at = result.out.find('\n', at) + 1) {
            std::string const line = result.out.substr(at, result.out.find('\n', at) - at);
            for (std::size_t i = 0; i < std::size(lines); ++i)
                if (line.find(lines[i]) != std::string::npos)
                    passed += char('0' + i);
        }
        EXPECT_EQ(passed, c.routes) << c.has.front().second;
    }
}

TEST(BgpcommMeaning, FiltersRunOncePerDistinctList) {
    // Six routes, two distinct standard lists, no other kind.
    Bytes a = std_({1299u << 16 | 5}), b = std_({1299u << 16 | 6});
    MrtOptions options;
    ASSERT_EQ(options.filter.comm.hasIs(HasGroup::all, "1299:5"), std::nullopt);
    ASSERT_EQ(options.filter.matchIs(CommKind::standard, "1299"), std::nullopt);
    options.count = true;
    Bytes const file = ribOf({a, b, a, b, a, a});
    std::FILE* devnull = std::fopen("/dev/null", "w");
    MrtRun run(std::move(options), devnull);
    auto source = openSource(RawInput::fromMemory(file));
    run.source("x.mrt", *source);
    EXPECT_EQ(run.counts().routesMatched, 4u);
    EXPECT_EQ(run.filter().comm.evaluations(), 2u);
    run.finish();
    std::fclose(devnull);
}

TEST(BgpcommMeaning, MatchThatCanNeverMatchIsWarned) {
    EXPECT_NE(matchWarning(CommKind::extended, "Route-Target-AS:65000:100"), std::nullopt);
    EXPECT_EQ(matchWarning(CommKind::extended, "^RT:65000:100$"), std::nullopt);
    EXPECT_NE(matchWarning(CommKind::standard, "_65000:100_"), std::nullopt);
    EXPECT_EQ(matchWarning(CommKind::standard, "(^| )65000:100( |$)"), std::nullopt);
    EXPECT_NE(matchWarning(CommKind::standard, "BLACKHOLE"), std::nullopt);
    EXPECT_EQ(matchWarning(CommKind::standard, "no-export"), std::nullopt);
}

TEST(BgpcommMeaning, NotesStandBesideValuesInEveryFormat) {
    // BLACKHOLE and NOPEER have no library name; no-export keeps its own. A
    // description that starts with the name does not repeat it.
    Bytes const file = ribOf({std_({0xFFFF029A, 0xFFFFFF01, 0xFFFFFF04, 0xFDE80001})});
    std::vector<std::string> problems;
    auto dictionary = std::make_shared<Dictionary>();
    dictionary->addText("d", "65000:1,one \"quoted\"\n65535:65284,NOPEER: not to peers\n",
                        std::nullopt, [](std::string const&) {});
    dictionary->finish();
    std::string outs[3];
    for (Format format : {Format::text, Format::psv, Format::json}) {
        MrtOptions options;
        options.format = format;
        options.dictionary = dictionary;
        outs[static_cast<unsigned>(format)] = run(std::move(options), file).out;
    }
    EXPECT_NE(outs[0].find("communities [65000:1 {one \"quoted\"} 65535:666 {BLACKHOLE} no-export "
                           "65535:65284 {NOPEER: not to peers}]\n"),
              std::string::npos)
        << outs[0];
    EXPECT_NE(outs[2].find("|65000:1 65535:666{BLACKHOLE} no-export 65535:65284{NOPEER}|"),
              std::string::npos)
        << outs[2];
    EXPECT_NE(outs[1].find(",\"notes\":[{\"community\":\"65000:1\",\"description\":"
                           "\"one \\\"quoted\\\"\"},{\"community\":\"65535:666\","
                           "\"well_known\":\"BLACKHOLE\",\"reference\":\"RFC 7999\"},"
                           "{\"community\":\"65535:65284\",\"well_known\":\"NOPEER\","
                           "\"reference\":\"RFC 3765\",\"description\":\"NOPEER: not to "
                           "peers\"}]}\n"),
              std::string::npos)
        << outs[1];
    // --has-meaning reads names and descriptions, case-insensitively.
    for (auto [regex, count] : {std::pair{"^ONE \"", "1\n"}, std::pair{"^blackhole$", "1\n"},
                                std::pair{"no-export|prepend", "0\n"}}) {
        MrtOptions options;
        options.count = true;
        options.dictionary = dictionary;
        ASSERT_EQ(options.filter.comm.meaningIs(regex), std::nullopt);
        EXPECT_EQ(run(std::move(options), file).out, count) << regex;
    }
}

TEST(BgpcommMeaning, TopCountsRoutesPerValueAndList) {
    auto const dir = std::filesystem::temp_directory_path() / "bgpcomm-top-test";
    std::filesystem::create_directories(dir);
    std::ofstream(dir / "as65000.txt") << "65000:nnn,tag $0\n";
    std::ofstream mrtFile(dir / "t.mrt", std::ios::binary);
    Bytes const file = ribOf({std_({0xFDE80001, 0xFDE80002}), std_({0xFDE80001}),
                              std_({0xFDE80001}), attr(0xC0, 32, u32s({65000, 0, 7}))});
    mrtFile.write(reinterpret_cast<char const*>(file.data()), std::streamsize(file.size()));
    mrtFile.close();
    char* buffer = nullptr;
    std::size_t size = 0;
    std::FILE* out = open_memstream(&buffer, &size);
    int status = topCommand({"--no-dictionary", "--dictionary", dir.string(), "--limit", "1",
                             "--by-origin", (dir / "t.mrt").string()},
                            out);
    std::fclose(out);
    std::string const text(buffer, size);
    std::free(buffer);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(text,
              "origin AS65100\nroutes 4\n"
              "standard communities (2 distinct)\n           3  75.00%  65000:1 {tag 1}\n"
              "standard lists (2 distinct)\n           2  50.00%  65000:1\n"
              "large communities (1 distinct)\n           1  25.00%  65000:0:7\n"
              "large lists (1 distinct)\n           1  25.00%  65000:0:7\n"
              "extended communities (0 distinct)\nextended lists (0 distinct)\n\n");
    out = open_memstream(&buffer, &size);
    status =
        topCommand({"--no-dictionary", "--json", "--limit", "1", (dir / "t.mrt").string()}, out);
    std::fclose(out);
    std::string const json(buffer, size);
    std::free(buffer);
    std::filesystem::remove_all(dir);
    EXPECT_EQ(json,
              "{\"routes\":4,\"standard\":[{\"community\":\"65000:1\",\"routes\":3,"
              "\"share\":0.7500}],\"standard_lists\":[{\"list\":\"65000:1\",\"routes\":2,"
              "\"share\":0.5000}],\"large\":[{\"community\":\"65000:0:7\",\"routes\":1,"
              "\"share\":0.2500}],\"large_lists\":[{\"list\":\"65000:0:7\",\"routes\":1,"
              "\"share\":0.2500}],\"extended\":[],\"extended_lists\":[]}\n");
}

}  // namespace
