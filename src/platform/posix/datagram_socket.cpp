#include <poll.h>
#include <sys/socket.h>

#include "platform/posix/socket_support.h"

namespace Veldrift {
namespace {

constexpr int kSendBufferBytes = 4'194'304;

class PosixDatagramSocket final : public DatagramSocket {
 public:
  explicit PosixDatagramSocket(Descriptor socket) : socket_(std::move(socket)) {}

  SendResult Send(std::span<const std::byte> bytes, const Ipv4Endpoint& to) override {
    const sockaddr_in address = ToSystem(to);
    const ssize_t count = sendto(socket_.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL,
                                 reinterpret_cast<const sockaddr*>(&address), sizeof address);
    if (count >= 0) return SendResult::Sent;
    const bool full = errno == EAGAIN || errno == EWOULDBLOCK || errno == ENOBUFS;
    return full ? SendResult::BufferFull : SendResult::Failed;
  }

  std::ptrdiff_t Receive(std::span<std::byte> buffer, int64_t timeoutNanos) override {
    if (!WaitFor(socket_, POLLIN, timeoutNanos)) return -1;
    return recv(socket_.Get(), buffer.data(), buffer.size(), 0);
  }

  int64_t Number() const override { return socket_.Get(); }
  uint16_t Port() const override { return LocalPort(socket_); }

 private:
  const Descriptor socket_;
};

}  // namespace

std::unique_ptr<DatagramSocket> MakeDatagram(Descriptor socket) {
  return std::make_unique<PosixDatagramSocket>(std::move(socket));
}

std::unique_ptr<DatagramSocket> OpenDatagramSender() {
  Descriptor socket = OpenSocket(SOCK_DGRAM | SOCK_NONBLOCK);
  if (!socket) return nullptr;
  SetOption(socket, SOL_SOCKET, SO_SNDBUF, kSendBufferBytes);
  return MakeDatagram(std::move(socket));
}

}  // namespace Veldrift
