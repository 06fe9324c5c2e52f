// The socket side of a BGP session: TCP over POSIX sockets, one thread per
// peer running the peer's Fsm, a listener handing accepted connections to
// the peer whose address they come from, and the event log on stderr.
//
// Contract: socket errors never throw; they end the connection attempt with
// a message and the Fsm decides. Every loop waits in poll() with a bounded
// timeout and looks at the stop flag, so SIGINT/SIGTERM end a run within a
// fraction of a second. Sockets are closed by their owner alone.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "bgpcomm/session/Fsm.h"
#include "bgpcomm/session/Options.h"

namespace Bgpcomm::Session {

// One line on stderr, "bgpcomm <command>: <text>", whole even when peers'
// threads log at once.
void logEvent(std::string const& text);
void logCommandIs(std::string const& command);

// Set by SIGINT / SIGTERM once installStopSignals() ran.
std::atomic<bool>& stopRequested();
void installStopSignals();

// What a command does with its session.
class PeerApp {
  public:
    virtual ~PeerApp() = default;
    // `local`: our address on the connection.
    virtual void established(Fsm&, double /*now*/, IpAddress const& /*local*/) {}
    virtual void update(UpdateMsg const&, Fsm&, double /*now*/) {}
    virtual void routeRefresh(Family, Fsm&, double /*now*/) {}
    // Called in Established while little output is queued: send more.
    virtual void pump(Fsm&, double /*now*/) {}
    virtual void closed(std::string const& /*why*/, bool /*error*/) {}
    // True once this peer's work is done: the session is ended with Cease.
    virtual bool done(double /*now*/) { return false; }
};

struct RunPolicy {
    bool retry = true;        // reconnect / wait again after a session ends
    double retrySeconds = 5;  // ConnectRetryTime (RFC 4271 section 10 suggests 120)
    bool oneSession = false;  // return after the first Established session ends
};

class PeerSession : public FsmHandler {
  public:
    PeerSession(PeerConfig const& peer, FsmConfig const& config, PeerApp& app);
    ~PeerSession() override;

    // Runs the peer until `stop`, app.done(), or the policy says so.
    void run(std::atomic<bool> const& stop, RunPolicy policy);
    // An accepted connection from this peer's address (listener thread);
    // false when one is up or pending already (the caller closes it).
    bool offer(int fd);
    PeerConfig const& peer() const { return peer_; }
    bool everEstablished() const { return everEstablished_; }
    bool lastCloseWasError() const { return lastError_; }

    // FsmHandler
    void send(Octets const& message) override;
    void connect() override { connectWanted_ = true; }
    void disconnect() override;
    void established() override;
    void update(UpdateMsg const& msg) override { app_.update(msg, fsm_, now_); }
    void routeRefresh(Family f) override { app_.routeRefresh(f, fsm_, now_); }
    void closed(std::string const& why, bool error) override;

  private:
    void doConnect();
    void connected();
    bool flush(double waitSeconds);
    void takePending();

    PeerConfig peer_;
    PeerApp& app_;
    Fsm fsm_;
    int fd_ = -1;
    IpAddress local_;
    Octets out_;
    std::size_t outSent_ = 0;
    bool connectWanted_ = false;
    double now_ = 0;
    double closedAt_ = 0;
    bool everEstablished_ = false;
    bool lastError_ = false;
    std::mutex pendingLock_;
    int pendingFd_ = -1;
    std::atomic<bool> busy_{false};
};

// Accepts connections on one address and hands each to the peer with the
// same source address; others are refused.
class Listener {
  public:
    ~Listener();
    // Binds and listens; an error text ("cannot listen on ...: Address
    // already in use") when it cannot.
    std::string open(IpAddress const& addr, U16 port);
    void start(std::vector<PeerSession*> peers, std::atomic<bool> const& stop);
    void join();

  private:
    int fd_ = -1;
    std::thread thread_;
};

std::string endpointText(IpAddress const& addr, U16 port);

}  // namespace Bgpcomm::Session
