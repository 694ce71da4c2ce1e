#include "plugin_driver.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "host_suites.h"
#include "platform/file.h"
#include "support/clock.h"

namespace Veldrift {

namespace {

constexpr int32_t kPlayId = 1;
constexpr int64_t kLongestSleepNs = 50 * kNanosPerMilli;

int64_t TicksToNanos(int64_t ticks) {
  return int64_t(double(ticks) * 1e9 / double(kTicksPerSecond));
}

int64_t NanosOrNever(double seconds) { return seconds > 0 ? int64_t(seconds * 1e9) : INT64_MAX; }

}  // namespace

HostExit PluginDriver::Open(const std::filesystem::path& module, const ModuleOptions& options,
                            size_t instances, std::string& sentence) {
  HostExit exit = Load(module, options, sentence);
  while (exit == kExitGood && instances_.size() < instances) exit = MakeInstance(sentence);
  return exit;
}

HostExit PluginDriver::Load(const std::filesystem::path& module, const ModuleOptions& options,
                            std::string& sentence) {
  std::string reason;
  module_ = LoadModule(module, reason, options);
  if (!module_) {
    sentence = "can't load the module " + PathText(module) + ": " + reason;
    return kExitNoModule;
  }
  entry_ = reinterpret_cast<Host::EntryFunction>(module_->FindSymbol(Host::kEntryExport));
  if (entry_ == nullptr || entry_(nullptr, 1, nullptr, &table_) != Host::kNoError ||
      table_.Startup == nullptr) {
    sentence = "the module " + PathText(module) + " has no working " + Host::kEntryExport;
    return kExitNoModule;
  }
  if (table_.Startup(&plugin_) != Host::kNoError || !AnswersQueries()) {
    sentence = "the module's startup failed";
    return kExitNoModule;
  }
  started_ = true;
  return kExitGood;
}

// What a host asks before it makes an instance, and the two slots that mean nothing.
bool PluginDriver::AnswersQueries() {
  int32_t reset = -1, playback = -1, scrubbing = -1;
  table_.NeedsReset(&reset);
  table_.SupportsPlayback(&playback);
  table_.SupportsScrubbing(&scrubbing);
  return reset == 0 && playback == 1 && scrubbing == 1 && table_.Unused15() == Host::kNoError &&
         table_.Unused16() == Host::kNoError;
}

HostExit PluginDriver::MakeInstance(std::string& sentence) {
  const bool first = instances_.empty();
  auto instance = std::make_unique<Host::InstanceRecord>();
  instance->utilities = &HostSuites::Instance().Utilities();
  instance->ticksPerFrame = pictures_.Format().ticksPerFrame;
  if (sound_ != nullptr) {
    instance->playID = first && road_ == AudioRoad::Pull ? kPlayId : 0;
    instance->sampleRate = float(sound_->Format().sampleRate);
    instance->channels = uint32_t(sound_->Format().channels);
  }
  const Host::Error error = table_.CreateInstance(instance.get());
  if (error != Host::kNoError) {
    sentence = "the module made no instance: error " + std::to_string(error);
    return kExitRefused;
  }
  instances_.push_back(std::move(instance));
  return AskForModes(*instances_.back(), sentence);
}

// As a host asks: mode after mode until the module has no more.
HostExit PluginDriver::AskForModes(const Host::InstanceRecord& instance, std::string& sentence) {
  Host::VideoMode video{};
  Host::AudioMode audio{};
  int32_t videoModes = 0, audioModes = 0;
  bool bgra = false;
  while (table_.QueryVideoMode(&instance, videoModes, &video) == Host::kNoError) {
    bgra = bgra || video.pixelFormat == Host::kPixelFormatBgra;
    ++videoModes;
  }
  while (table_.QueryAudioMode(&instance, audioModes, &audio) == Host::kNoError) ++audioModes;
  if (bgra && audioModes > 0) return kExitGood;
  sentence = "the module offers no video in BGRA, or no sound";
  return kExitRefused;
}

void PluginDriver::StartPlayback() {
  if (road_ == AudioRoad::Pull) {
    HostSuites::Instance().SetSound(sound_, [this] { return clockTicks_.load(); });
  }
  for (auto& instance : instances_) {
    table_.ActivateDeactivate(instance.get(), sound_ != nullptr ? 1 : 0, 1);
  }
  Host::ClockRecord clock{};
  clock.callback = [](void* data, int64_t ticks) {
    static_cast<PluginDriver*>(data)->clockTicks_ += ticks;
  };
  clock.callbackData = this;
  clock.mode = Host::kPlayModePlaying;
  startNs_ = SteadyNanos();  // pictures, sound and the host's clock count from here
  table_.StartClock(&Playing(), &clock);
  if (sound_ == nullptr || road_ != AudioRoad::Push) return;
  Host::AudioStart start{};
  if (table_.StartPushAudio(&Playing(), &start) == Host::kNoError) {
    samplesPerBlock_ = uint32_t(std::max(0, start.samplesPerFrame));
  }
}

// No picture and no sound comes any more, and the clock stands.
void PluginDriver::Pause() {
  if (std::exchange(paused_, true)) return;
  if (sound_ != nullptr && road_ == AudioRoad::Push) table_.StopPushAudio(&Playing());
  table_.StopClock(&Playing());
}

void PluginDriver::StopPlayback() {
  Pause();
  for (auto& instance : instances_) table_.ActivateDeactivate(instance.get(), 0, 0);
  HostSuites::Instance().SetSound(nullptr, nullptr);
  counters_.clockTicks += clockTicks_;
}

// When the next block's first sample is due.
int64_t PluginDriver::NextSoundNs() const {
  if (samplesPerBlock_ == 0) return INT64_MAX;
  return int64_t(double(samplesPushed_) * 1e9 / sound_->Format().sampleRate);
}

void PluginDriver::PushSoundUpTo(int64_t playedNs) {
  if (NextSoundNs() > playedNs) return;
  const HostSoundFormat format = sound_->Format();
  std::vector<std::vector<float>> planes(size_t(format.channels),
                                         std::vector<float>(samplesPerBlock_));
  std::vector<float*> buffers;
  for (auto& plane : planes) buffers.push_back(plane.data());
  while (NextSoundNs() <= playedNs) {
    sound_->Next(buffers.data(), samplesPerBlock_);
    const Host::AudioBlock block{buffers.data(), samplesPerBlock_, uint32_t(format.channels)};
    table_.PushAudio(&Playing(), &block);
    samplesPushed_ += samplesPerBlock_;
    ++counters_.soundBlocks;
  }
}

void PluginDriver::PushFrame(uint32_t index) {
  const PictureFormat format = pictures_.Format();
  const Host::FrameHandle frame = HostSuites::Instance().Frames().Take(format.width, format.height);
  if (!pictures_.Paint(index, frame->pixels.data(), frame->rowBytes)) {
    HostSuites::Instance().Frames().Dispose(frame);
    sourceEnded_ = true;
    return;
  }
  const Host::FrameEntry entry{frame};
  const Host::FrameList list{1, &entry};
  const int64_t before = SteadyNanos();
  table_.PushVideo(&Playing(), &list);
  const int64_t took = SteadyNanos() - before;
  ++counters_.framesPushed;
  counters_.pushNs += took;
  counters_.longestPushNs = std::max(counters_.longestPushNs, took);
}

void PluginDriver::Play(const PlayLimits& limits, const std::atomic<bool>& interrupted) {
  StartPlayback();
  const int64_t ticksPerFrame = pictures_.Format().ticksPerFrame;
  const int64_t periodNs = TicksToNanos(ticksPerFrame);
  const int64_t limitNs = NanosOrNever(limits.seconds);
  const int64_t pauseNs = NanosOrNever(limits.pauseAfter);
  uint64_t index = 0;
  while (!interrupted && !sourceEnded_ && (limits.frames == 0 || index < limits.frames)) {
    const int64_t playedNs = SteadyNanos() - startNs_;
    if (playedNs >= limitNs) break;
    if (playedNs >= pauseNs) {
      Pause();
      SystemClock().SleepFor(kLongestSleepNs);
      continue;
    }
    const int64_t dueNs = int64_t(double(index) * double(ticksPerFrame) * 1e9 / kTicksPerSecond);
    PushSoundUpTo(playedNs);
    if (playedNs < dueNs) {
      const int64_t nextNs = std::min(dueNs, NextSoundNs());
      SystemClock().SleepFor(std::clamp<int64_t>(nextNs - playedNs, 0, kLongestSleepNs));
      continue;
    }
    if (playedNs >= dueNs + periodNs) {  // its time has passed
      ++index;
      ++counters_.framesSkipped;
      continue;
    }
    PushFrame(uint32_t(index++));
  }
  counters_.playedNs += SteadyNanos() - startNs_;
  StopPlayback();
}

void PluginDriver::Close() {
  for (; !instances_.empty(); instances_.pop_back()) {
    table_.DisposeInstance(instances_.back().get());
  }
  if (started_) table_.Shutdown();
  if (entry_ != nullptr) entry_(nullptr, 0, nullptr, &table_);
  started_ = false;
  entry_ = nullptr;
  module_.reset();
  counters_.undisposed = HostSuites::Instance().Frames().Undisposed();
  counters_.wronglyDisposed = HostSuites::Instance().Frames().WronglyDisposed();
  counters_.suitesHeld = HostSuites::Instance().SuitesHeld();
}

}  // namespace Veldrift
