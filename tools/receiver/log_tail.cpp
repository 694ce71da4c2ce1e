#include "tools/receiver/log_tail.h"

#include <utility>

#include "platform/file.h"

namespace Veldrift {

namespace {

size_t SizeOf(const std::filesystem::path& file) {
  std::error_code failed;
  const auto size = std::filesystem::file_size(file, failed);
  return failed ? 0 : size_t(size);
}

}  // namespace

LogTail::LogTail(std::filesystem::path file) : file_(std::move(file)), skip_(SizeOf(file_)) {}

std::vector<std::string> LogTail::AllBehind(std::string_view marker) const {
  const std::string log = ReadWholeFile(file_).value_or("");
  // A shorter file than before is a new one: the log was rotated.
  const std::string_view fresh = std::string_view(log).substr(log.size() < skip_ ? 0 : skip_);
  std::vector<std::string> rests;
  for (size_t at = fresh.find(marker); at != fresh.npos; at = fresh.find(marker, at + 1)) {
    const size_t from = at + marker.size();
    const size_t end = fresh.find_first_of("\r\n", from);
    if (end == fresh.npos) break;  // still being written
    rests.emplace_back(fresh.substr(from, end - from));
  }
  return rests;
}

}  // namespace Veldrift
