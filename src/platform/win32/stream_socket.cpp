#include <algorithm>
#include <atomic>
#include <climits>

#include "platform/win32/handle.h"
#include "platform/win32/socket_support.h"

#ifndef TCP_KEEPCNT
#define TCP_KEEPCNT 16
#endif

namespace Veldrift {
namespace {

constexpr ULONG kKeepAliveIdleMillis = 10'000;
constexpr ULONG kKeepAliveIntervalMillis = 5'000;
constexpr int kKeepAliveCount = 3;
constexpr int kBacklog = 1;

int CappedLength(size_t bytes) { return static_cast<int>(std::min<size_t>(bytes, INT_MAX)); }

// The system doesn't promise that shutting a socket down wakes a call that waits on it. So the
// socket never waits: a receiver waits for the socket's event and for one of our own.
class WinStreamSocket final : public StreamSocket {
 public:
  WinStreamSocket(OwnedSocket socket, const Ipv4Endpoint& peer)
      : socket_(std::move(socket)),
        peer_(peer),
        arrived_(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
        stopped_(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}

  // Also makes the socket non-blocking. False: the system gave no events.
  bool Prepare() {
    return arrived_ && stopped_ &&
           WSAEventSelect(socket_.Get(), arrived_.Get(), FD_READ | FD_CLOSE) == 0;
  }

  std::ptrdiff_t Receive(std::span<std::byte> buffer) override {
    const HANDLE events[] = {stopped_.Get(), arrived_.Get()};
    for (;;) {
      // Reset before the read: whatever arrives from here on is read now or sets the event again.
      ResetEvent(arrived_.Get());
      const int count = recv(socket_.Get(), reinterpret_cast<char*>(buffer.data()),
                             CappedLength(buffer.size()), 0);
      const int error = WSAGetLastError();
      // A disconnection shows as an error of the read, which it isn't to the caller.
      if (WaitForSingleObject(stopped_.Get(), 0) == WAIT_OBJECT_0) return 0;
      if (count >= 0) return count;
      if (error != WSAEWOULDBLOCK) return -1;
      WaitForMultipleObjects(2, events, FALSE, INFINITE);
    }
  }

  SendResult TrySend(std::span<const std::byte> bytes, size_t& sent) override {
    sent = 0;
    const int count = send(socket_.Get(), reinterpret_cast<const char*>(bytes.data()),
                           CappedLength(bytes.size()), 0);
    if (count < 0) {
      return WSAGetLastError() == WSAEWOULDBLOCK ? SendResult::BufferFull : SendResult::Failed;
    }
    sent = static_cast<size_t>(count);
    return SendResult::Sent;
  }

  // No shutdown of the receiving side: the system would answer later data with a reset, which
  // ends sending too.
  void StopReceiving() override { SetEvent(stopped_.Get()); }

  void Disconnect() override {
    SetEvent(stopped_.Get());
    shutdown(socket_.Get(), SD_BOTH);
  }

  Ipv4Endpoint Peer() const override { return peer_; }
  int64_t Number() const override { return static_cast<int64_t>(socket_.Get()); }

 private:
  const OwnedSocket socket_;
  const Ipv4Endpoint peer_;
  const Handle arrived_;  // data or the peer's close
  const Handle stopped_;  // set once, never reset
};

void SetKeepAlive(const OwnedSocket& socket) {
  tcp_keepalive settings{1, kKeepAliveIdleMillis, kKeepAliveIntervalMillis};
  DWORD ignored = 0;
  WSAIoctl(socket.Get(), SIO_KEEPALIVE_VALS, &settings, sizeof settings, nullptr, 0, &ignored,
           nullptr, nullptr);
  SetOption(socket, IPPROTO_TCP, TCP_KEEPCNT, kKeepAliveCount);
}

class WinStreamListener final : public StreamListener {
 public:
  explicit WinStreamListener(OwnedSocket socket)
      : socket_(std::move(socket)), port_(LocalPort(socket_)) {}

  std::unique_ptr<StreamSocket> Accept(int64_t timeoutNanos) override {
    if (!WaitFor(socket_.Get(), WaitKind::Reading, timeoutNanos)) return nullptr;
    sockaddr_in address{};
    int length = sizeof address;
    OwnedSocket accepted(accept(socket_.Get(), reinterpret_cast<sockaddr*>(&address), &length));
    if (!accepted) {
      // It can fail at once and again, such as for want of buffers: don't spin.
      Sleep(static_cast<DWORD>(timeoutNanos / 1'000'000));
      return nullptr;
    }
    KeepFromChildren(accepted);
    SetOption(accepted, IPPROTO_TCP, TCP_NODELAY, 1);
    SetKeepAlive(accepted);
    return MakeStream(std::move(accepted), FromSystem(address));
  }

  uint16_t Port() const override { return port_; }

 private:
  const OwnedSocket socket_;
  const uint16_t port_;
};

}  // namespace

std::unique_ptr<StreamSocket> MakeStream(OwnedSocket socket, const Ipv4Endpoint& peer) {
  auto stream = std::make_unique<WinStreamSocket>(std::move(socket), peer);
  if (!stream->Prepare()) return nullptr;
  return stream;
}

std::unique_ptr<StreamListener> ListenTcp(uint16_t port, uint32_t address) {
  OwnedSocket socket = OpenSocket(SOCK_STREAM);
  if (!socket) return nullptr;
  SetOption(socket, SOL_SOCKET, SO_REUSEADDR, 1);
  // A connection can vanish between the wait and the call that takes it: that call must not wait.
  if (!SetNonBlocking(socket) || !Bind(socket, {address, port}) ||
      listen(socket.Get(), kBacklog) != 0) {
    return nullptr;
  }
  return std::make_unique<WinStreamListener>(std::move(socket));
}

}  // namespace Veldrift
