// A file that grows for hours and must be finished even when the disk is full: space for its end is
// set aside while there is some, in a nameless file beside it, and given back when a write finds no
// more room. Only where the receivers are that record.
//
// Threads: one thread uses it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>

namespace Veldrift {

class OutputFile {
 public:
  enum class OpenResult { Opened, Exists, Failed };

  // Makes the file, for its owner alone. One that exists is left alone (Exists), or with `replace`
  // kept as it is until the first Write. Failed: the system's reason is in `error`.
  static OpenResult Open(const std::filesystem::path& path, bool replace,
                         std::unique_ptr<OutputFile>& file, std::string& error);

  // A file that was made here and never written to goes again.
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  const std::filesystem::path& Path() const { return path_; }

  // Writes at the current place and moves on. After a failure, see Error, it goes on with the space
  // that was set aside; what doesn't fit there either leaves a hole.
  void Write(std::span<const std::byte> bytes);
  // From the file's start; answers the new place.
  int64_t Seek(int64_t place);
  int64_t Place() const { return place_; }
  int64_t Size() const { return size_; }

  // Sets so much space aside altogether, or as much of it as there is.
  void SetAside(int64_t bytes);

  // Why the first failed write failed; empty: none did.
  const std::string& Error() const { return error_; }

 private:
  OutputFile(std::filesystem::path path, int descriptor, bool isNew);
  bool WriteSome(std::span<const std::byte>& bytes);
  void GiveBack();

  const std::filesystem::path path_;
  const int descriptor_;
  const bool isNew_;
  bool written_ = false;
  int64_t place_ = 0;
  int64_t size_ = 0;
  int reserve_ = -1;
  int64_t reserved_ = 0;
  std::string error_;
};

// From now on a closed pipe and a file that is too large are answers of the calls that write, not
// the end of the process.
void SurviveFailedWrites();

}  // namespace Veldrift
