#pragma once

#include <string>

namespace Veldrift {

struct WireSendOptions {
  std::string coded, to, log;
  double fps = 60;
  double seconds = 10;
};

// 0, or 1 after a sentence on the standard error.
int WireSend(const WireSendOptions& options);

}  // namespace Veldrift
