#include "web_mp4.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "tools/receiver/parameter_sets.h"

namespace Veldrift {

namespace {

constexpr int kPictureScale = 90'000;
constexpr uint32_t kPictureTrack = 1;
constexpr uint32_t kSoundTrack = 2;
constexpr int kBufferBytes = 4096;
constexpr uint32_t kIndependent = 0x02000000;      // sample flags: depends on no other
constexpr uint32_t kDependentNoSync = 0x01010000;  // on others, and nothing begins here

struct Sample {
  uint32_t track;
  uint64_t time;
  uint32_t duration;
  uint32_t flags;
};

// A muxer that writes into memory.
class MemoryMuxer {
 public:
  MemoryMuxer() {
    if (avformat_alloc_output_context2(&format_, nullptr, "mp4", nullptr) < 0) return;
    auto* buffer = static_cast<unsigned char*>(av_malloc(kBufferBytes));
    format_->pb = avio_alloc_context(buffer, kBufferBytes, 1, &bytes_, nullptr, Collect, nullptr);
    format_->flags |= AVFMT_FLAG_CUSTOM_IO | AVFMT_FLAG_BITEXACT;
  }
  ~MemoryMuxer() {
    if (format_ == nullptr) return;
    if (format_->pb != nullptr) av_freep(&format_->pb->buffer);
    avio_context_free(&format_->pb);
    avformat_free_context(format_);
  }
  MemoryMuxer(const MemoryMuxer&) = delete;
  MemoryMuxer& operator=(const MemoryMuxer&) = delete;

  bool AddPicture(const KeyFrameInfo& info) {
    AVStream* stream = format_ != nullptr ? AddVideoStream(*format_, info) : nullptr;
    if (stream == nullptr) return false;
    stream->time_base = {1, kPictureScale};
    return true;
  }

  bool AddSound(const AVCodecContext& encoder) {
    AVStream* stream = avformat_new_stream(format_, nullptr);
    if (stream == nullptr) return false;
    stream->time_base = {1, encoder.sample_rate};
    return avcodec_parameters_from_context(stream->codecpar, &encoder) >= 0;
  }

  ByteVector Head() {
    AVDictionary* options = nullptr;
    av_dict_set(&options, "movflags", "+frag_custom+empty_moov+default_base_moof", 0);
    const int code = avformat_write_header(format_, &options);
    av_dict_free(&options);
    if (code < 0) return {};
    avio_flush(format_->pb);
    return std::move(bytes_);
  }

 private:
  static int Collect(void* out, uint8_t* data, int size) {
    auto& bytes = *static_cast<ByteVector*>(out);
    const auto* from = reinterpret_cast<const std::byte*>(data);
    bytes.insert(bytes.end(), from, from + size);
    return size;
  }

