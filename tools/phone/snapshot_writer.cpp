#include "snapshot_writer.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "platform/file.h"
#include "support/clock.h"
#include "tools/av/colour_matrix.h"

namespace Veldrift {

namespace {

constexpr int64_t kFirstStepNs = kNanosPerSecond / 2;
constexpr int64_t kLongestStepNs = 60 * kNanosPerSecond;

Packet EncodePng(const AVFrame& rgb) {
  const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_PNG);
  const CodecContext context(avcodec_alloc_context3(codec));
  if (!context) return nullptr;
  context->width = rgb.width;
  context->height = rgb.height;
  context->pix_fmt = AV_PIX_FMT_RGB24;
  context->time_base = {1, 1};
  Packet packet(av_packet_alloc());
  const bool done = avcodec_open2(context.get(), codec, nullptr) >= 0 &&
                    avcodec_send_frame(context.get(), &rgb) >= 0 &&
                    avcodec_receive_packet(context.get(), packet.get()) >= 0;
  return done ? std::move(packet) : nullptr;
}

}  // namespace

Picture ToRgb(const AVFrame& picture) {
  const Scaler scaler(sws_getContext(picture.width, picture.height, AVPixelFormat(picture.format),
                                     picture.width, picture.height, AV_PIX_FMT_RGB24,
                                     SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT, nullptr,
                                     nullptr, nullptr));
  Picture rgb(av_frame_alloc());
  rgb->width = picture.width;
  rgb->height = picture.height;
  rgb->format = AV_PIX_FMT_RGB24;
  if (!scaler || av_frame_get_buffer(rgb.get(), 0) < 0) return nullptr;
  SetColours(*scaler, picture);
  sws_scale(scaler.get(), picture.data, picture.linesize, 0, picture.height, rgb->data,
            rgb->linesize);
  return rgb;
}

SnapshotWriter::SnapshotWriter(std::filesystem::path folder, double everySeconds)
    : folder_(std::move(folder)), everyNs_(int64_t(everySeconds * 1e9)) {}

bool SnapshotWriter::Start() {
  std::error_code failed;
  std::filesystem::create_directories(folder_, failed);
  if (!std::filesystem::is_directory(folder_, failed)) {
    const MutexLock lock(mutex_);
    error_ = "can't make the folder " + PathText(folder_);
    return false;
  }
  thread_ = std::thread([this] { Run(); });
  return true;
}

void SnapshotWriter::Offer(const AVFrame& picture, int64_t nowNs) {
  if (nowNs < nextNs_) return;
  Picture copy(av_frame_clone(&picture));
  stepNs_ = stepNs_ == 0 ? kFirstStepNs : std::min(stepNs_ * 3 / 2, kLongestStepNs);
  nextNs_ = nowNs + (everyNs_ > 0 ? everyNs_ : stepNs_);
  const MutexLock lock(mutex_);
  waiting_ = std::move(copy);
  changed_.NotifyOne();
}

void SnapshotWriter::Run() {
  while (true) {
    Picture picture;
    {
      MutexLock lock(mutex_);
      while (!waiting_ && !finishing_) changed_.Wait(lock);
      if (!waiting_) return;
      picture = std::move(waiting_);
    }
    const std::filesystem::path path = NextPath();
    const bool done = Write(*picture, path);
    const MutexLock lock(mutex_);
    if (done) ++written_;
    if (!done && error_.empty()) error_ = "can't write " + PathText(path);
  }
}

// Pictures of an earlier run stay.
std::filesystem::path SnapshotWriter::NextPath() {
  std::error_code failed;
  std::filesystem::path path;
  do {
    char name[32];
    std::snprintf(name, sizeof name, "picture-%02d.png", ++number_);
    path = folder_ / name;
  } while (std::filesystem::exists(path, failed));
  return path;
}

bool SnapshotWriter::Write(const AVFrame& picture, const std::filesystem::path& file) {
  const Picture rgb = ToRgb(picture);
  if (!rgb) return false;
  const Packet png = EncodePng(*rgb);
  if (!png) return false;
  return WriteWholeFile(file, {reinterpret_cast<const char*>(png->data), size_t(png->size)}) ==
         WriteResult::Written;
}

void SnapshotWriter::Finish() {
  {
    const MutexLock lock(mutex_);
    finishing_ = true;
    changed_.NotifyOne();
  }
  if (thread_.joinable()) thread_.join();
}

int SnapshotWriter::Written() const {
  const MutexLock lock(mutex_);
  return written_;
}

std::string SnapshotWriter::Error() const {
  const MutexLock lock(mutex_);
  return error_;
}

}  // namespace Veldrift
