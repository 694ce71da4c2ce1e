#include "tools/platform/process.h"

#include "platform/file.h"
#include "platform/system.h"
#include "platform/win32/handle.h"
#include "tools/platform/command_line.h"

namespace Veldrift {
namespace {

class WinChildProcess final : public ChildProcess {
 public:
  explicit WinChildProcess(HANDLE process) : process_(process) {}
  ~WinChildProcess() override {
    Kill();
    Wait();
  }

  bool Interrupt() override { return false; }

  void Kill() override { TerminateProcess(process_.Get(), kKilled); }

  int Wait() override {
    WaitForSingleObject(process_.Get(), INFINITE);
    ended_ = true;
    DWORD code = kKilled;
    GetExitCodeProcess(process_.Get(), &code);
    if (code == kKilled) return -1;
    if (code >= kLeastError) killedBy_ = code;
    return static_cast<int>(code);
  }

  std::optional<int> WaitFor(int64_t timeoutNanos) override {
    const auto millis = static_cast<DWORD>(timeoutNanos / 1'000'000);
    if (WaitForSingleObject(process_.Get(), millis) == WAIT_TIMEOUT) return std::nullopt;
    return Wait();
  }

  uint32_t Number() const override { return ended_ ? 0 : GetProcessId(process_.Get()); }
  uint32_t KilledBy() const override { return killedBy_; }

 private:
  static constexpr DWORD kKilled = 0xFFFFFFFF;
  static constexpr DWORD kLeastError = 0xC0000000;  // an exception code of error severity

  const Handle process_;
  bool ended_ = false;
  uint32_t killedBy_ = 0;
};

// Inherited by the process that is started with them.
struct OutputHandles {
  explicit OutputHandles(const ProcessOutput& files)
      : input(Open(L"NUL", GENERIC_READ, OPEN_EXISTING)),
        output(Open(files.output.c_str(), GENERIC_WRITE, CREATE_ALWAYS)),
        errors(Open(files.errors.c_str(), GENERIC_WRITE, CREATE_ALWAYS)) {}

  static HANDLE Open(const wchar_t* name, DWORD access, DWORD disposition) {
    SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
    return CreateFileW(name, access, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited, disposition,
                       FILE_ATTRIBUTE_NORMAL, nullptr);
  }

  const Handle input, output, errors;
};

}  // namespace

std::unique_ptr<ChildProcess> StartProcess(const std::filesystem::path& program,
                                           const std::vector<std::string>& arguments,
                                           const std::optional<ProcessOutput>& output) {
  std::string line = QuotedArgument(PathText(program));
  for (const auto& argument : arguments) line += " " + QuotedArgument(argument);
  std::wstring commandLine = WideText(line);
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  std::optional<OutputHandles> handles;
  if (output) {
    handles.emplace(*output);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = handles->input.Get();
    startup.hStdOutput = handles->output.Get();
    startup.hStdError = handles->errors.Get();
  }
  PROCESS_INFORMATION information{};
  if (!CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr,
                      nullptr, &startup, &information)) {
    return nullptr;
  }
  const Handle thread(information.hThread);
  return std::make_unique<WinChildProcess>(information.hProcess);
}

std::optional<int> RunAs(const std::filesystem::path& copyOfSelf,
                         const std::vector<std::string>& arguments) {
  if (!CopyFileW(GetExecutablePath().c_str(), copyOfSelf.c_str(), FALSE)) return std::nullopt;
  // Ctrl-C reaches every process of the console: this one leaves it to the other, before that one
  // starts.
  SetConsoleCtrlHandler([](DWORD) -> BOOL { return TRUE; }, TRUE);
  const auto process = StartProcess(copyOfSelf, arguments);
  if (!process) return std::nullopt;
  return process->Wait();
}

}  // namespace Veldrift