  AVFormatContext* format_ = nullptr;
  ByteVector bytes_;
};

void Put(ByteVector& out, uint64_t value, int bytes) {
  for (int i = bytes - 1; i >= 0; --i) out.push_back(std::byte(uint8_t(value >> 8 * i)));
}

void PutBox(ByteVector& out, size_t size, std::string_view name) {
  Put(out, size, 4);
  for (const char c : name) out.push_back(std::byte(c));
}

constexpr size_t kHeadBytes = 108;  // moof, and mdat's head

// Everything in front of the sample. Sizes are known: one track, one run, one sample.
void PutFragmentHead(ByteVector& out, uint32_t number, const Sample& sample, size_t sampleBytes) {
  PutBox(out, 100, "moof");
  PutBox(out, 16, "mfhd");
  Put(out, 0, 4);
  Put(out, number, 4);
  PutBox(out, 76, "traf");
  PutBox(out, 16, "tfhd");
  Put(out, 0x020000, 4);  // offsets count from the moof
  Put(out, sample.track, 4);
  PutBox(out, 20, "tfdt");
  Put(out, 0x01000000, 4);  // 64 bits of time
  Put(out, sample.time, 8);
  PutBox(out, 32, "trun");
  Put(out, 0x000701, 4);  // with offset, and of the sample duration, size and flags
  Put(out, 1, 4);
  Put(out, kHeadBytes, 4);
  Put(out, sample.duration, 4);
  Put(out, sampleBytes, 4);
  Put(out, sample.flags, 4);
  PutBox(out, 8 + sampleBytes, "mdat");
}

// The units behind lengths instead of start codes.
void PutUnits(ByteVector& out, std::span<const std::byte> bytes) {
  for (auto unit = TakeUnit(bytes); !unit.empty(); unit = TakeUnit(bytes)) {
    Put(out, unit.size(), 4);
    out.insert(out.end(), unit.begin(), unit.end());
  }
}

void PatchSize(ByteVector& out, size_t at, size_t value) {
  for (size_t i = 0; i < 4; ++i) out[at + i] = std::byte(uint8_t(value >> (24 - 8 * i)));
}

std::string AvcText(std::span<const std::byte> sets) {
  // Behind the first set's start code and type: profile, constraints, level.
  char text[32];
  const size_t at = NextStartCode(sets, 0) + 4;
  if (at + 3 > sets.size()) return "avc1";
  std::snprintf(text, sizeof text, "avc1.%02x%02x%02x", unsigned(sets[at]), unsigned(sets[at + 1]),
                unsigned(sets[at + 2]));
  return text;
}

uint32_t Mirrored(uint32_t bits) {
  uint32_t out = 0;
  for (int i = 0; i < 32; ++i) out |= (bits >> i & 1) << (31 - i);
  return out;
}

// From the decoder's configuration in the head: version, profile (1 byte), compatibility (4),
// constraints (6), level (1).
std::string HevcText(std::span<const std::byte> init) {
  constexpr std::string_view kBox = "hvcC";
  const auto found = std::search(init.begin(), init.end(), kBox.begin(), kBox.end(),
                                 [](std::byte a, char b) { return a == std::byte(b); });
  if (init.end() - found < 4 + 13) return "hvc1";
  const std::byte* record = &*found + 4;
  const auto at = [record](int i) { return std::to_integer<uint32_t>(record[i]); };
  char text[64];
  std::snprintf(text, sizeof text, "hvc1.%u.%X.%c%u", at(1) & 31,
                Mirrored(at(2) << 24 | at(3) << 16 | at(4) << 8 | at(5)),
                (at(1) & 32) != 0 ? 'H' : 'L', at(12));
  std::string out = text;
  int last = 11;
  while (last >= 6 && at(last) == 0) --last;
  for (int i = 6; i <= last; ++i) {
    std::snprintf(text, sizeof text, ".%X", at(i));
    out += text;
  }
  return out;
}

}  // namespace

ByteVector InitSegment(const KeyFrameInfo& picture, const AVCodecContext* sound) {
  MemoryMuxer muxer;
  if (!muxer.AddPicture(picture) || (sound != nullptr && !muxer.AddSound(*sound))) return {};
  return muxer.Head();
}

std::string CodecText(const KeyFrameInfo& picture, std::span<const std::byte> init) {
  return picture.codec == AV_CODEC_ID_H264 ? AvcText(picture.parameterSets) : HevcText(init);
}

WebFragment PictureFragment(uint32_t number, int64_t timeMicros, bool keyFrame,
                            std::span<const std::byte> accessUnit) {
  WebFragment fragment{{}, true, keyFrame, timeMicros};
  ByteVector& out = fragment.bytes;
  out.reserve(kHeadBytes + accessUnit.size() + 64);
  PutFragmentHead(out, number,
                  {kPictureTrack, uint64_t(timeMicros * 9 / 100),
                   uint32_t(kPictureMicros * 9 / 100), keyFrame ? kIndependent : kDependentNoSync},
                  0);
  PutUnits(out, accessUnit);
  const size_t size = out.size() - kHeadBytes;
  PatchSize(out, kHeadBytes - 16, size);  // the sample's, in front of its flags
  PatchSize(out, kHeadBytes - 8, 8 + size);
  return fragment;
}

WebFragment SoundFragment(uint32_t number, int64_t sampleTime, int64_t samples, int sampleRate,
                          std::span<const std::byte> packet) {
  WebFragment fragment{{}, false, false, av_rescale(sampleTime, 1'000'000, sampleRate)};
  fragment.bytes.reserve(kHeadBytes + packet.size());
  PutFragmentHead(fragment.bytes, number,
                  {kSoundTrack, uint64_t(sampleTime), uint32_t(samples), kIndependent},
                  packet.size());
  fragment.bytes.insert(fragment.bytes.end(), packet.begin(), packet.end());
  return fragment;
}

std::span<const std::byte> IdleBox() {
  static const ByteVector box = [] {
    ByteVector bytes;
    PutBox(bytes, 8, "free");
    return bytes;
  }();
  return box;
}

}  // namespace Veldrift
