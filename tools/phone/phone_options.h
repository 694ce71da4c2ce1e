// The command line of veldrift-phone.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "tools/receiver/adaptation.h"
#include "tools/receiver/loss_simulator.h"
#include "tools/receiver/phone_link.h"
#include "verdict.h"
#include "web_options.h"

namespace Veldrift {

struct PhoneOptions : LinkOptions {
  bool discover = false;  // finds the plug-in, whose address isn't known, on the network
  std::string plugin;     // the installation to find, also when it moves; empty: any

  std::vector<std::string> selfTests;  // run instead of watching the stream
  std::filesystem::path pluginLog;     // where their verdicts stand

  LossSettings loss;
  int patienceMs = 60;  // how long a whole frame waits for older ones
  std::filesystem::path record;
  bool live = false;       // a stream on standard output; all else goes to standard error
  bool view = false;       // a window with picture and sound
  bool overwrite = false;  // recordings that exist
  std::filesystem::path snapshots;
  double snapshotEvery = 0;  // seconds; 0: at growing distances
  Expectations expected;
  bool adapt = false;  // asks for what the network carries
  AdaptationLimits adaptation{0, AdaptationLimits{}.quality};
  bool noReconnect = false;  // the connection's end is the run's
  bool json = false;
  WebOptions web;
};

// The exit code to end with, if the program isn't to run: --help, or a bad option, which has been
// answered by then.
std::optional<int> ParsePhoneOptions(int argc, char** argv, PhoneOptions& options);

}  // namespace Veldrift
