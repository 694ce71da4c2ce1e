#include "decoding_sink.h"

#include <utility>

#include "support/clock.h"

namespace Veldrift {

namespace {

constexpr size_t kMostWaiting = 600;  // ten seconds of 60 pictures each, for a slow machine
constexpr size_t kMostForViewer = 15;

}  // namespace

DecodingSink::DecodingSink(SnapshotWriter* snapshots, VideoDecoder::PictureSink viewer)
    : snapshots_(snapshots),
      viewer_(std::move(viewer)),
      decoder_(
          [this](const AVFrame& picture, const WholeFrame& frame) { OnPicture(picture, frame); }),
      worker_(viewer_ ? kMostForViewer : kMostWaiting) {
  worker_.Start([this](const SharedFrame& frame) { decoder_.Decode(*frame); });
}

void DecodingSink::NoteArrival(const WholeFrame& frame) {
  videoBytes_ += frame.data.size();
  int64_t none = 0;
  firstVideoNs_.compare_exchange_strong(none, frame.wholeNs);
  lastVideoNs_ = frame.wholeNs;
}

void DecodingSink::Take(const SharedFrame& frame) {
  if (frame->stream != StreamType::Video) return;
  NoteArrival(*frame);
  worker_.Push(frame);
}

void DecodingSink::OnPicture(const AVFrame& picture, const WholeFrame& frame) {
  const int64_t nowNs = SteadyNanos();
  if (decoded_++ == 0) firstPictureNs_ = nowNs;
  width_ = picture.width;
  height_ = picture.height;
  codec_ = decoder_.CodecName();
  if (viewer_) viewer_(picture, frame);
  checker_.Look(picture, frame, nowNs);
  if (snapshots_ != nullptr) snapshots_->Offer(picture, nowNs);
}

std::string DecodingSink::Failure() const {
  return snapshots_ != nullptr ? snapshots_->Error() : "";
}

void DecodingSink::Finish() {
  worker_.Finish();
  if (snapshots_ != nullptr) snapshots_->Finish();
}

LivePicture DecodingSink::Live() const { return {decoded_, width_, height_, codec_}; }

double DecodingSink::BitRate(int64_t withoutNs) const {
  const int64_t spanNs = lastVideoNs_ - firstVideoNs_ - withoutNs;
  return spanNs > 0 ? double(videoBytes_) * 8e9 / double(spanNs) : 0;
}

}  // namespace Veldrift
