#pragma once

#include <string>

#include "tools/receiver/loss_simulator.h"

namespace Veldrift {

struct WireReceiveOptions {
  std::string bind, log;
  double seconds = 12;
  LossSettings loss;
};

// 0, or 1 after a sentence on the standard error.
int WireReceive(const WireReceiveOptions& options);

}  // namespace Veldrift
