// Regular expressions over community lists: the text each pass presents,
// the order of the passes (patterns that only one pass can match), and the
// printed forms of the extended community lists.
#include <sstream>

#include "ExtCommListTestEnv.h"
#include "Routing/RouteMap/PosixRegex.h"

namespace {

using namespace ExtCommListTestEnv;
using Routing::RouteMap::PosixRegex;

TEST(PosixRegex, ExtendedSyntaxAndCompileErrors) {
    PosixRegex const regex("^(65000|65001):[0-9]+$");
    EXPECT_EQ(0, regex.execute("65001:7"));
    EXPECT_EQ(REG_NOMATCH, regex.execute("65002:7"));
    EXPECT_EQ(0, PosixRegex("no-export").execute(std::string("1:2 no-export")));
    regex_t probe;
    char regerrorText[256];
    regerror(regcomp(&probe, "(65000", REG_EXTENDED), &probe, regerrorText, sizeof regerrorText);
    EXPECT_THAT([] { PosixRegex const broken("(65000"); },
                ::testing::ThrowsMessage<Kiv::ParseError>(::testing::AllOf(
                    ::testing::HasSubstr("'(65000'"), ::testing::HasSubstr(regerrorText))));
}

// Patterns libc would take unbounded time or memory to compile or match are
// refused, with the reason and the pattern; ones just within the limits, and
// policy patterns, compile. Those executed in one pass (an unbounded
// repetition) match exactly what libc's own search matches.
TEST(PosixRegex, PatternsTooCostlyAreRefused) {
    std::string const deep = std::string(101, '(') + "a" + std::string(101, ')');
    std::string const nested21 = std::string(21, '(') + "a" + [] {
        std::string closes;
        for (int i = 0; i < 21; ++i)
            closes += ")+";
        return closes;
    }();
    struct {
        std::string pattern;
        char const* reason;
    } const refused[] = {
        {"(.*)(.*)\\2\\1", "back-reference"},
        {"a[b]\\9", "back-reference"},
        {"\\\\\\1", "back-reference"},
        {"a**", "repetition of a repetition"},
        {"a{2}{3}", "repetition of a repetition"},
        {nested21, "more than 1000 automaton nodes"},
        {"(a{1,9}){1,56}", "more than 1000 automaton nodes"},  // (9 + 8) * 56 + 55
        {"b{,501}", "more than 1000 automaton nodes"},
        {"(a*)+", "repetition of what matches the empty text"},
        {"^(((b|a*)+)+)+", "repetition of what matches the empty text"},
        {"(x|^)*", "repetition of what matches the empty text"},
        {"(\\<a?){2}", "repetition of what matches the empty text"},
        {"6.{12}x.*", "more than 12 wide positions"},
        {deep, "nested deeper than 100"},
    };
    for (auto const& row : refused)
        EXPECT_THAT(
            [&] { PosixRegex const regex(row.pattern); },
            ::testing::ThrowsMessage<Kiv::ParseError>(::testing::AllOf(
                ::testing::HasSubstr(row.reason), ::testing::HasSubstr("'" + row.pattern + "'"))))
            << row.pattern;
    // Each matches its text (a bracketed or escaped digit is no reference).
    struct {
        char const* pattern;
        char const* text;
    } const accepted[] = {
        {"(a{1,9}){1,55}", "a"},  // 989 nodes
        {"b{,500}", ""},
        {"[\\2]x", "\\x"},
        {"\\\\1", "\\1"},
        {"[*+]+", "+"},
        {"\\**", ""},
        {"(a*)?b", "b"},
        {"((a+b)+c)+", "abababc"},
        {"6.{11}x.*", "6...........x"},
        {"_65000:100_", "_65000:100_"},
        {"^(65000|65001):[0-9]+$", "65001:7"},
        {".*(65000:100|65000:200|65000:300).*", "1:2 65000:200"},
    };
    for (auto const& row : accepted)
        EXPECT_EQ(0, PosixRegex(row.pattern).execute(row.text)) << row.pattern;
    EXPECT_EQ(0, PosixRegex(deep.substr(1, 201)).execute("a"));
    // One-pass form: anchors and an unmatched ')' keep their meaning.
    struct {
        char const* pattern;
        char const* text;
        int result;
    } const onePass[] = {
        {"^65000:.*", "1:1 65000:1", REG_NOMATCH},
        {"^65000:.*", "65000:1", 0},
        {"a)|b+", "a)", 0},
        {"a)|b+", "a", REG_NOMATCH},
        {"\\<5:.*", "65:1 5:1", 0},
        {"\\<5:.*", "65:1", REG_NOMATCH},
        {"6.*x", "61 62 x", 0},
        {"6.*x$", "61 x 62", REG_NOMATCH},
    };
    for (auto const& row : onePass)
        EXPECT_EQ(row.result, PosixRegex(row.pattern).execute(row.text)) << row.pattern;
}

bool matches(char const* pattern, auto const& list) {
    PosixRegex const regex(pattern);
    return list->matchCommunitiesRegex(&regex);
}

TEST(CommListMatch, StandardListsTryNumbersThenNames) {
    auto table = commListDedupTableFactory();
    auto list = commListFactory();
    for (U32 comm : {0xFFFF0000u, 0x00010002u, 0xFFFFFF01u})
        list->commIs(comm);
    auto const interned = list->dedup(table.ptr());
    EXPECT_TRUE(matches("^1:2 65535:0 65535:65281$", interned)) << "first pass only";
    EXPECT_TRUE(matches("^1:2 GSHUT no-export$", interned)) << "second pass only";
    EXPECT_TRUE(matches("GSHUT", interned));
    EXPECT_FALSE(matches("GSHUT.*65535:65281", interned)) << "the passes are never mixed";
    EXPECT_FALSE(matches("local-as", interned));
    EXPECT_TRUE(matches("^$", commListFactory()->dedup(table.ptr())));
}

TEST(CommListMatch, LargeListsMatchPlainDecimal) {
    auto table = largeCommListDedupTableFactory();
    auto list = largeCommListFactory();
    list->commIs(Acl::CommunityValue(65536, 1, 2));
    list->commIs(Acl::CommunityValue(1, 2, 3));
    auto const interned = list->dedup(table.ptr());
    EXPECT_TRUE(matches("^1:2:3 65536:1:2$", interned));
    EXPECT_FALSE(matches("1\\.0:1:2", interned)) << "never asdot";
}

TEST(CommListMatch, ExtendedListsTryPolicyClassificationThenUiForms) {
    Env env;
    auto const list = env.list({rtValue, lbwValue, ovsValue});
    struct Row {
        char const* pattern;
        bool policy, classification, ui;
    } const rows[] = {
        {"^65000:100 65000:1.25e\\+09 $", true, false, false},
        {"^RT:65000:100 lbw 65000:1.25e\\+09 $", false, true, false},
        {"^Origin-Validation-State:valid$", false, false, true},
        {"65000:100", true, true, false},
        {"Route-Target", false, false, false},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.pattern);
        PosixRegex const regex(row.pattern);
        EXPECT_EQ(row.policy, matchExtCommList(list.ptr(), MatchMode::policy, &regex));
        EXPECT_EQ(row.classification,
                  matchExtCommList(list.ptr(), MatchMode::classification, &regex));
        EXPECT_EQ(row.ui, matchExtCommList(list.ptr(), MatchMode::ui, &regex));
        EXPECT_EQ(row.policy || row.classification || row.ui, list->matchCommunitiesRegex(&regex));
    }
    // Without communities that match by their show-command form the third
    // pass is never tried (it would have nothing to write).
    auto const noUi = env.list({rtValue});
    EXPECT_FALSE(noUi->hasPolicyMatchStrepUICommunities());
    EXPECT_FALSE(matches("Route-Target-AS", noUi));
    // Any other mode writes every community with no form flag at all: the
    // plain forms, without the classification words.
    PosixRegex const plain("^65000:100$");
    EXPECT_TRUE(matchExtCommList(noUi.ptr(), static_cast<MatchMode>(7), &plain));
}

