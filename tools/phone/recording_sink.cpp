#include "recording_sink.h"

#include <utility>

namespace Veldrift {

namespace {

constexpr size_t kMostWaiting = 600;  // ten seconds of 60 pictures each, for a disk that stalls

}  // namespace

RecordingSink::RecordingSink(const std::filesystem::path& path, bool overwrite)
    : series_(path, overwrite), recorder_(series_), worker_(kMostWaiting) {}

bool RecordingSink::Begin(std::string& sentence) {
  if (!series_.Begin(sentence)) return false;
  worker_.Start([this](const SharedFrame& frame) {
    recorder_.Take(frame);
    NoteFailure();
  });
  return true;
}

void RecordingSink::NoteFailure() {
  if (recorder_.Error().empty()) return;
  const MutexLock lock(mutex_);
  failure_ = recorder_.Error();
}

std::string RecordingSink::Failure() const {
  const MutexLock lock(mutex_);
  return failure_;
}

void RecordingSink::Finish() {
  if (std::exchange(finished_, true)) return;
  worker_.Finish();
  recorder_.Close();
  NoteFailure();
}

}  // namespace Veldrift
