// The encoder backend of systems whose encoders are transforms.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "encoder/conversion_timer.h"
#include "encoder/emission_thread.h"
#include "encoder/encoder_backend.h"
#include "encoder/transform_driver.h"
#include "encoder/transform_platform.h"
#include "support/clock.h"

namespace Veldrift {

struct TransformFound;

// Finds a transform, drives it, and converts frames into its samples: on the graphics device
// without leaving it where that goes, else with the planes read back, else on the processor.
//
// HEVC in software stops at 6 megapixels: it would hold the host up.
//
// Threads: as the seam says. A synchronous transform's output is posted by Submit, and nobody emits
// here; that of an asynchronous one is posted by the platform's threads, and emitted on one of our
// own or with the next frame. All openings have the same port.
class TransformBackend final : public EncoderBackend {
 public:
  struct Environment {
    std::unique_ptr<TransformPlatform> platform;
    std::function<bool()> allowAsynchronous;  // asked at each opening
    Clock& clock = SystemClock();
  };

  explicit TransformBackend(Environment environment);
  ~TransformBackend() override;

  bool Open(const EncoderPlan& plan, const std::shared_ptr<OutputPort>& port,
            OpenedEncoder& opened) override;
  void Close() override;
  Intake TakeIn(FrameInput& frame, bool emergency) override;
  bool Submit(const FrameOrder& order) override;
  bool TakesChanges() const override { return transform_ && transform_->HasProperties(); }
  int32_t SetMeanRate(uint32_t bitsPerSecond) override;
  int32_t SetMaxRate(uint32_t bitsPerSecond) override;
  void SetQuality(float quality) override;

  // Whether frames stay on the graphics device, and why.
  bool ResidentActive() const { return platform_->ResidentActive(); }
  const std::string& ResidentStatus() const { return residentStatus_; }

 private:
  bool OpenTransform(TransformFound& found);
  void Describe(const TransformFound& found, OpenedEncoder& opened) const;
  bool RefusesSize(const TransformFound& found) const;
  void MakeDriver(const std::shared_ptr<OutputPort>& port);
  void SetUpResident(const TransformFound& found);
  void CloseTransform();
  TransformDriver::Sample ConvertedSample(FrameInput& frame);
  void NoteLostBuffer(int32_t error);
  void Mark(TransformSample& sample, bool keyFrame);
  void OnRefused(int32_t error);
  void LeaveResident(int32_t error);
  void NoteTime();

  const std::unique_ptr<TransformPlatform> platform_;
  const std::function<bool()> allowAsynchronous_;
  Clock& clock_;

  EncoderPlan plan_;
  std::unique_ptr<EmissionThread> emission_;  // from the first asynchronous transform on
  std::unique_ptr<EncoderTransform> transform_;
  std::unique_ptr<TransformDriver> driver_;
  bool asynchronous_ = false;
  std::string residentStatus_;
  int64_t sampleTime_ = 0;  // of the next frame, in units of 100 ns
  int64_t sampleDuration_ = 0;
  uint32_t lockFailures_ = 0;  // in the encoder's life

  // The frame that was taken in.
  TransformDriver::Sample sample_;
  bool resident_ = false;
  int64_t takenInNanos_ = 0;
  bool owesKeyFrame_ = false;  // to the way that frames go by from now on
  ConversionTimer timer_;
};

}  // namespace Veldrift
