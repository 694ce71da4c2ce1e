#include "recorder.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include "net/media_datagram.h"

namespace Veldrift {

namespace {

// A file begins once so much of the stream is here: by then a sender that has sound has sent some,
// and settings that were asked for have taken effect.
constexpr int64_t kPrerollMicros = 600'000;
constexpr int64_t kSoundAloneMicros = 3'000'000;  // no picture comes
constexpr int64_t kToleratedDriftMicros = 5'000;
constexpr int64_t kLookAheadMicros = 500'000;
constexpr int64_t kLongestSilenceMicros = 60'000'000;  // that is worth its bytes

int64_t DurationMicros(const WholeFrame& frame, const SoundFormat& format) {
  const size_t samples =
      (frame.data.size() - kAudioHeadBytes) / sizeof(float) / size_t(format.channels);
  return int64_t(samples) * 1'000'000 / format.sampleRate;
}

}  // namespace

// Another connection may be another plug-in's, with another timeline. What still comes of the one
// before has no place any more.
void Recorder::FollowConnection(uint32_t connection) {
  if (connection == connection_) return;
  connection_ = connection;
  if (!file_) StartFile();
  EndFile();
  waiting_.clear();
  video_.reset();
  sound_.reset();
  timeline_ = {};
  wantsKeyFrame_ = false;
}

void Recorder::NoteSound(const WholeFrame& block) {
  const std::optional<SoundFormat> sound = SoundOf(block);
  if (!sound) return;
  const bool fits = !file_ || (file_->HasSound() && sound == sound_);
  if (!fits) {
    EndFile();
    wantsKeyFrame_ = video_.has_value();
  }
  sound_ = sound;
}

void Recorder::NotePicture(const WholeFrame& keyFrame) {
  std::optional<KeyFrameInfo> video = InspectKeyFrame(keyFrame.data);
  if (!video) return;
  wantsKeyFrame_ = false;
  const bool same = video_ && video_->codec == video->codec && video_->width == video->width &&
                    video_->height == video->height;
  if (same && file_) return;
  if (!same) {
    EndFile();
    std::erase_if(waiting_,
                  [](const Entry& old) { return old.frame->stream == StreamType::Video; });
  }
  video_ = std::move(video);
}

// A picture that a file begins with, or another format than the file's: what came before belongs to
// the earlier file, or to none.
void Recorder::NoteFormats(const Entry& entry) {
  if (entry.frame->stream == StreamType::Audio) {
    NoteSound(*entry.frame);
  } else if (entry.frame->keyFrame) {
    NotePicture(*entry.frame);
  }
}

// The picture, where there is one, opens the file.
bool Recorder::BeginsFile(const Entry& entry) const {
  return !video_ || (entry.frame->stream == StreamType::Video && entry.frame->keyFrame);
}

bool Recorder::ReadyToStart() const {
  const auto first =
      std::ranges::find_if(waiting_, [this](const Entry& entry) { return BeginsFile(entry); });
  return first != waiting_.end() && waiting_.back().timeMicros - first->timeMicros >=
                                        (video_ ? kPrerollMicros : kSoundAloneMicros);
}

// Sound doesn't wait for ever for a key frame that doesn't come.
void Recorder::GiveUpPicture() {
  if (!video_ || waiting_.empty() || !wantsKeyFrame_) return;
  if (waiting_.back().timeMicros - waiting_.front().timeMicros >= kSoundAloneMicros) video_.reset();
}

void Recorder::Take(const SharedFrame& frame) {
  if (!error_.empty() || frame->connection < connection_) return;
  FollowConnection(frame->connection);
  const Entry entry{frame, timeline_.Place(frame->stream, frame->timestamp)};
  NoteFormats(entry);
  const bool undecodable = frame->stream == StreamType::Video && (!video_ || wantsKeyFrame_);
  if (undecodable || !error_.empty()) return;
  if (file_) {
    Write(entry);
    LookForFailure();
    return;
  }
  waiting_.push_back(entry);
  GiveUpPicture();
  if (ReadyToStart()) StartFile();
}

void Recorder::StartFile() {
  const auto first =
      std::ranges::find_if(waiting_, [this](const Entry& entry) { return BeginsFile(entry); });
  if (first == waiting_.end() || (!video_ && !sound_)) return;
  fileStartMicros_ = first->timeMicros;
  waiting_.erase(waiting_.begin(), first);
  const bool hasSound = std::ranges::any_of(
      waiting_, [](const Entry& entry) { return entry.frame->stream == StreamType::Audio; });
  std::unique_ptr<OutputFile> output = series_.Next(error_);
  if (!output) return;
  file_ = std::make_unique<RecordingFile>();
  if (!file_->Open(std::move(output), video_, hasSound ? sound_ : std::nullopt, error_)) {
    file_.reset();
    return;
  }
  for (const Entry& entry : std::exchange(waiting_, {})) {
    if (file_) Write(entry);
  }
  LookForFailure();
}

// What can't be written is told while there still is something to save.
void Recorder::LookForFailure() {
  if (!file_) return;
  if (const std::string failure = file_->Failure(); !failure.empty()) {
    waitingSound_.clear();
    EndFile();
  }
}

void Recorder::EndFile() {
  if (!file_) return;
  while (!waitingSound_.empty()) WriteNextSound();
  file_->Close();
  if (error_.empty()) error_ = file_->Failure();
  series_.Finished({file_->Path(), file_->Seconds(), file_->Bytes()});
  file_.reset();
}

// Blocks wait until it is known how late those behind them are.
void Recorder::TakeSound(const Entry& entry) {
  waitingSound_.push_back(entry);
  while (waitingSound_.back().timeMicros - waitingSound_.front().timeMicros >= kLookAheadMicros) {
    WriteNextSound();
  }
}

// A block can be stamped too late, by a sender that was held up, but never too early: how far the
// file's sound is behind is what the least late of the next blocks tells. Lost blocks make all
// behind them late.
int64_t Recorder::SoundMissingMicros() const {
  int64_t haveMicros = file_->SoundSamples() * 1'000'000 / sound_->sampleRate;
  int64_t least = INT64_MAX;
  for (const Entry& entry : waitingSound_) {
    least = std::min(least, entry.timeMicros - fileStartMicros_ - haveMicros);
    haveMicros += DurationMicros(*entry.frame, *sound_);
  }
  return std::abs(least) > kToleratedDriftMicros ? least : 0;
}

void Recorder::WriteNextSound() {
  std::vector<float> samples = SamplesOf(*waitingSound_.front().frame);
  const int64_t missing = SoundMissingMicros();
  waitingSound_.pop_front();
  const size_t shift =
      size_t(std::abs(missing) * sound_->sampleRate / 1'000'000) * size_t(sound_->channels);
  if (missing >= kLongestSilenceMicros) {
    file_->SkipSound(missing * sound_->sampleRate / 1'000'000);
  } else if (missing > 0) {
    file_->WriteSound(std::vector<float>(shift));
  } else if (missing < 0) {
    samples.erase(samples.begin(), samples.begin() + ptrdiff_t(std::min(shift, samples.size())));
  }
  file_->WriteSound(samples);
}

void Recorder::Write(const Entry& entry) {
  const int64_t timeMicros = entry.timeMicros - fileStartMicros_;
  if (entry.frame->stream == StreamType::Video) {
    file_->WriteVideo(*entry.frame, timeMicros);
  } else if (timeMicros >= 0 && SoundOf(*entry.frame) == sound_) {
    TakeSound(entry);
  }
}

bool Recorder::Close() {
  if (error_.empty() && !file_) StartFile();
  EndFile();
  return error_.empty();
}

}  // namespace Veldrift
