// The part of the self tests that knows the platform's encoder. The platform supplies it:
// encoder/av/ or encoder/mf/, chosen by the build.
#pragma once

#include <string>

namespace Veldrift {

// Runs the test `name` and describes what it showed in `result`. "P6.2" asks whether frames stay on
// the GPU from conversion to encoding; any other name races setting an encoder's output callback
// against calling it. False if the test failed or what it asks about doesn't exist here.
//
// Threads: any thread; blocks for as long as the test takes.
bool RunPlatformEncoderSelfTest(const std::string& name, std::string& result);

// The race, on the port that all encoders share; 150 ms.
bool RaceOutputPort(std::string& result);

}  // namespace Veldrift
