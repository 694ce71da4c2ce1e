#include "platform/file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstdio>
#include <system_error>

#include "platform/posix/descriptor.h"

namespace Veldrift {
namespace {

// The persistent files hold secrets of their user, and the log the codes of pairings.
constexpr mode_t kOwnerOnly = 0600;

Descriptor Open(const std::filesystem::path& path, int flags, mode_t mode) {
  int number = -1;
  do {
    number = open(path.c_str(), flags | O_CLOEXEC, mode);
  } while (number < 0 && errno == EINTR);
  return Descriptor(number);
}

bool WriteAll(const Descriptor& file, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = write(file.Get(), bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    bytes.remove_prefix(static_cast<size_t>(count));
  }
  return true;
}

}  // namespace

std::string PathText(const std::filesystem::path& path) { return path.native(); }

std::filesystem::path PathFromText(std::string_view utf8) { return utf8; }

FileRead ReadWholeFile(const std::filesystem::path& path, std::string& text) {
  text.clear();
  const Descriptor file = Open(path, O_RDONLY, 0);
  if (!file) {
    return errno == ENOENT || errno == ENOTDIR ? FileRead::NotFound : FileRead::Failed;
  }
  char block[4096];
  for (;;) {
    const ssize_t count = read(file.Get(), block, sizeof block);
    if (count < 0 && errno == EINTR) continue;
    if (count == 0) return FileRead::Read;
    if (count < 0) {
      text.clear();
      return FileRead::Failed;
    }
    text.append(block, static_cast<size_t>(count));
  }
}

WriteResult WriteWholeFile(const std::filesystem::path& path, std::string_view bytes) {
  Descriptor file = Open(path, O_WRONLY | O_CREAT | O_TRUNC, kOwnerOnly);
  if (!file) return WriteResult::OpenFailed;
  // Without the flush a crash of the machine can leave an empty file behind a finished rename.
  const bool written = WriteAll(file, bytes) && fsync(file.Get()) == 0;
  return file.Close() && written ? WriteResult::Written : WriteResult::WriteFailed;
}

bool ReplaceFile(const std::filesystem::path& from, const std::filesystem::path& to,
                 std::string& error) {
  if (std::rename(from.c_str(), to.c_str()) == 0) return true;
  error = std::generic_category().message(errno);
  return false;
}

bool AppendToFile(const std::filesystem::path& path, std::string_view bytes) {
  const Descriptor file = Open(path, O_WRONLY | O_CREAT | O_APPEND, kOwnerOnly);
  if (!file) return false;
  [[maybe_unused]] const ssize_t ignored = write(file.Get(), bytes.data(), bytes.size());
  return true;
}

}  // namespace Veldrift
