#include "tools/platform/process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <system_error>
#include <thread>

#include "platform/system.h"

extern char** environ;

namespace Veldrift {
namespace {

// The system has no wait for a child that ends by itself after a time.
constexpr int64_t kAskNanos = 5'000'000;

// The argument table as the system takes it; it points into what it was made from.
std::vector<char*> ArgumentTable(const std::string& program,
                                 const std::vector<std::string>& arguments) {
  std::vector<char*> table = {const_cast<char*>(program.c_str())};
  for (const auto& argument : arguments) table.push_back(const_cast<char*>(argument.c_str()));
  table.push_back(nullptr);
  return table;
}

bool LinkOrCopySelf(const std::filesystem::path& target) {
  const auto self = GetExecutablePath();
  std::error_code error;
  std::filesystem::remove(target, error);
  std::filesystem::create_hard_link(self, target, error);
  if (!error) return true;
  return std::filesystem::copy_file(self, target, error) && !error;
}

class PosixChildProcess final : public ChildProcess {
 public:
  explicit PosixChildProcess(pid_t process) : process_(process) {}
  ~PosixChildProcess() override {
    Kill();
    Wait();
  }

  bool Interrupt() override { return process_ > 0 && kill(process_, SIGINT) == 0; }

  void Kill() override {
    if (process_ > 0) kill(process_, SIGKILL);
  }

  int Wait() override {
    Reap(0);
    return exitCode_;
  }

  std::optional<int> WaitFor(int64_t timeoutNanos) override {
    for (int64_t left = timeoutNanos; !Reap(WNOHANG); left -= kAskNanos) {
      if (left <= 0) return std::nullopt;
      std::this_thread::sleep_for(std::chrono::nanoseconds(std::min(left, kAskNanos)));
    }
    return exitCode_;
  }

  uint32_t Number() const override { return uint32_t(process_); }
  uint32_t KilledBy() const override { return killedBy_; }

 private:
  // False: it still runs.
  bool Reap(int options) {
    if (process_ <= 0) return true;
    int status = 0;
    pid_t ended = 0;
    while ((ended = waitpid(process_, &status, options)) < 0 && errno == EINTR) {
    }
    if (ended == 0) return false;
    process_ = 0;
    exitCode_ = ended > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    if (ended > 0 && WIFSIGNALED(status)) killedBy_ = uint32_t(WTERMSIG(status));
    return true;
  }

  pid_t process_;
  int exitCode_ = -1;
  uint32_t killedBy_ = 0;
};

}  // namespace

std::optional<int> RunAs(const std::filesystem::path& copyOfSelf,
                         const std::vector<std::string>& arguments) {
  if (!LinkOrCopySelf(copyOfSelf)) return std::nullopt;
  const std::string program = copyOfSelf.native();
  execv(program.c_str(), ArgumentTable(program, arguments).data());
  return std::nullopt;
}

std::unique_ptr<ChildProcess> StartProcess(const std::filesystem::path& program,
                                           const std::vector<std::string>& arguments,
                                           const std::optional<ProcessOutput>& output) {
  const std::string text = program.native();
  posix_spawn_file_actions_t files;
  if (posix_spawn_file_actions_init(&files) != 0) return nullptr;
  if (output) {
    constexpr int kWrite = O_WRONLY | O_CREAT | O_TRUNC;
    constexpr mode_t kMode = 0600;
    posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, output->output.c_str(), kWrite, kMode);
    posix_spawn_file_actions_addopen(&files, STDERR_FILENO, output->errors.c_str(), kWrite, kMode);
  }
  pid_t process = 0;
  const int failed = posix_spawn(&process, text.c_str(), &files, nullptr,
                                 ArgumentTable(text, arguments).data(), environ);
  posix_spawn_file_actions_destroy(&files);
  if (failed != 0) return nullptr;
  return std::make_unique<PosixChildProcess>(process);
}

}  // namespace Veldrift
