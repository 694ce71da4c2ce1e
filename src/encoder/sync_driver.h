// Drives a transform that takes a frame and has its output ready when it is asked.
#pragma once

#include "encoder/output_collector.h"
#include "encoder/transform_driver.h"
#include "encoder/transform_platform.h"

namespace Veldrift {

// One sample serves all frames: the transform is through with it when ProcessInput and the drain
// have returned.
class SyncDriver final : public TransformDriver {
 public:
  SyncDriver(EncoderTransform& transform, TransformPlatform& platform,
             std::shared_ptr<OutputPort> port, int32_t codec, size_t frameBytes);

  bool Start() override;
  Sample MemorySample(int32_t&) override { return sample_; }
  bool ReusesSamples() const override { return true; }
  int32_t Put(const Sample& sample, int64_t time, uint64_t given) override;
  int32_t TakeRefusal() override { return 0; }  // Put has told
  bool Drain() override { return true; }        // each Put has taken all there was
  void Stop() override {}
  size_t ParameterSetBytes() override { return collector_.ParameterSetBytes(); }

 private:
  EncoderTransform& transform_;
  TransformPlatform& platform_;
  OutputCollector collector_;
  const size_t frameBytes_;
  Sample sample_;
};

}  // namespace Veldrift
