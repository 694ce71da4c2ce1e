#include "tools/platform/posix/output_pipe.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

namespace Veldrift {
namespace {

constexpr int kLookMillis = 50;  // for GiveUp

}  // namespace

std::unique_ptr<OutputPipe> OutputPipe::TakeStandardOutput(std::string& sentence) {
  if (isatty(STDOUT_FILENO)) {
    sentence = "standard output is a terminal; pipe it into a player";
    return nullptr;
  }
  const int taken = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
  if (taken < 0) {
    sentence = errno == EBADF ? "standard output is closed; pipe it into a player"
                              : std::string("can't take standard output: ") + std::strerror(errno);
    return nullptr;
  }
  std::fflush(stdout);
  dup2(STDERR_FILENO, STDOUT_FILENO);
  return std::make_unique<OutputPipe>(taken);
}

OutputPipe::~OutputPipe() { close(descriptor_); }

// A pipe that is ready has room for so much, so that no write waits. It can't be made one that
// doesn't: others may share it.
bool OutputPipe::WriteSome(std::span<const std::byte>& bytes) {
  pollfd ready{descriptor_, POLLOUT, 0};
  const int count = poll(&ready, 1, kLookMillis);
  if (count < 0) return errno == EINTR;
  if (count == 0) return true;
  if ((ready.revents & POLLOUT) == 0) return false;
  const ssize_t written =
      write(descriptor_, bytes.data(), std::min<size_t>(bytes.size(), PIPE_BUF));
  if (written < 0) return errno == EINTR || errno == EAGAIN;
  bytes = bytes.subspan(size_t(written));
  return true;
}

bool OutputPipe::Write(std::span<const std::byte> bytes) {
  while (!bytes.empty() && !gone_) gone_ = givenUp_ || !WriteSome(bytes);
  return !gone_;
}

}  // namespace Veldrift
