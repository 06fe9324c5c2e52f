// The bgpcomm tool around the reader: filters and community matching,
// compressed input, the synthetic dump generator and decode.
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <iterator>

#include "BgpcommTestUtil.h"
#include "bgpcomm/Decode.h"
#include "bgpcomm/Synth.h"

namespace {

using namespace BgpcommTest;

// Five routes: 10.0.0.0/24 from 192.0.2.1 AS65001 (65000:100 no-export) and
// from 2001:db8::2 AS65002 (large 65000:1:2, route target 65000:100), both
// originated by AS65100; a withdrawal of 10.9.0.0/16; 10.1.0.0/16 and
// 10.2.0.0/24 announced with 65000:200 and origin AS65200.
Bytes fiveRoutes() {
    Bytes e1 =
        cat({origin(), asPath({65001, 65100}), attr(0xC0, 8, u32s({0xFDE80064, 0xFFFFFF01}))});
    Bytes e2 = cat({origin(), asPath({65002, 65100}),
                    attr(0xC0, 16, {0x00, 0x02, 0xFD, 0xE8, 0, 0, 0, 0x64}),
                    attr(0xC0, 32, u32s({65000, 1, 2}))});
    Bytes attrs = cat({origin(), asPath({65001, 65200}), attr(0xC0, 8, u32s({0xFDE800C8}))});
    return cat({peerTable(), rib({{0, e1}, {1, e2}}),
                update({16, 10, 9}, attrs, {16, 10, 1, 24, 10, 2, 0})});
}

U64 countWith(std::vector<std::string> args) {
    args.push_back("--count");
    args.push_back("x.mrt");
    Bgpcomm::MrtOptions options;
    auto problem = Bgpcomm::parseMrtOptions(args, &options);
    EXPECT_FALSE(problem) << *problem;
    Result result = run(std::move(options), fiveRoutes());
    EXPECT_EQ(result.err, "");
    return std::stoull(result.out);
}

TEST(BgpcommTool, FiltersKeepWhatTheySay) {
    struct Case {
        std::vector<std::string> args;
        U64 routes;
    } const cases[] = {
        {{}, 5},
        {{"--prefix", "10.0.0.0/24"}, 2},
        {{"--prefix", "10.0.0.0/16"}, 0},
        {{"--prefix", "10.0.0.0/8", "--include-sub"}, 5},
        {{"--prefix", "10.2.0.0/25", "--include-super"}, 1},
        {{"--prefix", "10.2.0.0/25"}, 0},
        {{"--peer-ip", "2001:db8::2"}, 1},
        {{"--peer-ip", "2001:db8::2", "--peer-ip", "192.0.2.1"}, 5},
        {{"--peer-asn", "65001"}, 4},
        {{"--origin-asn", "65100"}, 2},
        {{"--origin-asn=65200"}, 2},
        {{"--type", "withdraw"}, 1},
        {{"--type", "announce"}, 4},
        // Standard lists match by numbers or by well-known names.
        {{"--match", "no-export"}, 1},
        {{"--match", "65535:65281"}, 1},
        {{"--match", "^65000:200$"}, 2},
        // An absent list is the empty text.
        {{"--match", "^$"}, 2},
        {{"--kind", "large", "--match", "^65000:1:2$"}, 1},
        // Extended lists match their policy forms, with and without the
        // classification.
        {{"--kind", "extended", "--match", "^RT:65000:100$"}, 1},
        {{"--kind", "extended", "--match", "^65000:100$"}, 1},
        // Several --match must all hold.
        {{"--match", "65000", "--kind", "large", "--match", "."}, 0},
        {{"--match", "65000", "--kind", "standard", "--match", "no-export"}, 1},
    };
    for (Case const& c : cases) {
        std::string label;
        for (auto const& arg : c.args)
            label += arg + " ";
        SCOPED_TRACE(label);
        EXPECT_EQ(countWith(c.args), c.routes);
    }
}

TEST(BgpcommTool, UsageErrorsAreNamed) {
    struct Case {
        std::vector<std::string> args;
        char const* problem;
    } const cases[] = {
        {{"x.mrt", "--match", "("}, "bad regular expression: "},
        {{"x.mrt", "--kind", "medium"},
         "unknown kind 'medium' (standard, large, extended or ipv6)"},
        {{"x.mrt", "--format", "xml"}, "unknown format 'xml' (text, json or psv)"},
        {{"x.mrt", "--prefix", "10.0.0.1/24"}, "bad prefix '10.0.0.1/24'"},
        {{"x.mrt", "--peer-asn", "4294967296"}, "bad AS number '4294967296'"},
        {{"x.mrt", "--include-sub"}, "--include-super and --include-sub need --prefix"},
        {{"x.mrt", "--frobnicate"}, "unknown option '--frobnicate'"},
        {{"--count"}, "no MRT file given"},
        {{"x.mrt", "--prefix"}, "option '--prefix' needs a value"},
    };
    for (Case const& c : cases) {
        Bgpcomm::MrtOptions options;
        auto problem = Bgpcomm::parseMrtOptions(c.args, &options);
        ASSERT_TRUE(problem) << c.problem;
        EXPECT_EQ(problem->rfind(c.problem, 0), 0u) << *problem;
    }
}

// FNV-1a, 64 bits: a short, fixed digest of a file.
U64 digest(Bytes const& data) {
    U64 h = 0xcbf29ce484222325ull;
    for (U8 octet : data)
        h = (h ^ octet) * 0x100000001b3ull;
    return h;
}

TEST(BgpcommTool, SynthIsDeterministic) {
    Bgpcomm::SynthOptions options;
    options.routes = 1000;
    options.seed = 42;
    // Smaller pools than the defaults keep the test quick; the generator is
    // the same.
    options.standardLists = 3000;
    options.extendedLists = 1000;
    Bytes first = Bgpcomm::synthesizeToMemory(options);
    EXPECT_EQ(first, Bgpcomm::synthesizeToMemory(options));
    EXPECT_EQ(first.size(), 88782u);
    EXPECT_EQ(digest(first), 0x91906a4e64016858ull);
    options.seed = 43;
    EXPECT_NE(first, Bgpcomm::synthesizeToMemory(options));

    Bgpcomm::MrtOptions read;
    read.count = true;
    read.verify = true;
    Result result = run(std::move(read), first);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, "1000\n");
}

