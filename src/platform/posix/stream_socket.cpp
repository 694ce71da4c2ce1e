#include <fcntl.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <atomic>

#include "platform/posix/socket_support.h"

namespace Veldrift {
namespace {

constexpr int kKeepAliveIdleSeconds = 10;
constexpr int kKeepAliveIntervalSeconds = 5;
constexpr int kKeepAliveCount = 3;
constexpr int kUnansweredMillis = 25'000;  // idle time and all probes
constexpr int kBacklog = 1;

class PosixStreamSocket final : public StreamSocket {
 public:
  PosixStreamSocket(Descriptor socket, const Ipv4Endpoint& peer)
      : socket_(std::move(socket)), peer_(peer) {}

  std::ptrdiff_t Receive(std::span<std::byte> buffer) override {
    ssize_t count = 0;
    do {
      count = recv(socket_.Get(), buffer.data(), buffer.size(), 0);
    } while (count < 0 && errno == EINTR);
    return stopped_ ? 0 : count;
  }

  SendResult TrySend(std::span<const std::byte> bytes, size_t& sent) override {
    sent = 0;
    ssize_t count = 0;
    do {
      count = send(socket_.Get(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    } while (count < 0 && errno == EINTR);
    if (count < 0) {
      return errno == EAGAIN || errno == EWOULDBLOCK ? SendResult::BufferFull : SendResult::Failed;
    }
    sent = static_cast<size_t>(count);
    return SendResult::Sent;
  }

  // The flag stands before the system call: a Receive that the second wakes sees the first.
  void StopReceiving() override {
    stopped_ = true;
    shutdown(socket_.Get(), SHUT_RD);
  }

  void Disconnect() override {
    stopped_ = true;
    shutdown(socket_.Get(), SHUT_RDWR);
  }

  Ipv4Endpoint Peer() const override { return peer_; }
  int64_t Number() const override { return socket_.Get(); }

 private:
  const Descriptor socket_;
  const Ipv4Endpoint peer_;
  std::atomic<bool> stopped_{false};
};

class PosixStreamListener final : public StreamListener {
 public:
  explicit PosixStreamListener(Descriptor socket)
      : socket_(std::move(socket)), port_(LocalPort(socket_)) {}

  std::unique_ptr<StreamSocket> Accept(int64_t timeoutNanos) override {
    if (!WaitFor(socket_, POLLIN, timeoutNanos)) return nullptr;
    sockaddr_in address{};
    socklen_t length = sizeof address;
    Descriptor accepted(
        accept4(socket_.Get(), reinterpret_cast<sockaddr*>(&address), &length, SOCK_CLOEXEC));
    if (!accepted) {
      // It can fail at once and again, such as for want of descriptors: don't spin.
      poll(nullptr, 0, static_cast<int>(timeoutNanos / 1'000'000));
      return nullptr;
    }
    SetOption(accepted, IPPROTO_TCP, TCP_NODELAY, 1);
    SetOption(accepted, SOL_SOCKET, SO_KEEPALIVE, 1);
    SetOption(accepted, IPPROTO_TCP, TCP_KEEPIDLE, kKeepAliveIdleSeconds);
    SetOption(accepted, IPPROTO_TCP, TCP_KEEPINTVL, kKeepAliveIntervalSeconds);
    SetOption(accepted, IPPROTO_TCP, TCP_KEEPCNT, kKeepAliveCount);
    // Keepalive says nothing while something sent is unanswered, and heartbeats always are then.
    SetOption(accepted, IPPROTO_TCP, TCP_USER_TIMEOUT, kUnansweredMillis);
    return std::make_unique<PosixStreamSocket>(std::move(accepted), FromSystem(address));
  }

  uint16_t Port() const override { return port_; }

 private:
  const Descriptor socket_;
  const uint16_t port_;
};

bool SetNonBlocking(const Descriptor& socket, bool on) {
  const int flags = fcntl(socket.Get(), F_GETFL);
  return fcntl(socket.Get(), F_SETFL, on ? flags | O_NONBLOCK : flags & ~O_NONBLOCK) == 0;
}

// Waits for the end of a connection attempt that is under way; its error is in errno.
bool FinishConnecting(const Descriptor& socket, int64_t timeoutNanos) {
  if (!WaitFor(socket, POLLOUT, timeoutNanos)) return false;
  int error = 0;
  socklen_t length = sizeof error;
  if (getsockopt(socket.Get(), SOL_SOCKET, SO_ERROR, &error, &length) != 0) return false;
  errno = error;
  return error == 0;
}

int ReadOption(const StreamSocket& socket, int level, int name) {
  int value = 0;
  socklen_t length = sizeof value;
  return getsockopt(static_cast<int>(socket.Number()), level, name, &value, &length) == 0 ? value
                                                                                          : -1;
}

}  // namespace

std::unique_ptr<StreamListener> ListenTcp(uint16_t port, uint32_t address) {
  Descriptor socket = OpenSocket(SOCK_STREAM);
  if (!socket) return nullptr;
  SetOption(socket, SOL_SOCKET, SO_REUSEADDR, 1);
  // A connection can vanish between the wait and the call that takes it: that call must not wait.
  if (!SetNonBlocking(socket, true) || !Bind(socket, {address, port}) ||
      listen(socket.Get(), kBacklog) != 0) {
    return nullptr;
  }
  return std::make_unique<PosixStreamListener>(std::move(socket));
}

bool TcpPortInUse(uint16_t port) {
  Descriptor socket = OpenSocket(SOCK_STREAM);
  if (!socket) return false;
  SetOption(socket, SOL_SOCKET, SO_REUSEADDR, 1);
  return !Bind(socket, {0, port}) && errno == EADDRINUSE;
}

std::unique_ptr<StreamSocket> ConnectTcp(const Ipv4Endpoint& remote, uint32_t localAddress,
                                         int64_t timeoutNanos) {
  Descriptor socket = OpenSocket(SOCK_STREAM);
  if (!socket || !SetNonBlocking(socket, true)) return nullptr;
  if (localAddress != 0 && !Bind(socket, {localAddress, 0})) return nullptr;
  const sockaddr_in address = ToSystem(remote);
  if (connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 &&
      (errno != EINPROGRESS || !FinishConnecting(socket, timeoutNanos))) {
    return nullptr;
  }
  if (!SetNonBlocking(socket, false)) return nullptr;
  SetOption(socket, IPPROTO_TCP, TCP_NODELAY, 1);
  return std::make_unique<PosixStreamSocket>(std::move(socket), remote);
}

StreamSettings ReadStreamSettings(const StreamSocket& socket) {
  return {
      ReadOption(socket, IPPROTO_TCP, TCP_NODELAY), ReadOption(socket, SOL_SOCKET, SO_KEEPALIVE),
      ReadOption(socket, IPPROTO_TCP, TCP_KEEPIDLE), ReadOption(socket, IPPROTO_TCP, TCP_KEEPINTVL),
      ReadOption(socket, IPPROTO_TCP, TCP_KEEPCNT)};
}

}  // namespace Veldrift
