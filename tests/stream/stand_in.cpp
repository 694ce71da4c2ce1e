#include "tests/stream/stand_in.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>

#include "platform/file.h"
#include "platform/system.h"
#include "tests/support/child.h"

namespace Veldrift {

std::filesystem::path BesideThis(const std::string& name) {
  return GetExecutablePath().parent_path() / name;
}

namespace {

const char* WindowsPrograms() { return std::getenv("VD_WINDOWS_BIN"); }

// Empty: the program is this system's.
std::string WindowsProgram(const std::string& name) {
  if (!HostIsWindows()) return {};
  const std::string path = std::string(WindowsPrograms()) + "/" + name + ".exe";
  return std::filesystem::exists(path) ? path : std::string();
}

const char* WindowsRunner() {
  const char* runner = std::getenv("VD_WINDOWS_RUN");
  return runner != nullptr ? runner : VD_SOURCE_DIR "/cmake/run-wine-transforms";
}

}  // namespace

bool HostIsWindows() { return WindowsPrograms() != nullptr; }
bool HostHasAdapter() { return std::getenv("VD_WINDOWS_ADAPTER") != nullptr; }

StandIn::StandIn(const std::string& program, const std::vector<std::string>& arguments,
                 std::filesystem::path stem)
    : stem_(std::move(stem)) {
  const ScopedEnvironment temporary("TMPDIR", PathText(stem_.parent_path()));
  const ProcessOutput files{stem_.native() + ".out", stem_.native() + ".err"};
  const std::string forWindows = WindowsProgram(program);
  if (forWindows.empty()) {
    process_ = StartProcess(BesideThis(program), arguments, files);
    return;
  }
  std::vector<std::string> all = {forWindows};
  all.insert(all.end(), arguments.begin(), arguments.end());
  process_ = StartProcess(WindowsRunner(), all, files);
}

int StandIn::Wait() {
  if (const auto code = process_->WaitFor(kPatienceNanos)) return *code;
  ADD_FAILURE() << PathText(stem_.filename()) << " doesn't end";
  Kill();
  return process_->Wait();
}

void StandIn::Interrupt() { ASSERT_TRUE(process_->Interrupt()) << "it has ended before"; }

void StandIn::CloseTerminal() {
  const auto kill = StartProcess("/bin/kill", {"-HUP", std::to_string(process_->Number())});
  ASSERT_NE(kill, nullptr);
  ASSERT_EQ(kill->Wait(), 0);
}

std::string StandIn::Output() const { return Said(".out"); }

// Lines end as this system's do.
std::string StandIn::Said(const char* where) const {
  std::string said = ReadWholeFile(stem_.native() + where).value_or("");
  std::erase(said, '\r');
  return said;
}

std::vector<std::string> StandIn::Complaints() const {
  std::istringstream text(Said(".err"));
  std::vector<std::string> lines;
  for (std::string line; std::getline(text, line);) {
    // The sanitizer's helper misses the host's copy of itself, which is gone by then.
    if (!line.starts_with("LLVMSymbolizer: ")) lines.push_back(line);
  }
  return lines;
}

nlohmann::json StandIn::Summary() const {
  const auto json = nlohmann::json::parse(Output(), nullptr, /*allow_exceptions=*/false);
  return json.is_object() ? json : nlohmann::json::object();
}

}  // namespace Veldrift
