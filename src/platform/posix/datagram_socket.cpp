#include <netinet/udp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>

#include "platform/posix/socket_support.h"

namespace Veldrift {
namespace {

constexpr int kSendBufferBytes = 4'194'304;
constexpr size_t kBatch = 64;  // datagrams in one system call

using Datagrams = std::span<const std::span<const std::byte>>;

// A run of datagrams goes to the system as one message, which it cuts up on the way out: the way
// through the system is most of what sending costs. It takes 64 datagrams and a little less than
// 64 KiB. A queue behind it that is full drops a run as a whole.
constexpr size_t kLongestRun = 64;
constexpr size_t kMostBytesInARun = 65'000;

// How many of the first datagrams make a run: all as long as the first, but for a shorter last one.
size_t RunLength(Datagrams datagrams) {
  const size_t length = datagrams.front().size();
  if (length == 0) return 1;
  const size_t most = std::min({datagrams.size(), kLongestRun, kMostBytesInARun / length});
  size_t count = 1;
  while (count < most && datagrams[count].size() == length) ++count;
  const bool shorterLast =
      count < most && !datagrams[count].empty() && datagrams[count].size() < length;
  return shorterLast ? count + 1 : count;
}

// The messages of one system call.
class Batch {
 public:
  // As many of `datagrams` as fit; in runs, or each in a message of its own.
  Batch(Datagrams datagrams, sockaddr_in& to, bool inRuns) {
    datagrams = datagrams.first(std::min(datagrams.size(), kBatch));
    size_t at = 0;
    while (at < datagrams.size()) {
      const size_t run = inRuns ? RunLength(datagrams.subspan(at)) : 1;
      for (size_t i = at; i < at + run; ++i) {
        pieces_[i] = {const_cast<std::byte*>(datagrams[i].data()), datagrams[i].size()};
      }
      msghdr& header = messages_[count_].msg_hdr;
      header = {&to, sizeof to, &pieces_[at], run, nullptr, 0, 0};
      if (run > 1) CutEvery(uint16_t(datagrams[at].size()), header, controls_[count_]);
      ++count_;
      at += run;
    }
  }

  // How many datagrams went out, all of a message or none; below 0, with errno: not even the first
  // message's.
  std::ptrdiff_t Send(const Descriptor& socket) {
    const int taken = sendmmsg(socket.Get(), messages_.data(), unsigned(count_), MSG_NOSIGNAL);
    if (taken < 0) return taken;
    std::ptrdiff_t datagrams = 0;
    for (size_t i = 0; i < size_t(taken); ++i) {
      datagrams += std::ptrdiff_t(messages_[i].msg_hdr.msg_iovlen);
    }
    return datagrams;
  }

  bool BeginsWithARun() const { return messages_[0].msg_hdr.msg_iovlen > 1; }

 private:
  struct alignas(cmsghdr) Control {
    std::byte bytes[CMSG_SPACE(sizeof(uint16_t))];
  };

  static void CutEvery(uint16_t length, msghdr& header, Control& control) {
    header.msg_control = control.bytes;
    header.msg_controllen = sizeof control.bytes;
    cmsghdr& head = *CMSG_FIRSTHDR(&header);
    head.cmsg_level = IPPROTO_UDP;
    head.cmsg_type = UDP_SEGMENT;
    head.cmsg_len = CMSG_LEN(sizeof length);
    std::memcpy(CMSG_DATA(&head), &length, sizeof length);
  }

  std::array<iovec, kBatch> pieces_;
  std::array<mmsghdr, kBatch> messages_;
  std::array<Control, kBatch> controls_;
  size_t count_ = 0;
};

class PosixDatagramSocket final : public DatagramSocket {
 public:
  explicit PosixDatagramSocket(Descriptor socket)
      : socket_(std::move(socket)), cutsRuns_(SystemCutsRuns()) {}

  // What the system refuses as a run is tried again one by one, so that each datagram has its own
  // answer.
  SendResult SendMany(Datagrams datagrams, const Ipv4Endpoint& to, size_t& sent) override {
    sockaddr_in address = ToSystem(to);
    bool inRuns = cutsRuns_;
    sent = 0;
    while (sent < datagrams.size()) {
      Batch batch(datagrams.subspan(sent), address, inRuns);
      const std::ptrdiff_t taken = batch.Send(socket_);
      if (taken > 0) {
        // Fewer than all, and the next call says why.
        sent += size_t(taken);
        inRuns = cutsRuns_;
      } else if (batch.BeginsWithARun()) {
        inRuns = false;
        if (RunsCannotBeCut(errno)) cutsRuns_ = false;
      } else {
        const bool full = errno == EAGAIN || errno == EWOULDBLOCK || errno == ENOBUFS;
        return full ? SendResult::BufferFull : SendResult::Failed;
      }
    }
    return SendResult::Sent;
  }

  // Under load most calls find something, so that the wait is asked for only when none does.
  size_t ReceiveMany(std::span<Slot> slots, int64_t timeoutNanos) override {
    const size_t count = TakeAll(slots);
    if (count > 0 || !WaitFor(socket_.Get(), POLLIN, timeoutNanos)) return count;
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

  // A system that doesn't know the option would send a run as one long datagram.
  bool SystemCutsRuns() const {
    int value = 0;
    socklen_t length = sizeof value;
    return getsockopt(socket_.Get(), IPPROTO_UDP, UDP_SEGMENT, &value, &length) == 0;
  }

  // The route's device doesn't, or its packets are shorter than the datagrams.
  static bool RunsCannotBeCut(int error) {
    return error == EIO || error == EINVAL || error == EMSGSIZE;
  }

  const Descriptor socket_;
  std::atomic<bool> cutsRuns_;
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
