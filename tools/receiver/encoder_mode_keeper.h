// Keeps the encoder at the mode and quality that were asked for, whoever asked. An encoder begins
// another size, and a host that was started anew begins, with a quality of its own (75 per cent):
// the last encoder mode that went out on the connection is sent again once the first picture of
// another size has come, and, since a slow network takes long to carry that picture and all that
// are pushed meanwhile, a few times soon after a size was asked for.
//
// Threads: Take comes from the receiving threads; the others from the session's.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

#include "platform/mutex.h"
#include "support/clock.h"
#include "tools/receiver/commands.h"
#include "tools/receiver/frame_sink.h"

namespace Veldrift {

class EncoderModeKeeper : public FrameSink {
 public:
  void Take(const SharedFrame& frame) override;
  void Finish() override {}

  // Nothing has been asked of this connection's plug-in.
  void BeginConnection();
  // A command went out, whoever sent it.
  void NoteSent(const Command& command, int64_t nowNs);

  // What to send again now, if anything.
  std::optional<Command> Due(int64_t nowNs);

  // There are encoders that write other parameter sets with another quality, or whenever they
  // like: no more repeats than this follow each other, until a setting was sent again or the sets
  // have stayed the same for so long.
  static constexpr int kMostRepeats = 3;
  static constexpr int64_t kCalmNs = 5 * kNanosPerSecond;

 private:
  bool SizeChanged(int64_t nowNs);
  bool PlanIsDue(int64_t nowNs);

  Mutex mutex_;
  // The last key frame's sequence parameter set, in which the size stands. Empty: none has come.
  std::vector<std::byte> sequenceSet_ VD_GUARDED_BY(mutex_);
  uint32_t connection_ VD_GUARDED_BY(mutex_) = 0;
  bool changed_ VD_GUARDED_BY(mutex_) = false;

  std::optional<Command> mode_;
  int repeats_ = 0;  // one after the other
  int64_t changedNs_ = 0;
  std::deque<int64_t> plannedNs_;  // repeats behind a size that was asked for
};

}  // namespace Veldrift
