// An encoder over a transform platform, frame by frame, with a clock at its seams.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <semaphore>
#include <string>
#include <vector>

#include "bench/timed_platform.h"
#include "encoder/hardware_encoder.h"

namespace Veldrift {

// A frame's way through the encoder, in nanoseconds.
struct FrameCost {
  int64_t toInput = 0;     // EncodeFrame to ProcessInput, less the conversion
  int64_t conversion = 0;  // the conversion, with scaling
  int64_t toCallback = 0;  // from the transform's output to the callback
  int64_t sample = 0;      // of toInput, making the sample; a synchronous transform's has been made
  int64_t noMore = 0;      // of toCallback, asking a synchronous transform for more
};

// Threads: one.
class DriverRig {
 public:
  struct Options {
    std::function<std::unique_ptr<TransformPlatform>()> makePlatform;
    int32_t codec = kCodecH264;
    int32_t height = 1080;  // the width goes with it
    std::string engineId = "auto";
  };

  explicit DriverRig(Options options);
  ~DriverRig();

  // Opens the encoder anew, as a change of settings does, and answers how long that took in
  // nanoseconds; below 0: it couldn't be opened.
  int64_t Configure();

  // Encodes a frame and waits until its unit is out; false if none came within some seconds.
  bool Encode(FrameCost& cost);

  size_t UnitBytes() const { return unitBytes_; }  // of the newest unit
  std::string Description() { return encoder_->GetDescription(); }

 private:
  const int32_t width_;
  const int32_t height_;
  std::vector<uint8_t> frame_;
  FrameMarks marks_;
  std::atomic<int64_t> calledBack_{0};
  std::atomic<size_t> unitBytes_{0};
  std::counting_semaphore<> out_{0};  // units that have gone out
  int64_t timestamp_ = 0;
  std::unique_ptr<IHardwareEncoder> encoder_;  // the last: it ends before what it writes to
};

// The value below which `share` (0 to 1) of the values lie. There is one at least.
double Percentile(std::vector<int64_t> values, double share);

}  // namespace Veldrift
