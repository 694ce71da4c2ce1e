// Where the host's playhead stands, and the judgement over the ticks that move it. Only ticks that
// the module delivers move a playhead; between two of them it is taken to go on with the clock, but
// for a frame at most: a module that stops ticking stops the host's timeline.
//
// Threads: plain arithmetic; `now` is an argument.
#pragma once

#include <cstdint>
#include <string>

namespace Veldrift {

int64_t TicksToNanos(int64_t ticks);

class Playhead {
 public:
  explicit Playhead(int64_t ticksPerFrame) : ticksPerFrame_(ticksPerFrame) {}

  int64_t TicksPerFrame() const { return ticksPerFrame_; }
  // Another rate; the time stays.
  void SetTicksPerFrame(int64_t ticksPerFrame) { ticksPerFrame_ = ticksPerFrame; }

  // Moves from now on, `speed` times as fast as time; below 0 backwards.
  void Run(int speed, int64_t nowNs);
  void Stand(int64_t nowNs);
  // Only while it runs.
  void Tick(int64_t ticks, int64_t nowNs);
  void MoveTo(int64_t place);

  int Speed() const { return speed_; }  // 0: stands
  // In ticks of the timeline, never below 0.
  int64_t PositionAt(int64_t nowNs) const;
  int64_t PlaceAt(int64_t nowNs) const { return PositionAt(nowNs) / ticksPerFrame_; }
  // From now to the next place, if the ticks go on.
  int64_t NanosToNextPlace(int64_t nowNs) const;

 private:
  int64_t ticksPerFrame_;
  int64_t ticks_ = 0;  // at the last tick
  int64_t tickNs_ = 0;
  int speed_ = 0;
};

// From one start of the clock to its stop: what the module ticked, held against the time.
struct ClockSegment {
  int64_t startNs = 0;  // before slot 9 was called
  int64_t ticks = 0;
  uint64_t callbacks = 0;

  // What is wrong with it; empty if nothing. `stopNs` is when slot 10 was called, `endNs` when it
  // had returned.
  std::string Verdict(int64_t stopNs, int64_t endNs, int64_t ticksPerFrame) const;
};

// The samples that were pulled in a segment of so many ticks; empty if they are as many as the
// clock went on.
std::string VerdictOnPulled(int64_t samples, int64_t ticks, int sampleRate, int64_t ticksPerFrame);

}  // namespace Veldrift
