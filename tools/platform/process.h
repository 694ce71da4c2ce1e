// Other processes of our own making: the host stand-in under another name, and what tests start
// and kill.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Veldrift {

// Runs this executable again under the file name `copyOfSelf` (a link or a copy of it, made here)
// with `arguments` (UTF-8, without the program's name). Where the system can replace a running
// program, it does, so that the process keeps its number and this returns only on failure;
// elsewhere it waits for the other process, which shares the console and so its Ctrl-C, and
// answers its exit code. Nothing: it couldn't be started.
std::optional<int> RunAs(const std::filesystem::path& copyOfSelf,
                         const std::vector<std::string>& arguments);

// A process that this one started. Killed, if it still runs, and reaped by the destructor.
// Threads: one thread uses it.
class ChildProcess {
 public:
  virtual ~ChildProcess() = default;

  // As if Ctrl-C were pressed at its terminal. False: it has ended, or the system can't press it
  // for one process alone, as Windows can't.
  virtual bool Interrupt() = 0;

  // Ends it at once, wherever it stands; it gets no chance to tidy up.
  virtual void Kill() = 0;

  // Waits for its end. The exit code, or -1 if it was killed.
  virtual int Wait() = 0;

  // Waits at most `timeoutNanos` for its end. Nothing: it still runs.
  virtual std::optional<int> WaitFor(int64_t timeoutNanos) = 0;

  // The system's number of it; 0 once its end was seen.
  virtual uint32_t Number() const = 0;

  // Once its end was seen: the signal that ended it, or on Windows the exception that nobody
  // handled; 0 if it ended by itself or by Kill() there.
  virtual uint32_t KilledBy() const = 0;
};

// Files that take what a process says; they are made or emptied. Its input is empty then.
struct ProcessOutput {
  std::filesystem::path output;
  std::filesystem::path errors;
};

// Starts `program` with `arguments` (UTF-8), this process's environment and, without `output`, its
// console. Null: it couldn't be started.
std::unique_ptr<ChildProcess> StartProcess(const std::filesystem::path& program,
                                           const std::vector<std::string>& arguments,
                                           const std::optional<ProcessOutput>& output = {});

}  // namespace Veldrift
