#include "bench/wire/send.h"

#include <cstdio>
#include <memory>
#include <vector>

#include "bench/stub_encoder.h"
#include "bench/wire/play.h"
#include "net/control_protocol.h"
#include "net/media_datagram.h"
#include "platform/socket.h"
#include "session/transmit_instance.h"
#include "tests/support/scratch.h"
#include "tests/support/test_phone.h"

namespace Veldrift {

namespace {

// The transport's sender, with a note of when each frame's last datagram was handed to the socket.
Pacer::Sender NotingSender(SharedTransport& shared, std::vector<FrameTimes>& frames) {
  return [&shared, &frames](Datagrams datagrams) {
    const DatagramsTaken taken = shared.SendDatagrams(datagrams, kVideoPort);
    const int64_t now = SteadyNanos();
    for (const std::span<const std::byte> bytes : datagrams) {
      const auto datagram = ParseDatagram(bytes);
      if (datagram && datagram->header.fragmentIndex + 1 == datagram->header.fragmentCount) {
        // The time stamp is the frame's index here.
        frames[datagram->header.timestamp].sentNs = now;
      }
    }
    return taken;
  };
}

}  // namespace

int WireSend(const WireSendOptions& options) {
  const auto address = ParseAddress(options.to);
  if (!address) std::fprintf(stderr, "veldrift-wire: --to is no IPv4 address\n");
  CodedFile coded;
  if (!address || !OpenPictures(options, coded)) return 1;
  std::vector<FrameTimes> frames = TimesFor(options);

  ScratchHome home;
  SharedTransport shared(SystemClock(), 0);
  const auto shown = std::make_shared<ShownCode>();
  shared.SetPairingDialogFactory(ShowTo(shown));
  SessionServices services{shared};
  services.createDefaultEncoder = [] { return std::make_unique<StubEncoder>(); };
  TransmitInstance instance(nullptr, std::move(services));
  Pacer& pacer = shared.GetPacer();
  pacer.Stop();
  pacer.SetBitrate(kWirePacerBitrate);
  pacer.Start(NotingSender(shared, frames), nullptr);
  while (shared.ListeningPort() == 0) SystemClock().SleepFor(kNanosPerMilli);
  TestPhone phone = TestPhone::Connect(shared.ListeningPort(), options.to);
  if (PairByCode(phone, *shown).empty()) {
    std::fprintf(stderr, "veldrift-wire: can't connect from %s\n", options.to.c_str());
    return 1;
  }
  phone.NextOf(kTransmitState);  // behind the whole greeting

  const RunCost cost;
  Play(coded, options.fps, frames, [&](const AccessUnit& unit, size_t i) {
    instance.OnEncodedFrame(unit.bytes.data(), unit.bytes.size(), unit.keyFrame, i);
  });
  SystemClock().SleepFor(200 * kNanosPerMilli);
  const double wall = cost.WallSeconds();
  const double cpu = cost.CpuSeconds();
  shared.Shutdown();
  return WriteSendLog(options.log, frames, cpu, wall) ? 0 : 1;
}

}  // namespace Veldrift
