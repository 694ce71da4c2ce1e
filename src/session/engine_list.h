// The payload of kEncoderEngineList.
#pragma once

#include <cstddef>
#include <vector>

#include "encoder/engine_catalogue.h"

namespace Veldrift {

// A length byte and the list: a count byte, then id, label and note of each engine behind a length
// byte each. Texts and the count end at 255; a list of more than 255 bytes is cut there, wherever
// that falls, and logged.
std::vector<std::byte> EncodeEngineList(const std::vector<EngineEntry>& engines);

}  // namespace Veldrift
