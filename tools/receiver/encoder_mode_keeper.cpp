#include "tools/receiver/encoder_mode_keeper.h"

#include <algorithm>
#include <span>
#include <utility>

#include "net/control_protocol.h"
#include "tools/receiver/parameter_sets.h"

namespace Veldrift {

namespace {

constexpr size_t kSnapshotMode = 4;        // where the mode stands in a snapshot,
constexpr std::byte kSnapshotQuality{70};  // which carries no quality
// The host has yet to push the picture with which the size changes.
constexpr int64_t kPlanNs[] = {40 * kNanosPerMilli, 80 * kNanosPerMilli, 150 * kNanosPerMilli,
                               300 * kNanosPerMilli, 1000 * kNanosPerMilli};

bool MayBeginNewSets(uint8_t opcode) {
  return opcode == kSetMaxResolution || opcode == kAppSettingsSnapshot || opcode == kSetCodec ||
         opcode == kSetEncoderEngine || opcode == kSetEncoderMode;
}

}  // namespace

// Streams of key frames alone carry their sets in each: only other ones count.
void EncoderModeKeeper::Take(const SharedFrame& frame) {
  if (frame->stream != StreamType::Video || !frame->keyFrame) return;
  const std::span<const std::byte> set = SequenceSetOf(frame->data);
  if (set.empty()) return;
  const MutexLock lock(mutex_);
  if (frame->connection == connection_ && std::ranges::equal(set, sequenceSet_)) return;
  connection_ = frame->connection;
  sequenceSet_.assign(set.begin(), set.end());
  changed_ = true;
}

void EncoderModeKeeper::BeginConnection() {
  mode_.reset();
  repeats_ = 0;
  plannedNs_.clear();
}

void EncoderModeKeeper::NoteSent(const Command& command, int64_t nowNs) {
  if (!MayBeginNewSets(command.opcode)) return;
  const bool snapshot =
      command.opcode == kAppSettingsSnapshot && command.payload.size() > kSnapshotMode;
  if (command.opcode == kSetEncoderMode) {
    // Also what Due gave comes by here: it is no reason for more of the same.
    if (mode_ && mode_->payload == command.payload) return;
    mode_ = command;
  }
  if (snapshot) {
    mode_ = Command{kSetEncoderMode, {command.payload[kSnapshotMode], kSnapshotQuality}};
  }
  if (snapshot || command.opcode == kSetMaxResolution) {
    plannedNs_.clear();
    for (const int64_t laterNs : kPlanNs) plannedNs_.push_back(nowNs + laterNs);
  }
  repeats_ = 0;
  changedNs_ = nowNs;
}

std::optional<Command> EncoderModeKeeper::Due(int64_t nowNs) {
  const bool changed = SizeChanged(nowNs);
  const bool planned = PlanIsDue(nowNs);
  return changed || planned ? mode_ : std::nullopt;
}

bool EncoderModeKeeper::PlanIsDue(int64_t nowNs) {
  const size_t before = plannedNs_.size();
  while (!plannedNs_.empty() && plannedNs_.front() <= nowNs) plannedNs_.pop_front();
  return plannedNs_.size() != before;
}

bool EncoderModeKeeper::SizeChanged(int64_t nowNs) {
  {
    const MutexLock lock(mutex_);
    if (!std::exchange(changed_, false)) return false;
  }
  if (std::exchange(changedNs_, nowNs) + kCalmNs <= nowNs) repeats_ = 0;
  if (repeats_ == kMostRepeats) return false;
  ++repeats_;
  return true;
}

}  // namespace Veldrift
