// The command line of veldrift-host.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "support/paths.h"

namespace Veldrift {

enum class SoundChoice { Default, Tone, File, None };
enum class AudioRoad { Push, Pull };

// 0: no limit.
struct PlayLimits {
  uint64_t frames = 0;    // places in the timeline
  double seconds = 0;     // of the whole; else until Ctrl-C
  double pauseAfter = 0;  // seconds of playing; from then on the host stands still
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
  AudioRoad audioRoad = AudioRoad::Push;
  size_t instances = 1;  // the first one plays
  int rounds = 1;        // how often the module is loaded, played into and unloaded
  PlayLimits limits;     // of a round
  std::filesystem::path home;
  bool discovery = true;  // the module advertises itself, if its settings don't say otherwise
  HostApplication host = HostApplication::Premiere;
  bool qr = false;                     // shows what a phone needs to pair
  bool json = false;                   // the summary alone on standard output
  std::filesystem::path removeAtExit;  // the folder of the executable's other name
};

// The exit code to end with, if the program isn't to run: --help, or a bad option, which has been
// answered by then.
std::optional<int> ParseHostOptions(int argc, char** argv, HostOptions& options);

}  // namespace Veldrift
