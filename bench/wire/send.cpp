#include "bench/wire/send.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <fstream>
#include <memory>
#include <vector>

#include "bench/stub_encoder.h"
#include "bench/wire/coded_file.h"
#include "net/media_datagram.h"
#include "platform/system.h"
#include "session/transmit_instance.h"
#include "tests/support/scratch.h"
#include "tests/support/transport_probe.h"

namespace Veldrift {

namespace {

struct FrameTimes {
  int64_t startNs = 0;
  std::atomic<int64_t> sentNs{0};  // of its last datagram; 0: it never left
  size_t bytes = 0;
  bool keyFrame = false;
};

// The transport's sender, with a note of when each frame's last datagram was handed to the socket.
Pacer::Sender NotingSender(SharedTransport& shared, std::vector<FrameTimes>& frames) {
  return [&shared, &frames](std::span<const std::byte> bytes) {
    const bool sent = TransportProbe::Transport(shared).SendDatagram(bytes, kVideoPort);
    const auto datagram = ParseDatagram(bytes);
    if (datagram && datagram->header.fragmentIndex + 1 == datagram->header.fragmentCount) {
      // The time stamp is the frame's index here.
      frames[datagram->header.timestamp].sentNs = SteadyNanos();
    }
    return sent;
  };
}

void Play(TransmitInstance& instance, const CodedFile& coded, double fps,
          std::vector<FrameTimes>& frames) {
  const double periodNanos = 1e9 / fps;
  const int64_t start = SteadyNanos();
  for (size_t i = 0; i < frames.size(); ++i) {
    const AccessUnit& unit = coded.Units()[i % coded.Units().size()];
    SystemClock().SleepFor(
        std::max<int64_t>(0, start + int64_t(double(i) * periodNanos) - SteadyNanos()));
    frames[i].bytes = unit.bytes.size();
    frames[i].keyFrame = unit.keyFrame;
    frames[i].startNs = SteadyNanos();
    instance.OnEncodedFrame(unit.bytes.data(), unit.bytes.size(), unit.keyFrame, i);
  }
}

}  // namespace

int WireSend(const WireSendOptions& options) {
  const auto address = ParseAddress(options.to);
  CodedFile coded;
  std::string error;
  std::ofstream log(options.log);
  if (!address) error = "--to is no IPv4 address";
  if (!log) error = "the log can't be written";
  if (!error.empty() || !coded.Open(options.coded, error)) {
    std::fprintf(stderr, "veldrift-wire: %s\n", error.c_str());
    return 1;
  }
  std::vector<FrameTimes> frames(size_t(std::max(1.0, options.seconds * options.fps)));

  ScratchHome home;
  SharedTransport shared;
  TransportProbe::ChoosePort(shared, 0);
  SessionServices services{shared};
  services.createDefaultEncoder = [] { return std::make_unique<StubEncoder>(); };
  TransmitInstance instance(nullptr, std::move(services));
  Pacer& pacer = shared.GetPacer();
  pacer.Stop();
  pacer.SetBitrate(300'000'000);
  pacer.Start(NotingSender(shared, frames), nullptr);
  TransportProbe::AssumePeer(shared, *address);

  const double cpuBefore = ProcessCpuSeconds();
  const int64_t start = SteadyNanos();
  Play(instance, coded, options.fps, frames);
  SystemClock().SleepFor(200 * kNanosPerMilli);
  const double wall = double(SteadyNanos() - start) / 1e9;
  const double cpu = ProcessCpuSeconds() - cpuBefore;
  shared.Shutdown();

  for (size_t i = 0; i < frames.size(); ++i) {
    log << i << ' ' << frames[i].startNs << ' ' << frames[i].sentNs << ' ' << frames[i].bytes << ' '
        << (frames[i].keyFrame ? 1 : 0) << '\n';
  }
  log << "# {\"cpu_s\": " << cpu << ", \"wall_s\": " << wall << ", \"frames\": " << frames.size()
      << "}\n";
  return 0;
}

}  // namespace Veldrift
