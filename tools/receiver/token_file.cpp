#include "tools/receiver/token_file.h"

#include <algorithm>
#include <system_error>

#include "net/control_protocol.h"
#include "platform/file.h"

namespace Veldrift {

std::string ReadToken(const std::filesystem::path& file) {
  std::string token = ReadWholeFile(file).value_or("");
  while (!token.empty() && (token.back() == '\n' || token.back() == '\r')) token.pop_back();
  const bool printable =
      std::all_of(token.begin(), token.end(), [](char c) { return c > ' ' && c < 0x7F; });
  return printable && token.size() <= kMaxHelloToken ? token : "";
}

bool CanWriteToken(const std::filesystem::path& file, std::string& error) {
  std::error_code failed;
  if (std::filesystem::is_directory(file, failed)) {
    error = PathText(file) + " is a folder";
    return false;
  }
  std::filesystem::path beside = file;
  beside += ".try";
  const bool written = WriteWholeFile(beside, "") == WriteResult::Written;
  if (!written) error = "can't write " + PathText(file);
  std::filesystem::remove(beside, failed);
  return written;
}

bool WriteToken(const std::filesystem::path& file, const std::string& token, std::string& error) {
  std::filesystem::path beside = file;
  beside += ".tmp";
  std::error_code failed;
  // Its readers are settled while it is still empty.
  if (WriteWholeFile(beside, "") != WriteResult::Written) {
    error = "can't write " + PathText(beside);
    return false;
  }
  std::filesystem::permissions(
      beside, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write, failed);
  if (failed || WriteWholeFile(beside, token + "\n") != WriteResult::Written) {
    error = "can't write " + PathText(beside);
    std::filesystem::remove(beside, failed);
    return false;
  }
  return ReplaceFile(beside, file, error);
}

}  // namespace Veldrift
