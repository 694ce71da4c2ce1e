#pragma once

#include <cstdint>
#include <string>

namespace Veldrift {

// What the session sets for every stream.
inline constexpr uint32_t kWirePacerBitrate = 300'000'000;

struct WireSendOptions {
  std::string coded, to, log;
  double mbps = 20;  // of generated pictures, without a file
  double fps = 60;
  double seconds = 10;
};

// 0, or 1 after a sentence on the standard error.
int WireSend(const WireSendOptions& options);

}  // namespace Veldrift
