#include "tools/view/sdl_sound.h"

#include <vector>

namespace Veldrift {
namespace {

constexpr int kRate = 48'000;
constexpr int kChannels = 2;
constexpr int kFrameBytes = kChannels * int(sizeof(float));

}  // namespace

SdlSound::~SdlSound() {
  if (device_ != 0) SDL_CloseAudioDevice(device_);
}

bool SdlSound::Open(std::string& error) {
  SDL_AudioSpec wanted{};
  wanted.freq = kRate;
  wanted.format = AUDIO_F32SYS;
  wanted.channels = kChannels;
  wanted.samples = Uint16(kRate * kDeviceNs / kNanosPerSecond);
  if (SDL_InitSubSystem(SDL_INIT_AUDIO) == 0) {
    device_ = SDL_OpenAudioDevice(nullptr, 0, &wanted, nullptr, 0);
  }
  if (device_ == 0) error = SDL_GetError();
  if (device_ != 0) SDL_PauseAudioDevice(device_, 0);
  return device_ != 0;
}

int64_t SdlSound::QueuedNs() {
  return int64_t{SDL_GetQueuedAudioSize(device_)} / kFrameBytes * kNanosPerSecond / kRate;
}

void SdlSound::Queue(std::span<const float> samples, int rate, int channels) {
  if (device_ == 0) return;
  if (rate == kRate && channels == kChannels) {
    SDL_QueueAudio(device_, samples.data(), Uint32(samples.size_bytes()));
    return;
  }
  if (rate != rate_ || channels != channels_) {
    converter_.reset(
        SDL_NewAudioStream(AUDIO_F32SYS, Uint8(channels), rate, AUDIO_F32SYS, kChannels, kRate));
    rate_ = rate;
    channels_ = channels;
  }
  if (!converter_) return;
  SDL_AudioStreamPut(converter_.get(), samples.data(), int(samples.size_bytes()));
  std::vector<float> converted(size_t(SDL_AudioStreamAvailable(converter_.get())) / sizeof(float));
  const int bytes =
      SDL_AudioStreamGet(converter_.get(), converted.data(), int(converted.size() * sizeof(float)));
  if (bytes > 0) SDL_QueueAudio(device_, converted.data(), Uint32(bytes));
}

}  // namespace Veldrift
