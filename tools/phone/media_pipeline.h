// What happens to whole frames: one worker decodes and checks, one records; receiving waits for
// neither.
//
// Threads: Take comes from the receiving threads; the rest from the main thread. The counters that
// Live gives may be asked for at any time; the others after Finish.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "frame_worker.h"
#include "phone_options.h"
#include "recorder.h"
#include "snapshot_writer.h"
#include "stream_checker.h"
#include "video_decoder.h"

namespace Veldrift {

struct LiveCounters {
  uint64_t decoded = 0;
  uint64_t videoBytes = 0;
  uint64_t soundBlocks = 0;
  int width = 0;
  int height = 0;
  const char* codec = "none";
};

class MediaPipeline {
 public:
  explicit MediaPipeline(const PhoneOptions& options);

  // False with a sentence if the snapshots' folder can't be had.
  bool Start(std::string& sentence);
  void Take(WholeFrame&& frame);

  // Works off everything that has come and finalises the files.
  void Finish();

  LiveCounters Live() const;
  bool WantsKeyFrame() const { return decoder_.WantsKeyFrame(); }

  const VideoDecoder& Decoder() const { return decoder_; }
  const StreamChecker& Checker() const { return checker_; }
  const Recorder* Recording() const { return recorder_.get(); }
  const SnapshotWriter* Snapshots() const { return snapshots_.get(); }
  // When the first picture was decoded, on the steady clock; 0: none was.
  int64_t FirstPictureNs() const { return firstPictureNs_; }
  size_t LeftOut() const { return decodeWorker_.LeftOut() + recordWorker_.LeftOut(); }
  // A file that couldn't be written; empty: none.
  std::string FileError() const;
  // Of the video, from the first to the last frame, in bits a second; 0 below two frames.
  double BitRate() const;

 private:
  void OnPicture(const AVFrame& picture, const WholeFrame& frame);
  void NoteArrival(const WholeFrame& frame);

  StreamChecker checker_;
  VideoDecoder decoder_;
  std::unique_ptr<Recorder> recorder_;
  std::unique_ptr<SnapshotWriter> snapshots_;
  std::atomic<uint64_t> decoded_{0};
  std::atomic<uint64_t> videoBytes_{0};
  std::atomic<uint64_t> soundBlocks_{0};
  std::atomic<int> width_{0};
  std::atomic<int> height_{0};
  std::atomic<const char*> codec_{"none"};
  std::atomic<int64_t> firstPictureNs_{0};
  std::atomic<int64_t> firstVideoNs_{0};
  std::atomic<int64_t> lastVideoNs_{0};
  // Last: their threads end before what they use.
  FrameWorker decodeWorker_;
  FrameWorker recordWorker_;
};

}  // namespace Veldrift
