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
    if (!WaitFor(socket_.Get(), POLLIN, timeoutNanos)) return nullptr;
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
    return MakeStream(std::move(accepted), FromSystem(address));
  }

  uint16_t Port() const override { return port_; }

 private:
  const Descriptor socket_;
  const uint16_t port_;
};

}  // namespace

std::unique_ptr<StreamSocket> MakeStream(Descriptor socket, const Ipv4Endpoint& peer) {
  return std::make_unique<PosixStreamSocket>(std::move(socket), peer);
}

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

}  // namespace Veldrift
