#include "tools/platform/posix/run_receiver.h"

#include <netinet/udp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "platform/posix/socket_support.h"

namespace Veldrift {
namespace {

constexpr size_t kMessageBytes = 1 << 16;  // more than a datagram or a run can have
constexpr size_t kMessages = 32;           // in one system call

struct alignas(cmsghdr) Control {
  std::byte bytes[CMSG_SPACE(sizeof(int))];
};

// How long the datagrams of a run are, but for its last; 0: it is one datagram.
size_t CutOf(msghdr& header) {
  for (cmsghdr* one = CMSG_FIRSTHDR(&header); one != nullptr; one = CMSG_NXTHDR(&header, one)) {
    if (one->cmsg_level != IPPROTO_UDP || one->cmsg_type != UDP_GRO) continue;
    int cut = 0;
    std::memcpy(&cut, CMSG_DATA(one), sizeof cut);
    return size_t(std::max(cut, 0));
  }
  return 0;
}

class RunReceiver final : public DatagramSocket {
 public:
  explicit RunReceiver(Descriptor socket)
      : socket_(std::move(socket)),
        memory_(std::make_unique_for_overwrite<std::byte[]>(kMessages * kMessageBytes)) {}

  SendResult SendMany(std::span<const std::span<const std::byte>>, const Ipv4Endpoint&,
                      size_t& sent) override {
    sent = 0;
    errno = EOPNOTSUPP;
    return SendResult::Failed;
  }

  size_t ReceiveMany(std::span<Slot> slots, int64_t timeoutNanos) override {
    if (!AnyLeft()) Fetch();
    if (!AnyLeft() && WaitFor(socket_.Get(), POLLIN, timeoutNanos)) Fetch();
    size_t count = 0;
    while (count < slots.size() && AnyLeft()) TakeNext(slots[count++]);
    return count;
  }

  int64_t Number() const override { return socket_.Get(); }
  uint16_t Port() const override { return LocalPort(socket_); }

 private:
  struct Run {
    std::span<const std::byte> left;
    size_t cut = 0;
    Ipv4Endpoint from;
  };

  bool AnyLeft() const { return at_ < count_; }

  void TakeNext(Slot& slot) {
    Run& run = runs_[at_];
    const std::span<const std::byte> datagram = run.left.first(std::min(run.left.size(), run.cut));
    slot.length = std::min(datagram.size(), slot.buffer.size());
    std::copy_n(datagram.begin(), slot.length, slot.buffer.begin());
    slot.from = run.from;
    run.left = run.left.subspan(datagram.size());
    if (run.left.empty()) ++at_;
  }

  void Fetch() {
    std::array<iovec, kMessages> pieces;
    std::array<sockaddr_in, kMessages> from{};
    std::array<Control, kMessages> controls;
    std::array<mmsghdr, kMessages> messages{};
    for (size_t i = 0; i < kMessages; ++i) {
      pieces[i] = {Memory(i), kMessageBytes};
      messages[i].msg_hdr = {&from[i],     sizeof from[i],     &pieces[i], 1,
                             &controls[i], sizeof controls[i], 0};
    }
    const int count = recvmmsg(socket_.Get(), messages.data(), kMessages, MSG_DONTWAIT, nullptr);
    at_ = 0;
    count_ = count > 0 ? size_t(count) : 0;
    for (size_t i = 0; i < count_; ++i) {
      const size_t length = messages[i].msg_len;
      const size_t cut = CutOf(messages[i].msg_hdr);
      runs_[i] = {{Memory(i), length}, cut > 0 ? cut : length, FromSystem(from[i])};
    }
  }

  std::byte* Memory(size_t message) const { return memory_.get() + message * kMessageBytes; }

  const Descriptor socket_;
  const std::unique_ptr<std::byte[]> memory_;
  // What the last call brought and nobody has taken yet.
  std::array<Run, kMessages> runs_;
  size_t count_ = 0;
  size_t at_ = 0;
};

}  // namespace

// A system that doesn't know runs hands out each datagram alone.
std::unique_ptr<DatagramSocket> MakeRunReceiver(Descriptor socket) {
  SetOption(socket, IPPROTO_UDP, UDP_GRO, 1);
  return std::make_unique<RunReceiver>(std::move(socket));
}

}  // namespace Veldrift
