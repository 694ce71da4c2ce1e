// A flash in the picture and a click in the sound at each whole second of the timeline, by which a
// receiver can see whether it plays the two in step.
#pragma once

#include <cstdint>

namespace Veldrift {

// Whether the picture that shows `seconds` of the timeline has the flash: a white upper quarter.
bool FlashIsDue(double seconds);
void PaintFlash(uint8_t* bgra, int width, int height, int strideBytes);

// Whether a decoded picture's luma plane has it.
bool HasFlash(const uint8_t* luma, int width, int height, int strideBytes);

// Sample number `index` of the timeline's sound: loud for a moment, else silence.
float ClickSample(uint64_t index, int sampleRate);
// Whether a sample belongs to a click.
bool IsClick(float sample);

}  // namespace Veldrift
