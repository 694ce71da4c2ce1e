#include "key_frame_info.h"

extern "C" {
#include <libavutil/mem.h>
}

#include <cstring>

#include "tools/av/av_handles.h"
#include "tools/receiver/parameter_sets.h"

namespace Veldrift {

namespace {

AVCodecID IdOf(StreamCodec codec) {
  if (codec == StreamCodec::None) return AV_CODEC_ID_NONE;
  return codec == StreamCodec::H264 ? AV_CODEC_ID_H264 : AV_CODEC_ID_HEVC;
}

void CollectParameterSets(std::span<const std::byte> bytes, KeyFrameInfo& info) {
  constexpr std::byte kStartCode[] = {std::byte{0}, std::byte{0}, std::byte{0}, std::byte{1}};
  for (auto unit = TakeUnit(bytes); !unit.empty(); unit = TakeUnit(bytes)) {
    const AVCodecID codec = IdOf(ParameterSetOf(unit));
    if (codec == AV_CODEC_ID_NONE || (info.codec != AV_CODEC_ID_NONE && codec != info.codec)) {
      if (info.codec != AV_CODEC_ID_NONE) return;  // the picture itself begins
      continue;
    }
    info.codec = codec;
    info.parameterSets.insert(info.parameterSets.end(), std::begin(kStartCode),
                              std::end(kStartCode));
    info.parameterSets.insert(info.parameterSets.end(), unit.begin(), unit.end());
  }
}

bool FindSize(std::span<const std::byte> bytes, KeyFrameInfo& info) {
  const CodecParser parser(av_parser_init(info.codec));
  const CodecContext context(avcodec_alloc_context3(avcodec_find_decoder(info.codec)));
  if (!parser || !context) return false;
  parser->flags |= PARSER_FLAG_COMPLETE_FRAMES;
  std::vector<std::byte> padded(bytes.begin(), bytes.end());
  padded.resize(bytes.size() + AV_INPUT_BUFFER_PADDING_SIZE);
  uint8_t* out = nullptr;
  int outSize = 0;
  av_parser_parse2(parser.get(), context.get(), &out, &outSize,
                   reinterpret_cast<const uint8_t*>(padded.data()), int(bytes.size()),
                   AV_NOPTS_VALUE, AV_NOPTS_VALUE, 0);
  info.width = parser->width;
  info.height = parser->height;
  return info.width > 0 && info.height > 0;
}

}  // namespace

std::optional<KeyFrameInfo> InspectKeyFrame(std::span<const std::byte> accessUnit) {
  KeyFrameInfo info;
  CollectParameterSets(accessUnit, info);
  if (info.codec == AV_CODEC_ID_NONE || !FindSize(accessUnit, info)) return std::nullopt;
  return info;
}

AVStream* AddVideoStream(AVFormatContext& format, const KeyFrameInfo& info) {
  AVStream* stream = avformat_new_stream(&format, nullptr);
  if (stream == nullptr) return nullptr;
  AVCodecParameters& parameters = *stream->codecpar;
  parameters.codec_type = AVMEDIA_TYPE_VIDEO;
  parameters.codec_id = info.codec;
  parameters.width = info.width;
  parameters.height = info.height;
  // The tag that players of the MP4 family expect for HEVC with its sets in the head.
  if (info.codec == AV_CODEC_ID_HEVC && std::strcmp(format.oformat->name, "matroska") != 0) {
    parameters.codec_tag = MKTAG('h', 'v', 'c', '1');
  }
  const size_t size = info.parameterSets.size();
  parameters.extradata = static_cast<uint8_t*>(av_mallocz(size + AV_INPUT_BUFFER_PADDING_SIZE));
  if (parameters.extradata == nullptr) return nullptr;
  std::memcpy(parameters.extradata, info.parameterSets.data(), size);
  parameters.extradata_size = int(size);
  stream->time_base = {1, 1'000'000};
  return stream;
}

}  // namespace Veldrift
