#include "encoder/sync_driver.h"

#include <utility>

#include "support/plugin_log.h"

namespace Veldrift {
namespace {

constexpr LogCategory kCategory{kLogSubsystem, "encoder"};

}  // namespace

SyncDriver::SyncDriver(EncoderTransform& transform, TransformPlatform& platform,
                       std::shared_ptr<OutputPort> port, int32_t codec, size_t frameBytes)
    : transform_(transform),
      platform_(platform),
      collector_(codec, std::move(port)),
      frameBytes_(frameBytes) {
  collector_.ReadHeader(transform_);
}

bool SyncDriver::Start() {
  transform_.SendMessage(TransformMessage::Flush);
  transform_.SendMessage(TransformMessage::BeginStreaming);
  transform_.SendMessage(TransformMessage::StartOfStream);
  int32_t error = 0;
  sample_ = platform_.MakeSample(frameBytes_, error);
  if (sample_) return true;
  PluginLog(kCategory, kLogError, "MFCreateMemoryBuffer failed 0x%08x",
            static_cast<uint32_t>(error));
  return false;
}

// Output that waits inside can be in the frame's way: then it is taken, and the frame tried again.
int32_t SyncDriver::Put(const Sample& sample, int64_t time, uint64_t given) {
  int32_t answer = transform_.ProcessInput(*sample);
  if (answer == transform_error::kNotAccepting) {
    DrainOutput(transform_, collector_);
    answer = transform_.ProcessInput(*sample);
  }
  if (answer < 0) return answer;
  collector_.NoteInput(time, given);
  DrainOutput(transform_, collector_);
  return answer;
}

}  // namespace Veldrift
