// The machine's loudspeaker, through SDL's queue.
//
// Threads: Open and the destructor belong to the main thread; the rest to one thread after Open.
#pragma once

#include <SDL.h>

#include <memory>
#include <string>

#include "tools/view/sound_player.h"

namespace Veldrift {

class SdlSound : public SoundOutput {
 public:
  SdlSound() = default;
  ~SdlSound() override;
  SdlSound(const SdlSound&) = delete;
  SdlSound& operator=(const SdlSound&) = delete;

  // False: `error` says why there is no sound; what is queued is thrown away then.
  bool Open(std::string& error);

  int64_t QueuedNs() override;
  void Queue(std::span<const float> samples, int rate, int channels) override;

 private:
  struct StreamDeleter {
    void operator()(SDL_AudioStream* stream) const { SDL_FreeAudioStream(stream); }
  };

  SDL_AudioDeviceID device_ = 0;
  // Of the stream's format where it isn't the device's.
  int rate_ = 0;
  int channels_ = 0;
  std::unique_ptr<SDL_AudioStream, StreamDeleter> converter_;
};

}  // namespace Veldrift
