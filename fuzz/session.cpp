// The bgpcomm BGP session: a state machine brought up to Established by a
// well-formed OPEN and KEEPALIVE, then fed the input as what the peer sent,
// in chunks whose sizes the first octet picks. Properties: nothing crashes
// or throws; a session that sent a NOTIFICATION is down (Idle); every
// UPDATE handed on has its announced and withdrawn prefixes of the families
// it can carry.
#include <string>

#include "FuzzUtil.h"
#include "bgpcomm/session/Fsm.h"

namespace {

using namespace Bgpcomm::Session;

struct Sink : FsmHandler {
    bool notified = false;
    void send(Octets const& m) override {
        notified = notified || m[18] == U8(MsgType::notification);
    }
    void disconnect() override {}
    void update(UpdateMsg const& msg) override {
        for (auto const* list : {&msg.announced, &msg.withdrawn})
            for (Bgpcomm::Nlri const& n : *list)
                Fuzz::check(n.prefix.length <= (n.prefix.addr.afi == Bgpcomm::Afi::ipv4 ? 32 : 128),
                            "prefix longer than its family", "");
    }
};

}  // namespace

VOBGP_FUZZ_TARGET(input) {
    U8 const selector = input.octet();
    std::string const rest = input.rest();
    FsmConfig config;
    config.localAs = 65000;
    config.routerId = 1;
    config.peerAs = 65001;
    config.addPathReceive = selector & 0x80;
    Sink sink;
    Fsm fsm(config, sink);
    fsm.start(0);
    fsm.tcpConnected(0);
    OpenMsg peer;
    peer.asn = 65001;
    peer.bgpId = 2;
    peer.fourOctetAs = selector & 0x40;
    peer.extendedMessage = selector & 0x20;
    peer.anyMultiprotocol = true;
    peer.family[0] = peer.family[1] = true;
    peer.addPath[0] = peer.addPath[1] = addPathSend;
    Octets up = encodeOpen(peer);
    Octets const keepalive = encodeKeepalive();
    up.insert(up.end(), keepalive.begin(), keepalive.end());
    fsm.received(up.data(), up.size(), 1);
    Fuzz::check(fsm.state() == State::established, "a well-formed OPEN does not establish", "");
    std::size_t const chunk = 1 + (selector & 0x1F) * 37;
    auto const* data = reinterpret_cast<U8 const*>(rest.data());
    for (std::size_t at = 0; at < rest.size() && fsm.state() != State::idle; at += chunk)
        fsm.received(data + at, std::min(chunk, rest.size() - at), 2);
    Fuzz::check(!sink.notified || fsm.state() == State::idle,
                "a NOTIFICATION was sent but the session is up", "");
}
