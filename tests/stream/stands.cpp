#include "tests/stream/stands.h"

#include <sstream>

#include "platform/file.h"
#include "platform/system.h"
#include "support/clock.h"

namespace Veldrift {

namespace {

constexpr const char* kRun =
    "echo $$ > \"$1.pid\"; out=$1; shift; exec \"$@\" >\"$out.out\" 2>\"$out.err\"";

// Looks for a while; on a busy machine a stand-in may need its time to come up.
template <typename Condition>
bool Eventually(Condition&& condition) {
  const int64_t end = SteadyNanos() + 30 * kNanosPerSecond;
  while (!condition()) {
    if (SteadyNanos() > end) return false;
    SystemClock().SleepFor(5 * kNanosPerMilli);
  }
  return true;
}

std::string With(std::filesystem::path path, const char* extension) {
  return ReadWholeFile(path += extension).value_or("");
}

}  // namespace

Stand::Stand(const std::string& program, const std::string& name,
             const std::filesystem::path& folder, const std::vector<std::string>& arguments)
    : base_(folder / name) {
  std::vector<std::string> all{"-c", kRun, "sh", PathText(base_),
                               PathText(GetExecutablePath().parent_path() / program)};
  all.insert(all.end(), arguments.begin(), arguments.end());
  process_ = StartProcess("/bin/sh", all);
}

int Stand::Wait() { return process_ ? process_->Wait() : -2; }

void Stand::Kill() { process_->Kill(); }

void Stand::Interrupt() {
  const auto kill = StartProcess("/bin/sh", {"-c", "kill -INT " + With(base_, ".pid")});
  if (kill) kill->Wait();
}

std::string Stand::Output() const { return With(base_, ".out"); }

std::vector<std::string> Stand::Errors() const {
  std::istringstream text(With(base_, ".err"));
  std::vector<std::string> lines;
  for (std::string line; std::getline(text, line);) {
    if (!line.empty() && !line.starts_with("gf256_ctx")) lines.push_back(line);
  }
  return lines;
}

Stand& StreamStage::StartHost(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), {"--home", PathText(File("home")), "--json"});
  const size_t before = PluginLog().size();
  host_ = std::make_unique<Stand>("veldrift-host", "host", folder_.Path(), arguments);
  Eventually([&] { return PluginLog().find(" Listening on :", before) != std::string::npos; });
  return *host_;
}

Stand StreamStage::Phone(const std::string& name, std::vector<std::string> arguments) const {
  arguments.insert(arguments.begin(),
                   {"--host", "127.0.0.1", "--bind", phoneAddress_, "--id", name, "--json"});
  arguments.insert(arguments.end(), {"--token-file", PathText(File(name + ".token"))});
  return Stand("veldrift-phone", name, folder_.Path(), arguments);
}

nlohmann::json StreamStage::PhoneResult(const std::string& name,
                                        std::vector<std::string> arguments) const {
  arguments.insert(arguments.end(),
                   {"--code-from-log", PathText(File("home/local/Veldrift/plugin.log"))});
  Stand phone = Phone(name, std::move(arguments));
  const int exit = phone.Wait();
  nlohmann::json result = phone.Json();
  if (!result.is_object()) result = {{"verdict", phone.Output()}};
  result["exit"] = exit;
  return result;
}

std::string StreamStage::PluginLog() const {
  return ReadWholeFile(File("home/local/Veldrift/plugin.log")).value_or("");
}

bool StreamStage::LogEventuallyHas(const std::string& text) const {
  return Eventually([&] { return PluginLog().find(text) != std::string::npos; });
}

}  // namespace Veldrift
