#include "media_pipeline.h"

#include <utility>

#include "support/clock.h"

namespace Veldrift {

namespace {

constexpr size_t kMostWaiting = 600;  // ten seconds of 60 pictures each, for a slow machine

}  // namespace

MediaPipeline::MediaPipeline(const PhoneOptions& options)
    : decoder_(
          [this](const AVFrame& picture, const WholeFrame& frame) { OnPicture(picture, frame); }),
      decodeWorker_(kMostWaiting),
      recordWorker_(kMostWaiting) {
  if (!options.record.empty()) recorder_ = std::make_unique<Recorder>(options.record);
  if (!options.snapshots.empty()) snapshots_ = std::make_unique<SnapshotWriter>(options.snapshots);
}

bool MediaPipeline::Start(std::string& sentence) {
  if (snapshots_ && !snapshots_->Start()) {
    sentence = snapshots_->Error();
    return false;
  }
  decodeWorker_.Start([this](const SharedFrame& frame) { decoder_.Decode(*frame); });
  if (recorder_) {
    recordWorker_.Start([this](const SharedFrame& frame) { recorder_->Take(frame); });
  }
  return true;
}

void MediaPipeline::NoteArrival(const WholeFrame& frame) {
  videoBytes_ += frame.data.size();
  int64_t none = 0;
  firstVideoNs_.compare_exchange_strong(none, frame.wholeNs);
  lastVideoNs_ = frame.wholeNs;
}

void MediaPipeline::Take(WholeFrame&& frame) {
  const auto shared = std::make_shared<const WholeFrame>(std::move(frame));
  if (shared->stream == StreamType::Video) {
    NoteArrival(*shared);
    decodeWorker_.Push(shared);
  } else {
    ++soundBlocks_;
  }
  if (recorder_) recordWorker_.Push(shared);
}

void MediaPipeline::OnPicture(const AVFrame& picture, const WholeFrame& frame) {
  const int64_t nowNs = SteadyNanos();
  if (decoded_++ == 0) firstPictureNs_ = nowNs;
  width_ = picture.width;
  height_ = picture.height;
  codec_ = decoder_.CodecName();
  checker_.Look(picture, frame, nowNs);
  if (snapshots_) snapshots_->Offer(picture, nowNs);
}

void MediaPipeline::Finish() {
  decodeWorker_.Finish();
  recordWorker_.Finish();
  if (recorder_) recorder_->Close();
  if (snapshots_) snapshots_->Finish();
}

LiveCounters MediaPipeline::Live() const {
  return {decoded_, videoBytes_, soundBlocks_, width_, height_, codec_};
}

double MediaPipeline::BitRate() const {
  const int64_t spanNs = lastVideoNs_ - firstVideoNs_;
  return spanNs > 0 ? double(videoBytes_) * 8e9 / double(spanNs) : 0;
}

std::string MediaPipeline::FileError() const {
  if (recorder_ && !recorder_->Error().empty()) return recorder_->Error();
  return snapshots_ ? snapshots_->Error() : "";
}

}  // namespace Veldrift