class TempDir {
  public:
    TempDir() {
        char pattern[] = "/tmp/bgpcommXXXXXX";
        path_ = mkdtemp(pattern);
    }
    ~TempDir() { std::system(("rm -rf " + path_).c_str()); }
    std::string file(char const* name) const { return path_ + "/" + name; }

  private:
    std::string path_;
};

Bytes readFile(std::string const& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), {});
}

TEST(BgpcommTool, CompressedFilesReadLikePlainOnes) {
    TempDir dir;
    Bgpcomm::SynthOptions options;
    options.routes = 3000;
    options.seed = 5;
    options.standardLists = 3000;
    options.extendedLists = 1000;
    std::string plainText;
    Bytes plain;
    for (auto [name, compression] : {std::pair{"plain.mrt", Bgpcomm::Compression::none},
                                     std::pair{"x.gz", Bgpcomm::Compression::gzip},
                                     std::pair{"x.bz2", Bgpcomm::Compression::bzip2}}) {
        SCOPED_TRACE(name);
        options.output = dir.file(name);
        options.compression = compression;
        ASSERT_EQ(Bgpcomm::synthesizeToFile(options), "");
        Bytes data = readFile(options.output);
        Bgpcomm::Compression detected;
        Bgpcomm::openSource(Bgpcomm::RawInput::fromMemory(data), &detected);
        EXPECT_EQ(detected, compression);
        Result whole = run(textOptions(), data, "f");
        EXPECT_EQ(whole.err, "");
        if (compression == Bgpcomm::Compression::none) {
            plainText = whole.out;
            plain = data;
            continue;
        }
        EXPECT_EQ(whole.out, plainText);
        // Cut in the middle: the routes before the break stay, one message.
        Bytes cut(data.begin(), data.begin() + data.size() / 2);
        Result half = run(textOptions(), cut, "f");
        std::string const end = compression == Bgpcomm::Compression::gzip
                                    ? ": corrupt gzip stream: unexpected end of file; rest of "
                                      "file skipped\n"
                                    : ": corrupt bzip2 stream: unexpected end of file; rest of "
                                      "file skipped\n";
        EXPECT_EQ(half.err.rfind("bgpcomm: f: offset ", 0), 0u) << half.err;
        ASSERT_GT(half.err.size(), end.size());
        EXPECT_EQ(half.err.substr(half.err.size() - end.size()), end);
        // gzip delivers what precedes the break; bzip2 only whole blocks.
        EXPECT_EQ(half.out.empty(), compression == Bgpcomm::Compression::bzip2);
        EXPECT_EQ(plainText.rfind(half.out, 0), 0u);
        EXPECT_EQ(half.status, 1);
        // A damaged length around the first 256 KiB the reader buffers: the
        // search for the next record reads on, and costs that record only.
        for (std::size_t at = 0, next = 0; at < 262144; at = next) {
            next =
                at + 12 + (std::size_t(plain[at + 9]) << 16 | plain[at + 10] << 8 | plain[at + 11]);
            if (next + 12 <= 262144)
                continue;
            Bytes damaged = plain, removed = plain;
            damaged[at + 9] = 0xFF;
            removed.erase(removed.begin() + long(at), removed.begin() + long(next));
            bool const gz = compression == Bgpcomm::Compression::gzip;
            EXPECT_EQ(run(textOptions(), gz ? gzipped(damaged) : bzipped(damaged), "f").out,
                      run(textOptions(), removed, "f").out);
        }
    }
}

