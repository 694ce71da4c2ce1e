#include "self_check.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

#include "net/control_protocol.h"
#include "support/clock.h"

namespace Veldrift {

namespace {

constexpr std::array kBuiltInTests = {"P0.1", "P0.3", "P0.4", "P1.1", "P1.2",
                                      "P2.1", "P3",   "P6.1", "P6.2"};
constexpr double kTestSeconds = 30;
constexpr int64_t kLookNs = 20 * kNanosPerMilli;
constexpr int64_t kStreamNs = 5 * kNanosPerSecond;
// An encoder in software may take its time; one that says it can't has had its chance.
constexpr int64_t kPicturePatienceNs = 10 * kNanosPerSecond;
constexpr int64_t kRefusedPatienceNs = 2 * kNanosPerSecond;
// A stream from which nothing has come for so long has stopped.
constexpr int64_t kSilenceNs = 2 * kNanosPerSecond;

class CountingSource final : public FrameSource {
 public:
  CountingSource(std::unique_ptr<FrameSource> pictures, std::atomic<uint64_t>& count)
      : pictures_(std::move(pictures)), count_(count) {}

  PictureFormat Format() const override { return pictures_->Format(); }
  void SetFormat(const PictureFormat& format) override { pictures_->SetFormat(format); }
  bool Paint(int64_t place, uint32_t number, uint8_t* bgra, int rowBytes) override {
    ++count_;
    return pictures_->Paint(place, number, bgra, rowBytes);
  }

 private:
  const std::unique_ptr<FrameSource> pictures_;
  std::atomic<uint64_t>& count_;
};

std::string Live(const StreamCheck& check) {
  char text[128];
  std::snprintf(text, sizeof text, "%s  %.1f s  %llu pictures  %.1f Mbit/s", NameOf(check.codec),
                check.seconds, (unsigned long long)check.tally.frames, check.MegabitsPerSecond());
  return text;
}

}  // namespace

SelfCheck::SelfCheck(const std::filesystem::path& pluginLog, uint16_t controlPort,
                     const std::atomic<bool>& interrupted, bool quiet)
    : pluginLog_(pluginLog),
      interrupted_(interrupted),
      log_(pluginLog),
      status_(quiet),
      phone_(pluginLog, controlPort, interrupted) {}

SelfCheck::~SelfCheck() {
  if (thread_.joinable()) thread_.join();
}

std::unique_ptr<FrameSource> SelfCheck::Count(std::unique_ptr<FrameSource> pictures) {
  result_.sourceFps = pictures->Format().Fps();
  return std::make_unique<CountingSource>(std::move(pictures), pushed_);
}

void SelfCheck::Start() {
  thread_ = std::thread([this] {
    Run();
    phone_.Close();
    status_.Clear();
    done_ = true;
  });
}

SelfCheckResult SelfCheck::Finish() {
  if (thread_.joinable()) thread_.join();
  ReadLog();
  return std::move(result_);
}

void SelfCheck::Run() {
  ReadLog();
  Show("pairing");
  std::string sentence;
  if (phone_.Open(sentence)) {
    CheckStream(StreamCodec::H264);
    CheckStream(StreamCodec::Hevc);
    RunTests();
    result_.engines = phone_.Engines();
  } else {
    result_.phoneTrouble = sentence;
  }
  result_.interrupted = interrupted_;
}

// ---- Streams -----------------------------------------------------------------------------------

void SelfCheck::CheckStream(StreamCodec codec) {
  if (interrupted_) return;
  ReadLog();
  result_.log.resident.clear();
  result_.log.latches.clear();
  result_.log.stalls = 0;
  result_.log.noEncoder = false;
  StreamCheck check;
  check.codec = codec;
  if (AwaitPicture(codec)) Measure(check);
  ReadLog();
  const std::string encoder = phone_.Link().EncoderText();
  if (check.tally.firstNs != 0) check.encoder = encoder;
  check.resident = result_.log.resident;
  check.latches = result_.log.latches;
  check.stalls = result_.log.stalls;
  result_.streams.push_back(std::move(check));
}

bool SelfCheck::AwaitPicture(StreamCodec codec) {
  phone_.Ask(codec);
  const int64_t begin = SteadyNanos();
  while (!interrupted_ && phone_.Tally().firstNs == 0) {
    const int64_t waited = SteadyNanos() - begin;
    if (waited >= kPicturePatienceNs || phone_.Link().Ended()) return false;
    if (waited >= kRefusedPatienceNs && result_.log.noEncoder) return false;
    ReadLog();
    Show(std::string(NameOf(codec)) + "  waiting for a picture");
    SystemClock().SleepFor(kLookNs);
  }
  return !interrupted_;
}

void SelfCheck::Measure(StreamCheck& check) {
  const uint64_t pushedBefore = pushed_;
  const uint64_t lostBefore = phone_.FramesLost();
  int64_t now = 0;
  do {
    SystemClock().SleepFor(kLookNs);
    now = SteadyNanos();
    check.tally = phone_.Tally();
    check.seconds = double(now - check.tally.firstNs) / 1e9;
    ReadLog();
    Show(Live(check));
  } while (!interrupted_ && !phone_.Link().Ended() && now - check.tally.firstNs < kStreamNs);
  check.pushed = pushed_ - pushedBefore;
  check.lost = phone_.FramesLost() - lostBefore;
  check.stopped = now - check.tally.lastNs >= kSilenceNs || phone_.Link().Ended();
}

// ---- The rest ----------------------------------------------------------------------------------

void SelfCheck::RunTests() {
  SelfTests tests(pluginLog_);
  for (const char* id : kBuiltInTests) {
    if (interrupted_) return;
    Show(std::string("built-in test ") + id);
    const auto verdicts = tests.Run({id}, phone_.Link(), kTestSeconds, interrupted_);
    result_.verdicts.insert(result_.verdicts.end(), verdicts.begin(), verdicts.end());
  }
}

void SelfCheck::ReadLog() {
  for (const LogEntry& entry : log_.Take()) result_.log.Note(entry);
}

void SelfCheck::Show(const std::string& what) {
  status_.Show("veldrift-host: self-test: " + what, SteadyNanos());
}

}  // namespace Veldrift
