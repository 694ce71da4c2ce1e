#include "host_suites.h"

#include <cstring>
#include <string>

#include "fault_book.h"
#include "media_source.h"

namespace Veldrift {

namespace {

// What a host answers to a handle it doesn't know, or a suite that it hasn't.
constexpr Host::Error kErrorBadHandle = -1;
constexpr Host::Error kErrorNoSuite = -2;

struct SuiteName {
  const char* name;
  int32_t version;
};
constexpr std::array kNames = {SuiteName{Host::kPpixSuiteName, Host::kPpixSuiteVersion},
                               SuiteName{Host::kAudioSuiteName, Host::kAudioSuiteVersion},
                               SuiteName{Host::kTimeSuiteName, Host::kTimeSuiteVersion}};

}  // namespace

HostSuites& HostSuites::Instance() {
  static HostSuites suites;
  return suites;
}

void HostSuites::ExpectHeld(Suite suite) {
  if (held_[suite] > 0) return;
  FaultBook::Instance().Note("called the " + std::string(kNames[suite].name) +
                             ", which it had not acquired or had released");
}

// ---- What the suites do ------------------------------------------------------------------------

Host::Error HostSuites::DisposeFrame(Host::FrameHandle frame) {
  Instance().ExpectHeld(kPpix);
  return Instance().frames_.Dispose(frame) ? Host::kNoError : kErrorBadHandle;
}

template <typename Value, typename Read>
Host::Error HostSuites::Look(Host::FrameHandle frame, Value* out, Read read) {
  Instance().ExpectHeld(kPpix);
  if (out == nullptr || !Instance().frames_.IsOut(frame)) return kErrorBadHandle;
  *out = read(*frame);
  return Host::kNoError;
}

const Host::PpixSuite& HostSuites::Ppix() {
  static constexpr Host::PpixSuite kPpixSuite = {
      DisposeFrame,
      [](Host::FrameHandle frame, int32_t, char** pixels) {
        return Look(frame, pixels,
                    [](auto& f) { return reinterpret_cast<char*>(f.pixels.data()); });
      },
      [](Host::FrameHandle frame, Host::Rect* bounds) {
        return Look(frame, bounds, [](auto& f) { return f.bounds; });
      },
      [](Host::FrameHandle frame, int32_t* rowBytes) {
        return Look(frame, rowBytes, [](auto& f) { return f.rowBytes; });
      },
      [](Host::FrameHandle frame, uint32_t* format) {
        return Look(frame, format, [](auto& f) { return f.format; });
      }};
  return kPpixSuite;
}

Host::Error HostSuites::PullSound(int32_t playID, int64_t, float** buffers, uint32_t frameCount) {
  HostSuites& suites = Instance();
  suites.ExpectHeld(kAudio);
  const MutexLock lock(suites.mutex_);
  const auto play = suites.plays_.find(playID);
  if (play == suites.plays_.end() || buffers == nullptr) return kErrorBadHandle;
  return play->second->Pull(buffers, frameCount) ? Host::kNoError : kErrorBadHandle;
}

Host::Error HostSuites::GetTicksPerSecond(int64_t* ticksPerSecond) {
  Instance().ExpectHeld(kTime);
  *ticksPerSecond = kTicksPerSecond;
  return Host::kNoError;
}

void HostSuites::Announce(int32_t playID, PulledSound& sound) {
  const MutexLock lock(mutex_);
  plays_[playID] = &sound;
}

void HostSuites::Withdraw(int32_t playID) {
  const MutexLock lock(mutex_);
  plays_.erase(playID);
}

// ---- Who holds them ----------------------------------------------------------------------------

HostSuites::Suite HostSuites::SuiteOf(const char* name, int32_t version) {
  for (size_t i = 0; i < kSuites; ++i) {
    const bool same = name != nullptr && std::strcmp(name, kNames[i].name) == 0;
    if (same && version == kNames[i].version) return Suite(i);
  }
  return kSuites;
}

Host::Error HostSuites::Acquire(const char* name, int32_t version, const void** suite) {
  static constexpr Host::AudioSuite kAudioSuite = {PullSound};
  static constexpr Host::TimeSuite kTimeSuite = {GetTicksPerSecond};
  const std::array<const void*, kSuites> tables = {&Ppix(), &kAudioSuite, &kTimeSuite};
  const Suite wanted = SuiteOf(name, version);
  if (wanted == kSuites || suite == nullptr) return kErrorNoSuite;
  *suite = tables[wanted];
  ++Instance().held_[wanted];
  return Host::kNoError;
}

Host::Error HostSuites::Release(const char* name, int32_t version) {
  const Suite released = SuiteOf(name, version);
  if (released == kSuites) {
    FaultBook::Instance().Note("released a suite that this host doesn't have");
    return kErrorNoSuite;
  }
  if (--Instance().held_[released] >= 0) return Host::kNoError;
  ++Instance().held_[released];
  FaultBook::Instance().Note("released the " + std::string(kNames[released].name) +
                             " more often than it acquired it");
  return kErrorNoSuite;
}

int HostSuites::JudgeHeld() {
  int held = 0;
  for (size_t i = 0; i < kSuites; ++i) {
    if (held_[i] == 0) continue;
    FaultBook::Instance().Note("kept the " + std::string(kNames[i].name) +
                               " at the end, acquired " + std::to_string(held_[i]) +
                               " times more than released");
    held += held_[i];
  }
  return held;
}

const Host::Utilities& HostSuites::Utilities() const {
  static Host::SuiteAccess access = {Acquire, Release};
  static constexpr Host::Utilities kUtilities = {[] { return &access; }};
  return kUtilities;
}

}  // namespace Veldrift
