#include "host_suites.h"

#include <cstring>

#include "frame_source.h"

namespace Veldrift {

namespace {

// What a host answers to a handle it doesn't know, or a suite that it hasn't.
constexpr Host::Error kErrorBadHandle = -1;
constexpr Host::Error kErrorNoSuite = -2;

constexpr int kToleratedShare = 100;  // of a second that pulled sound may be behind the clock

Host::Error DisposeFrame(Host::FrameHandle frame) {
  return HostSuites::Instance().Frames().Dispose(frame) ? Host::kNoError : kErrorBadHandle;
}

template <typename Value, typename Read>
Host::Error Answer(Host::FrameHandle frame, Value* out, Read read) {
  if (out == nullptr || !HostSuites::Instance().Frames().IsOut(frame)) return kErrorBadHandle;
  *out = read(*frame);
  return Host::kNoError;
}

Host::Error GetPixels(Host::FrameHandle frame, int32_t, char** pixels) {
  return Answer(frame, pixels, [](auto& f) { return reinterpret_cast<char*>(f.pixels.data()); });
}

Host::Error GetBounds(Host::FrameHandle frame, Host::Rect* bounds) {
  return Answer(frame, bounds, [](auto& f) { return Host::Rect{0, 0, f.width, f.height}; });
}

Host::Error GetRowBytes(Host::FrameHandle frame, int32_t* rowBytes) {
  return Answer(frame, rowBytes, [](auto& f) { return f.rowBytes; });
}

Host::Error GetPixelFormat(Host::FrameHandle frame, uint32_t* format) {
  return Answer(frame, format, [](auto&) { return Host::kPixelFormatBgra; });
}

Host::Error GetTicksPerSecond(int64_t* ticksPerSecond) {
  *ticksPerSecond = kTicksPerSecond;
  return Host::kNoError;
}

constexpr Host::PpixSuite kPpixSuite = {DisposeFrame, GetPixels, GetBounds, GetRowBytes,
                                        GetPixelFormat};
constexpr Host::TimeSuite kTimeSuite = {GetTicksPerSecond};

bool Names(const char* name, int32_t version, const char* suite, int32_t suiteVersion) {
  return std::strcmp(name, suite) == 0 && version == suiteVersion;
}

}  // namespace

HostSuites& HostSuites::Instance() {
  static HostSuites suites;
  return suites;
}

Host::Error HostSuites::PullSound(int32_t playID, int64_t, float** buffers, uint32_t frameCount) {
  HostSuites& suites = Instance();
  const MutexLock lock(suites.mutex_);
  if (playID == 0 || suites.sound_ == nullptr || buffers == nullptr) return kErrorBadHandle;
  suites.CatchUpWithClock();
  suites.sound_->Next(buffers, frameCount);
  suites.samplesPulled_ += frameCount;
  return Host::kNoError;
}

Host::Error HostSuites::Acquire(const char* name, int32_t version, const void** suite) {
  static constexpr Host::AudioSuite kAudioSuite = {PullSound};
  const void* found = nullptr;
  if (Names(name, version, Host::kPpixSuiteName, Host::kPpixSuiteVersion)) found = &kPpixSuite;
  if (Names(name, version, Host::kAudioSuiteName, Host::kAudioSuiteVersion)) found = &kAudioSuite;
  if (Names(name, version, Host::kTimeSuiteName, Host::kTimeSuiteVersion)) found = &kTimeSuite;
  if (found == nullptr) return kErrorNoSuite;
  *suite = found;
  const MutexLock lock(Instance().mutex_);
  ++Instance().held_;
  return Host::kNoError;
}

Host::Error HostSuites::Release(const char*, int32_t) {
  const MutexLock lock(Instance().mutex_);
  --Instance().held_;
  return Host::kNoError;
}

const Host::Utilities& HostSuites::Utilities() const {
  static Host::SuiteAccess access = {Acquire, Release};
  static constexpr Host::Utilities kUtilities = {[] { return &access; }};
  return kUtilities;
}

void HostSuites::SetSound(SoundSource* sound, std::function<int64_t()> clockTicks) {
  const MutexLock lock(mutex_);
  sound_ = sound;
  clockTicks_ = std::move(clockTicks);
  samplesPulled_ = 0;
}

// Who pulls one frame's sound a frame, and waits a little longer than a frame each time, falls
// behind the clock.
void HostSuites::CatchUpWithClock() {
  const HostSoundFormat format = sound_->Format();
  const auto due = int64_t(double(clockTicks_()) * format.sampleRate / double(kTicksPerSecond));
  const int64_t behind = due - samplesPulled_;
  if (behind < format.sampleRate / kToleratedShare) return;
  std::vector<std::vector<float>> unheard(size_t(format.channels),
                                          std::vector<float>(size_t(behind)));
  std::vector<float*> buffers;
  for (auto& channel : unheard) buffers.push_back(channel.data());
  sound_->Next(buffers.data(), uint32_t(behind));
  samplesPulled_ = due;
}

int HostSuites::SuitesHeld() const {
  const MutexLock lock(mutex_);
  return held_;
}

}  // namespace Veldrift
