#include "bench/wire/bare.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <optional>
#include <span>
#include <vector>

#include "bench/wire/play.h"
#include "net/framing.h"
#include "net/media_datagram.h"
#include "platform/socket.h"
#include "support/clock.h"
#include "support/little_endian.h"
#include "tools/platform/client_sockets.h"

namespace Veldrift {

namespace {

constexpr int kReceiveBufferBytes = 8 << 20;
constexpr int64_t kSliceNanos = 100 * kNanosPerMilli;  // as the media path's receiver
// As much around the payload as a datagram of the media path has.
constexpr size_t kAround = kDatagramHeaderBytes + kSendTimeBytes;

void SendFrame(DatagramSocket& socket, const Ipv4Endpoint& to, const AccessUnit& unit,
               size_t index) {
  std::array<std::byte, kMaxDatagramBytes> datagram{};
  const size_t count = DataFragmentCount(unit.bytes.size());
  PutU32(datagram.data(), uint32_t(index));
  PutU16(datagram.data() + 6, uint16_t(count));
  for (size_t i = 0; i < count; ++i) {
    const size_t at = i * kFragmentBytes;
    const size_t length = std::min(kFragmentBytes, unit.bytes.size() - at);
    PutU16(datagram.data() + 4, uint16_t(i));
    std::memcpy(datagram.data() + kAround, unit.bytes.data() + at, length);
    (void)socket.Send(std::span(datagram).first(kAround + length), to);
  }
}

// Puts frames together. A fragment that came twice would count twice; loopback sends none twice.
class Assembly {
 public:
  // The frame's index if `datagram` was its last missing one.
  std::optional<uint32_t> Add(std::span<const std::byte> datagram) {
    if (datagram.size() < kAround || datagram.size() > kMaxDatagramBytes) return std::nullopt;
    const uint32_t index = GetU32(datagram.data());
    const size_t at = GetU16(datagram.data() + 4) * kFragmentBytes;
    const size_t count = GetU16(datagram.data() + 6);
    Frame& frame = frames_[index];
    if (frame.arrived == 0) frame.bytes.resize(count * kFragmentBytes);
    if (at >= frame.bytes.size()) return std::nullopt;
    std::copy(datagram.begin() + kAround, datagram.end(), frame.bytes.begin() + ptrdiff_t(at));
    if (++frame.arrived < count) return std::nullopt;
    frames_.erase(index);
    return index;
  }

 private:
  struct Frame {
    std::vector<std::byte> bytes;
    size_t arrived = 0;
  };
  std::map<uint32_t, Frame> frames_;
};

}  // namespace

int BareSend(const WireSendOptions& options) {
  const SocketLayer layer;
  const auto address = ParseAddress(options.to);
  const auto socket = OpenDatagramSender();
  if (!address || !socket) {
    std::fprintf(stderr, "veldrift-wire: %s\n",
                 address ? ErrorText().c_str() : "--to is no IPv4 address");
    return 1;
  }
  CodedFile coded;
  if (!OpenPictures(options, coded)) return 1;
  std::vector<FrameTimes> frames = TimesFor(options);
  const RunCost cost;
  Play(coded, options.fps, frames, [&](const AccessUnit& unit, size_t i) {
    SendFrame(*socket, {*address, kVideoPort}, unit, i);
    frames[i].sentNs = SteadyNanos();
  });
  return WriteSendLog(options.log, frames, cost.CpuSeconds(), cost.WallSeconds()) ? 0 : 1;
}

int BareReceive(const WireReceiveOptions& options) {
  const SocketLayer layer;
  const auto address = ParseAddress(options.bind);
  const auto socket =
      address ? OpenDatagramReceiver({*address, kVideoPort}, kReceiveBufferBytes) : nullptr;
  std::ofstream log(options.log);
  if (!socket || !log) {
    std::fprintf(stderr, "veldrift-wire: can't receive on %s into %s\n", options.bind.c_str(),
                 options.log.c_str());
    return 1;
  }
  log << "# receiving" << std::endl;
  const RunCost cost;
  uint64_t whole = 0;
  Assembly assembly;
  int64_t now = 0;
  LossSimulator loss(options.loss, [&](std::span<const std::byte> datagram) {
    if (const auto index = assembly.Add(datagram)) {
      log << *index << ' ' << now << '\n';
      ++whole;
    }
  });
  std::array<std::byte, kMaxDatagramBytes + 1> buffer;
  while (cost.WallSeconds() < options.seconds) {
    const std::ptrdiff_t length = socket->Receive(buffer, kSliceNanos);
    now = SteadyNanos();
    if (length >= 0) loss.Push(std::span(buffer).first(size_t(length)));
  }
  log << "# {\"cpu_s\": " << cost.CpuSeconds() << ", \"wall_s\": " << cost.WallSeconds()
      << ", \"whole\": " << whole << "}\n";
  return 0;
}

}  // namespace Veldrift
