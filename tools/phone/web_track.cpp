#include "web_track.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace Veldrift {

namespace {

constexpr int64_t kFirstMicros = 10'000'000;  // so that nothing lies before the line's beginning
constexpr int64_t kPatienceStepMicros = 20'000;
constexpr int64_t kMostPatienceMicros = 200'000;
constexpr int64_t kLeadPeriodNs = 10 * kNanosPerSecond;
constexpr int64_t kAskNs = 500 * kNanosPerMilli;  // how long a pause wishes for its key frame

int64_t MicrosOf(int64_t nowNs) { return nowNs / kNanosPerMicro; }

}  // namespace

// Another connection may be another plug-in's, with another timeline.
void WebTrack::FollowConnection(uint32_t connection) {
  if (connection == connection_) return;
  connection_ = connection;
  timeline_ = {};
  shift_.reset();
  lead_.reset();
  leadBefore_.reset();
  frameNumber_.reset();
  picture_.reset();
  soundPatienceMicros_ = kSoundPatienceMicros;
}

// The broadcast's line runs with the receiver's clock, over all connections, and never back.
int64_t WebTrack::Place(const WholeFrame& frame, int64_t nowNs) {
  const int64_t placed = timeline_.Place(frame.stream, frame.timestamp);
  if (!shift_) {
    const int64_t earliest = newestMicros_ == 0 ? 0 : newestMicros_ + kPictureMicros;
    shift_ = std::max(MicrosOf(nowNs) + kFirstMicros, earliest) - placed;
  }
  const int64_t micros = std::max<int64_t>(placed + *shift_, 0);
  newestMicros_ = std::max(newestMicros_, micros);
  NoteLead(micros, nowNs);
  return micros;
}

void WebTrack::NoteLead(int64_t micros, int64_t nowNs) {
  const int64_t lead = MicrosOf(nowNs) - micros;
  if (!lead_ || nowNs - leadSinceNs_ > kLeadPeriodNs) {
    leadBefore_ = std::exchange(lead_, lead);
    leadSinceNs_ = nowNs;
  }
  lead_ = std::min(*lead_, lead);
}

int64_t WebTrack::LineMicros(int64_t nowNs) const {
  if (!lead_) return 0;
  return MicrosOf(nowNs) - std::min(*lead_, leadBefore_.value_or(*lead_));
}

void WebTrack::Take(const WholeFrame& frame, int64_t nowNs) {
  if (frame.connection < connection_) return;
  FollowConnection(frame.connection);
  const int64_t micros = Place(frame, nowNs);
  if (frame.stream == StreamType::Audio) {
    TakeSound(frame, micros);
  } else {
    TakePicture(frame, micros, nowNs);
  }
}

bool WebTrack::OpenSound(const SoundFormat& format) {
  format_ = format;
  sound_ = std::make_unique<WebSound>(
      [this](int64_t time, int64_t samples, std::span<const std::byte> packet) {
        if (!soundInEpoch_) return;
        broadcast_.Push(
            SoundFragment(++fragments_, time, samples, sound_->Format().sampleRate, packet));
      });
  if (!sound_->Open(format)) sound_.reset();
  // Only another file has another track, and it begins with a key frame.
  soundInEpoch_ = false;
  picture_.reset();
  return sound_ != nullptr;
}

void WebTrack::TakeSound(const WholeFrame& block, int64_t micros) {
  const std::optional<SoundFormat> format = SoundOf(block);
  if (!format) return;
  if (format != format_) OpenSound(*format);
  if (!sound_) return;
  if (!sound_->Add(SamplesOf(block), micros)) {
    soundPatienceMicros_ =
        std::min(soundPatienceMicros_ + kPatienceStepMicros, kMostPatienceMicros);
  }
}

void WebTrack::BeginEpoch() {
  WebEpoch epoch;
  epoch.silentInit = InitSegment(*picture_, nullptr);
  epoch.silentCodecs = CodecText(*picture_, epoch.silentInit);
  soundInEpoch_ = sound_ != nullptr;
  epoch.init = soundInEpoch_ ? InitSegment(*picture_, &sound_->Encoder()) : epoch.silentInit;
  epoch.codecs = epoch.silentCodecs + (soundInEpoch_ ? ",mp4a.40.2" : "");
  broadcast_.Begin(std::move(epoch));
}

bool WebTrack::TakeKeyFrame(const WholeFrame& frame, int64_t nowNs) {
  std::optional<KeyFrameInfo> info = InspectKeyFrame(frame.data);
  if (!info) return false;
  const bool paused = pictureNs_ != 0 && nowNs - pictureNs_ > kLongPauseNs;
  if (info != picture_ || paused) {
    picture_ = std::move(info);
    BeginEpoch();
  }
  groupBytes_ = 0;
  return true;
}

void WebTrack::TakePicture(const WholeFrame& frame, int64_t micros, int64_t nowNs) {
  const bool gap = frameNumber_ && uint16_t(*frameNumber_ + 1) != frame.frameNumber;
  const bool paused = pictureNs_ != 0 && nowNs - pictureNs_ > kLongPauseNs;
  frameNumber_ = frame.frameNumber;
  if (frame.keyFrame) {
    broken_ = !TakeKeyFrame(frame, nowNs);
  } else if (gap || paused || !picture_) {
    broken_ = true;
  }
  if (broken_) return;
  pictureNs_ = nowNs;
  pictureMicros_ = micros;
  groupBytes_ += frame.data.size();
  broadcast_.Push(PictureFragment(++fragments_, micros, frame.keyFrame, frame.data));
}

// Where no sound comes there is silence behind the picture, also behind one that stands still, for
// as long as the file goes on: else a browser waits for it.
void WebTrack::Tick(int64_t nowNs) {
  const int64_t silentNs = nowNs - pictureNs_;
  if (!sound_ || pictureNs_ == 0 || silentNs > kLongPauseNs) return;
  sound_->FillTo(pictureMicros_ + MicrosOf(silentNs) - soundPatienceMicros_);
}

bool WebTrack::WantsKeyFrame(int64_t nowNs) const {
  const int64_t silentNs = nowNs - pictureNs_;
  const bool pause = pictureNs_ != 0 && silentNs > kPauseNs && silentNs < kPauseNs + kAskNs;
  const bool newFormat = !picture_ && pictureNs_ != 0;
  return broken_ || pause || newFormat || groupBytes_ > kMostGroupBytes ||
         broadcast_.KeyFrameWanted();
}

}  // namespace Veldrift
