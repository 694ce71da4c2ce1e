// An encoder that does what a test tells it to, and remembers what it was told.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/mutex.h"
#include "tests/support/encoder_double.h"

namespace Veldrift {

// What the test sees and sets, shared by an encoder and all clones made from it, also after they
// are gone. Threads: any.
class EncoderScript {
 public:
  struct Behaviour {
    bool failConfigure = false;
    bool failClone = false;
    bool withholdOutput = false;  // frames go in and nothing comes out
    bool emitOnShutdown = false;
    size_t frameBytes = 64;                // of every access unit
    std::function<void()> insideClone;     // runs while Clone does
    std::function<void()> insideShutdown;  // runs while Shutdown does
  };

  void Change(const std::function<void(Behaviour&)>& change);
  Behaviour Now() const;

  // Calls in their order, as "<encoder>.<call>": encoder 0 is the first, its clones count on.
  void Record(int encoder, const std::string& call);
  std::vector<std::string> Calls() const;
  size_t Count(const std::string& call) const;
  int NextNumber();

 private:
  mutable Mutex mutex_;
  Behaviour behaviour_ VD_GUARDED_BY(mutex_);
  std::vector<std::string> calls_ VD_GUARDED_BY(mutex_);
  int encoders_ VD_GUARDED_BY(mutex_) = 0;
};

// Its access units are Annex B of the scripted size whose first NAL unit says IDR or not, and whose
// last byte is the encoder's number. The first frame after Configure and every requested one are
// key frames, and all of them with a GOP size of 1. Threads: any, as the contract says.
class ScriptedEncoder final : public EncoderDouble {
 public:
  // `settings` with a size: it is configured for them.
  explicit ScriptedEncoder(std::shared_ptr<EncoderScript> script, EncoderSettings settings = {});

  bool Configure(uint32_t width, uint32_t height, uint32_t bitrate, uint32_t fps) override;
  void Shutdown() override;
  std::string GetDescription() override;
  void EncodeFrame(const uint8_t* bgra, uint32_t width, uint32_t height, int32_t strideBytes,
                   int64_t timestampMicros) override;
  std::unique_ptr<IHardwareEncoder> Clone(const EncoderSettings& settings) override;

  // Output out of turn, as from a platform's worker.
  void EmitLate(bool keyFrame, uint64_t timestamp);

 private:
  void OnCall(const std::string& call) override { script_->Record(number_, call); }
  void WantKeyFrame() override { keyRequested_ = true; }

  const std::shared_ptr<EncoderScript> script_;
  const int number_;
  std::atomic<bool> keyRequested_{true};
};

}  // namespace Veldrift
