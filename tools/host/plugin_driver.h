// Drives the module as a host does: startup, instances, playback in the first of them, and
// everything back in reverse order, whatever happens in between. An object lives as long as the
// module is loaded once.
//
// Threads: the main thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host_action.h"
#include "host_options.h"
#include "media_source.h"
#include "pairing_screen.h"
#include "player.h"
#include "plugin_table.h"

namespace Veldrift {

struct Sources {
  std::unique_ptr<FrameSource> pictures;
  std::unique_ptr<SoundSource> sound;  // null: a silent timeline
};

// Something that was done to the timeline.
struct DoneAction {
  double seconds = 0;  // since the round began
  std::string what;
  bool byPhone = false;  // else by the script
  int64_t place = 0;     // of the playhead, behind it
};

struct DriverCounters {
  PlayCounters play;  // of all players together
  int64_t playedNs = 0;
  size_t undisposed = 0;
  size_t wronglyDisposed = 0;
  int suitesHeld = 0;
  std::vector<DoneAction> actions;
};

class PluginDriver {
 public:
  // One of `sources` for each instance that plays. What happens is added to `counters`.
  PluginDriver(const HostOptions& options, std::vector<Sources>& sources, DriverCounters& counters)
      : options_(options), sources_(sources), counters_(counters) {}

  // Loads the module and makes the instances. Otherwise `sentence` says why not.
  HostExit Open(const std::filesystem::path& module, const ModuleOptions& options,
                std::string& sentence);

  // Plays until a limit is reached or `interrupted`.
  HostExit Play(const std::atomic<bool>& interrupted, PairingScreen& screen, std::string& sentence);

  // Takes everything down and unloads. Also after an Open that failed.
  void Close();

 private:
  bool Over(double seconds) const;
  HostExit Do(HostAction action, bool byPhone, std::string& sentence);
  HostExit DoTo(Player& player, const HostAction& action, std::string& sentence);
  void SwitchActivation(double seconds);
  double Seconds() const;
  Player& First() { return *players_.front(); }

  const HostOptions& options_;
  std::vector<Sources>& sources_;
  PluginTable table_;
  std::vector<std::unique_ptr<Player>> players_;  // the first `options_.playing` play
  int64_t startNs_ = 0;                           // of the playback
  size_t scriptAt_ = 0;
  int switches_ = 0;
  DriverCounters& counters_;
};

}  // namespace Veldrift
