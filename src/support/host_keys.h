// The host's own keyboard shortcuts, typed into whichever window has the input focus: the second
// road into the host, where no sibling module offers the first (support/control_bridge.h). While a
// window of the plug-in is in front, nothing is sent, and the log says so; on a system without a
// way to type neither, which it says once.
//
// Threads: any.
#pragma once

#include <cstdint>

#include "support/clock.h"

namespace Veldrift {

// Virtual keys in Windows' numbering.
enum VirtualKey : uint16_t {
  kKeyShift = 0x10,
  kKeySpace = 0x20,
  kKeyPageUp = 0x21,
  kKeyPageDown = 0x22,
  kKeyLeft = 0x25,
  kKeyRight = 0x27,
  kKeyI = 'I',
  kKeyJ = 'J',
  kKeyK = 'K',
  kKeyL = 'L',
  kKeyO = 'O',
};

// Down and up.
void SendKeyTap(VirtualKey key);
// The same with Shift held down around it, if `withShift`.
void SendKeyChord(VirtualKey key, bool withShift);

// The shortcut for one of the phone's transport opcodes, 0x20 to 0x29; others do nothing.
void SendHostKeys(uint8_t opcode);

// Moves the playhead one step and back, which makes the host render a frame. Blocks for 60 ms.
void NudgeHostByKeyboard(Clock& clock = SystemClock());

}  // namespace Veldrift
