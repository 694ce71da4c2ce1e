#include "recording_series.h"

#include <utility>

#include "platform/file.h"

namespace Veldrift {

namespace {

std::string CantWrite(const std::filesystem::path& path, const std::string& reason) {
  return "can't write " + PathText(path) + ": " + reason;
}

}  // namespace

bool RecordingSeries::Begin(std::string& sentence) {
  std::string reason;
  switch (OutputFile::Open(first_, overwrite_, begun_, reason)) {
    case OutputFile::OpenResult::Opened:
      return true;
    case OutputFile::OpenResult::Exists:
      sentence = PathText(first_) + " exists already: give another name, or --overwrite";
      return false;
    case OutputFile::OpenResult::Failed:
      break;
  }
  sentence = CantWrite(first_, reason);
  return false;
}

std::filesystem::path RecordingSeries::Numbered(int number) const {
  std::filesystem::path path = first_;
  const std::string name = PathText(first_.stem()) + "-" + std::to_string(number);
  return path.replace_filename(PathFromText(name + PathText(first_.extension())));
}

std::unique_ptr<OutputFile> RecordingSeries::Next(std::string& sentence) {
  if (begun_) return std::move(begun_);
  std::unique_ptr<OutputFile> file;
  std::string reason;
  auto opened = OutputFile::OpenResult::Exists;
  while (opened == OutputFile::OpenResult::Exists) {
    opened = OutputFile::Open(Numbered(++number_), overwrite_, file, reason);
  }
  if (!file) sentence = CantWrite(Numbered(number_), reason);
  return file;
}

double RecordingSeries::Seconds() const {
  double seconds = 0;
  for (const RecordedPart& part : parts_) seconds += part.seconds;
  return seconds;
}

}  // namespace Veldrift
