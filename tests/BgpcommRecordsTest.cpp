// The record kinds the tool reads beyond plain RIB_IPV4_UNICAST and
// MESSAGE_AS4: IPv6 and ADDPATH RIB records, RIB_GENERIC, BGP4MP_ET with
// two-octet AS numbers and AS4_PATH, IPv6 withdrawals, and what is passed
// over; plus AS path texts and prefix arithmetic.
#include <gtest/gtest.h>

#include "BgpcommTestUtil.h"

namespace {

using namespace BgpcommTest;

Bytes const nh6{0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};

Bytes entry(U16 peer, Bytes const& attrs, int pathId = -1) {
    Bytes out;
    put(out, peer, 2);
    put(out, 1690000000, 4);
    if (pathId >= 0)
        put(out, unsigned(pathId), 4);
    put(out, attrs.size(), 2);
    return cat({out, attrs});
}

// BGP4MP (type 16) or BGP4MP_ET (17: a microsecond timestamp first, RFC 6396
// section 3) of `subtype` from 192.0.2.1 AS65001, carrying `message` (an
// UPDATE body) or another BGP message type; four-octet AS numbers for the
// AS4 subtypes (4, 7, 9, 11).
Bytes bgp4mp(U16 type, U16 subtype, Bytes const& message, U8 bgpType = 2) {
    unsigned const asSize = subtype == 4 || subtype == 7 || subtype == 9 || subtype == 11 ? 4 : 2;
    Bytes body = type == 17 ? u32s({123456}) : Bytes{};
    put(body, 65001, asSize);
    put(body, 65000, asSize);
    put(body, 0, 2);
    put(body, 1, 2);
    put(body, 0xC0000201, 4);
    put(body, 0xC0000209, 4);
    body.insert(body.end(), 16, 0xFF);
    put(body, message.size() + 19, 2);
    body.push_back(bgpType);
    return mrt(type, subtype, cat({body, message}));
}

Result psv(Bytes const& file) {
    Bgpcomm::MrtOptions options;
    options.format = Bgpcomm::Format::psv;
    return run(std::move(options), file);
}

TEST(BgpcommRecords, Ipv6AddPathAndGenericRib) {
    // RIB_IPV6_UNICAST_ADDPATH: 2001:db8::/32, path id 3, abbreviated MP_REACH_NLRI.
    Bytes v6 = cat(
        {u32s({1}),
         {32, 0x20, 0x01, 0x0d, 0xb8, 0, 1},
         entry(1, cat({origin(), asPath({65002, 65300}), attr(0x80, 14, cat({{16}, nh6}))}), 3)});
    // RIB_GENERIC AFI 2 SAFI 1 with the full MP_REACH_NLRI form.
    Bytes generic = cat({u32s({2}),
                         {0, 2, 1, 48, 0x20, 0x01, 0x0d, 0xb8, 0, 5, 0, 1},
                         entry(0, cat({origin(), asPath({65001}),
                                       attr(0x80, 14, cat({{0, 2, 1, 16}, nh6, {0}}))}))});
    Bytes unsupported = cat({u32s({3}), {0, 25, 70, 0}});
    Result result =
        psv(cat({peerTable(), mrt(13, 10, v6), mrt(13, 6, generic), mrt(13, 6, unsupported)}));
    EXPECT_EQ(result.out,
              "TABLE_DUMP2_AP|1700000000|B|2001:db8::2|65002|2001:db8::/32|3|65002 65300|IGP|"
              "2001:db8::1|0|0||NAG|||||\n"
              "TABLE_DUMP2|1700000000|B|192.0.2.1|65001|2001:db8:5::/48|65001|IGP|2001:db8::1|0|0|"
              "|NAG|||||\n");
    EXPECT_EQ(result.err, "bgpcomm: x.mrt: offset " +
                              std::to_string(58 + 12 + v6.size() + 12 + generic.size()) +
                              ": RIB_GENERIC AFI 25 SAFI 70 not supported; record skipped\n");
}

// Every ADDPATH subtype (RFC 8050): the path identifier is read where it
// stands (in a RIB entry after the originated time; before each prefix of
// an UPDATE) and the prefix or attributes after it parse.
TEST(BgpcommRecords, AddPathSubtypesReadPathIds) {
    Bytes const attrs = cat({origin(), attr(0xC0, 8, u32s({0xFDE80064}))});
    Bytes const v4{24, 10, 0, 0}, v6{32, 0x20, 0x01, 0x0d, 0xb8};
    std::string const comm = " communities [65000:100]\n";
    auto ribRecord = [&](U16 subtype, Bytes const& prefix) {
        return mrt(13, subtype, cat({u32s({0}), prefix, {0, 1}, entry(1, attrs, 0x01020304)}));
    };
    std::string const ribLine = " peer 2001:db8::2 AS65002 path-id 16909060" + comm;
    Result rib =
        run(textOptions(), cat({peerTable(), ribRecord(8, v4), ribRecord(9, v4), ribRecord(10, v6),
                                ribRecord(11, v6), ribRecord(12, cat({{0, 1, 1}, v4}))}));
    EXPECT_EQ(rib.err, "");
    EXPECT_EQ(rib.out, "10.0.0.0/24" + ribLine + "10.0.0.0/24" + ribLine + "2001:db8::/32" +
                           ribLine + "2001:db8::/32" + ribLine + "10.0.0.0/24" + ribLine);
    // Withdrawn 10.9.0.0/16 path 9; announced 10.1.0.0/16 path 7 and
    // 10.2.0.0/24 path 0x01020304; as BGP4MP and BGP4MP_ET.
    Bytes update = cat({{0, 7},
                        u32s({9}),
                        {16, 10, 9, 0, U8(attrs.size())},
                        attrs,
                        u32s({7}),
                        {16, 10, 1},
                        u32s({0x01020304}),
                        {24, 10, 2, 0}});
    std::string const lines =
        "10.9.0.0/16 peer 192.0.2.1 AS65001 path-id 9 withdrawn\n"
        "10.1.0.0/16 peer 192.0.2.1 AS65001 path-id 7" +
        comm + "10.2.0.0/24 peer 192.0.2.1 AS65001 path-id 16909060" + comm;
    for (U16 subtype : {8, 9, 10, 11}) {
        SCOPED_TRACE(subtype);
        Result result =
            run(textOptions(), cat({bgp4mp(16, subtype, update), bgp4mp(17, subtype, update)}));
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(result.out, lines + lines);
    }
}

TEST(BgpcommRecords, ExtendedTimestampTwoOctetAsAndIpv6Withdrawal) {
    // AS_PATH 65001 23456 23456 (two octets each) and AS4_PATH
    // 4200000001 4200000002: the last two are replaced (RFC 6793).
    Bytes asPath2{2, 3};
    for (U32 asn : {65001u, 23456u, 23456u})
        put(asPath2, asn, 2);
    Bytes attrs = cat({origin(), attr(0x40, 2, asPath2),
                       attr(0xC0, 17, cat({{2, 2}, u32s({4200000001u, 4200000002u})})),
                       attr(0x80, 15, {0, 2, 1, 32, 0x20, 0x01, 0x0d, 0xb8})});
    Bytes update;
    put(update, 0, 2);
    put(update, attrs.size(), 2);
    update = cat({update, attrs, {16, 10, 5}});
    Bytes keepalive = bgp4mp(17, 1, {}, 4);
    Bytes stateChange = mrt(16, 0, u32s({0, 0, 0, 0, 0}));
    Result result = psv(cat({bgp4mp(17, 1, update), keepalive, stateChange}));
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out,
              "BGP4MP_ET|1700000000.123456|W|192.0.2.1|65001|2001:db8::/32\n"
              "BGP4MP_ET|1700000000.123456|A|192.0.2.1|65001|10.5.0.0/16|"
              "65001 4200000001 4200000002|IGP||0|0||NAG|||||\n");
}

