// Decodes what a session receives, on a thread of its own, and judges, measures and photographs it.
//
// Threads: Take comes from the receiving threads; the rest from the owner's. What Live gives may be
// asked for at any time; the other findings after Finish.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "frame_worker.h"
#include "snapshot_writer.h"
#include "stream_checker.h"
#include "tools/receiver/frame_sink.h"
#include "video_decoder.h"

namespace Veldrift {

struct LivePicture {
  uint64_t decoded = 0;
  int width = 0;
  int height = 0;
  const char* codec = "none";
};

class DecodingSink : public FrameSink {
 public:
  // `snapshots`: takes pictures; may be null, else it outlives this. `viewer`: gets each picture,
  // on the decoder's thread, and is better served by few pictures than by old ones; may be empty.
  explicit DecodingSink(SnapshotWriter* snapshots, VideoDecoder::PictureSink viewer = {});
  ~DecodingSink() override { Finish(); }

  void Take(const SharedFrame& frame) override;
  bool WantsKeyFrame() const override { return decoder_.WantsKeyFrame(); }
  std::string Failure() const override;
  void Finish() override;

  LivePicture Live() const;

  const VideoDecoder& Decoder() const { return decoder_; }
  const StreamChecker& Checker() const { return checker_; }
  // When the first picture was decoded, on the steady clock; 0: none was.
  int64_t FirstPictureNs() const { return firstPictureNs_; }
  size_t LeftOut() const { return worker_.LeftOut(); }
  // Of the video, from the first to the last frame without the time `withoutNs`, in bits a second;
  // 0 below two frames.
  double BitRate(int64_t withoutNs) const;

 private:
  void OnPicture(const AVFrame& picture, const WholeFrame& frame);
  void NoteArrival(const WholeFrame& frame);

  SnapshotWriter* const snapshots_;
  const VideoDecoder::PictureSink viewer_;
  StreamChecker checker_;
  VideoDecoder decoder_;
  std::atomic<uint64_t> decoded_{0};
  std::atomic<uint64_t> videoBytes_{0};
  std::atomic<int> width_{0};
  std::atomic<int> height_{0};
  std::atomic<const char*> codec_{"none"};
  std::atomic<int64_t> firstPictureNs_{0};
  std::atomic<int64_t> firstVideoNs_{0};
  std::atomic<int64_t> lastVideoNs_{0};
  // Last: its thread ends before what it uses.
  FrameWorker worker_;
};

}  // namespace Veldrift
