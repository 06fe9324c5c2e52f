// The BGP session codec and state machine of `bgpcomm collect/replay`,
// driven with octets and made-up times, no sockets.
#include <gtest/gtest.h>

#include "BgpcommTestUtil.h"
#include "bgpcomm/session/Fsm.h"
#include "bgpcomm/session/Options.h"

namespace {

using namespace Bgpcomm;
using namespace Bgpcomm::Session;
using BgpcommTest::attr;
using BgpcommTest::Bytes;
using BgpcommTest::cat;

Bytes header(unsigned length, U8 type) {
    Bytes out(16, 0xFF);
    BgpcommTest::put(out, length, 2);
    out.push_back(type);
    return out;
}

std::string checked(Bytes const& h, std::size_t max = maxMessageSize) {
    MsgType type;
    std::size_t length = 0;
    auto n = checkHeader(h.data(), max, &type, &length);
    if (!n)
        return "ok " + std::to_string(length);
    std::string text = std::to_string(n->code) + "/" + std::to_string(n->subcode);
    for (U8 o : n->data)
        text += " " + std::to_string(o);
    return text;
}

TEST(BgpSessionCodec, HeaderErrorsCarryTheFieldAtFault) {
    Bytes badMarker = header(19, 4);
    badMarker[7] = 0xFE;
    struct Case {
        Bytes head;
        std::size_t max;
        char const* expected;
    } const cases[] = {
        {badMarker, 4096, "1/1"},
        {header(19, 4), 4096, "ok 19"},
        {header(20, 4), 4096, "1/2 0 20"},  // KEEPALIVE is exactly the header
        {header(18, 2), 4096, "1/2 0 18"},
        {header(28, 1), 4096, "1/2 0 28"},  // OPEN at least 29
        {header(29, 1), 4096, "ok 29"},
        {header(22, 2), 4096, "1/2 0 22"},  // UPDATE at least 23
        {header(20, 3), 4096, "1/2 0 20"},  // NOTIFICATION at least 21
        {header(22, 5), 4096, "1/2 0 22"},  // ROUTE-REFRESH at least 23
        {header(4096, 2), 4096, "ok 4096"},
        {header(4097, 2), 4096, "1/2 16 1"},
        {header(4097, 2), 65535, "ok 4097"},  // extended messages
        {header(19, 0), 4096, "1/3 0"},
        {header(23, 6), 4096, "1/3 6"},
    };
    for (Case const& c : cases)
        EXPECT_EQ(checked(c.head, c.max), c.expected) << c.expected;
}

std::optional<Notification> reopen(Bytes const& message, OpenMsg* out) {
    return decodeOpen(Cursor(message.data() + headerSize, message.size() - headerSize, 0), out);
}

TEST(BgpSessionCodec, OpenCarriesCapabilitiesAndItsErrorsTheirSubcodes) {
    OpenMsg open;
    open.asn = 4200000001;
    open.holdTime = 3;
    open.bgpId = 0x0A000001;
    open.fourOctetAs = open.anyMultiprotocol = open.routeRefresh = open.extendedMessage = true;
    open.family[1] = true;
    open.addPath[1] = addPathReceive;
    Bytes const wire = encodeOpen(open);
    EXPECT_EQ(wire[20] << 8 | wire[21], 23456);  // AS_TRANS in My AS
    OpenMsg back;
    ASSERT_FALSE(reopen(wire, &back));
    EXPECT_EQ(back.asn, 4200000001u);
    EXPECT_EQ(back.holdTime, 3);
    EXPECT_TRUE(back.fourOctetAs && back.routeRefresh && back.extendedMessage);
    EXPECT_FALSE(back.offers(Family::ipv4Unicast));
    EXPECT_TRUE(back.offers(Family::ipv6Unicast));
    EXPECT_EQ(back.addPath[1], addPathReceive);
    EXPECT_EQ(back.addPath[0], 0);

    // Without any multiprotocol capability: IPv4 unicast alone (RFC 4760).
    OpenMsg plain;
    plain.asn = 65001;
    plain.bgpId = 1;
    ASSERT_FALSE(reopen(encodeOpen(plain), &back));
    EXPECT_TRUE(back.offers(Family::ipv4Unicast));
    EXPECT_FALSE(back.fourOctetAs);

    // Octet offsets in the message: 19 version, 22-23 hold time, 24-27
    // identifier, 29 the first optional parameter's type.
    struct Case {
        std::size_t at;
        U8 value;
        U8 subcode;
    } const cases[] = {
        {19, 3, openBadVersion},  {19, 5, openBadVersion},  {23, 2, openBadHoldTime},
        {23, 1, openBadHoldTime}, {29, 3, openBadOptParam},
    };
    for (Case const& c : cases) {
        Bytes bad = wire;
        bad[22] = 0;
        bad[c.at] = c.value;
        auto n = reopen(bad, &back);
        ASSERT_TRUE(n) << c.at;
        EXPECT_EQ(n->code, errOpen);
        EXPECT_EQ(n->subcode, c.subcode);
        EXPECT_EQ(n->data, (c.subcode == openBadVersion ? Bytes{0, 4} : Bytes{}));
    }
    Bytes zeroId = wire;
    std::fill(zeroId.begin() + 24, zeroId.begin() + 28, 0);
    EXPECT_EQ(reopen(zeroId, &back)->subcode, openBadBgpId);
}

// A well-formed IPv4 announcement's attributes.
Bytes const origin = attr(0x40, 1, {0});
Bytes const asPath = attr(0x40, 2, {2, 1, 0, 0, 0xFD, 0xE9});
Bytes const nextHop = attr(0x40, 3, {192, 0, 2, 1});

Bytes updateBody(Bytes const& withdrawn, Bytes const& attrs, Bytes const& nlri) {
    Bytes out;
    BgpcommTest::put(out, withdrawn.size(), 2);
    out = cat({out, withdrawn});
    BgpcommTest::put(out, attrs.size(), 2);
    return cat({out, attrs, nlri});
}

struct Decoded {
    std::optional<Notification> error;
    UpdateMsg msg;
};
Decoded decode(Bytes const& body, UpdateContext context = {}) {
    Decoded d;
    d.error = decodeUpdate(Cursor(body.data(), body.size(), 0), context, &d.msg);
    return d;
}

TEST(BgpSessionUpdate, EachMalformedAttributeGetsItsRfc7606Action) {
    Bytes const base = cat({origin, asPath, nextHop});
    Bytes const nlri{16, 10, 1};
    Bytes const mpV6NextHop4 = attr(0x80, 14, {0, 2, 1, 4, 1, 2, 3, 4, 0});
    enum Want { announce, withdraw, reset };
    struct Case {
        char const* name;
        Bytes attrs;
        Bytes nlri;
        Want want;
        char const* detail;  // reason (treat-as-withdraw) or code/subcode
    } const cases[] = {
        {"communities 8", cat({base, attr(0xC0, 8, Bytes(8))}), nlri, announce, ""},
        {"communities 7", cat({base, attr(0xC0, 8, Bytes(7))}), nlri, withdraw,
         "COMMUNITIES attribute length 7 is not a multiple of 4"},
        {"communities 0", cat({base, attr(0xC0, 8, {})}), nlri, withdraw, "length 0"},
        {"communities flags", cat({base, attr(0x40, 8, Bytes(4))}), nlri, withdraw, "flags 0x40"},
        {"extended 12", cat({base, attr(0xC0, 16, Bytes(12))}), nlri, withdraw, "multiple of 8"},
        {"ipv6 extended 40", cat({base, attr(0xC0, 25, Bytes(40))}), nlri, announce, ""},
        {"ipv6 extended 21", cat({base, attr(0xC0, 25, Bytes(21))}), nlri, withdraw,
         "multiple of 20"},
        {"large 24", cat({base, attr(0xC0, 32, Bytes(24))}), nlri, announce, ""},
        {"large 13", cat({base, attr(0xC0, 32, Bytes(13))}), nlri, withdraw,
         "LARGE_COMMUNITY attribute length 13"},
        {"origin 2", cat({attr(0x40, 1, {2}), asPath, nextHop}), nlri, announce, ""},
        {"origin 3", cat({attr(0x40, 1, {3}), asPath, nextHop}), nlri, withdraw, "ORIGIN"},
        {"as path zero count", cat({origin, attr(0x40, 2, {2, 0}), nextHop}), nlri, withdraw,
         "AS_PATH attribute is malformed"},
        {"next hop missing", cat({origin, asPath}), nlri, withdraw, "NEXT_HOP attribute missing"},
        {"atomic aggregate 1", cat({base, attr(0x40, 6, {0})}), nlri, announce, ""},
        {"runs past", cat({base, Bytes{0xC0, 8, 9, 0, 0}}), nlri, withdraw, "runs past"},
        {"unknown optional", cat({base, attr(0xC0, 99, {1})}), nlri, announce, ""},
        {"unknown well-known", cat({base, attr(0x40, 99, {1})}), nlri, reset, "3/2"},
        {"mp_reach next hop", cat({base, mpV6NextHop4}), {}, reset, "3/9"},
        {"mp_reach twice",
         cat({base, attr(0x80, 15, {0, 2, 1}), attr(0x80, 15, {0, 2, 1})}),
         {},
         reset,
         "3/1"},
        {"prefix 33", base, {33, 10, 1, 2, 3, 4}, reset, "3/10"},
        {"prefix 32", base, {32, 10, 1, 2, 3}, announce, ""},
    };
    for (Case const& c : cases) {
        Decoded d = decode(updateBody({}, c.attrs, c.nlri));
        SCOPED_TRACE(c.name);
        if (c.want == reset) {
            ASSERT_TRUE(d.error);
            EXPECT_EQ(std::to_string(d.error->code) + "/" + std::to_string(d.error->subcode),
                      c.detail);
            continue;
        }
        ASSERT_FALSE(d.error);
        EXPECT_EQ(d.msg.announced.size(), c.want == announce ? 1u : 0u);
        EXPECT_EQ(d.msg.withdrawn.size(), c.want == withdraw ? 1u : 0u);
        EXPECT_NE(d.msg.treatAsWithdraw.find(c.detail), std::string::npos) << d.msg.treatAsWithdraw;
    }
    // Withdrawn routes running past the message reset the session.
    Bytes overrun{0, 9, 8, 10};
    EXPECT_EQ(decode(overrun).error->subcode, updMalformedAttrList);
}

TEST(BgpSessionUpdate, EndOfRibAddPathAndEncodedMessagesDecodeBack) {
    for (Family f : {Family::ipv4Unicast, Family::ipv6Unicast}) {
        Bytes const eor = encodeEndOfRib(f);
        Decoded d = decode(Bytes(eor.begin() + headerSize, eor.end()));
        EXPECT_TRUE(d.msg.endOfRib);
        EXPECT_EQ(d.msg.eorFamily, f);
    }
    Prefix p6;
    ASSERT_TRUE(parsePrefix("2001:db8::/33", &p6));
    Bytes const withdraw6 = encodeWithdraw(Family::ipv6Unicast, {p6});
    Decoded w = decode(Bytes(withdraw6.begin() + headerSize, withdraw6.end()));
    EXPECT_FALSE(w.msg.endOfRib);
    ASSERT_EQ(w.msg.withdrawn.size(), 1u);
    EXPECT_EQ(w.msg.withdrawn[0].prefix, p6);

    IpAddress hop6;
    ASSERT_TRUE(parseAddress("2001:db8::1", &hop6));
    Prefix p6b;
    ASSERT_TRUE(parsePrefix("2001:db8:8000::/34", &p6b));
    Bytes const announce =
        encodeAnnounce(cat({origin, asPath}), Family::ipv6Unicast, hop6, {p6, p6b});
    EXPECT_EQ(announce.size(), announceOverhead(Family::ipv6Unicast) + origin.size() +
                                   asPath.size() + prefixSize(p6) + prefixSize(p6b));
    Decoded a = decode(Bytes(announce.begin() + headerSize, announce.end()));
    ASSERT_FALSE(a.error);
    ASSERT_EQ(a.msg.announced.size(), 2u);
    EXPECT_EQ(a.msg.announced[1].prefix, p6b);
    EXPECT_EQ(a.msg.attrs.nextHop, hop6);
    EXPECT_EQ(a.msg.treatAsWithdraw, "");

    // With ADD-PATH the prefix follows a 4-octet path identifier.
    UpdateContext addPath;
    addPath.addPath[0] = true;
    Decoded ap =
        decode(updateBody({}, cat({origin, asPath, nextHop}), {0, 0, 1, 2, 8, 10}), addPath);
    ASSERT_EQ(ap.msg.announced.size(), 1u);
    EXPECT_EQ(ap.msg.announced[0].pathId, 258u);
    EXPECT_EQ(ap.msg.announced[0].prefix.length, 8);
}

// Records what the machine asks of its connection.
struct Recorder : FsmHandler {
    std::vector<Bytes> sent;
    int connects = 0, disconnects = 0, updates = 0, ups = 0;
    std::string why;
    void send(Octets const& m) override { sent.push_back(m); }
    void connect() override { ++connects; }
    void disconnect() override { ++disconnects; }
    void established() override { ++ups; }
    void update(UpdateMsg const&) override { ++updates; }
    void closed(std::string const& w, bool) override { why = w; }
    // The last message's type, and for a NOTIFICATION "code/subcode".
    std::string last() const {
        Bytes const& m = sent.back();
        if (m[18] != 3)
            return "type " + std::to_string(m[18]);
        return std::to_string(m[19]) + "/" + std::to_string(m[20]);
    }
};

struct FsmRun {
    Recorder io;
    Fsm fsm;
    explicit FsmRun(U16 hold = 90) : fsm(config(hold), io) {}
    static FsmConfig config(U16 hold) {
        FsmConfig c;
        c.localAs = 65000;
        c.routerId = 1;
        c.holdTime = hold;
        c.peerAs = 65001;
        return c;
    }
    void feed(Bytes const& m, double now, bool byteByByte = false) {
        if (!byteByByte)
            return fsm.received(m.data(), m.size(), now);
        for (U8 o : m)
            fsm.received(&o, 1, now);
    }
    Bytes peerOpen(U32 as = 65001, U16 hold = 30, bool extended = false) {
        OpenMsg o;
        o.asn = as;
        o.holdTime = hold;
        o.bgpId = 2;
        o.fourOctetAs = true;
        o.extendedMessage = extended;
        return encodeOpen(o);
    }
    // Up to Established with a peer offering `hold`.
    void establish(U16 hold = 30, bool extended = false, bool byteByByte = false) {
        fsm.start(0);
        fsm.tcpConnected(0);
        feed(cat({peerOpen(65001, hold, extended), encodeKeepalive()}), 1, byteByByte);
    }
};

TEST(BgpSessionFsm, OpensThenHoldsAndKeepsAliveOnTime) {
    FsmRun run;
    run.fsm.start(0);
    EXPECT_EQ(run.io.connects, 1);
    EXPECT_EQ(run.fsm.state(), State::connect);
    run.fsm.tcpConnected(0);
    EXPECT_EQ(run.io.last(), "type 1");
    EXPECT_EQ(run.fsm.state(), State::openSent);
    run.feed(run.peerOpen(), 1, true);
    EXPECT_EQ(run.fsm.state(), State::openConfirm);
    EXPECT_EQ(run.io.last(), "type 4");
    run.feed(encodeKeepalive(), 2);
    ASSERT_EQ(run.fsm.state(), State::established);
    EXPECT_EQ(run.io.ups, 1);
    EXPECT_EQ(run.fsm.holdTime(), 30);  // the smaller offer

    // Keepalives every third of the hold time; the hold timer restarts on
    // every message and fires at its boundary, not before.
    std::size_t const before = run.io.sent.size();
    run.fsm.tick(1 + 9.99);
    EXPECT_EQ(run.io.sent.size(), before);
    run.fsm.tick(1 + 10);
    EXPECT_EQ(run.io.sent.size(), before + 1);
    run.feed(encodeKeepalive(), 20);
    run.fsm.tick(49.99);
    EXPECT_EQ(run.fsm.state(), State::established);
    run.fsm.tick(50);
    EXPECT_EQ(run.io.last(), "4/0");
    EXPECT_EQ(run.fsm.state(), State::idle);
    EXPECT_EQ(run.io.disconnects, 1);
}

TEST(BgpSessionFsm, ProtocolErrorsSendTheirNotification) {
    Bytes const update = encodeEndOfRib(Family::ipv4Unicast);
    struct Case {
        char const* name;
        std::function<void(FsmRun&)> drive;
        char const* expected;
    } const cases[] = {
        {"wrong peer AS",
         [](FsmRun& r) {
             r.fsm.start(0);
             r.fsm.tcpConnected(0);
             r.feed(r.peerOpen(65002), 1);
         },
         "2/2"},
        {"KEEPALIVE in OpenSent",
         [](FsmRun& r) {
             r.fsm.start(0);
             r.fsm.tcpConnected(0);
             r.feed(encodeKeepalive(), 1);
         },
         "5/1"},
        {"UPDATE in OpenConfirm",
         [&](FsmRun& r) {
             r.fsm.start(0);
             r.fsm.tcpConnected(0);
             r.feed(cat({r.peerOpen(), update}), 1);
         },
         "5/2"},
        {"OPEN in Established", [](FsmRun& r) { r.establish(), r.feed(r.peerOpen(), 2); }, "5/3"},
        {"bad marker", [](FsmRun& r) { r.establish(), r.feed(Bytes(19, 0), 2); }, "1/1"},
        {"4097 octets without extended messages",
         [](FsmRun& r) { r.establish(), r.feed(header(4097, 2), 2); }, "1/2"},
        {"bad UPDATE",
         [](FsmRun& r) { r.establish(), r.feed(encodeMessage(MsgType::update, nullptr, 0), 2); },
         "1/2"},
        {"hold expires in OpenSent",
         [](FsmRun& r) {
             r.fsm.start(0);
             r.fsm.tcpConnected(0);
             r.fsm.tick(240);
         },
         "4/0"},
        {"stop", [](FsmRun& r) { r.establish(), r.fsm.stop(2); }, "6/2"},
    };
    for (Case const& c : cases) {
        FsmRun run;
        c.drive(run);
        EXPECT_EQ(run.io.last(), c.expected) << c.name;
        EXPECT_EQ(run.fsm.state(), State::idle) << c.name;
    }
    // With extended messages on both sides a 4097-octet UPDATE is read.
    FsmRun big;
    big.establish(30, true, true);
    Bytes large = cat({origin, asPath, nextHop});
    Bytes filler{0xD0, 99, 0, 0};  // unknown optional transitive, extended length
    std::size_t const fill = 4097 - headerSize - 4 - large.size() - filler.size();
    filler[2] = U8(fill >> 8);
    filler[3] = U8(fill);
    large = cat({large, filler, Bytes(fill)});
    Bytes const body = updateBody({}, large, {});
    big.feed(encodeMessage(MsgType::update, body.data(), body.size()), 2);
    EXPECT_EQ(big.fsm.state(), State::established);
    EXPECT_EQ(big.io.updates, 1);
}

}  // namespace

