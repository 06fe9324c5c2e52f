// The MRT reader and attribute walker on hand-built files: every corruption
// is reported once, with the file, the offset and the exact text, and only
// the broken record or attribute is lost.
#include <gtest/gtest.h>

#include "BgpcommTestUtil.h"

namespace {

using namespace BgpcommTest;

// Offsets in the clean file: peer table 0-57, RIB record 58-166 (length at
// 66; entry 1 at 80 with COMMUNITIES at 105; entry 2 at 116, its attribute
// length at 122, EXTENDED COMMUNITIES at 141), BGP4MP record 167-262 (length
// at 175, BGP message length at 215, UPDATE attribute length at 223, NLRI
// 10.2.0.0/24 at 259).
Bytes communities() {
    return attr(0xC0, 8, u32s({0xFDE80064, 0xFFFFFF01}));
}
Bytes entry1Attrs(Bytes const& comm = communities()) {
    return cat({origin(), asPath({65001, 65100}), comm});
}
Bytes entry2Attrs(Bytes const& ext = attr(0xC0, 16, {0x00, 0x02, 0xFD, 0xE8, 0, 0, 0, 0x64})) {
    return cat({origin(), asPath({65002, 65100}), ext, attr(0xC0, 32, u32s({65000, 1, 2}))});
}
Bytes theRib(Bytes const& e1 = entry1Attrs(), Bytes const& e2 = entry2Attrs(), U16 peer2 = 1,
             int count = -1) {
    return rib({{0, e1}, {peer2, e2}}, count);
}
Bytes theUpdate(Bytes const& nlri = {16, 10, 1, 24, 10, 2, 0}, U16 subtype = 4) {
    Bytes attrs = cat({origin(), asPath({65001, 65200}), attr(0x40, 3, u32s({0xC0000201})),
                       attr(0xC0, 8, u32s({0xFDE800C8}))});
    return update({16, 10, 9}, attrs, nlri, subtype);
}
Bytes cleanFile() {
    return cat({peerTable(), theRib(), theUpdate()});
}

std::string const line1 = "10.0.0.0/24 peer 192.0.2.1 AS65001 communities [65000:100 no-export]\n";
std::string const line1Bare = "10.0.0.0/24 peer 192.0.2.1 AS65001\n";
std::string const line2 =
    "10.0.0.0/24 peer 2001:db8::2 AS65002 large [65000:1:2] extended "
    "[Route-Target-AS:65000:100]\n";
std::string const line3 = "10.9.0.0/16 peer 192.0.2.1 AS65001 withdrawn\n";
std::string const line4 = "10.1.0.0/16 peer 192.0.2.1 AS65001 communities [65000:200]\n";
std::string const line5 = "10.2.0.0/24 peer 192.0.2.1 AS65001 communities [65000:200]\n";

std::string const line1Unknown = "10.0.0.0/24 peer 0.0.0.0 AS0 communities [65000:100 no-export]\n";
std::string const line2Unknown =
    "10.0.0.0/24 peer 0.0.0.0 AS0 large [65000:1:2] extended [Route-Target-AS:65000:100]\n";

Bytes patched(Bytes file, std::size_t at, Bytes const& octets) {
    std::copy(octets.begin(), octets.end(), file.begin() + long(at));
    return file;
}

struct Corruption {
    char const* name;
    Bytes file;
    std::string err;  // lines after "bgpcomm: x.mrt: "
    std::string out;
};

// Each check at its boundary: the last value accepted and the first refused.
TEST(BgpcommMrt, CorruptionsAreReportedAndSkipped) {
    Bytes const clean = cleanFile();
    std::string const all = line1 + line2 + line3 + line4 + line5;
    Bytes v6 = Bytes{128, 0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    Bytes shortPeers = peerTable();
    shortPeers.pop_back();
    --shortPeers[11];
    Bytes noPeers = mrt(13, 1, u32s({0xC0000201, 0}));
    Bytes const unknown = mrt(99, 0, {1, 2, 3, 4}, 0), longRib = patched(theRib(), 11, {98});
    // Inside a RIB record: a header near in time but followed by none, then
    // two headers of another time.
    Bytes fakesRib = theRib(cat({entry1Attrs(), attr(0xC0, 99,
                                                     cat({mrt(13, 2, {}),
                                                          {0xFF, 0xFF, 0xFF, 0xFF},
                                                          mrt(13, 2, {}, 0),
                                                          mrt(13, 2, {}, 0)}))}));
    ++fakesRib[11];
    auto peerIndex = [](std::string const& where, int index, int peers) {
        return where + " of 2: peer index " + std::to_string(index) +
               " is not in the peer table (" + std::to_string(peers) +
               " peers); route kept under the unknown peer 0.0.0.0 AS0 (reported once per peer "
               "index)";
    };
    Corruption const cases[] = {
        {"clean", clean, "", all},
        {"last record one octet short", Bytes(clean.begin(), clean.end() - 1),
         "offset 167: MRT record length 84 but only 83 octets left; record skipped", line1 + line2},
        {"header one octet short at the end", cat({clean, Bytes(11, 1)}),
         "offset 263: MRT header truncated (11 of 12 octets); record skipped", all},
        {"length of any record at most", patched(clean, 175, {4, 0, 0, 0}),
         "offset 167: MRT record length 67108864 but only 84 octets left; record skipped",
         line1 + line2},
        {"length one past any record", patched(clean, 175, {4, 0, 0, 1}),
         "offset 167: MRT record length 67108865 is implausible; rest of file skipped",
         line1 + line2},
        {"length one over, resynchronised", patched(clean, 69, {98}),
         "offset 58: MRT record length 98 does not end at another record; 109 octets skipped to "
         "the next record at offset 167",
         line3 + line4 + line5},
        {"length one short, resynchronised", patched(clean, 69, {96}),
         "offset 116: RIB_IPV4_UNICAST entry 2 of 2 truncated; rest of record skipped\n"
         "offset 166: MRT record length 67108864 runs past the end of the file; 1 octets skipped "
         "to the next record at offset 167",
         line1 + line3 + line4 + line5},
        {"unknown type not followed by a record", cat({peerTable(), unknown, {0xEE}, theRib()}),
         "offset 58: MRT record length 4 does not end at another record; 17 octets skipped to the "
         "next record at offset 75",
         line1 + line2},
        {"damaged length after an unknown type of another time",
         cat({peerTable(), unknown, longRib, theUpdate()}),
         "offset 58: unknown MRT type 99; record skipped\noffset 74: MRT record length 98 does not "
         "end at another record; 109 octets skipped to the next record at offset 183",
         line3 + line4 + line5},
        {"damaged length over header-like octets", cat({peerTable(), fakesRib, theUpdate()}),
         "offset 58: MRT record length 141 does not end at another record; 152 octets skipped to "
         "the next record at offset 210",
         line3 + line4 + line5},
        {"two records of a type passed over",
         cat({peerTable(), mrt(12, 1, {1, 2, 3, 4}), mrt(12, 1, {1, 2, 3, 4}), theRib(),
              theUpdate()}),
         "offset 58: unknown MRT type 12; record skipped\noffset 74: unknown MRT type 12; record "
         "skipped",
         all},
        {"unknown TABLE_DUMP_V2 subtype",
         cat({peerTable(), mrt(13, 7, {1, 2, 3, 4}), theRib(), theUpdate()}),
         "offset 58: unknown TABLE_DUMP_V2 subtype 7; record skipped", all},
        {"BGP4MP subtype after the last", cat({peerTable(), theRib(), theUpdate({16, 10, 1}, 12)}),
         "offset 167: unknown BGP4MP subtype 12; record skipped", line1 + line2},
        {"BGP4MP_ET one octet short of its microseconds", cat({clean, mrt(17, 4, {1, 2, 3})}),
         "offset 263: BGP4MP_ET record too short for its microsecond timestamp; record skipped",
         all},
        {"RIB before the peer table", cat({theRib(), theUpdate()}),
         "offset 0: RIB_IPV4_UNICAST record before any PEER_INDEX_TABLE; record skipped",
         line3 + line4 + line5},
        {"peer table one octet short", cat({shortPeers, theRib(), theUpdate()}),
         "offset 0: PEER_INDEX_TABLE truncated after 1 of 2 peers; remaining peers skipped\n" +
             peerIndex("offset 115: RIB_IPV4_UNICAST record 2 at offset 57, entry 2", 1, 1),
         line1 + line2Unknown + line3 + line4 + line5},
        {"no peers, each index reported once", cat({noPeers, theRib(), theRib()}),
         peerIndex("offset 42: RIB_IPV4_UNICAST record 2 at offset 20, entry 1", 0, 0) + "\n" +
             peerIndex("offset 78: RIB_IPV4_UNICAST record 2 at offset 20, entry 2", 1, 0),
         line1Unknown + line2Unknown + line1Unknown + line2Unknown},
        {"peer index equal to the count, in the first entry",
         cat({peerTable(), rib({{2, entry1Attrs()}, {1, entry2Attrs()}}), theUpdate()}),
         peerIndex("offset 80: RIB_IPV4_UNICAST record 2 at offset 58, entry 1", 2, 2),
         line1Unknown + line2 + line3 + line4 + line5},
        {"entry count one beyond the record",
         cat({peerTable(), theRib(entry1Attrs(), entry2Attrs(), 1, 3), theUpdate()}),
         "offset 167: RIB_IPV4_UNICAST entry 3 of 3 truncated; rest of record skipped", all},
        {"entry attributes one octet past the record", patched(clean, 123, {44}),
         "offset 116: RIB_IPV4_UNICAST entry 2 of 2 truncated; rest of record skipped",
         line1 + line3 + line4 + line5},
        {"COMMUNITIES length not a multiple of 4",
         cat({peerTable(),
              theRib(entry1Attrs(attr(0xC0, 8, {0xFD, 0xE8, 0, 0x64, 0xFF, 0xFF, 0xFF}))),
              theUpdate()}),
         "offset 105: COMMUNITIES attribute length 7 is not a multiple of 4; attribute skipped",
         line1Bare + line2 + line3 + line4 + line5},
        {"attribute one octet longer than the attributes",
         cat({peerTable(), theRib(entry1Attrs(attr(0xC0, 8, u32s({1, 2}), 9))), theUpdate()}),
         "offset 105: COMMUNITIES attribute length 9 runs past the end of the attributes (8 "
         "octets left); remaining attributes skipped",
         line1Bare + line2 + line3 + line4 + line5},
        {"duplicate COMMUNITIES",
         cat({peerTable(), theRib(cat({entry1Attrs(), attr(0xC0, 8, u32s({7}))})), theUpdate()}),
         "offset 116: duplicate COMMUNITIES attribute; attribute skipped", all},
        {"BGP message one octet longer than the record", patched(clean, 216, {65}),
         "offset 167: BGP message length 65 does not fit the record (64 octets); record skipped",
         line1 + line2},
        {"BGP message shorter than its header", patched(clean, 216, {18}),
         "offset 167: BGP message length 18 does not fit the record (64 octets); record skipped",
         line1 + line2},
        {"UPDATE attributes one octet past the message", patched(clean, 224, {39}),
         "offset 167: UPDATE path attributes run past the message; record skipped", line1 + line2},
        {"NLRI prefix as long as IPv4's",
         cat({peerTable(), theRib(), theUpdate({32, 10, 2, 0, 1})}), "",
         line1 + line2 + line3 + "10.2.0.1/32 peer 192.0.2.1 AS65001 communities [65000:200]\n"},
        {"NLRI prefix one longer than IPv4's",
         cat({peerTable(), theRib(), theUpdate({16, 10, 1, 33, 10, 2, 0, 1, 0})}),
         "offset 259: NLRI prefix length 33 too long for IPv4; remaining prefixes skipped",
         line1 + line2 + line3 + line4},
        {"NLRI prefix one octet short",
         cat({peerTable(), theRib(), theUpdate({16, 10, 1, 17, 10, 2})}),
         "offset 259: NLRI prefix truncated; remaining prefixes skipped",
         line1 + line2 + line3 + line4},
        {"RIB prefix as long as IPv6's", cat({clean, rib({{0, entry1Attrs()}}, -1, 4, v6)}), "",
         all + "2001:db8::1/128 peer 192.0.2.1 AS65001 communities [65000:100 no-export]\n"},
        {"RIB prefix one longer than IPv6's",
         cat({clean, rib({{0, entry1Attrs()}}, -1, 4, patched(v6, 0, {129}))}),
         "offset 263: RIB_IPV6_UNICAST prefix length 129 too long for IPv6; record skipped", all},
    };
    for (Corruption const& c : cases) {
        SCOPED_TRACE(c.name);
        Result result = run(textOptions(), c.file);
        std::string err;
        for (std::size_t at = 0; at < c.err.size();) {
            std::size_t end = std::min(c.err.find('\n', at), c.err.size());
            err += "bgpcomm: x.mrt: " + c.err.substr(at, end - at) + "\n";
            at = end + 1;
        }
        EXPECT_EQ(result.err, err);
        EXPECT_EQ(result.out, c.out);
        EXPECT_EQ(result.status, c.err.empty() ? 0 : 1);
    }
}

// A dump of a few dozen records (RIB records of two entries, UPDATEs
// between them) with the length of record k damaged, for every k: the reader
// finds the records after it again and keeps all their routes; of record k
// at most the entries before a cut. The same through gzip and bzip2.
TEST(BgpcommMrt, DamagedLengthCostsOnlyItsRecord) {
    std::vector<Bytes> records{peerTable()};
    for (U8 i = 1; i < 36; ++i) {
        Bytes prefix{24, 10, i, 0};
        records.push_back(i % 3 == 0
                              ? update({}, entry1Attrs(), prefix)
                              : rib({{0, entry1Attrs()}, {1, entry2Attrs()}}, -1, 2, prefix));
    }
    std::vector<std::string> alone(records.size());
    for (std::size_t k = 1; k < records.size(); ++k)
        alone[k] = run(textOptions(), cat({records[0], records[k]})).out;
    for (std::size_t k = 1; k < records.size(); ++k) {
        U32 const n = U32(records[k].size() - 12);
        for (U32 length : {n + 1, n - 1, 0u, n * 3, 0x00FFFFFFu, 0xFFFFFFFFu}) {
            SCOPED_TRACE("record " + std::to_string(k) + " length " + std::to_string(length));
            std::string before, after;
            Bytes file, field;
            put(field, length, 4);
            for (std::size_t j = 0; j < records.size(); ++j) {
                file = cat({file, j == k ? patched(records[j], 8, field) : records[j]});
                (j < k ? before : after) += j == k ? "" : alone[j];
            }
            Result result = run(textOptions(), file);
            std::string const& out = result.out;
            EXPECT_NE(result.err, "");
            ASSERT_GE(out.size(), before.size() + after.size()) << result.err;
            EXPECT_EQ(out.substr(0, before.size()), before);
            EXPECT_EQ(out.substr(out.size() - after.size()), after);
            std::string const kept =
                out.substr(before.size(), out.size() - after.size() - before.size());
            EXPECT_EQ(alone[k].rfind(kept, 0), 0u) << kept;
            for (Bytes const& packed : {gzipped(file), bzipped(file)}) {
                Result unpacked = k % 8 == 0 ? run(textOptions(), packed) : result;
                EXPECT_EQ(unpacked.out + unpacked.err, out + result.err);
            }
        }
    }
}

// One UPDATE of every part the JSON output has: ADDPATH path identifiers,
// IPv6 prefixes in MP_REACH_NLRI, communities as received (unsorted, with a
// duplicate) beside their interned text (extended ones ascending by value),
// and all four community kinds; --verify writes the non-transitive link
// bandwidth (0x4004) back too.
TEST(BgpcommMrt, JsonOfOneRouteIsExact) {
    Bytes nh{0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    // AFI 2, SAFI 1, next hop, reserved, path id 7, 2001:db8:1::/48.
    Bytes mpReach = cat({{0, 2, 1, 16}, nh, {0}, u32s({7}), {48, 0x20, 0x01, 0x0d, 0xb8, 0, 1}});
    Bytes ip6Ext = cat({{0x00, 0x02}, nh, {0x00, 0x64}});
    Bytes attrs =
        cat({origin(), asPath({65001, 4200000000u}),
             attr(0xC0, 8, u32s({0xFFFFFF01, 0xFDE80064, 0xFFFFFF01})),
             attr(0xC0, 16, u32s({0x4004FDE8, 0x4CEE6B28, 0x0002FDE8, 0x64, 0x0002FDE8, 0x0A})),
             attr(0xC0, 25, ip6Ext), attr(0xC0, 32, u32s({65000, 1, 2})), attr(0x80, 14, mpReach)});
    Bgpcomm::MrtOptions options;
    options.format = Bgpcomm::Format::json;
    options.verify = true;
    // MESSAGE_AS4_ADDPATH (RFC 8050).
    Result result = run(std::move(options), update({}, attrs, {}, 9), "a\"b.mrt");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out,
              "{\"file\":\"a\\\"b.mrt\",\"type\":\"announce\",\"timestamp\":1700000000,"
              "\"peer_ip\":\"192.0.2.1\",\"peer_asn\":65001,\"prefix\":\"2001:db8:1::/48\","
              "\"path_id\":7,\"as_path\":\"65001 4200000000\",\"origin_asn\":4200000000,"
              "\"next_hop\":\"2001:db8::1\",\"communities\":[\"65000:100\",\"no-export\"],"
              "\"communities_raw\":[4294967041,4259840100,4294967041],"
              "\"large_communities\":[\"65000:1:2\"],\"large_communities_raw\":[[65000,1,2]],"
              "\"ext_communities\":[\"Route-Target-AS:65000:10\",\"Route-Target-AS:65000:100\","
              "\"Link-Bandwidth-AS:65000:1 Gbps\"],\"ext_communities_raw\":[\"0x4004fde84cee6b28\","
              "\"0x0002fde800000064\",\"0x0002fde80000000a\"],"
              "\"ipv6_ext_communities\":[\"0002-IP6:2001:db8::1:100\"],"
              "\"ipv6_ext_communities_raw\":[\"0x000220010db80000000000000000000000010064\"],"
              "\"link_bandwidths\":[{\"ext_community\":\"0x4004fde84cee6b28\",\"transitive\":false,"
              "\"asn\":65000,\"bits_per_second\":1000000000}]}\n");
}

TEST(BgpcommMrt, WithdrawalsInJsonCarryNoCommunities) {
    Bgpcomm::MrtOptions options;
    options.format = Bgpcomm::Format::json;
    options.filter.type = Bgpcomm::TypeFilter::withdraw;
    Result result = run(std::move(options), cleanFile());
    EXPECT_EQ(result.out,
              "{\"file\":\"x.mrt\",\"type\":\"withdraw\",\"timestamp\":1700000000,"
              "\"peer_ip\":\"192.0.2.1\",\"peer_asn\":65001,\"prefix\":\"10.9.0.0/16\","
              "\"as_path\":\"\",\"origin_asn\":null,\"next_hop\":null,\"communities\":[],"
              "\"communities_raw\":[],\"large_communities\":[],\"large_communities_raw\":[],"
              "\"ext_communities\":[],\"ext_communities_raw\":[],\"ipv6_ext_communities\":[],"
              "\"ipv6_ext_communities_raw\":[],\"link_bandwidths\":[]}\n");
}

// Interned lists (sorted, duplicates gone) by default; --wire-order shows
// the values as received, so both link bandwidths appear; --exact adds the
// bandwidth the "1 Gbps" text rounds (1000000064 bit/s: one float step above).
TEST(BgpcommMrt, WireOrderAndExactBandwidth) {
    Bytes attrs =
        cat({origin(), asPath({65001}), attr(0xC0, 8, u32s({0xFFFFFF01, 0xFDE80064, 0xFDE80064})),
             attr(0xC0, 16,
                  u32s({0x0004FDE8, 0x4CEE6B29, 0x0002FDE8, 0x64, 0x0004FDE8, 0x4CEE6B29,
                        0x0004FDE8, 0x4CEE6B28}))});
    Bytes file = cat({peerTable(), rib({{0, attrs}})});
    std::string const lb = "Link-Bandwidth-Trans-AS:65000:1 Gbps";
    struct Case {
        bool wireOrder, exact;
        std::string out;
    } const cases[] = {
        {false, false,
         "communities [65000:100 no-export] extended [Route-Target-AS:65000:100 " + lb + " " + lb +
             "]"},
        {true, false,
         "communities [no-export 65000:100 65000:100] extended [" + lb +
             " Route-Target-AS:65000:100 " + lb + " " + lb + "]"},
        {false, true,
         "communities [65000:100 no-export] extended [Route-Target-AS:65000:100 " + lb +
             " (1000000000 bit/s) " + lb + " (1000000064 bit/s)]"},
        {true, true,
         "communities [no-export 65000:100 65000:100] extended [" + lb +
             " (1000000064 bit/s) Route-Target-AS:65000:100 " + lb + " (1000000064 bit/s) " + lb +
             " (1000000000 bit/s)]"},
    };
    for (Case const& c : cases) {
        Bgpcomm::MrtOptions options;
        options.wireOrder = c.wireOrder;
        options.exact = c.exact;
        EXPECT_EQ(run(std::move(options), file).out,
                  "10.0.0.0/24 peer 192.0.2.1 AS65001 " + c.out + "\n");
    }
}

// bgpdump -m's columns first (its line for a withdrawal), then the interned
// lists. The BGP4MP_ET record carries microseconds 42, MED 50, LOCAL_PREF
// 200, ATOMIC_AGGREGATE, AGGREGATOR and communities unsorted with a
// duplicate, which bgpdump prints as received.
TEST(BgpcommMrt, PsvStartsWithBgpdumpColumns) {
    Bytes attrs = cat({attr(0x40, 1, {1}), asPath({65001}), attr(0x40, 3, u32s({0xC0000201})),
                       attr(0x80, 4, u32s({50})), attr(0x40, 5, u32s({200})), attr(0x40, 6, {}),
                       attr(0xC0, 7, u32s({65009, 0xC0000209})),
                       attr(0xC0, 8, u32s({0xFDE8012C, 0xFFFFFF02, 0xFFFFFF03, 0xFDE8012C}))});
    Bytes et = update({}, attrs, {24, 10, 3, 3});
    et[5] = 17;  // BGP4MP_ET: the microseconds lead the body
    et[11] += 4;
    et.insert(et.begin() + 12, {0, 0, 0, 42});
    Bgpcomm::MrtOptions options;
    options.format = Bgpcomm::Format::psv;
    options.header = true;
    Result result = run(std::move(options), cat({cleanFile(), et}));
    EXPECT_EQ(result.out,
              "type|timestamp|entry|peer_ip|peer_asn|prefix|as_path|origin|next_hop|local_pref|"
              "med|communities_received|atomic_aggregate|aggregator|communities|large_communities|"
              "ext_communities|ipv6_ext_communities\n"
              "TABLE_DUMP2|1700000000|B|192.0.2.1|65001|10.0.0.0/24|65001 65100|IGP||0|0|"
              "65000:100 no-export|NAG||65000:100 no-export|||\n"
              "TABLE_DUMP2|1700000000|B|2001:db8::2|65002|10.0.0.0/24|65002 65100|IGP||0|0||NAG|"
              "||65000:1:2|Route-Target-AS:65000:100|\n"
              "BGP4MP|1700000000|W|192.0.2.1|65001|10.9.0.0/16\n"
              "BGP4MP|1700000000|A|192.0.2.1|65001|10.1.0.0/16|65001 65200|IGP|192.0.2.1|0|0|"
              "65000:200|NAG||65000:200|||\n"
              "BGP4MP|1700000000|A|192.0.2.1|65001|10.2.0.0/24|65001 65200|IGP|192.0.2.1|0|0|"
              "65000:200|NAG||65000:200|||\n"
              "BGP4MP_ET|1700000000.000042|A|192.0.2.1|65001|10.3.3.0/24|65001|EGP|192.0.2.1|200|"
              "50|65000:300 no-advertise local-AS 65000:300|AG|65009 192.0.2.9|65000:300 "
              "no-advertise local-as|||\n");
}

// An empty EXTENDED COMMUNITIES attribute interns an empty list, which
// writes no attribute at all: still the same (empty) set.
TEST(BgpcommMrt, VerifyFindsEveryListRoundTrips) {
    Bgpcomm::MrtOptions options;
    options.verify = options.count = true;
    Result result = run(
        std::move(options),
        cat({peerTable(), theRib(entry1Attrs(), entry2Attrs(attr(0xC0, 16, {}))), theUpdate()}));
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, "5\n");
    EXPECT_EQ(result.status, 0);
}

}  // namespace

