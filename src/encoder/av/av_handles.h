// Owners of libavcodec's objects.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/dict.h>
#include <libavutil/error.h>
#include <libavutil/frame.h>
}

#include <memory>
#include <string>
#include <vector>

namespace Veldrift {

struct AvDeleter {
  void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
  void operator()(AVFrame* frame) const { av_frame_free(&frame); }
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};

using AvContextPtr = std::unique_ptr<AVCodecContext, AvDeleter>;
using AvFramePtr = std::unique_ptr<AVFrame, AvDeleter>;
using AvPacketPtr = std::unique_ptr<AVPacket, AvDeleter>;

// Options for opening a codec; the codec takes out what it knows, and leaves the rest.
class AvOptions {
 public:
  AvOptions() = default;
  ~AvOptions() { av_dict_free(&options_); }
  AvOptions(const AvOptions&) = delete;
  AvOptions& operator=(const AvOptions&) = delete;

  void Set(const char* key, const std::string& value) {
    av_dict_set(&options_, key, value.c_str(), 0);
  }
  AVDictionary** Get() { return &options_; }
  std::vector<std::string> Names() const {
    std::vector<std::string> names;
    const AVDictionaryEntry* entry = nullptr;
    while ((entry = av_dict_get(options_, "", entry, AV_DICT_IGNORE_SUFFIX)) != nullptr) {
      names.emplace_back(entry->key);
    }
    return names;
  }

 private:
  AVDictionary* options_ = nullptr;
};

inline std::string AvErrorText(int error) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(error, text, sizeof text);
  return text;
}

}  // namespace Veldrift
