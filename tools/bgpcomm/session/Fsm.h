// The BGP-4 finite state machine of one peer (RFC 4271 section 8): Idle,
// Connect, Active, OpenSent, OpenConfirm, Established, with the hold and
// keepalive timers, driven by events (start, stop, TCP up/down, octets
// received, time passing) and talking to its connection through FsmHandler.
// No sockets and no clock of its own, so tests drive it with bytes and
// made-up times.
//
// Protocol errors get the NOTIFICATION that RFC 4271 section 6 names (header,
// OPEN, UPDATE with the RFC 7606 actions, hold timer expired, finite state
// machine errors as RFC 6608 subcodes them); the connection is closed after
// it and the machine goes back to Idle. What to do next (reconnect, give up)
// is the caller's choice.
//
// Contract: single-threaded; handler calls happen inside the event calls.
#pragma once

#include <string>

#include "bgpcomm/session/Message.h"
#include "bgpcomm/session/Update.h"

namespace Bgpcomm::Session {

enum class State : U8 { idle, connect, active, openSent, openConfirm, established };
char const* stateName(State s);

struct FsmConfig {
    U32 localAs = 0;
    U32 routerId = 0;
    U16 holdTime = 90;  // offered; 0 or at least 3 (RFC 4271 section 4.2)
    U32 peerAs = 0;
    bool passive = false;
    bool addPathReceive = false;  // offer ADD-PATH receive (RFC 7911)
};

class FsmHandler {
  public:
    virtual ~FsmHandler() = default;
    virtual void send(Octets const& message) = 0;
    // Open a TCP connection to the peer (active side); answer with
    // Fsm::tcpConnected or Fsm::tcpFailed.
    virtual void connect() {}
    // Close the TCP connection.
    virtual void disconnect() = 0;
    virtual void established() {}
    // One decoded UPDATE; valid during the call.
    virtual void update(UpdateMsg const&) {}
    virtual void routeRefresh(Family) {}
    // The session (or the attempt at it) ended; `error` false for an
    // orderly Cease / Administrative Shutdown either way.
    virtual void closed(std::string const& /*why*/, bool /*error*/) {}
};

class Fsm {
  public:
    Fsm(FsmConfig config, FsmHandler& handler) : config_(config), handler_(handler) {}

    void start(double now);  // ManualStart (RFC 4271 section 8.1.2, events 1 and 4)
    // ManualStop: Cease with `subcode` when a connection is up.
    void stop(double now, U8 subcode = ceaseAdminShutdown);
    void tcpConnected(double now);
    void tcpFailed(double now, std::string const& why);
    void tcpClosed(double now);
    void received(U8 const* data, std::size_t size, double now);
    void tick(double now);
    // When tick() next has something to do; 0 when no timer runs.
    double nextTimer() const;

    // Sends an UPDATE (or ROUTE-REFRESH, End-of-RIB) in Established; it
    // counts as a KEEPALIVE for the keepalive timer (RFC 4271 section 4.4).
    void sendUpdate(Octets const& message, double now);

    State state() const { return state_; }
    OpenMsg const& peerOpen() const { return peer_; }
    UpdateContext const& updateContext() const { return context_; }
    // Families both sides offered.
    bool negotiated(Family f) const { return family_[unsigned(f)]; }
    std::size_t maxMessage() const { return maxSize_; }
    U16 holdTime() const { return hold_; }
    double establishedAt() const { return establishedAt_; }
    double openSentAt() const { return openSentAt_; }

  private:
    void message(MsgType type, Cursor body, double now);
    void openReceived(Cursor body, double now);
    void fail(Notification const& n, std::string const& why);
    void down(std::string const& why, bool error);
    void restartHold(double now);

    FsmConfig config_;
    FsmHandler& handler_;
    State state_ = State::idle;
    Octets in_;
    OpenMsg peer_;
    UpdateContext context_;
    UpdateMsg update_;
    bool family_[familyCount] = {};
    std::size_t maxSize_ = maxMessageSize;
    U16 hold_ = 0;
    double holdDeadline_ = 0;
    double keepaliveDue_ = 0;
    double establishedAt_ = 0;
    double openSentAt_ = 0;
};

}  // namespace Bgpcomm::Session