// --stats counts distinct lists by identity and distinct values among the
// kept routes: 0:0 is a value like any other, a list met again (next to
// itself or later) is one list, and lanes' kept routes count as one thread's.
TEST(BgpcommMrt, StatsCountDistinctListsAndValues) {
    Bytes const zeroAndOne = entry1Attrs(attr(0xC0, 8, u32s({0, 0xFDE80001})));
    Bytes const one = entry1Attrs(attr(0xC0, 8, u32s({0xFDE80001})));
    Bytes const file = cat({peerTable(), rib({{0, zeroAndOne}, {1, zeroAndOne}, {0, one}}),
                            rib({{1, zeroAndOne}, {0, entry2Attrs()}})});
    for (unsigned threads : {1u, 3u}) {
        Bgpcomm::MrtOptions options;
        options.stats = true;
        options.threads = threads;
        std::string const out = run(std::move(options), file).out;
        EXPECT_NE(out.find("routes read          5\n"), std::string::npos) << out;
        EXPECT_NE(out.find("standard                  4          2          2         2.00\n"),
                  std::string::npos)
            << out;
        EXPECT_NE(out.find("large                     1          1          1         1.00\n"),
                  std::string::npos)
            << out;
    }
}

// A run that drops routes after interning them (a community filter, which
// remembers their lists) counts only the kept routes' lists; one that keeps
// every route counts the tables'. The classification lists are those the
// split would intern: one per classification of a list, shared by lists
// with the same members of it (5 lists here, 7 parts, 4 distinct).
TEST(BgpcommMrt, StatsCountKeptListsOnlyAndClassificationListsOfTheSplit) {
    Bytes const zeroAndOne = entry1Attrs(attr(0xC0, 8, u32s({0, 0xFDE80001})));
    Bytes const one = entry1Attrs(attr(0xC0, 8, u32s({0xFDE80001})));
    Bytes const file = cat({peerTable(), rib({{0, zeroAndOne}, {1, one}, {0, zeroAndOne}})});
    // RFC 4360: route target 0x0002 (two-octet AS), route origin 0x0003.
    auto const ext = [](std::initializer_list<std::pair<U8, U8>> values) {
        Bytes octets;
        for (auto [subtype, local] : values)
            octets.insert(octets.end(), {0x00, subtype, 0xFD, 0xE8, 0, 0, 0, local});
        return entry2Attrs(attr(0xC0, 16, octets));
    };
    Bytes const classified = cat({peerTable(), rib({{0, ext({{2, 100}, {3, 1}})},
                                                    {0, ext({{2, 100}})},
                                                    {0, ext({{2, 100}, {2, 200}})},
                                                    {0, ext({{3, 1}, {2, 200}})},
                                                    {0, ext({{2, 200}})}})});
    for (unsigned threads : {1u, 3u}) {
        Bgpcomm::MrtOptions options;
        options.stats = true;
        options.threads = threads;
        ASSERT_EQ(options.filter.comm.hasIs(Bgpcomm::HasGroup::all, "0:0"), std::nullopt);
        std::string const out = run(std::move(options), file).out;
        EXPECT_NE(out.find("standard                  2          2          1         2.00\n"),
                  std::string::npos)
            << out;
        EXPECT_NE(out.find("standard lists 2,"), std::string::npos) << out;
        options = Bgpcomm::MrtOptions{};
        options.stats = true;
        options.threads = threads;
        std::string const split = run(std::move(options), classified).out;
        EXPECT_NE(split.find("extended lists 5 (classification lists 4)\n"), std::string::npos)
            << split;
    }
}
