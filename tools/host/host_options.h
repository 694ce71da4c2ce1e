// The command line of veldrift-host.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "host_action.h"
#include "support/paths.h"

namespace Veldrift {

enum class SoundChoice { Default, Tone, File, None };
enum class SoundRoad { Push, Pull };

// 0: no limit.
struct PlayLimits {
  uint64_t frames = 0;  // places in the timeline
  double seconds = 0;   // of the whole; else until Ctrl-C
};

// How a player plays. The last four are what a hard host does and an easy one doesn't.
struct PlayerWays {
  SoundRoad road = SoundRoad::Push;
  bool frames = false;      // odd lists, other formats, an origin that isn't 0, 0
  bool activation = false;  // is switched off and on while it plays
  bool callback = false;    // starts the clock twice, and stops it from inside its callback
  bool lock = false;        // the callback takes a lock that is held around slot 10
};

struct HostOptions {
  std::filesystem::path module;  // empty: Veldrift.prm beside the executable
  std::filesystem::path input;   // empty: the generated picture
  int width = 1280;
  int height = 720;
  double fps = 30;
  bool clapper = false;  // flashes and clicks
  bool stamp = false;    // stamps the pictures of a file
  SoundChoice sound = SoundChoice::Default;
  PlayerWays ways;
  size_t instances = 1;
  size_t playing = 1;   // of these, the first ones
  bool setup = false;   // opens the module's setup
  bool status = false;  // and shows what it says, where that is a text
  std::vector<ScriptedAction> script;
  int rounds = 1;     // how often the module is loaded, played into and unloaded
  PlayLimits limits;  // of a round
  std::filesystem::path home;
  bool discovery = true;  // the module advertises itself, if its settings don't say otherwise
  HostApplication host = HostApplication::Premiere;
  bool qr = false;                     // shows what a phone needs to pair
  bool temporaryHome = false;          // `home` is somebody's who removes it behind this process
  bool selfTest = false;               // tests what this machine can do with the module
  bool json = false;                   // the summary alone on standard output
  std::filesystem::path removeAtExit;  // the folder of the executable's other name
};

// The exit code to end with, if the program isn't to run: --help, or a bad option, which has been
// answered by then.
std::optional<int> ParseHostOptions(int argc, char** argv, HostOptions& options);

}  // namespace Veldrift
