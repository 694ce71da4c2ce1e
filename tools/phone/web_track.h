// Makes the broadcast of what a session receives: puts all connections on one line of time, keeps
// the sound unbroken, begins an epoch where a file can't go on, leaves out what can't be decoded,
// and says when a key frame is needed.
//
// Threads: one at a time; see WebSink.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "key_frame_info.h"
#include "tools/receiver/media_timeline.h"
#include "tools/receiver/whole_frame.h"
#include "web_broadcast.h"
#include "web_sound.h"

namespace Veldrift {

class WebTrack {
 public:
  explicit WebTrack(WebBroadcast& broadcast) : broadcast_(broadcast) {}

  void Take(const WholeFrame& frame, int64_t nowNs);
  // Also when nothing comes.
  void Tick(int64_t nowNs);

  bool WantsKeyFrame(int64_t nowNs) const;

  // Which time of the broadcast is now: a picture that came without any delay beyond the shortest
  // lately seen bears this one.
  int64_t LineMicros(int64_t nowNs) const;

  // Browsers keep a group of pictures whole, and have room for so much.
  static constexpr size_t kMostGroupBytes = size_t{8} << 20;
  // So long after the last picture the next had better be a key frame: a browser that waits for a
  // step shows it at once then.
  static constexpr int64_t kPauseNs = 300 * kNanosPerMilli;
  // So long sound may come behind its picture before silence takes its place; longer where that
  // proves too short.
  static constexpr int64_t kSoundPatienceMicros = 60'000;
  // Longer than that is another file.
  static constexpr int64_t kLongPauseNs = kNanosPerSecond;

 private:
  void FollowConnection(uint32_t connection);
  int64_t Place(const WholeFrame& frame, int64_t nowNs);
  void TakeSound(const WholeFrame& block, int64_t micros);
  bool OpenSound(const SoundFormat& format);
  void TakePicture(const WholeFrame& frame, int64_t micros, int64_t nowNs);
  bool TakeKeyFrame(const WholeFrame& frame, int64_t nowNs);
  void BeginEpoch();
  void NoteLead(int64_t micros, int64_t nowNs);

  WebBroadcast& broadcast_;
  uint32_t connection_ = 0;
  MediaTimeline timeline_;
  std::optional<int64_t> shift_;  // of this connection's times
  int64_t newestMicros_ = 0;      // the newest time of all
  // The smallest and, of the time before, the smallest distance of arrival and time.
  std::optional<int64_t> lead_, leadBefore_;
  int64_t leadSinceNs_ = 0;

  std::optional<KeyFrameInfo> picture_;
  bool soundInEpoch_ = false;
  bool broken_ = false;  // what comes can't be decoded up to the next key frame
  std::optional<uint16_t> frameNumber_;
  int64_t pictureNs_ = 0;      // when the last picture came; 0: none has
  int64_t pictureMicros_ = 0;  // and its time
  size_t groupBytes_ = 0;
  uint32_t fragments_ = 0;

  std::optional<SoundFormat> format_;  // of the last block
  int64_t soundPatienceMicros_ = kSoundPatienceMicros;
  std::unique_ptr<WebSound> sound_;  // null: there is none, or its encoder refuses
};

}  // namespace Veldrift
