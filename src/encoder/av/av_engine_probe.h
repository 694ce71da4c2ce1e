// Which hardware encoders libavcodec can really open on this machine.
#pragma once

namespace Veldrift {

struct HardwareSeen {
  bool nvidia = false;
  bool intel = false;
  bool amd = false;
  bool other = false;

  bool Any() const { return nvidia || intel || amd || other; }
};

// Tries them all at the first call, which can take a moment, and keeps the answer for the process.
// Threads: any.
const HardwareSeen& ProbeHardwareEncoders();

}  // namespace Veldrift
