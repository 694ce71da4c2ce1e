#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>

#include "platform/posix/socket_support.h"

namespace Veldrift {
namespace {

constexpr int kSendBufferBytes = 4'194'304;
constexpr size_t kBatch = 64;  // datagrams in one system call

class PosixDatagramSocket final : public DatagramSocket {
 public:
  explicit PosixDatagramSocket(Descriptor socket) : socket_(std::move(socket)) {}

  SendResult SendMany(std::span<const std::span<const std::byte>> datagrams, const Ipv4Endpoint& to,
                      size_t& sent) override {
    sockaddr_in address = ToSystem(to);
    sent = 0;
    while (sent < datagrams.size()) {
      std::array<iovec, kBatch> pieces;
      std::array<mmsghdr, kBatch> messages{};
      const size_t count = std::min(datagrams.size() - sent, kBatch);
      for (size_t i = 0; i < count; ++i) {
        const std::span<const std::byte> bytes = datagrams[sent + i];
        pieces[i] = {const_cast<std::byte*>(bytes.data()), bytes.size()};
        messages[i].msg_hdr = {&address, sizeof address, &pieces[i], 1, nullptr, 0, 0};
      }
      const int taken = sendmmsg(socket_.Get(), messages.data(), unsigned(count), MSG_NOSIGNAL);
      if (taken < 0) {
        const bool full = errno == EAGAIN || errno == EWOULDBLOCK || errno == ENOBUFS;
        return full ? SendResult::BufferFull : SendResult::Failed;
      }
      // Fewer than all, and the next call says why.
      sent += size_t(taken);
    }
    return SendResult::Sent;
  }

  // Under load most calls find something, so that the wait is asked for only when none does.
  size_t ReceiveMany(std::span<Slot> slots, int64_t timeoutNanos) override {
    const size_t count = TakeAll(slots);
    if (count > 0 || !WaitFor(socket_, POLLIN, timeoutNanos)) return count;
    return TakeAll(slots);
  }

  int64_t Number() const override { return socket_.Get(); }
  uint16_t Port() const override { return LocalPort(socket_); }

 private:
  size_t TakeAll(std::span<Slot> slots) {
    std::array<iovec, kBatch> pieces;
    std::array<sockaddr_in, kBatch> from{};
    std::array<mmsghdr, kBatch> messages{};
    const size_t most = std::min(slots.size(), kBatch);
    for (size_t i = 0; i < most; ++i) {
      pieces[i] = {slots[i].buffer.data(), slots[i].buffer.size()};
      messages[i].msg_hdr = {&from[i], sizeof from[i], &pieces[i], 1, nullptr, 0, 0};
    }
    const int count =
        recvmmsg(socket_.Get(), messages.data(), unsigned(most), MSG_DONTWAIT, nullptr);
    for (int i = 0; i < count; ++i) {
      Slot& slot = slots[size_t(i)];
      slot.length = messages[size_t(i)].msg_len;
      slot.from = FromSystem(from[size_t(i)]);
    }
    return count > 0 ? size_t(count) : 0;
  }

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
