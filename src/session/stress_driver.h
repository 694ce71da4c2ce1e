// A synthetic source of frames that drives the encoder path of a shipped build without a host, for
// endurance runs: VD_STRESS=1 to 9 in the environment chooses what it does.
//
// Threads: StartIfAsked and Stop belong to the host's thread; the driver has a thread of its own,
// at most one in the process.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "session/pipeline_seat.h"
#include "support/clock.h"

namespace Veldrift {

struct StressLevel {
  int level = 0;           // 0: off
  bool realistic = false;  // at a host's pace instead of as fast as the encoder takes them
  bool pro4K = false;      // the sizes of large footage
  bool keyframes = false;  // every frame is a key frame
  bool flipRes = false;    // size, GOP or codec changes every 2 s
};

// Only the first character counts: "1" to "9" are levels, nothing, "" and "0" are off, anything
// else is level 1.
StressLevel StressLevelOf(const std::optional<std::string>& text);

// A moving test picture in BGRA, opaque; rows of width x 4 bytes. `count` moves it.
void PaintStressPicture(uint8_t* pixels, uint32_t width, uint32_t height, uint64_t count);

class StressDriver {
 public:
  // Drives whatever pipeline sits in `seat`.
  StressDriver(const PipelineSeat& seat, Clock& clock) : seat_(seat), clock_(clock) {}
  ~StressDriver();
  StressDriver(const StressDriver&) = delete;
  StressDriver& operator=(const StressDriver&) = delete;

  // Reads VD_STRESS. Does nothing if this driver runs, or another one of the process.
  void StartIfAsked();
  void Stop();

 private:
  void Run(StressLevel level);
  void GiveUpOwnership();
  void ArmEncoder(StressLevel level);
  void PushFrame(EncoderPipeline& pipeline, StressLevel level);
  void FlipIfDue(EncoderPipeline& pipeline, StressLevel level);
  void FlipSize(EncoderPipeline& pipeline, StressLevel level);
  void SayAlive(StressLevel level);
  void Pace(StressLevel level);

  const PipelineSeat& seat_;
  Clock& clock_;
  std::atomic<bool> stressStop_{false};
  std::atomic<bool> owns_{false};  // the process's one driver is this one
  std::thread stressThread_;

  // The driver thread's.
  std::unique_ptr<uint8_t[]> picture_;
  size_t rung_ = 0;
  uint64_t count_ = 0;
  int64_t lastFlipNanos_ = 0;
  int64_t lastAliveNanos_ = 0;
};

}  // namespace Veldrift
