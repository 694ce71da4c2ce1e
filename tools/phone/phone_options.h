// The command line of veldrift-phone.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/socket.h"
#include "tools/receiver/commands.h"
#include "tools/receiver/loss_simulator.h"

namespace Veldrift {

struct PhoneOptions {
  Ipv4Endpoint host;         // unless it is to be found
  bool discover = false;     // finds it on the network
  std::string plugin;        // the installation to find; empty: any
  uint32_t bindAddress = 0;  // network byte order; 0 is any address
  std::string id = "veldrift-phone";
  std::string name = "Phone stand-in";
  std::filesystem::path tokenFile;
  std::string code;
  std::filesystem::path codeFromLog;
  double waitSeconds = 10;  // for the plug-in, and for the code

  std::vector<Command> commands;       // sent once paired, in this order
  int commandIntervalMs = 0;           // from one to the next
  std::vector<std::string> selfTests;  // run instead of watching the stream
  std::filesystem::path pluginLog;     // where their verdicts stand

  LossSettings loss;
  int patienceMs = 60;  // how long a whole frame waits for older ones
  std::filesystem::path record;
  std::filesystem::path snapshots;
  double seconds = 0;  // 0: until Ctrl-C or the plug-in's end
  bool json = false;
};

// The exit code to end with, if the program isn't to run: --help, or a bad option, which has been
// answered by then.
std::optional<int> ParsePhoneOptions(int argc, char** argv, PhoneOptions& options);

}  // namespace Veldrift
