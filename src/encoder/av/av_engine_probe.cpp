#include "encoder/av/av_engine_probe.h"

extern "C" {
#include <libavutil/buffer.h>
#include <libavutil/hwcontext.h>
}

#include "encoder/av/av_handles.h"
#include "encoder/av/codec_log.h"

namespace Veldrift {
namespace {

// A small picture that every encoder takes. A library that is linked in says nothing about the
// machine: only opening does.
bool Opens(const char* name) {
  const AVCodec* codec = avcodec_find_encoder_by_name(name);
  const AvContextPtr context(codec ? avcodec_alloc_context3(codec) : nullptr);
  if (!context) return false;
  context->width = 640;
  context->height = 360;
  context->pix_fmt = AV_PIX_FMT_NV12;
  context->time_base = {1, 30};
  context->bit_rate = 1'000'000;
  return avcodec_open2(context.get(), codec, nullptr) >= 0;
}

bool AnyOpens(const char* h264, const char* hevc) { return Opens(h264) || Opens(hevc); }

bool HasVaapiDevice() {
  if (!avcodec_find_encoder_by_name("h264_vaapi") && !avcodec_find_encoder_by_name("hevc_vaapi")) {
    return false;
  }
  AVBufferRef* device = nullptr;
  const bool made =
      av_hwdevice_ctx_create(&device, AV_HWDEVICE_TYPE_VAAPI, nullptr, nullptr, 0) >= 0;
  av_buffer_unref(&device);
  return made;
}

HardwareSeen Probe() {
  const ThreadLogScope quiet;
  HardwareSeen seen;
  seen.nvidia = AnyOpens("h264_nvenc", "hevc_nvenc");
  seen.intel = AnyOpens("h264_qsv", "hevc_qsv");
  seen.amd = AnyOpens("h264_amf", "hevc_amf");
  seen.other = HasVaapiDevice();
  return seen;
}

}  // namespace

const HardwareSeen& ProbeHardwareEncoders() {
  static const HardwareSeen kSeen = Probe();
  return kSeen;
}

}  // namespace Veldrift
