#include "session/stress_driver.h"

#include <algorithm>
#include <array>
#include <span>
#include <utility>

#include "platform/system.h"
#include "session/frame_geometry.h"
#include "support/guarded.h"
#include "support/plugin_log.h"

namespace Veldrift {
namespace {

constexpr LogCategory kLog{kLogSubsystem, "transmit"};
constexpr const char* kVariable = "VD_STRESS";
constexpr size_t kPictureBytes = size_t{3840} * 2160 * 4;
constexpr uint32_t kBitrate = 150'000'000;
constexpr int32_t kFallbackFps = 25;
constexpr int32_t kLongGop = 600;
constexpr int64_t kTimestampRate = 60;  // frames a second
constexpr int64_t kFlipNanos = 2 * kNanosPerSecond;
constexpr int64_t kAliveNanos = 2 * kNanosPerSecond;
constexpr int64_t kPaceNanos = 5 * kNanosPerSecond;

constexpr std::array<FrameSize, 5> kSizes{
    {{720, 1280}, {540, 960}, {1080, 1920}, {480, 854}, {640, 1136}}};
constexpr std::array<FrameSize, 4> kLargeSizes{
    {{3840, 2160}, {2560, 1440}, {1920, 1080}, {3840, 2160}}};

std::span<const FrameSize> LadderOf(StressLevel level) {
  if (level.pro4K) return kLargeSizes;
  return kSizes;
}

// At most one driver runs in the process.
std::atomic<int> owner{0};

}  // namespace

StressLevel StressLevelOf(const std::optional<std::string>& text) {
  if (!text || text->empty() || text->front() == '0') return {};
  const char first = text->front();
  switch (const int level = first >= '1' && first <= '9' ? first - '0' : 1) {
    case 2:
      return {.level = level, .keyframes = true};
    case 3:
      return {.level = level, .keyframes = true, .flipRes = true};
    case 4:
      return {.level = level, .realistic = true};
    case 5:
      return {.level = level, .realistic = true, .pro4K = true, .keyframes = true};
    case 6:
      return {.level = level, .realistic = true, .pro4K = true, .keyframes = true, .flipRes = true};
    default:
      return {.level = level};
  }
}

void PaintStressPicture(uint8_t* pixels, uint32_t width, uint32_t height, uint64_t count) {
  const auto shift = uint32_t(count % 256) * 7;
  for (uint32_t y = 0; y < height; ++y) {
    for (uint32_t x = 0; x < width; ++x) {
      *pixels++ = uint8_t(shift + x);
      *pixels++ = uint8_t(y - shift);
      *pixels++ = uint8_t(x ^ y ^ shift);
      *pixels++ = 255;
    }
  }
}

StressDriver::~StressDriver() { Stop(); }

void StressDriver::StartIfAsked() {
  const StressLevel level = StressLevelOf(GetEnvironment(kVariable));
  if (level.level == 0 || stressThread_.joinable()) return;
  int nobody = 0;
  if (!owner.compare_exchange_strong(nobody, 1)) {
    PluginLog(
        kLog, kLogInfo,
        "[STRESS] another instance already owns the stress driver — this instance stays passive");
    return;
  }
  owns_ = true;
  stressStop_ = false;
  PluginLog(kLog, kLogInfo,
            "[STRESS] VD_STRESS=%d — starting synthetic stress driver (realistic=%d pro4K=%d "
            "keyframes=%d flipRes=%d). NOT for production.",
            level.level, level.realistic, level.pro4K, level.keyframes, level.flipRes);
  try {
    stressThread_ = std::thread([this, level] {
      // A driver that has failed, for want of memory, stands in nobody's way.
      if (!RunGuarded(kLog, "stress driver", [&] { Run(level); })) GiveUpOwnership();
    });
  } catch (...) {
    GiveUpOwnership();
    throw;
  }
}

void StressDriver::GiveUpOwnership() {
  if (owns_.exchange(false)) owner = 0;
}

void StressDriver::Stop() {
  stressStop_ = true;
  if (!stressThread_.joinable()) return;
  stressThread_.join();
  GiveUpOwnership();
}

void StressDriver::Run(StressLevel level) {
  picture_ = std::make_unique<uint8_t[]>(kPictureBytes);
  rung_ = 0;
  count_ = 0;
  ArmEncoder(level);
  lastFlipNanos_ = lastAliveNanos_ = clock_.NowNanos();
  while (!stressStop_) {
    const PipelineSeat::Reference pipeline = seat_.Current();
    if (!pipeline) {
      clock_.SleepFor(5 * kNanosPerMilli);
      continue;
    }
    PushFrame(*pipeline, level);
    if (level.flipRes) FlipIfDue(*pipeline, level);
    ++count_;
    SayAlive(level);
    Pace(level);
  }
  PluginLog(kLog, kLogInfo, "[STRESS] driver stopped after %llu frames",
            static_cast<unsigned long long>(count_));
  picture_.reset();
}

// Nothing has configured the encoder yet when no host pushes.
void StressDriver::ArmEncoder(StressLevel level) {
  constexpr int kTries = 200;
  const FrameSize first = LadderOf(level)[0];
  for (int i = 0; i < kTries && !stressStop_; ++i) {
    if (const PipelineSeat::Reference pipeline = seat_.Current()) {
      EncoderSettings settings;
      settings.width = first.width;
      settings.height = first.height;
      settings.bitrate = kBitrate;
      pipeline->ReconfigureInPlace(settings);
      PluginLog(kLog, kLogInfo,
                "[STRESS] initial encoder Configure %dx%d HEVC gop=%d (pro4K=%d) — encode path now "
                "armed",
                first.width, first.height, settings.gopSize, level.pro4K);
      return;
    }
    clock_.SleepFor(10 * kNanosPerMilli);
  }
}

void StressDriver::PushFrame(EncoderPipeline& pipeline, StressLevel level) {
  const FrameSize size = LadderOf(level)[rung_];
  const auto width = uint32_t(size.width);
  const auto height = uint32_t(size.height);
  PaintStressPicture(picture_.get(), width, height, count_);
  if (level.keyframes) pipeline.RequestIdr();
  pipeline.EncodeFrame(picture_.get(), width, height, size.width * 4,
                       int64_t(count_) * (kNanosPerSecond / kNanosPerMicro) / kTimestampRate);
}

void StressDriver::FlipIfDue(EncoderPipeline& pipeline, StressLevel level) {
  const int64_t now = clock_.NowNanos();
  if (now - lastFlipNanos_ <= kFlipNanos) return;
  lastFlipNanos_ = now;
  switch ((now / kFlipNanos) % 3) {
    case 0:
      FlipSize(pipeline, level);
      break;
    case 1: {
      const int32_t gopSize = pipeline.GetGopSize() < 2 ? kLongGop : 1;
      pipeline.SetGopSize(gopSize);
      PluginLog(kLog, kLogInfo, "[STRESS] flip gop -> %d", gopSize);
      break;
    }
    default: {
      const bool wasH264 = pipeline.GetCodec() == kCodecH264;
      pipeline.SetCodec(wasH264 ? kCodecHevc : kCodecH264);
      PluginLog(kLog, kLogInfo, "[STRESS] flip codec -> %s", wasH264 ? "HEVC" : "H264");
      break;
    }
  }
}

void StressDriver::FlipSize(EncoderPipeline& pipeline, StressLevel level) {
  const std::span<const FrameSize> ladder = LadderOf(level);
  rung_ = (rung_ + 1) % ladder.size();
  EncoderSettings settings;
  settings.width = ladder[rung_].width;
  settings.height = ladder[rung_].height;
  settings.fps = pipeline.GetEncoderFps();
  if (settings.fps == 0) settings.fps = kFallbackFps;
  settings.bitrate = pipeline.GetBitrate();
  if (settings.bitrate == 0) settings.bitrate = kBitrate;
  settings.gopSize = std::max(pipeline.GetGopSize(), 1);
  settings.codec = pipeline.GetCodec();
  settings.rateControl = pipeline.GetRateControl();
  pipeline.ReconfigureInPlace(settings);
  PluginLog(kLog, kLogInfo, "[STRESS] flip res -> %dx%d", settings.width, settings.height);
}

void StressDriver::SayAlive(StressLevel level) {
  const int64_t now = clock_.NowNanos();
  if (now - lastAliveNanos_ < kAliveNanos) return;
  lastAliveNanos_ = now;
  const FrameSize size = LadderOf(level)[rung_];
  PluginLog(kLog, kLogInfo, "[STRESS] alive: %llu synthetic frames pushed, current %dx%d",
            static_cast<unsigned long long>(count_), size.width, size.height);
}

// A host's rate wanders.
void StressDriver::Pace(StressLevel level) {
  if (!level.realistic) {
    std::this_thread::yield();
    return;
  }
  constexpr std::array<int64_t, 3> kMillis{33, 16, 8};
  const int64_t period = clock_.NowNanos() / kPaceNanos;
  const int64_t millis = level.pro4K ? (period % 2 != 0 ? 16 : 33) : kMillis[size_t(period % 3)];
  clock_.SleepFor(millis * kNanosPerMilli);
}

}  // namespace Veldrift