TEST(BgpcommTool, DecodeShowsEveryForm) {
    std::string out, err;
    EXPECT_EQ(Bgpcomm::decode({"65000:100"}, &out, &err), 0);
    EXPECT_EQ(out,
              "standard community\n"
              "  octets                      0xfde80064\n"
              "  value                       4259840100\n"
              "  numeric                     65000:100\n"
              "  show                        65000:100\n"
              "  well-known name             (none)\n"
              "  json raw                    4259840100\n"
              "  json text                   \"65000:100\"\n");
    out.clear();
    // A whole attribute: both values, the well-known one by name.
    EXPECT_EQ(Bgpcomm::decode({"c00808ffffff01fde80064"}, &out, &err), 0);
    EXPECT_EQ(out.rfind("COMMUNITIES attribute, flags 0xc0, length 8\nstandard community\n", 0),
              0u);
    EXPECT_NE(out.find("  show                        no-export\n"), std::string::npos);
    out.clear();
    EXPECT_EQ(Bgpcomm::decode({"0x0002fde800000064"}, &out, &err), 0);
    EXPECT_NE(out.find("  classification              extCommClassificationRouteTarget\n"),
              std::string::npos);
    EXPECT_NE(out.find("  show (toStrepForUI)         Route-Target-AS:65000:100\n"),
              std::string::npos);
    EXPECT_NE(out.find("  policy classification       RT:65000:100\n"), std::string::npos);
    out.clear();
    EXPECT_EQ(Bgpcomm::decode({"4259840100:1:2"}, &out, &err), 0);
    EXPECT_NE(out.find("  asdot                       65000.100:1:2\n"), std::string::npos);
    EXPECT_EQ(err, "");

    EXPECT_EQ(Bgpcomm::decode({"c02007fde80000000100"}, &out, &err), 1);
    EXPECT_EQ(err,
              "bgpcomm decode: LARGE_COMMUNITY attribute length 7 is not a multiple of 12; "
              "trailing octets skipped\n");
    err.clear();
    EXPECT_EQ(Bgpcomm::decode({"abc"}, &out, &err), 2);
    EXPECT_EQ(err, "bgpcomm decode: cannot read 'abc' as hex octets, a:b or a:b:c\n");
    err.clear();
    EXPECT_EQ(Bgpcomm::decode({"0102"}, &out, &err), 2);
    EXPECT_EQ(err,
              "bgpcomm decode: '0102' is 2 octets: neither a community attribute nor a value of "
              "4, 8, 12 or 20 octets\n");
}

}  // namespace
