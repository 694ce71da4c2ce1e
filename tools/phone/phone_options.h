// The command line of veldrift-phone.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/socket.h"
#include "tools/receiver/loss_simulator.h"

namespace Veldrift {

struct PhoneOptions {
  Ipv4Endpoint host;
  uint32_t bindAddress = 0;  // network byte order; 0 is any address
  std::string id = "veldrift-phone";
  std::string name = "Phone stand-in";
  std::filesystem::path tokenFile;
  std::string code;
  std::filesystem::path codeFromLog;
  double waitSeconds = 10;  // for the plug-in, and for the code

  // Settings for the plug-in; what is absent isn't sent.
  std::string engine;
  std::optional<uint8_t> codec;
  std::optional<uint8_t> gopMode;
  std::optional<uint8_t> encoderMode;
  uint8_t quality = 75;
  std::optional<uint16_t> maxShortSide;
  std::vector<uint8_t> keys;  // opcodes

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
