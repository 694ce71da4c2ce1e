// The way of a picture: from the host's list of frames to the encoder, and from the encoder to the
// sender.
#pragma once

#include <atomic>
#include <cstdint>

#include "session/frame_cache.h"
#include "session/frame_geometry.h"
#include "session/frame_statistics.h"
#include "session/host_interface.h"
#include "session/host_suites.h"
#include "session/pipeline_seat.h"
#include "session/session_state.h"
#include "session/shared_transport.h"
#include "session/stall_watch.h"
#include "session/stream_announcer.h"

namespace Veldrift {

// Threads: the host's thread pushes; the encoder's output threads call OnEncodedFrame; the control
// read thread replays and sets the cap.
class VideoPath {
 public:
  VideoPath(SharedTransport& transport, const HostSuites& suites, PipelineSeat& seat,
            StreamAnnouncer& announcer, const SessionState& state);

  // Shows the first frame of the list, and disposes of all of them. Null does nothing.
  void PushVideo(const Host::FrameList* frames);

  // One access unit from the encoder, `timestamp` in microseconds since the instance's creation.
  void OnEncodedFrame(const uint8_t* data, uint64_t size, bool keyFrame, uint64_t timestamp);

  // Encodes the last frame again, for a phone that comes while the host is paused and sends none.
  void ReplayCachedFrame();

  // The instance starts or stops: frames are kept for a replay only in between.
  void Open() { frameCache_.Open(); }
  void Close() { frameCache_.Close(); }

  // Upper limit of the picture's shorter side in pixels, 0 for none; the next frame moves the
  // encoder there.
  void SetShortSideCap(int32_t cap) { shortSideCap_ = cap; }
  int32_t ShortSideCap() const { return shortSideCap_; }

 private:
  void ShowFrame(const Host::PpixSuite& suite, Host::FrameHandle frame);
  bool FormatIsGood(uint32_t format);
  void Transmit(const uint8_t* pixels, FrameSize size, int32_t rowBytes);
  void FitEncoder(EncoderPipeline& pipeline, bool ready, FrameSize target,
                  const FrameGeometry& source);
  void WatchForStall(EncoderPipeline& pipeline, FrameSize target, int32_t fps);
  void OnWireOverrun(uint64_t size, size_t fragments);

  SharedTransport& transport_;
  const HostSuites& suites_;
  PipelineSeat& seat_;
  StreamAnnouncer& announcer_;
  const SessionState& state_;

  std::atomic<int32_t> shortSideCap_{0};
  FrameCache frameCache_;
  StallWatch stallWatch_;
  FrameStatistics statistics_;
  uint32_t lastBadPixelFormat_ = 0;  // the host's thread's
};

}  // namespace Veldrift