// AS path segments of four-octet numbers, as an attribute value.
Bgpcomm::PathAttrs pathOf(Bytes const& value) {
    static Bytes keep;
    keep = value;
    Bgpcomm::PathAttrs attrs;
    attrs.asPath = {keep.data(), static_cast<U32>(keep.size()), 0, true};
    return attrs;
}

TEST(BgpcommRecords, AsPathTextsAndOrigin) {
    struct Case {
        Bytes value;
        bool asdot;
        char const* text;
        long long origin;  // -1: none
    } const cases[] = {
        {cat({{2, 2}, u32s({1, 2}), {1, 2}, u32s({3, 4}), {3, 1}, u32s({5})}), false,
         "1 2 {3,4} (5)", 5},
        {cat({{2, 1}, u32s({65536}), {1, 2}, u32s({3, 4})}), true, "1.0 {3,4}", -1},
        {cat({{2, 1}, u32s({7}), {1, 1}, u32s({8})}), false, "7 {8}", 8},
        {cat({{4, 2}, u32s({9, 10})}), false, "[9,10]", -1},
        // A segment that runs past the attribute ends the path there.
        {cat({{2, 1}, u32s({7}), {2, 5}, u32s({8})}), false, "7", 7},
        {{}, false, "", -1},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.text);
        std::vector<Bgpcomm::AsPathEntry> path;
        Bgpcomm::asPathEntries(pathOf(c.value), &path);
        VoFmt::StackBackedBuffer<64> text;
        Bgpcomm::formatAsPath(text, path, c.asdot);
        EXPECT_EQ(text.view(), c.text);
        U32 origin = 0;
        EXPECT_EQ(Bgpcomm::originAsn(path, &origin), c.origin >= 0);
        if (c.origin >= 0) {
            EXPECT_EQ(origin, U32(c.origin));
        }
    }
}

TEST(BgpcommRecords, PrefixesParseAndCover) {
    Bgpcomm::Prefix p16, p24, p25, v6;
    ASSERT_TRUE(Bgpcomm::parsePrefix("10.1.0.0/16", &p16));
    ASSERT_TRUE(Bgpcomm::parsePrefix("10.1.2.0/24", &p24));
    ASSERT_TRUE(Bgpcomm::parsePrefix("10.1.2.128/25", &p25));
    ASSERT_TRUE(Bgpcomm::parsePrefix("2001:db8::/32", &v6));
    EXPECT_TRUE(p16.covers(p24));
    EXPECT_TRUE(p24.covers(p25));
    EXPECT_TRUE(p24.covers(p24));
    EXPECT_FALSE(p24.covers(p16));
    EXPECT_FALSE(p16.covers(v6));
    EXPECT_EQ(Bgpcomm::prefixText(p25), "10.1.2.128/25");
    EXPECT_EQ(Bgpcomm::prefixText(v6), "2001:db8::/32");
    for (char const* bad :
         {"10.1.2.1/24", "10.0.0.0/33", "10.0.0.0", "10.0.0.0/", "x/8", "2001:db8::/129"}) {
        Bgpcomm::Prefix prefix;
        EXPECT_FALSE(Bgpcomm::parsePrefix(bad, &prefix)) << bad;
    }
}

}  // namespace
