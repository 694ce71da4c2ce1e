// The module that lets a phone steer the host stand-in, as the product's sibling does in a real
// host: the plug-in finds it among the loaded modules and hands it the phone's transport keys.
#include "tools/host/sibling/sibling.h"

#include <atomic>

#include "support/control_bridge.h"

namespace {

constexpr int32_t kNotDone = 1;
constexpr uint32_t kTableVersion = 1;

std::atomic<VdHostHandler> host{nullptr};

int32_t Invoke(int32_t operation) {
  const VdHostHandler handler = host;
  return handler != nullptr ? handler(operation) : kNotDone;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) void vd_ctrl_attach_host(VdHostHandler handler) {
  host = handler;
}

extern "C" __attribute__((visibility("default"))) const Veldrift::ControlBridge*
vd_ctrl_bridge_get() {
  static constexpr Veldrift::ControlBridge kTable = {&Invoke, kTableVersion};
  return &kTable;
}