TEST(CommListFormat, ExtendedListsPrintTheirDerivedForms) {
    Env env;
    auto const list = env.list({colorValue, rtValue});
    std::string const text =
        "[ <RouteTarget2ByteASN 65000:100 0x0002fde800000064> <Color: 100(00) 0x030b000000000064> "
        "]";
    EXPECT_EQ(text, list->toStrep());
    std::ostringstream os;
    os << list.ptr() << '|' << *list << '|' << static_cast<ExtCommList const*>(nullptr) << '|'
       << env.list({}).ptr();
    EXPECT_EQ(text + '|' + text + "|NULL|[  ]", os.str());

    auto const* rts = list->classificationList(extCommClassificationRouteTarget);
    EXPECT_EQ(
        "extCommClassificationRouteTarget : <RouteTarget2ByteASN 65000:100 0x0002fde800000064>",
        rts->toStrep());
    std::ostringstream classificationOs;
    classificationOs
        << static_cast<ExtCommClassificationList const*>(nullptr) << '|'
        << *env.list({rt2Value, rtValue})->classificationList(extCommClassificationRouteTarget);
    EXPECT_EQ(
        "|extCommClassificationRouteTarget : <RouteTarget2ByteASN 65000:100 0x0002fde800000064> "
        "<RouteTarget2ByteASN 65000:200 0x0002fde8000000c8>",
        classificationOs.str());
}

}  // namespace
