// Sound as browsers take it: AAC in one track without a hole, since a browser shows no picture
// where the sound has one. What doesn't come becomes silence.
//
// Threads: belongs to one thread at a time.
#pragma once

#include <cstdint>
#include <functional>
#include <span>

#include "tools/av/av_handles.h"
#include "tools/receiver/sound_samples.h"

namespace Veldrift {

class WebSound {
 public:
  // `time` and `samples` in samples of the format's rate; the packet is the callee's for the call.
  using PacketSink =
      std::function<void(int64_t time, int64_t samples, std::span<const std::byte> packet)>;

  explicit WebSound(PacketSink sink) : sink_(std::move(sink)) {}

  // False: the encoder can't do it, or there is none.
  bool Open(const SoundFormat& format);

  // Interleaved samples that begin at this time. A hole before them becomes silence, and what is
  // there already isn't taken twice. False: some of it came too late.
  bool Add(std::span<const float> samples, int64_t timeMicros);

  // Nothing more comes for the time before this.
  void FillTo(int64_t timeMicros);

  const SoundFormat& Format() const { return format_; }
  const AVCodecContext& Encoder() const { return *encoder_; }

 private:
  void Push(std::span<const float> samples);
  void PushSilence(int64_t samples);
  void BeginAt(int64_t time);
  void EncodeNext();
  void Drain();

  const PacketSink sink_;
  SoundFormat format_;
  CodecContext encoder_;
  SoundFifo fifo_;
  Packet packet_;
  // In samples:
  int64_t have_ = -1;   // up to which time there is sound; -1: none was
  int64_t next_ = 0;    // the time of what is encoded next
  int64_t jumpTo_ = 0;  // what the encoder still gives of the time before a jump has no place
};

}  // namespace Veldrift
