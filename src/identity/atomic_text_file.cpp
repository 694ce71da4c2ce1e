#include "identity/atomic_text_file.h"

#include <system_error>

#include "platform/file.h"

namespace Veldrift {
namespace {

constexpr int kReadAttempts = 5;
constexpr int64_t kReadPauseNanos = 5 * kNanosPerMilli;

}  // namespace

std::optional<std::string> ReadTextFile(const std::filesystem::path& path, Clock& clock) {
  for (int attempt = 1;; ++attempt) {
    auto text = ReadWholeFile(path);
    if (!text || !text->empty()) return text;
    if (attempt == kReadAttempts) return std::nullopt;
    clock.SleepFor(kReadPauseNanos);
  }
}

bool ReplaceTextFile(const std::filesystem::path& path, std::string_view text,
                     const TextFileWriter& writer) {
  std::filesystem::path temporary = path;
  temporary += ".tmp";
  const auto written = WriteWholeFile(temporary, text);
  if (written == WriteResult::OpenFailed) {
    PluginLog(writer.category, kLogError, "%s: open(%{public}s) failed", writer.prefix,
              PathText(temporary).c_str());
    return false;
  }
  if (written == WriteResult::WriteFailed) {
    PluginLog(writer.category, kLogError, "%s: write failed", writer.prefix);
    return false;
  }
  std::string error;
  if (ReplaceFile(temporary, path, error)) return true;
  PluginLog(writer.category, kLogError, "%s: rename(%{public}s -> %{public}s) failed: %{public}s",
            writer.prefix, PathText(temporary).c_str(), PathText(path).c_str(), error.c_str());
  std::error_code ignored;
  std::filesystem::remove(temporary, ignored);
  return false;
}

}  // namespace Veldrift
