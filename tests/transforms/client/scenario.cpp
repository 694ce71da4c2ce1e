#include "tests/transforms/client/scenario.h"

#include <windows.h>

#include <atomic>
#include <fstream>
#include <sstream>

#include "tests/transforms/common/environment.h"

namespace Veldrift::Transforms {
namespace {

// Makes a text one that no scenario has had, by a failure of nothing.
std::string Unique(const std::string& before) {
  static std::atomic<int> number{1};
  return before + "no-call@" + std::to_string(++number);
}

std::string VariableOf(std::string kind) {
  for (char& letter : kind) letter = letter == '-' ? '_' : static_cast<char>(toupper(letter));
  return std::string(kTraitsVariable) + "_" + kind;
}

std::optional<std::string> Find(const std::string& name) {
  if (GetEnvironmentVariableA(name.c_str(), nullptr, 0) == 0) return std::nullopt;
  return ReadVariable(name);
}

// "who call details result"; the details may be missing and may have blanks.
TracedCall Parse(const std::string& line) {
  TracedCall call;
  const size_t last = line.rfind(' ');
  std::istringstream words(line.substr(0, last));
  words >> call.who >> call.call >> std::ws;
  std::getline(words, call.details);
  call.result = static_cast<uint32_t>(std::stoul(line.substr(last + 1), nullptr, 16));
  return call;
}

}  // namespace

Scenario::Scenario(const std::string& kinds) {
  static std::atomic<int> number{0};
  trace_ = std::filesystem::temp_directory_path() /
           ("transforms-" + std::to_string(GetCurrentProcessId()) + "-" + std::to_string(++number) +
            ".trace");
  Set(kExactListVariable, "");
  Set(kPlatformFailVariable, "");
  for (const Kind& kind : kKinds) {
    Set(VariableOf(kind.family.name), "");
    Set(VariableOf(NameOf(kind)), "");
  }
  Set(kTraceVariable, trace_.string());
  Show(kinds);
  Traits("");
}

Scenario::~Scenario() {
  for (const auto& [name, value] : before_) {
    SetEnvironmentVariableA(name.c_str(), value ? value->c_str() : nullptr);
  }
  std::error_code ignored;
  std::filesystem::remove(trace_, ignored);
}

void Scenario::Set(const std::string& name, const std::string& value) {
  before_.try_emplace(name, Find(name));
  SetEnvironmentVariableA(name.c_str(), value.empty() ? nullptr : value.c_str());
}

void Scenario::Show(const std::string& kinds) { Set(kListVariable, kinds); }

void Scenario::ShowExactly() { Set(kExactListVariable, "1"); }

void Scenario::Traits(const std::string& traits) {
  Set(kTraitsVariable, traits + " " + Unique("fail="));
}

void Scenario::TraitsOf(const std::string& kind, const std::string& traits) {
  Set(VariableOf(kind), traits + " " + Unique("fail="));
}

void Scenario::FailPlatform(const std::string& failures) {
  Set(kPlatformFailVariable, failures + " " + Unique(""));
}

std::vector<TracedCall> Scenario::Trace() const {
  std::vector<TracedCall> calls;
  std::ifstream file(trace_);
  for (std::string line; std::getline(file, line);) calls.push_back(Parse(line));
  return calls;
}

std::vector<TracedCall> Scenario::Calls(const std::string& call) const {
  std::vector<TracedCall> calls = Trace();
  std::erase_if(calls, [&](const TracedCall& traced) { return traced.call != call; });
  return calls;
}

std::vector<std::string> Scenario::PropertiesSet() const {
  std::vector<std::string> properties;
  for (const TracedCall& call : Calls("SetValue")) properties.push_back(call.details);
  return properties;
}

void Scenario::ForgetTrace() { std::ofstream(trace_, std::ios::trunc); }

}  // namespace Veldrift::Transforms
