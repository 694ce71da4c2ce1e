// Key presses as if the user had typed them: they go to whichever window has the input focus.
#pragma once

#include <cstdint>
#include <span>

namespace Veldrift {

struct KeyEvent {
  uint16_t virtualKey;  // in Windows' numbering
  bool up;
};

// False where there is no way to type for the user; TypeKeys does nothing there.
bool CanTypeKeys();

// Whether a window of this library, or a question that it asks, is in front: what is typed would go
// there. Threads: any.
bool OwnWindowInFront();

struct TypedKeys {
  uint32_t sent = 0;        // events that the system took
  unsigned long error = 0;  // the system's number, if it took fewer
};
// Hands all events over in one piece, so that no other key comes in between. At most four.
TypedKeys TypeKeys(std::span<const KeyEvent> events);

}  // namespace Veldrift
