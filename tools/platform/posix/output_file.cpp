#include "tools/platform/posix/output_file.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

namespace Veldrift {

namespace {

constexpr mode_t kOwnerOnly = 0600;

std::string Reason(int code) { return std::generic_category().message(code); }

// A file in `folder` that nobody sees and that goes with its descriptor.
int OpenNameless(const std::filesystem::path& folder) {
  const std::string name = folder.empty() ? "." : folder.native();
  return open(name.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, kOwnerOnly);
}

}  // namespace

OutputFile::OutputFile(std::filesystem::path path, int descriptor, bool isNew)
    : path_(std::move(path)), descriptor_(descriptor), isNew_(isNew) {}

OutputFile::~OutputFile() {
  GiveBack();
  close(descriptor_);
  if (isNew_ && !written_) unlink(path_.c_str());
}

OutputFile::OpenResult OutputFile::Open(const std::filesystem::path& path, bool replace,
                                        std::unique_ptr<OutputFile>& file, std::string& error) {
  int descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kOwnerOnly);
  const bool isNew = descriptor >= 0;
  if (!isNew && errno == EEXIST) {
    if (!replace) return OpenResult::Exists;
    descriptor = open(path.c_str(), O_WRONLY | O_CLOEXEC);
  }
  if (descriptor < 0) {
    error = Reason(errno);
    return OpenResult::Failed;
  }
  file.reset(new OutputFile(path, descriptor, isNew));
  return OpenResult::Opened;
}

void OutputFile::SetAside(int64_t bytes) {
  if (!error_.empty() || bytes <= reserved_) return;
  if (reserve_ < 0) reserve_ = OpenNameless(path_.parent_path());
  if (reserve_ < 0) return;
  for (; bytes > reserved_; bytes /= 2) {
    if (posix_fallocate(reserve_, 0, bytes) == 0) reserved_ = bytes;
  }
}

void OutputFile::GiveBack() {
  if (reserve_ >= 0) close(reserve_);
  reserve_ = -1;
  reserved_ = 0;
}

// False: no byte could be written, for the reason in errno.
bool OutputFile::WriteSome(std::span<const std::byte>& bytes) {
  const ssize_t count = pwrite(descriptor_, bytes.data(), bytes.size(), place_);
  if (count < 0) return errno == EINTR;
  if (count == 0) errno = ENOSPC;
  if (count == 0) return false;
  place_ += count;
  bytes = bytes.subspan(size_t(count));
  return true;
}

void OutputFile::Write(std::span<const std::byte> bytes) {
  if (!std::exchange(written_, true) && !isNew_ && ftruncate(descriptor_, 0) != 0) {
    // What can't be emptied, such as a device, is written over.
  }
  const int64_t end = place_ + int64_t(bytes.size());
  while (!bytes.empty() && WriteSome(bytes)) {
  }
  if (!bytes.empty()) {
    if (error_.empty()) error_ = Reason(errno);
    GiveBack();
    while (!bytes.empty() && WriteSome(bytes)) {
    }
  }
  place_ = end;
  size_ = std::max(size_, place_);
}

int64_t OutputFile::Seek(int64_t place) { return place_ = place; }

void SurviveFailedWrites() {
  signal(SIGPIPE, SIG_IGN);
  signal(SIGXFSZ, SIG_IGN);
}

}  // namespace Veldrift
