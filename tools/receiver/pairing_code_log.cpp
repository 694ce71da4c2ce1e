#include "tools/receiver/pairing_code_log.h"

#include <algorithm>
#include <cctype>
#include <utility>

#include "net/control_protocol.h"
#include "platform/file.h"

namespace Veldrift {

namespace {

constexpr std::string_view kMarker = "pair: challenge=";

size_t SizeOf(const std::filesystem::path& file) {
  std::error_code failed;
  const auto size = std::filesystem::file_size(file, failed);
  return failed ? 0 : size_t(size);
}

// The code of a line's rest behind the marker, "123456 for NAME".
std::optional<std::string> CodeIn(std::string_view rest, const std::string& phoneName) {
  const std::string_view code = rest.substr(0, kPairingCodeDigits);
  const bool digits =
      code.size() == kPairingCodeDigits &&
      std::all_of(code.begin(), code.end(), [](unsigned char c) { return std::isdigit(c) != 0; });
  if (!digits || rest.substr(kPairingCodeDigits) != " for " + phoneName) return std::nullopt;
  return std::string(code);
}

}  // namespace

PairingCodeLog::PairingCodeLog(std::filesystem::path file, std::string phoneName)
    : file_(std::move(file)), phoneName_(std::move(phoneName)), skip_(SizeOf(file_)) {}

std::optional<std::string> PairingCodeLog::Find() const {
  const std::string log = ReadWholeFile(file_).value_or("");
  // A shorter file than before is a new one: the log was rotated.
  const std::string_view fresh = std::string_view(log).substr(log.size() < skip_ ? 0 : skip_);
  std::optional<std::string> newest;
  for (size_t at = fresh.find(kMarker); at != fresh.npos; at = fresh.find(kMarker, at + 1)) {
    const size_t from = at + kMarker.size();
    const size_t end = fresh.find_first_of("\r\n", from);
    if (end == fresh.npos) break;  // still being written
    if (auto code = CodeIn(fresh.substr(from, end - from), phoneName_)) newest = std::move(code);
  }
  return newest;
}

}  // namespace Veldrift
