// A sibling module for the tests of the control bridge.
#include "tests/support_layer/sibling/sibling.h"

#include "support/control_bridge.h"

namespace {

VdTestSibling sibling;
Veldrift::ControlBridge table;

int32_t Invoke(int32_t operation) {
  ++sibling.calls;
  sibling.lastOperation = operation;
  if (sibling.inside != nullptr) sibling.inside();
  return sibling.status;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) VdTestSibling* vd_test_sibling() {
  return &sibling;
}

extern "C" __attribute__((visibility("default"))) const Veldrift::ControlBridge*
vd_ctrl_bridge_get() {
  table = {sibling.hasInvoke ? &Invoke : nullptr, sibling.version};
  return sibling.handsOutTable ? &table : nullptr;
}
