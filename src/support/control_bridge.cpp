#include "support/control_bridge.h"

#include <atomic>

#include "platform/module.h"

namespace Veldrift {
namespace {

constexpr const char* kBridgeExport = "vd_ctrl_bridge_get";
constexpr uint32_t kBridgeVersion = 1;

using GetBridge = const ControlBridge* (*)();

// Every thread that looks finds the same.
GetBridge FindBridge() {
  static std::atomic<GetBridge> found{nullptr};
  if (found == nullptr) {
    found = reinterpret_cast<GetBridge>(
        FindLoadedSymbol(BridgeModuleName(DetectHostApplication()), kBridgeExport));
  }
  return found;
}

}  // namespace

const char* BridgeModuleName(HostApplication host) {
  return host == HostApplication::AfterEffects ? "VeldriftAE.aex" : "VeldriftCtrl.acsrf";
}

bool CallCtrlBridge(BridgeOperation operation) {
  const GetBridge get = FindBridge();
  const ControlBridge* bridge = get == nullptr ? nullptr : get();
  if (bridge == nullptr || bridge->version != kBridgeVersion || bridge->invoke == nullptr) {
    return false;
  }
  return bridge->invoke(int32_t(operation)) == 0;
}

}  // namespace Veldrift
