// A double that answers on a thread of its own, as encoders that are driven by events do.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "platform/mutex.h"
#include "tests/support/encoder_double.h"

namespace Veldrift {

// Gives a few bytes for each frame; Shutdown lets all frames out that it has.
class LateEncoder final : public EncoderDouble {
 public:
  // `beforeOutput` runs on its thread, in front of every access unit.
  explicit LateEncoder(std::function<void()> beforeOutput = {})
      : beforeOutput_(std::move(beforeOutput)), thread_([this] { Run(); }) {}
  ~LateEncoder() override {
    EndFrames();
    thread_.join();
  }

  void Shutdown() override {
    AwaitFrames();
    EncoderDouble::Shutdown();
  }
  void EncodeFrame(const uint8_t*, uint32_t, uint32_t, int32_t, int64_t timestamp) override {
    if (!Ready()) return;
    const bool allKeys = GetGopSize() == 1;
    MutexLock lock(mutex_);
    frames_.push_back({timestamp, std::exchange(keyRequested_, false) || allKeys});
    changed_.NotifyAll();
  }
  std::unique_ptr<IHardwareEncoder> Clone(const EncoderSettings& settings) override {
    auto clone = std::make_unique<LateEncoder>(beforeOutput_);
    clone->SetCodec(settings.codec);
    clone->SetGopSize(settings.gopSize);
    clone->Configure(uint32_t(settings.width), uint32_t(settings.height), settings.bitrate,
                     uint32_t(settings.fps));
    return clone;
  }

 private:
  void WantKeyFrame() override {
    MutexLock lock(mutex_);
    keyRequested_ = true;
  }

  struct Frame {
    int64_t timestamp;
    bool keyFrame;
  };

  void Run() {
    const std::vector<uint8_t> output(100, 0x42);
    while (const std::optional<Frame> frame = Next()) {
      if (beforeOutput_) beforeOutput_();
      Emit(output.data(), output.size(), uint64_t(frame->timestamp), frame->keyFrame);
      MutexLock lock(mutex_);
      busy_ = false;
      changed_.NotifyAll();
    }
  }
  std::optional<Frame> Next() {
    MutexLock lock(mutex_);
    while (frames_.empty() && !ended_) changed_.Wait(lock);
    if (frames_.empty()) return std::nullopt;
    const Frame frame = frames_.front();
    frames_.pop_front();
    busy_ = true;
    return frame;
  }
  void AwaitFrames() {
    MutexLock lock(mutex_);
    while (!frames_.empty() || busy_) changed_.Wait(lock);
  }
  void EndFrames() {
    MutexLock lock(mutex_);
    ended_ = true;
    changed_.NotifyAll();
  }

  const std::function<void()> beforeOutput_;
  Mutex mutex_;
  CondVar changed_;
  std::deque<Frame> frames_ VD_GUARDED_BY(mutex_);
  bool keyRequested_ VD_GUARDED_BY(mutex_) = true;
  bool busy_ VD_GUARDED_BY(mutex_) = false;
  bool ended_ VD_GUARDED_BY(mutex_) = false;
  std::thread thread_;
};

}  // namespace Veldrift
