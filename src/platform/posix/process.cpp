#include "platform/process.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "platform/system.h"

extern char** environ;

namespace Veldrift {
namespace {

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

  void Kill() override {
    if (process_ > 0) kill(process_, SIGKILL);
  }

  int Wait() override {
    if (process_ <= 0) return exitCode_;
    int status = 0;
    while (waitpid(process_, &status, 0) < 0 && errno == EINTR) {
    }
    process_ = 0;
    exitCode_ = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return exitCode_;
  }

 private:
  pid_t process_;
  int exitCode_ = -1;
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
                                           const std::vector<std::string>& arguments) {
  const std::string text = program.native();
  pid_t process = 0;
  if (posix_spawn(&process, text.c_str(), nullptr, nullptr, ArgumentTable(text, arguments).data(),
                  environ) != 0) {
    return nullptr;
  }
  return std::make_unique<PosixChildProcess>(process);
}

}  // namespace Veldrift
