#include "encoder/output_collector.h"

#include "support/plugin_log.h"

namespace Veldrift {
namespace {

constexpr LogCategory kCategory{kLogSubsystem, "encoder"};

constexpr int kMostStreamChanges = 8;
constexpr int64_t kTolerance = 10'000;  // a millisecond, in units of 100 ns

// `changes` counts those of this drain.
bool FollowStreamChange(EncoderTransform& transform, OutputCollector& collector, int& changes) {
  const EncoderTransform::StreamChange change = transform.AcceptStreamChange();
  collector.ReadHeader(transform);
  if (change.set < 0) {
    PluginLog(kCategory, kLogError,
              "ProcessOutput STREAM_CHANGE renegotiation failed get=0x%08x set=0x%08x — aborting "
              "drain",
              static_cast<uint32_t>(change.got), static_cast<uint32_t>(change.set));
    return false;
  }
  if (++changes <= kMostStreamChanges) return true;
  PluginLog(kCategory, kLogError, "ProcessOutput STREAM_CHANGE looped %d× — aborting drain",
            changes);
  return false;
}

}  // namespace

// A sample without a time of its own belongs to the newest frame.
void OutputCollector::OnOutput(ByteSpan data, bool marked, std::optional<int64_t> time) {
  EncodedUnit unit = port_->Blank();
  assembler_.Assemble(data, marked, unit);
  unit.timestamp = time ? times_.Find(*time, kTolerance) : times_.Newest();
  port_->Post(std::move(unit));
}

void DrainOutput(EncoderTransform& transform, OutputCollector& collector) {
  using Answer = EncoderTransform::Output::Answer;
  for (int changes = 0;;) {
    const EncoderTransform::Output output = transform.TakeOutput(collector);
    switch (output.answer) {
      case Answer::Taken:
        continue;
      case Answer::StreamChange:
        if (FollowStreamChange(transform, collector, changes)) continue;
        return;
      case Answer::Failed:
        PluginLog(kCategory, kLogError, "ProcessOutput failed 0x%08x",
                  static_cast<uint32_t>(output.error));
        return;
      case Answer::NeedMoreInput:
      case Answer::Unavailable:
        return;
    }
  }
}

}  // namespace Veldrift
