#include "recorder.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "net/media_datagram.h"
#include "platform/file.h"

namespace Veldrift {

namespace {

// A file begins once so much of the stream is here: by then a sender that has sound has sent some,
// and settings that were asked for have taken effect.
constexpr int64_t kPrerollMicros = 600'000;
constexpr int64_t kToleratedDriftMicros = 5'000;
constexpr int64_t kLookAheadMicros = 500'000;
constexpr int64_t kLongestSilenceMicros = 60'000'000;

std::optional<SoundFormat> SoundOf(const WholeFrame& frame) {
  const std::optional<AudioBlockHead> head = ParseAudioHead(frame.data);
  if (!head) return std::nullopt;
  return SoundFormat{int(head->sampleRate), head->channels};
}

std::vector<float> SamplesOf(const WholeFrame& frame) {
  std::vector<float> samples((frame.data.size() - kAudioHeadBytes) / sizeof(float));
  std::memcpy(samples.data(), frame.data.data() + kAudioHeadBytes, samples.size() * sizeof(float));
  return samples;
}

int64_t DurationMicros(const WholeFrame& frame, const SoundFormat& format) {
  const size_t samples =
      (frame.data.size() - kAudioHeadBytes) / sizeof(float) / size_t(format.channels);
  return int64_t(samples) * 1'000'000 / format.sampleRate;
}

}  // namespace

std::filesystem::path Recorder::NextPath() const {
  if (files_ == 0) return path_;
  std::filesystem::path path = path_;
  const std::string name = PathText(path_.stem()) + "-" + std::to_string(files_ + 1);
  path.replace_filename(PathFromText(name + PathText(path_.extension())));
  return path;
}

// A picture that a file begins with, or another format than the file's: what came before belongs to
// the earlier file, or to none.
void Recorder::NoteFormats(const Entry& entry) {
  if (entry.frame->stream == StreamType::Audio) {
    const std::optional<SoundFormat> sound = SoundOf(*entry.frame);
    if (!sound || sound == sound_) return;
    if (sound_) EndFile();
    sound_ = sound;
    return;
  }
  if (!entry.frame->keyFrame) return;
  std::optional<KeyFrameInfo> video = InspectKeyFrame(entry.frame->data);
  if (!video) return;
  const bool same = video_ && video_->codec == video->codec && video_->width == video->width &&
                    video_->height == video->height;
  if (same && file_) return;
  if (!same) {
    EndFile();
    std::erase_if(waiting_,
                  [](const Entry& old) { return old.frame->stream == StreamType::Video; });
    video_ = std::move(video);
  } else if (video_->parameterSets != video->parameterSets) {
    video_ = std::move(video);
  }
}

bool Recorder::ReadyToStart() const {
  return video_ && !waiting_.empty() &&
         waiting_.back().timeMicros - waiting_.front().timeMicros >= kPrerollMicros;
}

void Recorder::Take(const std::shared_ptr<const WholeFrame>& frame) {
  if (failed_) return;
  const Entry entry{frame, timeline_.Place(frame->stream, frame->timestamp)};
  NoteFormats(entry);
  const bool undecodable = frame->stream == StreamType::Video && !video_;
  if (undecodable) return;
  if (file_) {
    Write(entry);
    return;
  }
  waiting_.push_back(entry);
  if (ReadyToStart()) StartFile();
}

void Recorder::StartFile() {
  if (waiting_.empty() || (!video_ && !sound_)) return;
  // The picture, where there is one, opens the file.
  const auto begins = [this](const Entry& entry) {
    return !video_ || (entry.frame->stream == StreamType::Video && entry.frame->keyFrame);
  };
  const auto first = std::find_if(waiting_.begin(), waiting_.end(), begins);
  if (first == waiting_.end()) return;
  fileStartMicros_ = first->timeMicros;
  waiting_.erase(waiting_.begin(), first);
  const bool hasSound = std::any_of(waiting_.begin(), waiting_.end(), [](const Entry& entry) {
    return entry.frame->stream == StreamType::Audio;
  });
  file_ = std::make_unique<RecordingFile>();
  if (!file_->Open(NextPath(), video_, hasSound ? sound_ : std::nullopt, error_)) {
    failed_ = true;
    file_.reset();
    return;
  }
  ++files_;
  for (const Entry& entry : waiting_) Write(entry);
  waiting_.clear();
}

void Recorder::EndFile() {
  if (!file_) return;
  while (!waitingSound_.empty()) WriteNextSound();
  if (!file_->Close()) {
    failed_ = true;
    error_ = "can't finish the recording " + PathText(path_);
  }
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
  if (missing > 0 && missing < kLongestSilenceMicros) {
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
    lengthMicros_ = std::max(lengthMicros_, timeMicros);
  } else if (timeMicros >= 0 && sound_ && SoundOf(*entry.frame) == sound_) {
    TakeSound(entry);
  }
}

bool Recorder::Close() {
  if (!failed_ && !file_) StartFile();
  EndFile();
  return !failed_;
}

}  // namespace Veldrift
