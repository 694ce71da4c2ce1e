#include "platform/win32/socket_support.h"

namespace Veldrift {
namespace {

constexpr int kSendBufferBytes = 4'194'304;
// SIO_UDP_CONNRESET: whether an unreachable port shows as an error of a later receive.
constexpr DWORD kReportUnreachable = _WSAIOW(IOC_VENDOR, 12);

class WinDatagramSocket final : public DatagramSocket {
 public:
  explicit WinDatagramSocket(OwnedSocket socket) : socket_(std::move(socket)) {}

  SendResult SendMany(std::span<const std::span<const std::byte>> datagrams, const Ipv4Endpoint& to,
                      size_t& sent) override {
    const sockaddr_in address = ToSystem(to);
    for (sent = 0; sent < datagrams.size(); ++sent) {
      const std::span<const std::byte> bytes = datagrams[sent];
      const int count = sendto(socket_.Get(), reinterpret_cast<const char*>(bytes.data()),
                               static_cast<int>(bytes.size()), 0,
                               reinterpret_cast<const sockaddr*>(&address), sizeof address);
      if (count >= 0) continue;
      const int error = WSAGetLastError();
      const bool full = error == WSAEWOULDBLOCK || error == WSAENOBUFS;
      return full ? SendResult::BufferFull : SendResult::Failed;
    }
    return SendResult::Sent;
  }

  size_t ReceiveMany(std::span<Slot> slots, int64_t timeoutNanos) override {
    if (slots.empty() || !WaitFor(socket_.Get(), WaitKind::Reading, timeoutNanos)) return 0;
    size_t count = 0;
    while (count < slots.size() && Take(slots[count])) ++count;
    return count;
  }

  int64_t Number() const override { return static_cast<int64_t>(socket_.Get()); }
  uint16_t Port() const override { return LocalPort(socket_); }

 private:
  bool Take(Slot& slot) {
    sockaddr_in from{};
    int fromBytes = sizeof from;
    const int count = recvfrom(socket_.Get(), reinterpret_cast<char*>(slot.buffer.data()),
                               static_cast<int>(slot.buffer.size()), 0,
                               reinterpret_cast<sockaddr*>(&from), &fromBytes);
    // A datagram that doesn't fit is an error here, but its beginning is in the buffer.
    if (count < 0 && WSAGetLastError() != WSAEMSGSIZE) return false;
    slot.length = count < 0 ? slot.buffer.size() : static_cast<size_t>(count);
    slot.from = FromSystem(from);
    return true;
  }

  const OwnedSocket socket_;
};

}  // namespace

OwnedSocket OpenDatagram() {
  OwnedSocket socket = OpenSocket(SOCK_DGRAM);
  if (!socket || !SetNonBlocking(socket)) return {};
  BOOL off = FALSE;
  DWORD ignored = 0;
  WSAIoctl(socket.Get(), kReportUnreachable, &off, sizeof off, nullptr, 0, &ignored, nullptr,
           nullptr);
  return socket;
}

std::unique_ptr<DatagramSocket> MakeDatagram(OwnedSocket socket) {
  return std::make_unique<WinDatagramSocket>(std::move(socket));
}

std::unique_ptr<DatagramSocket> OpenDatagramSender() {
  OwnedSocket socket = OpenDatagram();
  if (!socket) return nullptr;
  SetOption(socket, SOL_SOCKET, SO_SNDBUF, kSendBufferBytes);
  return MakeDatagram(std::move(socket));
}

}  // namespace Veldrift
