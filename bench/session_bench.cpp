// The session's own cost: from PushVideo to OnEncodedFrame, and from OnEncodedFrame to the whole
// frame at a receiver on loopback.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "bench/stub_encoder.h"
#include "net/control_protocol.h"
#include "net/framing.h"
#include "session/transmit_instance.h"
#include "support/paths.h"
#include "tests/support/scratch.h"
#include "tests/support/test_phone.h"
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

// A running instance whose media goes to `address`, or to the phone that pairs.
class Session {
 public:
  explicit Session(size_t accessUnitBytes,
                   const std::optional<std::string>& address = std::string(kReceiver)) {
    shared_.SetPairingDialogFactory(ShowTo(shown_));
    SessionServices services{shared_};
    services.createDefaultEncoder = [accessUnitBytes] {
      return std::make_unique<StubEncoder>(accessUnitBytes);
    };
    instance_ = std::make_unique<TransmitInstance>(&kSuites, std::move(services));
    instance_->Start();
    if (address) phone_ = PairPhone(*address);
  }
  ~Session() {
    instance_.reset();
    shared_.Shutdown();
  }

  TestPhone PairPhone(const std::string& from) {
    while (shared_.ListeningPort() == 0) std::this_thread::yield();
    TestPhone phone = TestPhone::Connect(shared_.ListeningPort(), from);
    PairByCode(phone, *shown_);
    phone.NextOf(kTransmitState);  // behind the whole greeting
    return phone;
  }

  TransmitInstance& Instance() { return *instance_; }
  SharedTransport& Shared() { return shared_; }

 private:
  ScratchHome home_;
  SocketLayer sockets_;
  const std::shared_ptr<ShownCode> shown_ = std::make_shared<ShownCode>();
  SharedTransport shared_{SystemClock(), 0};
  std::unique_ptr<TransmitInstance> instance_;
  TestPhone phone_{nullptr};  // where the media goes; nobody reads what it is told
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

// Null, and the benchmark skipped, if its ports are taken.
std::unique_ptr<MediaReceiver> OpenReceiver(benchmark::State& state) {
  MediaReceiverOptions options;
  options.bindAddress = *ParseAddress(kReceiver);
  auto receiver = std::make_unique<MediaReceiver>(options);
  std::string error;
  if (receiver->Open(error) == MediaReceiver::OpenResult::Opened) return receiver;
  state.SkipWithError(error.c_str());
  return nullptr;
}

// Three seconds of frames at 60 a second.
void BM_EndToEnd(benchmark::State& state) {
  constexpr int kFrames = 180;
  constexpr int64_t kPeriodNanos = kNanosPerSecond / 60;
  const std::vector<uint8_t> accessUnit(size_t(state.range(0)) * 1000, 0x42);
  for (auto _ : state) {
    std::vector<std::atomic<int64_t>> wholeNs(kFrames);
    const auto receiver = OpenReceiver(state);
    if (!receiver) return;
    receiver->Start([&](WholeFrame&& frame) {
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
    receiver->Stop();

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

// ---- Commands beside a stream -------------------------------------------------------------------

// Frames at 60 a second through a session, and how long each takes to a receiver on loopback.
class Playback {
 public:
  explicit Playback(Session& session) : session_(session), thread_([this] { Run(); }) {}
  ~Playback() {
    playing_ = false;
    thread_.join();
  }

 private:
  void Run() {
    constexpr int64_t kPeriodNanos = kNanosPerSecond / 60;
    int anything = 0;
    const Host::FrameEntry entry{reinterpret_cast<Host::FrameHandle>(&anything)};
    const Host::FrameList frames{1, &entry};
    for (int64_t due = SteadyNanos(); playing_; due += kPeriodNanos) {
      SystemClock().SleepFor(std::max<int64_t>(0, due - SteadyNanos()));
      session_.Instance().PushVideo(&frames);
    }
  }

  Session& session_;
  std::atomic<bool> playing_{true};
  std::thread thread_;
};

// From the framing to the whole frame, collected apart for quiet times and for those with commands.
class DelaySplit {
 public:
  void Note(const WholeFrame& frame) {
    if (!frame.sendTimeMicros) return;
    const auto wholeMicros = uint32_t(frame.wholeNs / kNanosPerMicro);
    const MutexLock lock(mutex_);
    delays_[commands_ ? 1 : 0].Add(int64_t{wholeMicros - *frame.sendTimeMicros} * kNanosPerMicro);
  }
  void WithCommands(bool commands) {
    const MutexLock lock(mutex_);
    commands_ = commands;
  }
  double PercentileMs(bool commands, double percent) {
    const MutexLock lock(mutex_);
    return delays_[commands ? 1 : 0].PercentileMs(percent);
  }

 private:
  Mutex mutex_;
  bool commands_ VD_GUARDED_BY(mutex_) = false;
  DelayStats delays_[2] VD_GUARDED_BY(mutex_);
};

// A hundred commands for a second, one after the other; how long each acknowledgement took.
bool SendCommands(TestPhone& phone, DelayStats& roundTrips) {
  constexpr int kCommands = 100;
  constexpr int64_t kPeriodNanos = 10 * kNanosPerMilli;
  const int64_t start = SteadyNanos();
  for (int i = 0; i < kCommands; ++i) {
    SystemClock().SleepFor(std::max<int64_t>(0, start + i * kPeriodNanos - SteadyNanos()));
    const int64_t sent = SteadyNanos();
    phone.SendCommand(kSetMaxResolution, std::string_view("\0\0", 2));
    if (!phone.NextOf(kCommandAck)) return false;
    roundTrips.Add(SteadyNanos() - sent);
  }
  return true;
}

// 1080p60 with 60 KB a frame, whose encoder costs nothing; a second with a hundred commands and one
// without in turn.
void BM_CommandsBesideStream(benchmark::State& state) {
  constexpr int kTurns = 8;
  Picture::Make(1920, 1080);
  for (auto _ : state) {
    const auto receiver = OpenReceiver(state);
    if (!receiver) return;
    DelaySplit video;
    receiver->Start([&](WholeFrame&& frame) { video.Note(frame); });
    Session session(60'000, std::nullopt);
    TestPhone phone = session.PairPhone(kReceiver);
    DelayStats roundTrips;
    const int64_t start = SteadyNanos();
    {
      const Playback playback(session);
      SystemClock().SleepFor(kNanosPerSecond / 2);  // over the first frames' settings
      for (int turn = 0; turn < kTurns; ++turn) {
        video.WithCommands(true);
        if (!SendCommands(phone, roundTrips)) state.SkipWithError("the phone was dropped");
        video.WithCommands(false);
        SystemClock().SleepFor(kNanosPerSecond);
      }
    }
    receiver->Stop();
    state.SetIterationTime(double(SteadyNanos() - start) / 1e9);
    state.counters["ack_p50_ms"] = roundTrips.PercentileMs(50);
    state.counters["ack_p99_ms"] = roundTrips.PercentileMs(99);
    state.counters["video_p99_ms"] = video.PercentileMs(false, 99);
    state.counters["video_p99_commands_ms"] = video.PercentileMs(true, 99);
  }
}
BENCHMARK(BM_CommandsBesideStream)->Iterations(1)->UseManualTime();

}  // namespace
}  // namespace Veldrift
