#include "bgpcomm/session/Fsm.h"

namespace Bgpcomm::Session {

namespace {

// The hold time while the OPEN is awaited (RFC 4271 section 8.2.2: "a large
// value", 4 minutes suggested).
constexpr double openHoldSeconds = 240;

}  // namespace

char const* stateName(State s) {
    static char const* const names[] = {"Idle",     "Connect",     "Active",
                                        "OpenSent", "OpenConfirm", "Established"};
    return names[unsigned(s)];
}

void Fsm::start(double now) {
    (void)now;
    if (state_ != State::idle)
        return;
    in_.clear();
    maxSize_ = maxMessageSize;
    holdDeadline_ = keepaliveDue_ = 0;
    state_ = config_.passive ? State::active : State::connect;
    if (!config_.passive)
        handler_.connect();
}

void Fsm::stop(double now, U8 subcode) {
    (void)now;
    if (state_ == State::idle)
        return;
    if (state_ >= State::openSent) {
        handler_.send(encodeNotification({errCease, subcode, {}}));
        handler_.disconnect();
        down("sent NOTIFICATION " + notificationText(errCease, subcode),
             subcode != ceaseAdminShutdown);
        return;
    }
    handler_.disconnect();
    state_ = State::idle;
}

void Fsm::tcpConnected(double now) {
    if (state_ != State::connect && state_ != State::active)
        return;
    OpenMsg open;
    open.asn = config_.localAs;
    open.holdTime = config_.holdTime;
    open.bgpId = config_.routerId;
    open.fourOctetAs = true;
    open.anyMultiprotocol = true;
    for (unsigned f = 0; f < familyCount; ++f) {
        open.family[f] = true;
        open.addPath[f] = config_.addPathReceive ? addPathReceive : 0;
    }
    open.routeRefresh = true;
    open.extendedMessage = true;
    open.gracefulRestart = true;
    handler_.send(encodeOpen(open));
    state_ = State::openSent;
    openSentAt_ = now;
    holdDeadline_ = now + openHoldSeconds;
}

void Fsm::tcpFailed(double now, std::string const& why) {
    (void)now;
    if (state_ == State::connect || state_ == State::active)
        down(why, true);
}

void Fsm::tcpClosed(double now) {
    (void)now;
    if (state_ == State::idle)
        return;
    handler_.disconnect();
    // Once established, a peer going away is its right; before, the
    // session failed to come up.
    State const was = state_;
    down(was == State::openSent ? "connection closed by the peer before its OPEN"
                                : "connection closed by the peer",
         was != State::established);
}

void Fsm::received(U8 const* data, std::size_t size, double now) {
    if (state_ < State::openSent)
        return;
    in_.insert(in_.end(), data, data + size);
    std::size_t at = 0;
    while (state_ >= State::openSent && in_.size() - at >= headerSize) {
        MsgType type;
        std::size_t length = 0;
        if (auto error = checkHeader(in_.data() + at, maxSize_, &type, &length)) {
            fail(*error, "message header error");
            return;
        }
        if (in_.size() - at < length)
            break;
        message(type, Cursor(in_.data() + at + headerSize, length - headerSize, 0), now);
        at += length;
    }
    if (state_ >= State::openSent)
        in_.erase(in_.begin(), in_.begin() + std::ptrdiff_t(at));
}

void Fsm::message(MsgType type, Cursor body, double now) {
    if (type == MsgType::notification) {
        Notification n;
        decodeNotification(body, &n);
        handler_.disconnect();
        down("received NOTIFICATION " + notificationText(n.code, n.subcode),
             !(n.code == errCease && n.subcode == ceaseAdminShutdown));
        return;
    }
    switch (state_) {
        case State::openSent:
            if (type != MsgType::open)
                return fail({errFsm, fsmInOpenSent, {}}, "unexpected message in OpenSent");
            return openReceived(body, now);
        case State::openConfirm:
            if (type != MsgType::keepalive)
                return fail({errFsm, fsmInOpenConfirm, {}}, "unexpected message in OpenConfirm");
            state_ = State::established;
            establishedAt_ = now;
            restartHold(now);
            handler_.established();
            return;
        case State::established:
            restartHold(now);
            if (type == MsgType::keepalive)
                return;
            if (type == MsgType::update) {
                if (auto error = decodeUpdate(body, context_, &update_))
                    return fail(*error, "UPDATE error");
                handler_.update(update_);
                return;
            }
            if (type == MsgType::routeRefresh) {
                U16 afi = 0;
                U8 safi = 0;
                Family family;
                // Refresh requests for families not negotiated are ignored
                // (RFC 2918 section 4).
                if (decodeRouteRefresh(body, &afi, &safi) && familyOf(afi, safi, &family) &&
                    negotiated(family))
                    handler_.routeRefresh(family);
                return;
            }
            return fail({errFsm, fsmInEstablished, {}}, "unexpected message in Established");
        default:
            return;
    }
}

void Fsm::openReceived(Cursor body, double now) {
    if (auto error = decodeOpen(body, &peer_))
        return fail(*error, "OPEN error");
    if (peer_.asn != config_.peerAs) {
        Octets as{U8(peer_.asn >> 8), U8(peer_.asn)};  // RFC 4271 section 6.2
        return fail({errOpen, openBadPeerAs, as}, "peer AS " + std::to_string(peer_.asn) +
                                                      " is not the configured " +
                                                      std::to_string(config_.peerAs));
    }
    // RFC 6286 section 2.2: within an AS the identifiers differ.
    if (peer_.asn == config_.localAs && peer_.bgpId == config_.routerId)
        return fail({errOpen, openBadBgpId, {}}, "peer BGP identifier equals ours");
    hold_ = std::min(config_.holdTime, peer_.holdTime);
    context_ = UpdateContext{};
    context_.fourOctetAs = peer_.fourOctetAs;
    context_.ibgp = peer_.asn == config_.localAs;
    for (unsigned f = 0; f < familyCount; ++f) {
        family_[f] = peer_.offers(Family(f));
        context_.addPath[f] = config_.addPathReceive && (peer_.addPath[f] & addPathSend);
    }
    // RFC 8654 section 3: larger messages once both sides said so.
    maxSize_ = peer_.extendedMessage ? maxExtendedSize : maxMessageSize;
    handler_.send(encodeKeepalive());
    state_ = State::openConfirm;
    restartHold(now);
    keepaliveDue_ = hold_ ? now + hold_ / 3.0 : 0;
}

void Fsm::tick(double now) {
    if (state_ < State::openSent)
        return;
    if (holdDeadline_ && now >= holdDeadline_)
        return fail({errHoldTimer, 0, {}}, "hold timer expired");
    if (keepaliveDue_ && now >= keepaliveDue_ && state_ >= State::openConfirm) {
        handler_.send(encodeKeepalive());
        keepaliveDue_ = now + hold_ / 3.0;
    }
}

double Fsm::nextTimer() const {
    if (state_ < State::openSent)
        return 0;
    if (keepaliveDue_ && (!holdDeadline_ || keepaliveDue_ < holdDeadline_))
        return keepaliveDue_;
    return holdDeadline_;
}

void Fsm::sendUpdate(Octets const& message, double now) {
    if (state_ != State::established)
        return;
    handler_.send(message);
    if (hold_)
        keepaliveDue_ = now + hold_ / 3.0;
}

void Fsm::fail(Notification const& n, std::string const& why) {
    handler_.send(encodeNotification(n));
    handler_.disconnect();
    down(why + "; sent NOTIFICATION " + notificationText(n.code, n.subcode), true);
}

void Fsm::down(std::string const& why, bool error) {
    state_ = State::idle;
    in_.clear();
    holdDeadline_ = keepaliveDue_ = 0;
    handler_.closed(why, error);
}

void Fsm::restartHold(double now) {
    holdDeadline_ = hold_ ? now + hold_ : 0;
}

}  // namespace Bgpcomm::Session
