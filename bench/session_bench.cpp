// The session's own cost: from PushVideo to OnEncodedFrame, and from OnEncodedFrame to the whole
// frame at a receiver on loopback.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "bench/stub_encoder.h"
#include "net/framing.h"
#include "session/transmit_instance.h"
#include "support/paths.h"
#include "tests/support/scratch.h"
#include "tests/support/transport_probe.h"
#include "tools/receiver/media_receiver.h"
#include "tools/receiver/receive_stats.h"

namespace Veldrift {
namespace {

constexpr const char* kReceiver = "127.0.3.1";
constexpr double kPacerBitsPerSecond = 300e6;

// The host's side of one frame, which is never really disposed of.
struct Picture {
  static inline std::vector<char> pixels;
  static inline Host::Rect bounds{};

  static void Make(int width, int height) {
    pixels.assign(size_t(width) * height * 4, 0x55);
    bounds = {0, 0, width, height};
  }
};

Host::Error GetPixels(Host::FrameHandle, int32_t, char** pixels) {
  *pixels = Picture::pixels.data();
  return Host::kNoError;
}
Host::Error GetBounds(Host::FrameHandle, Host::Rect* bounds) {
  *bounds = Picture::bounds;
  return Host::kNoError;
}
Host::Error GetRowBytes(Host::FrameHandle, int32_t* rowBytes) {
  *rowBytes = Picture::bounds.right * 4;
  return Host::kNoError;
}
Host::Error GetPixelFormat(Host::FrameHandle, uint32_t* format) {
  *format = Host::kPixelFormatBgra;
  return Host::kNoError;
}
Host::Error Dispose(Host::FrameHandle) { return Host::kNoError; }
constexpr Host::PpixSuite kPpix{Dispose, GetPixels, GetBounds, GetRowBytes, GetPixelFormat};

Host::Error AcquireSuite(const char* name, int32_t, const void** suite) {
  if (std::string(name) != Host::kPpixSuiteName) return -1;
  *suite = &kPpix;
  return Host::kNoError;
}
Host::Error ReleaseSuite(const char*, int32_t) { return Host::kNoError; }
constexpr Host::SuiteAccess kSuites{AcquireSuite, ReleaseSuite};

// A running instance whose media goes to `address`.
class Session {
 public:
  explicit Session(size_t accessUnitBytes, const std::string& address = kReceiver) {
    TransportProbe::ChoosePort(shared_, 0);
    SessionServices services{shared_};
    services.createDefaultEncoder = [accessUnitBytes] {
      return std::make_unique<StubEncoder>(accessUnitBytes);
    };
    instance_ = std::make_unique<TransmitInstance>(&kSuites, std::move(services));
    instance_->Start();
    TransportProbe::AssumePeer(shared_, *ParseAddress(address));
  }
  ~Session() {
    instance_.reset();
    shared_.Shutdown();
  }

  TransmitInstance& Instance() { return *instance_; }
  SharedTransport& Shared() { return shared_; }

 private:
  ScratchHome home_;
  SharedTransport shared_;
  std::unique_ptr<TransmitInstance> instance_;
};

void BM_PushVideo(benchmark::State& state) {
  Picture::Make(int(state.range(0)), int(state.range(0)) * 9 / 16);
  Session session(1);
  int anything = 0;
  const Host::FrameEntry entry{reinterpret_cast<Host::FrameHandle>(&anything)};
  const Host::FrameList frames{1, &entry};
  for (auto _ : state) session.Instance().PushVideo(&frames);
}
BENCHMARK(BM_PushVideo)->Arg(1920)->Arg(3840)->Unit(benchmark::kMicrosecond);

// Three seconds of frames at 60 a second.
void BM_EndToEnd(benchmark::State& state) {
  constexpr int kFrames = 180;
  constexpr int64_t kPeriodNanos = kNanosPerSecond / 60;
  const std::vector<uint8_t> accessUnit(size_t(state.range(0)) * 1000, 0x42);
  for (auto _ : state) {
    std::vector<std::atomic<int64_t>> wholeNs(kFrames);
    MediaReceiverOptions options;
    options.bindAddress = *ParseAddress(kReceiver);
    MediaReceiver receiver(options);
    std::string error;
    if (receiver.Open(error) != MediaReceiver::OpenResult::Opened) {
      state.SkipWithError(error.c_str());
      return;
    }
    receiver.Start([&](WholeFrame&& frame) {
      if (frame.timestamp < kFrames) wholeNs[frame.timestamp] = frame.wholeNs;
    });
    Session session(1);
    session.Shared().GetPacer().SetBitrate(uint32_t(kPacerBitsPerSecond));
    std::vector<int64_t> startNs(kFrames);
    const int64_t start = SteadyNanos();
    for (int i = 0; i < kFrames; ++i) {
      SystemClock().SleepFor(std::max<int64_t>(0, start + i * kPeriodNanos - SteadyNanos()));
      startNs[i] = SteadyNanos();
      session.Instance().OnEncodedFrame(accessUnit.data(), accessUnit.size(), true, uint64_t(i));
    }
    SystemClock().SleepFor(200 * kNanosPerMilli);
    receiver.Stop();

    DelayStats delays;
    for (int i = 0; i < kFrames; ++i) {
      if (wholeNs[i] != 0) delays.Add(wholeNs[i] - startNs[i]);
    }
    // A whole frame needs its data fragments only; 20 ms of the rate go at once.
    const double burst = kPacerBitsPerSecond / 8 * 0.02;
    const double wire = double(accessUnit.size() + DataFragmentCount(accessUnit.size()) * 26);
    state.SetIterationTime(double(SteadyNanos() - start) / 1e9);
    state.counters["whole_of_180"] = double(delays.Count());
    state.counters["p50_ms"] = delays.PercentileMs(50);
    state.counters["p99_ms"] = delays.PercentileMs(99);
    state.counters["pacer_ms"] = std::max(0.0, wire - burst) * 8e3 / kPacerBitsPerSecond;
  }
}
BENCHMARK(BM_EndToEnd)->Arg(60)->Arg(300)->Arg(600)->Iterations(1)->UseManualTime();

}  // namespace
}  // namespace Veldrift
