// The encoder backend of systems without Media Foundation: libavcodec's software codecs.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "encoder/av/av_codec_session.h"
#include "encoder/encoder_backend.h"

namespace Veldrift {

// A size with an odd side is encoded without its last row or column, since 4:2:0 has none for it.
//
// The frame byte cap ends the rate control's buffer, so that frames are about that large at most;
// at 30 frames/s the usual cap ends the rate at 81.6 Mbit/s. A new cap counts when the codec is
// opened the next time. The quality mode knows no ceiling.
//
// H.264 takes new rates and a new quality while it runs. HEVC is opened anew at the next frame,
// which then is a key frame; so it is at both ends of an emergency.
//
// Threads: as the seam says; output is posted by Submit, and nobody emits here.
class AvBackend final : public EncoderBackend {
 public:
  bool Open(const EncoderPlan& plan, const std::shared_ptr<OutputPort>& port,
            OpenedEncoder& opened) override;
  void Close() override;
  Intake TakeIn(FrameInput& frame, bool emergency) override;
  bool Submit(const FrameOrder& order) override;
  bool TakesChanges() const override { return session_ != nullptr; }
  int32_t SetMeanRate(uint32_t bitsPerSecond) override;
  int32_t SetMaxRate(uint32_t bitsPerSecond) override;
  void SetQuality(float quality) override;

 private:
  bool OpenSession(bool emergency);
  void ApplyRates();

  EncoderPlan plan_;  // with the changes since Open
  CodecRates rates_;
  std::shared_ptr<OutputPort> port_;
  std::unique_ptr<AvCodecSession> session_;
  bool reopen_ = false;  // before the next frame
  bool fresh_ = false;   // no frame has been taken since the codec was opened
};

// An encoder over it, not configured. `engineId` as NormaliseEngineId leaves it.
std::unique_ptr<IHardwareEncoder> MakeAvEncoder(const std::string& engineId);

}  // namespace Veldrift
