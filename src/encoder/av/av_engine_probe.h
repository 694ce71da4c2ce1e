// Which hardware encoders libavcodec can really open on this machine.
#pragma once

#include "encoder/engine_catalogue.h"

namespace Veldrift {

// Tries them all at the first call, which can take a moment, and keeps the answer for the process.
// Threads: any.
const HardwareSeen& ProbeHardwareEncoders();

}  // namespace Veldrift