namespace {

TEST(BgpSessionOptions, EndpointsAndPeersParseOrSayWhatIsWrong) {
    struct Case {
        char const* text;
        char const* expected;  // "address port", or "bad"
    } const cases[] = {
        {"127.0.0.1:1790", "127.0.0.1 1790"},
        {"127.0.0.1", "127.0.0.1 179"},
        {"[::1]:1790", "::1 1790"},
        {"::1", "::1 179"},
        {"127.0.0.1:0", "bad"},
        {"127.0.0.1:65536", "bad"},
        {"[::1]1790", "bad"},
        {"localhost:179", "bad"},
    };
    for (Case const& c : cases) {
        IpAddress addr;
        U16 port = 0;
        std::string got = parseEndpoint(c.text, bgpPort, &addr, &port)
                              ? addressText(addr) + " " + std::to_string(port)
                              : "bad";
        EXPECT_EQ(got, c.expected) << c.text;
    }
    std::vector<std::string> args{"--peer", "10.0.0.1:1791,as=4200000001,passive,addpath",
                                  "--peer", "10.0.0.2,AS=65001",
                                  "--peer", "10.0.0.3,as=1,pasive"};
    SessionOptions options;
    bool taken = false;
    std::size_t i = 0;
    EXPECT_FALSE(takeSessionOption(args, i, &options, &taken));
    i = 2;
    EXPECT_FALSE(takeSessionOption(args, i, &options, &taken));
    i = 4;
    EXPECT_EQ(takeSessionOption(args, i, &options, &taken).value_or(""),
              "unknown peer setting 'pasive' in --peer '10.0.0.3,as=1,pasive' (as=N, passive, "
              "active, addpath)");
    ASSERT_EQ(options.peers.size(), 2u);
    EXPECT_EQ(options.peers[0].text(), "10.0.0.1 AS4200000001");
    EXPECT_TRUE(options.peers[0].passive && options.peers[0].addPath);
    EXPECT_EQ(options.peers[0].port, 1791);
    EXPECT_FALSE(options.peers[1].passiveGiven);
    EXPECT_EQ(finishSessionOptions(&options, true).value_or(""), "--local-as is required");
}

}  // namespace
