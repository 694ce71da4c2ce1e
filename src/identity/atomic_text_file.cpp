#include "identity/atomic_text_file.h"

#include <system_error>

#include "platform/file.h"

namespace Veldrift {
namespace {

constexpr int kAttempts = 5;
constexpr int64_t kPauseNanos = 5 * kNanosPerMilli;

// False: `attempt` was in vain each time.
template <typename Attempt>
bool Try(Clock& clock, Attempt&& attempt) {
  for (int count = 1; !attempt(); ++count) {
    if (count == kAttempts) return false;
    clock.SleepFor(kPauseNanos);
  }
  return true;
}

}  // namespace

TextFile ReadTextFile(const std::filesystem::path& path, std::string& text, Clock& clock) {
  FileRead result = FileRead::Failed;
  Try(clock, [&] {
    result = ReadWholeFile(path, text);
    return result == FileRead::NotFound || !text.empty();
  });
  if (result == FileRead::Failed) return TextFile::Unreadable;
  return text.empty() ? TextFile::Missing : TextFile::Read;
}

bool ReplaceTextFile(const std::filesystem::path& path, std::string_view text,
                     const TextFileWriter& writer, Clock& clock) {
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
  if (Try(clock, [&] { return ReplaceFile(temporary, path, error); })) return true;
  PluginLog(writer.category, kLogError, "%s: rename(%{public}s -> %{public}s) failed: %{public}s",
            writer.prefix, PathText(temporary).c_str(), PathText(path).c_str(), error.c_str());
  std::error_code ignored;
  std::filesystem::remove(temporary, ignored);
  return false;
}

}  // namespace Veldrift
