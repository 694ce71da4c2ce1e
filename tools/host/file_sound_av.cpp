#include <algorithm>
#include <deque>
#include <vector>

#include "file_reader_av.h"

namespace Veldrift {

namespace {

// Time stamps are rounded, to a millisecond in some containers: what is nearer than this to where
// it is expected follows without a seam.
constexpr int kSeamShare = 100;  // of a second

class FileSound final : public SoundSource {
 public:
  explicit FileSound(const std::atomic<bool>& interrupted) : reader_(interrupted) {}

  bool Open(const std::string& file) {
    std::string error;
    if (!reader_.Open(file, AVMEDIA_TYPE_AUDIO, error)) return false;
    const AVCodecContext& codec = reader_.Codec();
    format_.sampleRate = codec.sample_rate;
    AVChannelLayout source = codec.ch_layout;
    AVChannelLayout layout;
    // One channel stays one here: turned into two by the resampler, it would come out quieter.
    const int decoded = std::min(codec.ch_layout.nb_channels, format_.channels);
    av_channel_layout_default(&layout, decoded);
    SwrContext* raw = nullptr;
    const int code = swr_alloc_set_opts2(&raw, &layout, AV_SAMPLE_FMT_FLTP, format_.sampleRate,
                                         &source, codec.sample_fmt, codec.sample_rate, 0, nullptr);
    resampler_.reset(raw);
    waiting_.resize(size_t(decoded));
    loopSamples_ = SamplesAt(reader_.Duration());
    return code >= 0 && swr_init(raw) >= 0 && loopSamples_ > 0;
  }

  HostSoundFormat Format() const override { return format_; }

  void GoTo(int64_t sample) override {
    sample %= loopSamples_;
    if (sample == position_) return;
    position_ = sample;
    ended_ = false;
    for (auto& channel : waiting_) channel.clear();
    reader_.Seek(av_rescale(position_, AV_TIME_BASE, format_.sampleRate));
  }

  void Next(float* const* channels, uint32_t samples) override {
    for (uint32_t i = 0; i < samples; ++i) {
      if (waiting_[0].empty()) Refill();
      TakeSample(channels, i);
      // In step with the pictures, which begin again at the same length.
      if (++position_ == loopSamples_) GoTo(0);
    }
  }

 private:
  int64_t SamplesAt(int64_t micros) const {
    return av_rescale(micros, format_.sampleRate, AV_TIME_BASE);
  }

  void TakeSample(float* const* channels, uint32_t index) {
    float sample = 0;
    for (size_t channel = 0; channel < size_t(format_.channels); ++channel) {
      if (channel < waiting_.size()) {
        sample = waiting_[channel].empty() ? 0.0F : waiting_[channel].front();
        if (!waiting_[channel].empty()) waiting_[channel].pop_front();
      }
      channels[channel][index] = sample;
    }
  }

  void Refill() {
    while (!ended_ && waiting_[0].empty()) {
      const Picture block = reader_.Next();
      ended_ = block == nullptr;
      if (block) Append(*block);
    }
  }

  // Puts the block where its time stamp says: behind silence if the track begins late or has a
  // gap, without its first part if that has been played.
  void Append(const AVFrame& block) {
    const int room = swr_get_out_samples(resampler_.get(), block.nb_samples);
    std::vector<std::vector<float>> planes(waiting_.size(), std::vector<float>(size_t(room)));
    std::vector<uint8_t*> out;
    for (auto& plane : planes) out.push_back(reinterpret_cast<uint8_t*>(plane.data()));
    const int count =
        swr_convert(resampler_.get(), out.data(), room,
                    const_cast<const uint8_t**>(block.extended_data), block.nb_samples);
    const int64_t off = SamplesAt(reader_.TimeOf(block)) - position_;
    const int64_t tolerance = format_.sampleRate / kSeamShare;
    const auto silence = size_t(off > tolerance ? std::min(off, loopSamples_ - position_) : 0);
    const int played = off < -tolerance ? int(std::min<int64_t>(-off, std::max(count, 0))) : 0;
    for (size_t channel = 0; count > 0 && channel < waiting_.size(); ++channel) {
      waiting_[channel].insert(waiting_[channel].end(), silence, 0.0F);
      waiting_[channel].insert(waiting_[channel].end(), planes[channel].begin() + played,
                               planes[channel].begin() + count);
    }
  }

  StreamReader reader_;
  Resampler resampler_;
  HostSoundFormat format_;
  std::vector<std::deque<float>> waiting_;  // begins at `position_`
  int64_t position_ = 0;
  int64_t loopSamples_ = 0;
  bool ended_ = false;
};

}  // namespace

std::unique_ptr<SoundSource> OpenFileSound(const std::string& file,
                                           const std::atomic<bool>& interrupted) {
  auto sound = std::make_unique<FileSound>(interrupted);
  if (!sound->Open(file)) return nullptr;
  return sound;
}

}  // namespace Veldrift
