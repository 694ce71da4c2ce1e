// The seam at what stands around the transforms: where they are found, the graphics device, and the
// samples that frames go in by.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "encoder/encoder_transform.h"
#include "encoder/frame_input.h"

namespace Veldrift {

// The classes in which transforms are looked for, best first. What a class lists is the platform's
// business: that of the synchronous hardware ones also lists software.
enum class TransformClass { HardwareSync, HardwareAsync, Software };

// A transform that could be made.
class TransformCandidate {
 public:
  virtual ~TransformCandidate() = default;
  // Its friendly name in UTF-8, "<unknown MFT>" if it has none.
  virtual std::string Name() = 0;
  // Its vendor's id as hardware gives it, such as "VEN_10DE"; empty for software.
  virtual std::string Vendor() = 0;
  // Null, with the error, if it can't be made.
  virtual std::unique_ptr<EncoderTransform> Activate(int32_t& error) = 0;
};

// What decides whether NV12 can stay on the graphics device.
struct ChosenTransform {
  std::string name;
  bool onGpu = false;       // the transform is asynchronous or took the device
  bool d3d11Aware = false;  // it says so itself
  int32_t width = 0;
  int32_t height = 0;
};

// All that one encoder needs of the platform.
//
// Threads: one at a time, under the encoder's lock.
// Real: MfPlatform (encoder/mf/). Fake: tests/support/scripted_transform.h.
class TransformPlatform {
 public:
  virtual ~TransformPlatform() = default;

  // Makes the graphics device and its manager for the engine, as far as there is one: nothing
  // depends on it.
  virtual void OpenDevice(const std::string& engineId) = 0;
  // Releases whatever OpenDevice and the calls below have made.
  virtual void CloseDevice() = 0;
  // Waits, for a moment at most, until the device has done what it was told to.
  virtual void AwaitGpu() = 0;

  // The transforms of one class that make this codec, in the platform's order.
  virtual std::vector<std::unique_ptr<TransformCandidate>> Find(TransformClass kind,
                                                                int32_t codec) = 0;

  // A sample with `bytes` of memory. Null, with the error, if it can't be had.
  virtual std::unique_ptr<TransformSample> MakeSample(size_t bytes, int32_t& error) = 0;

  // Converts the frame on the device and reads it back. False: nothing was written, and the
  // processor has to convert it.
  virtual bool ConvertOnGpu(FrameInput& frame, uint8_t* luma, uint8_t* chroma) = 0;

  // Prepares samples that stay on the device, and answers the line that tells what came of it.
  virtual std::string SetUpResident(const ChosenTransform& chosen) = 0;
  // Frames go in by them: it was set up, and nothing has failed since.
  virtual bool ResidentActive() = 0;
  // A sample with the frame, converted. Null: none was free, or it failed and is active no more.
  virtual std::unique_ptr<TransformSample> ResidentSample(FrameInput& frame) = 0;
  // The transform refused such a sample: it is active no more.
  virtual void RefuseResident(int32_t error) = 0;
};

}  // namespace Veldrift
