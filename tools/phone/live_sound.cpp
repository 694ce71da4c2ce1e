#include "live_sound.h"

#include <algorithm>

namespace Veldrift {
namespace {

// Blocks follow each other unless they are further apart than a clock's unrest.
constexpr int64_t kToleratedMicros = 30'000;
// Sound that is so far behind its picture doesn't come.
constexpr int64_t kPatienceMicros = 200'000;
// So much silence goes with a picture, whose own length isn't known.
constexpr int64_t kPictureMicros = 40'000;

// Null: the library can't.
Resampler OpenResampler(const SoundFormat& from, const SoundFormat& to) {
  AVChannelLayout source, target;
  av_channel_layout_default(&source, from.channels);
  av_channel_layout_default(&target, to.channels);
  SwrContext* raw = nullptr;
  swr_alloc_set_opts2(&raw, &target, AV_SAMPLE_FMT_FLT, to.sampleRate, &source, AV_SAMPLE_FMT_FLT,
                      from.sampleRate, 0, nullptr);
  Resampler resampler(raw);
  if (!resampler || swr_init(resampler.get()) < 0) return nullptr;
  return resampler;
}

}  // namespace

int64_t LiveSound::SamplesIn(int64_t micros) const {
  return av_rescale(micros, format_.sampleRate, 1'000'000);
}

bool LiveSound::Write(std::span<const float> samples) {
  if (samples.empty()) return true;
  const int64_t time = av_rescale(end_, 1'000'000, format_.sampleRate);
  end_ += int64_t(samples.size()) / format_.channels;
  return output_(samples, time);
}

bool LiveSound::WriteSilence(int64_t samples) {
  return Write(std::vector<float>(size_t(samples) * size_t(format_.channels)));
}

// Without a resampler for it, a block is left out: silence takes its place.
std::vector<float> LiveSound::Converted(const WholeFrame& block) {
  const SoundFormat format = SoundOf(block).value_or(format_);
  std::vector<float> samples = SamplesOf(block);
  if (format == format_) return samples;
  if (source_ != format) {
    source_ = format;
    resampler_ = OpenResampler(format, format_);
  }
  if (!resampler_) return {};
  const int count = int(samples.size()) / format.channels;
  const int room = swr_get_out_samples(resampler_.get(), count);
  std::vector<float> converted(size_t(std::max(room, 0)) * size_t(format_.channels));
  const auto* in = reinterpret_cast<const uint8_t*>(samples.data());
  auto* out = reinterpret_cast<uint8_t*>(converted.data());
  const int given = swr_convert(resampler_.get(), &out, room, &in, count);
  converted.resize(size_t(std::max(given, 0)) * size_t(format_.channels));
  return converted;
}

bool LiveSound::Add(const WholeFrame& block, int64_t timeMicros) {
  if (!SoundOf(block)) return true;
  const std::vector<float> samples = Converted(block);
  if (samples.empty()) return true;
  std::span<const float> rest = samples;
  const int64_t tolerated = silent_ ? 0 : SamplesIn(kToleratedMicros);
  const int64_t missing = SamplesIn(timeMicros) - end_;
  if (missing > tolerated && !WriteSilence(missing)) return false;
  if (missing < -tolerated) {
    rest = rest.subspan(std::min(rest.size(), size_t(-missing) * size_t(format_.channels)));
  }
  silent_ = silent_ && rest.empty();
  return Write(rest);
}

bool LiveSound::Accompany(int64_t pictureMicros) {
  const int64_t missing = SamplesIn(pictureMicros + kPictureMicros) - end_;
  silent_ = silent_ || missing > SamplesIn(kPatienceMicros);
  return !silent_ || missing <= 0 || WriteSilence(missing);
}

}  // namespace Veldrift
