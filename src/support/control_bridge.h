// The road into the host through a sibling plug-in of this product, which the host may have loaded
// beside this one and which has a way to drive the timeline.
//
// Threads: any.
#pragma once

#include <cstddef>
#include <cstdint>

#include "support/paths.h"

namespace Veldrift {

// What the sibling is asked to do. The transport operations have the order of the phone's opcodes
// from 0x20 on.
enum class BridgeOperation : int32_t {
  PlayPause = 0,
  StepForward,
  StepBack,
  JumpForward,
  JumpBack,
  GoToIn,
  GoToOut,
  ShuttleBack,
  ShuttleStop,
  ShuttleForward,
  NewClientNudge,  // render a frame, since a phone has just come
};

// The table that the sibling hands out: a binary interface between modules built apart.
struct ControlBridge {
  int32_t (*invoke)(int32_t operation);  // 0: done
  uint32_t version;                      // 1; any other is refused
};
static_assert(sizeof(void*) != 8 || offsetof(ControlBridge, version) == 8);

// The file name of the sibling in this host.
const char* BridgeModuleName(HostApplication host);

// True if the sibling took the operation. It is only looked for among the modules already loaded,
// at each call until it is found.
bool CallCtrlBridge(BridgeOperation operation);

}  // namespace Veldrift
