#include "platform/keyboard.h"

namespace Veldrift {

bool CanTypeKeys() { return false; }

bool OwnWindowInFront() { return false; }

TypedKeys TypeKeys(std::span<const KeyEvent>) { return {}; }

}  // namespace Veldrift
