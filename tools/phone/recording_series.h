// The numbered files of one recording: take.mkv, take-2.mkv, and so on. None that exists is written
// over unless that was asked for; the first is made at once, so that a place where nothing can be
// written is known before there is anything to lose.
//
// Threads: belongs to one thread at a time.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "tools/platform/posix/output_file.h"

namespace Veldrift {

struct RecordedPart {
  std::filesystem::path path;
  double seconds = 0;
  int64_t bytes = 0;
};

class RecordingSeries {
 public:
  RecordingSeries(std::filesystem::path first, bool overwrite)
      : first_(std::move(first)), overwrite_(overwrite) {}

  // Makes the first file. False with a sentence if that can't be.
  bool Begin(std::string& sentence);

  // The next file to write: the first, or one of the next free number. Null with a sentence.
  std::unique_ptr<OutputFile> Next(std::string& sentence);

  // The file that Next gave last is finished.
  void Finished(const RecordedPart& part) { parts_.push_back(part); }

  const std::vector<RecordedPart>& Parts() const { return parts_; }
  double Seconds() const;

 private:
  std::filesystem::path Numbered(int number) const;

  const std::filesystem::path first_;
  const bool overwrite_;
  std::unique_ptr<OutputFile> begun_;
  int number_ = 1;
  std::vector<RecordedPart> parts_;
};

}  // namespace Veldrift
