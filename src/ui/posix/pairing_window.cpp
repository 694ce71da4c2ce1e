#include "ui/pairing_window.h"

namespace Veldrift {

std::unique_ptr<IPairingDialog> CreatePairingDialog() { return nullptr; }

}  // namespace Veldrift
