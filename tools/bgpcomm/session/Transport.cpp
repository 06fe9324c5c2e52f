#include "bgpcomm/session/Transport.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>

#include "bgpcomm/Stats.h"

namespace Bgpcomm::Session {

namespace {

std::mutex logLock;
std::string logCommand = "bgpcomm";
std::atomic<bool> stopFlag{false};

// Output queued beyond this waits before the app is asked for more.
constexpr std::size_t pumpBelow = 1u << 20;
constexpr double connectTimeoutSeconds = 5;
constexpr int pollMillis = 200;

socklen_t toSockaddr(IpAddress const& addr, U16 port, sockaddr_storage* out) {
    std::memset(out, 0, sizeof *out);
    if (addr.afi == Afi::ipv4) {
        auto* in = reinterpret_cast<sockaddr_in*>(out);
        in->sin_family = AF_INET;
        in->sin_port = htons(port);
        std::memcpy(&in->sin_addr, addr.octets.data(), 4);
        return sizeof *in;
    }
    auto* in6 = reinterpret_cast<sockaddr_in6*>(out);
    in6->sin6_family = AF_INET6;
    in6->sin6_port = htons(port);
    std::memcpy(&in6->sin6_addr, addr.octets.data(), 16);
    return sizeof *in6;
}

IpAddress fromSockaddr(sockaddr_storage const& in) {
    IpAddress addr;
    if (in.ss_family == AF_INET) {
        addr.afi = Afi::ipv4;
        std::memcpy(addr.octets.data(), &reinterpret_cast<sockaddr_in const&>(in).sin_addr, 4);
        return addr;
    }
    auto const& in6 = reinterpret_cast<sockaddr_in6 const&>(in);
    static constexpr U8 mapped[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};
    if (std::memcmp(&in6.sin6_addr, mapped, 12) == 0) {  // IPv4-mapped (RFC 4291 2.5.5.2)
        addr.afi = Afi::ipv4;
        std::memcpy(addr.octets.data(), reinterpret_cast<U8 const*>(&in6.sin6_addr) + 12, 4);
        return addr;
    }
    addr.afi = Afi::ipv6;
    std::memcpy(addr.octets.data(), &in6.sin6_addr, 16);
    return addr;
}

void setNonBlocking(int fd) {
    ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
    int one = 1;  // UPDATEs go out as they are written
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
}

void onStopSignal(int) {
    stopFlag.store(true);
}

}  // namespace

std::string endpointText(IpAddress const& addr, U16 port) {
    std::string host = addressText(addr);
    return (addr.afi == Afi::ipv6 ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

void logCommandIs(std::string const& command) {
    logCommand = "bgpcomm " + command;
}

void logEvent(std::string const& text) {
    std::lock_guard<std::mutex> hold(logLock);
    std::fprintf(stderr, "%s: %s\n", logCommand.c_str(), text.c_str());
    std::fflush(stderr);
}

std::atomic<bool>& stopRequested() {
    return stopFlag;
}

void installStopSignals() {
    struct sigaction action {};
    action.sa_handler = onStopSignal;
    sigemptyset(&action.sa_mask);
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
}

PeerSession::PeerSession(PeerConfig const& peer, FsmConfig const& config, PeerApp& app)
    : peer_(peer), app_(app), fsm_(config, *this) {}

PeerSession::~PeerSession() {
    if (fd_ >= 0)
        ::close(fd_);
    if (pendingFd_ >= 0)
        ::close(pendingFd_);
}

bool PeerSession::offer(int fd) {
    std::lock_guard<std::mutex> hold(pendingLock_);
    if (busy_.load() || pendingFd_ >= 0)
        return false;
    pendingFd_ = fd;
    return true;
}

void PeerSession::takePending() {
    std::lock_guard<std::mutex> hold(pendingLock_);
    if (pendingFd_ < 0)
        return;
    fd_ = pendingFd_;
    pendingFd_ = -1;
    busy_.store(true);
    setNonBlocking(fd_);
}

void PeerSession::doConnect() {
    connectWanted_ = false;
    sockaddr_storage to;
    socklen_t const size = toSockaddr(peer_.addr, peer_.port, &to);
    int fd = ::socket(to.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return fsm_.tcpFailed(now_, std::string("socket: ") + std::strerror(errno));
    setNonBlocking(fd);
    int rc = ::connect(fd, reinterpret_cast<sockaddr*>(&to), size);
    int error = rc == 0 ? 0 : errno;
    if (error == EINPROGRESS) {
        pollfd p{fd, POLLOUT, 0};
        rc = ::poll(&p, 1, int(connectTimeoutSeconds * 1000));
        socklen_t length = sizeof error;
        error = rc == 0 ? ETIMEDOUT : 0;
        if (rc > 0)
            ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length);
    }
    if (error) {
        ::close(fd);
        return fsm_.tcpFailed(now_, "cannot connect to " + endpointText(peer_.addr, peer_.port) +
                                        ": " + std::strerror(error));
    }
    fd_ = fd;
    connected();
}

void PeerSession::connected() {
    busy_.store(true);
    sockaddr_storage mine;
    socklen_t size = sizeof mine;
    if (::getsockname(fd_, reinterpret_cast<sockaddr*>(&mine), &size) == 0)
        local_ = fromSockaddr(mine);
    fsm_.tcpConnected(now_);
}

void PeerSession::send(Octets const& message) {
    if (fd_ < 0)
        return;
    if (outSent_ == out_.size()) {
        out_.clear();
        outSent_ = 0;
    }
    out_.insert(out_.end(), message.begin(), message.end());
}

bool PeerSession::flush(double waitSeconds) {
    double const until = monotonicSeconds() + waitSeconds;
    while (fd_ >= 0 && outSent_ < out_.size()) {
        ssize_t n = ::send(fd_, out_.data() + outSent_, out_.size() - outSent_, MSG_NOSIGNAL);
        if (n > 0) {
            outSent_ += std::size_t(n);
            continue;
        }
        if (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)
            return false;
        double left = until - monotonicSeconds();
        if (left <= 0)
            return true;
        pollfd p{fd_, POLLOUT, 0};
        ::poll(&p, 1, int(left * 1000) + 1);
    }
    return true;
}

void PeerSession::disconnect() {
    if (fd_ < 0)
        return;
    flush(1.0);  // a NOTIFICATION queued last still reaches the peer
    ::shutdown(fd_, SHUT_RDWR);
    ::close(fd_);
    fd_ = -1;
    out_.clear();
    outSent_ = 0;
    busy_.store(false);
}

void PeerSession::established() {
    everEstablished_ = true;
    logEvent("peer " + peer_.text() + ": established");
    app_.established(fsm_, now_, local_);
}

void PeerSession::closed(std::string const& why, bool error) {
    lastError_ = error;
    logEvent("peer " + peer_.text() + ": closed: " + why);
    app_.closed(why, error);
    closedAt_ = now_;
}

void PeerSession::run(std::atomic<bool> const& stop, RunPolicy policy) {
    std::vector<U8> buffer(1 << 16);
    now_ = monotonicSeconds();
    fsm_.start(now_);
    while (true) {
        now_ = monotonicSeconds();
        if (stop.load() || app_.done(now_)) {
            fsm_.stop(now_);
            break;
        }
        if (fsm_.state() == State::idle) {
            if (!policy.retry || (policy.oneSession && everEstablished_))
                break;
            if (now_ < closedAt_ + policy.retrySeconds) {
                ::poll(nullptr, 0, pollMillis);
                continue;
            }
            fsm_.start(now_);
            continue;
        }
        if (connectWanted_) {
            doConnect();
            continue;
        }
        if (fd_ < 0) {  // passive: wait for the listener
            takePending();
            if (fd_ >= 0)
                connected();
            else
                ::poll(nullptr, 0, 50);
            continue;
        }
        if (fsm_.state() == State::established && out_.size() - outSent_ < pumpBelow)
            app_.pump(fsm_, now_);
        pollfd p{fd_, short(POLLIN | (outSent_ < out_.size() ? POLLOUT : 0)), 0};
        double timer = fsm_.nextTimer();
        int wait = pollMillis;
        if (timer > 0)
            wait = std::max(0, std::min(wait, int((timer - now_) * 1000) + 1));
        if (fsm_.state() == State::established && out_.size() - outSent_ < pumpBelow)
            wait = 0;  // more to send may be waiting in the app
        ::poll(&p, 1, wait);
        now_ = monotonicSeconds();
        if (p.revents & POLLOUT)
            if (!flush(0))
                fsm_.tcpClosed(now_);
        if (fd_ >= 0 && (p.revents & (POLLIN | POLLHUP | POLLERR))) {
            ssize_t n = ::recv(fd_, buffer.data(), buffer.size(), 0);
            if (n > 0)
                fsm_.received(buffer.data(), std::size_t(n), now_);
            else if (n == 0 || (errno != EAGAIN && errno != EINTR))
                fsm_.tcpClosed(now_);
        }
        fsm_.tick(now_);
    }
    disconnect();
}

Listener::~Listener() {
    join();
    if (fd_ >= 0)
        ::close(fd_);
}

std::string Listener::open(IpAddress const& addr, U16 port) {
    sockaddr_storage at;
    socklen_t const size = toSockaddr(addr, port, &at);
    fd_ = ::socket(at.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int one = 1;
    if (fd_ < 0 || ::setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one) != 0 ||
        ::bind(fd_, reinterpret_cast<sockaddr*>(&at), size) != 0 || ::listen(fd_, 16) != 0)
        return "cannot listen on " + endpointText(addr, port) + ": " + std::strerror(errno);
    setNonBlocking(fd_);
    logEvent("listening on " + endpointText(addr, port));
    return {};
}

void Listener::start(std::vector<PeerSession*> peers, std::atomic<bool> const& stop) {
    thread_ = std::thread([this, peers, &stop] {
        while (!stop.load()) {
            pollfd p{fd_, POLLIN, 0};
            if (::poll(&p, 1, pollMillis) <= 0)
                continue;
            sockaddr_storage from;
            socklen_t size = sizeof from;
            int fd = ::accept4(fd_, reinterpret_cast<sockaddr*>(&from), &size, SOCK_CLOEXEC);
            if (fd < 0)
                continue;
            IpAddress const addr = fromSockaddr(from);
            bool taken = false;
            for (PeerSession* peer : peers)
                if (peer->peer().passive && peer->peer().addr == addr && peer->offer(fd)) {
                    taken = true;
                    break;
                }
            if (!taken) {
                logEvent("connection from " + addressText(addr) +
                         " refused: not a passive peer, or its session is up");
                ::close(fd);
            }
        }
    });
}

void Listener::join() {
    if (thread_.joinable())
        thread_.join();
}

}  // namespace Bgpcomm::Session
