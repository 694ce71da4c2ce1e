// An encoder that records what it is asked and answers each frame with a few bytes.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/encoder_double.h"

namespace Veldrift {

// What encoders saw, and what they are to do; outlives them. Threads: any.
class EncoderRecord {
 public:
  struct Frame {
    uint32_t width, height;
    int32_t stride;
    int64_t timestamp;
  };
  struct Data {
    std::vector<EncoderSettings> configured;  // as they were after each Configure
    EncoderSettings settings;                 // as they are now
    std::vector<Frame> frames;
    int idrRequests = 0;
    int emergencyFrames = 0;

    std::string description = "recording encoder";
    bool failConfigure = false;
    bool silent = false;  // takes frames and gives nothing back
    size_t outputBytes = 100;
  };

  // Runs `body` on the data, under the lock.
  template <typename Body>
  auto With(Body&& body) {
    MutexLock lock(mutex_);
    return body(data_);
  }
  size_t FrameCount() {
    return With([](Data& data) { return data.frames.size(); });
  }
  size_t ConfigureCount() {
    return With([](Data& data) { return data.configured.size(); });
  }

 private:
  Mutex mutex_;
  Data data_ VD_GUARDED_BY(mutex_);
};

class RecordingEncoder final : public EncoderDouble {
 public:
  explicit RecordingEncoder(std::shared_ptr<EncoderRecord> record) : record_(std::move(record)) {}

  bool Configure(uint32_t width, uint32_t height, uint32_t bitrate, uint32_t fps) override {
    const bool fails = record_->With([](auto& data) { return data.failConfigure; });
    EncoderDouble::Configure(fails ? 0 : width, height, bitrate, fps);
    record_->With([](auto& data) { data.configured.push_back(data.settings); });
    return !fails;
  }
  std::string GetDescription() override {
    if (!Ready()) return {};
    return record_->With([](auto& data) { return data.description; });
  }
  void EncodeFrame(const uint8_t*, uint32_t width, uint32_t height, int32_t stride,
                   int64_t timestamp) override {
    const std::vector<uint8_t> output = record_->With([&](auto& data) {
      data.frames.push_back({width, height, stride, timestamp});
      return std::vector<uint8_t>(data.silent ? 0 : data.outputBytes, 0x42);
    });
    if (!output.empty()) Emit(output.data(), output.size(), uint64_t(timestamp));
  }
  void RequestIdr() override {
    record_->With([](auto& data) { ++data.idrRequests; });
  }
  void TriggerEmergencyCompression(int32_t frames) override {
    record_->With([&](auto& data) { data.emergencyFrames = frames; });
  }

 private:
  void OnCall(const std::string&) override {
    const EncoderSettings settings = Settings();
    record_->With([&](auto& data) { data.settings = settings; });
  }

  const std::shared_ptr<EncoderRecord> record_;
};

}  // namespace Veldrift
