// Drives the module's table as a host does: startup, one or more instances, playback in the first,
// and everything back in reverse order, whatever happens in between. An object lives as long as the
// module is loaded once.
//
// Threads: Run belongs to the main thread, which also pushes; the module's clock thread calls back.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "exit_codes.h"
#include "frame_source.h"
#include "host_options.h"
#include "session/host_interface.h"
#include "sound_source.h"
#include "tools/platform/module_loader.h"

namespace Veldrift {

struct DriverCounters {
  uint64_t framesPushed = 0;
  uint64_t framesSkipped = 0;  // their time had passed
  uint64_t soundBlocks = 0;
  int64_t pushNs = 0;  // all pushes together
  int64_t longestPushNs = 0;
  int64_t clockTicks = 0;  // how far the module moved the host's clock
  int64_t playedNs = 0;
  size_t undisposed = 0;
  size_t wronglyDisposed = 0;
  int suitesHeld = 0;
};

class PluginDriver {
 public:
  // What happens is added to `counters`.
  PluginDriver(FrameSource& pictures, SoundSource* sound, AudioRoad road, DriverCounters& counters)
      : pictures_(pictures), sound_(sound), road_(road), counters_(counters) {}

  // Loads the module and makes `instances` instances. Otherwise `sentence` says why not.
  HostExit Open(const std::filesystem::path& module, const ModuleOptions& options, size_t instances,
                std::string& sentence);

  // Pushes until a limit is reached or `interrupted`.
  void Play(const PlayLimits& limits, const std::atomic<bool>& interrupted);

  // Takes everything down and unloads. Also after an Open that failed.
  void Close();

 private:
  HostExit Load(const std::filesystem::path& module, const ModuleOptions& options,
                std::string& sentence);
  bool AnswersQueries();
  HostExit MakeInstance(std::string& sentence);
  HostExit AskForModes(const Host::InstanceRecord& instance, std::string& sentence);
  Host::InstanceRecord& Playing() { return *instances_.front(); }
  void StartPlayback();
  void Pause();
  void StopPlayback();
  void PushFrame(uint32_t index);
  int64_t NextSoundNs() const;
  void PushSoundUpTo(int64_t playedNs);

  FrameSource& pictures_;
  SoundSource* const sound_;
  const AudioRoad road_;
  std::unique_ptr<LoadedModule> module_;
  Host::EntryFunction entry_ = nullptr;
  Host::TransmitTable table_{};
  Host::PluginRecord plugin_{};
  // At fixed addresses, since the module may remember them. The first one plays.
  std::vector<std::unique_ptr<Host::InstanceRecord>> instances_;
  int64_t startNs_ = 0;  // of the playback
  bool started_ = false;
  bool sourceEnded_ = false;
  bool paused_ = false;
  uint32_t samplesPerBlock_ = 0;
  uint64_t samplesPushed_ = 0;
  std::atomic<int64_t> clockTicks_{0};
  DriverCounters& counters_;
};

}  // namespace Veldrift
