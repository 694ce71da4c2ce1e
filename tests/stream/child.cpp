#include "tests/stream/child.h"

#include <gtest/gtest.h>

#include <sstream>

#include "platform/file.h"
#include "platform/system.h"
#include "support/clock.h"
#include "tests/support/child.h"

namespace Veldrift {

namespace {

constexpr int64_t kAskNanos = 5 * kNanosPerMilli;

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

Child::Child(const std::string& program, const std::vector<std::string>& arguments,
             std::filesystem::path stem)
    : stem_(std::move(stem)) {
  const ScopedEnvironment temporary("TMPDIR", PathText(stem_.parent_path()));
  process_ = StartProcess(BesideThis(program), arguments,
                          ProcessOutput{stem_.native() + ".out", stem_.native() + ".err"});
}

int Child::Wait() {
  if (const auto code = process_->WaitFor(kPatienceNanos)) return *code;
  ADD_FAILURE() << PathText(stem_.filename()) << " doesn't end";
  Kill();
  return process_->Wait();
}

void Child::Interrupt() { ASSERT_TRUE(process_->Interrupt()) << "it has ended before"; }

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
