#include "tests/stream/child.h"

#include <gtest/gtest.h>

#include <sstream>

#include "platform/file.h"
#include "platform/system.h"
#include "support/clock.h"

namespace Veldrift {

namespace {

constexpr int64_t kAskNanos = 5 * kNanosPerMilli;
constexpr const char* kShell = "/bin/sh";
// "exec" keeps the process's number, so that the child is the stand-in itself.
constexpr const char* kRedirect = R"sh(
  export TMPDIR="$(dirname "$1")"
  out="$1.out"; err="$1.err"; shift
  exec "$@" </dev/null >"$out" 2>"$err")sh";

}  // namespace

bool Eventually(const std::function<bool()>& holds) {
  const int64_t deadline = SteadyNanos() + kPatienceNanos;
  while (!holds()) {
    if (SteadyNanos() > deadline) return false;
    SystemClock().SleepFor(kAskNanos);
  }
  return true;
}

std::filesystem::path BesideThis(const std::string& name) {
  return GetExecutablePath().parent_path() / name;
}

Child::Child(const std::string& program, std::vector<std::string> arguments,
             std::filesystem::path stem)
    : stem_(std::move(stem)) {
  std::vector<std::string> all = {"-c", kRedirect, "sh", PathText(stem_),
                                  PathText(BesideThis(program))};
  all.insert(all.end(), arguments.begin(), arguments.end());
  process_ = StartProcess(kShell, all);
}

int Child::Wait() {
  if (const auto code = process_->WaitFor(kPatienceNanos)) return *code;
  ADD_FAILURE() << PathText(stem_.filename()) << " doesn't end";
  Kill();
  return process_->Wait();
}

void Child::Interrupt() {
  const uint32_t number = process_->Number();
  ASSERT_NE(number, 0u) << "it has ended before";
  StartProcess(kShell, {"-c", "kill -INT " + std::to_string(number)})->Wait();
}

std::string Child::Output() const { return ReadWholeFile(stem_.native() + ".out").value_or(""); }

std::vector<std::string> Child::Complaints() const {
  std::istringstream text(ReadWholeFile(stem_.native() + ".err").value_or(""));
  std::vector<std::string> lines;
  for (std::string line; std::getline(text, line);) {
    // The sanitizer's helper misses the host's copy of itself, which is gone by then.
    if (!line.starts_with("LLVMSymbolizer: ")) lines.push_back(line);
  }
  return lines;
}

nlohmann::json Child::Summary() const {
  const auto json = nlohmann::json::parse(Output(), nullptr, /*allow_exceptions=*/false);
  return json.is_object() ? json : nlohmann::json::object();
}

}  // namespace Veldrift
