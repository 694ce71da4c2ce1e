// The stand-ins as processes: started, read, interrupted and killed by a test.
#pragma once

#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "platform/process.h"
#include "tests/support/scratch.h"

namespace Veldrift {

// One stand-in; what it prints goes to files in `folder` that begin with its `name`. Killed, if it
// still runs, by the destructor.
class Stand {
 public:
  Stand(const std::string& program, const std::string& name, const std::filesystem::path& folder,
        const std::vector<std::string>& arguments);

  // Its exit code, -1 if it was killed.
  int Wait();
  void Kill();
  void Interrupt();  // as Ctrl-C does

  std::string Output() const;
  // Its sentences on the standard error, without the block code's own line.
  std::vector<std::string> Errors() const;
  nlohmann::json Json() const { return nlohmann::json::parse(Output(), nullptr, false); }

 private:
  const std::filesystem::path base_;
  std::unique_ptr<ChildProcess> process_;
};

// A folder with a host that plays into the module, and phones that come and go. A test's phones
// live at a loopback address of its own.
class StreamStage {
 public:
  explicit StreamStage(std::string phoneAddress) : phoneAddress_(std::move(phoneAddress)) {}

  // Starts the host and waits until the module listens.
  Stand& StartHost(std::vector<std::string> arguments);
  Stand& Host() { return *host_; }
  // A phone that pairs by the code in the log, or by its token where it has one.
  Stand Phone(const std::string& name, std::vector<std::string> arguments) const;
  // Another one that has run to its end.
  nlohmann::json PhoneResult(const std::string& name, std::vector<std::string> arguments) const;

  std::filesystem::path File(const std::string& name) const { return folder_.Path() / name; }
  std::string PluginLog() const;
  bool LogEventuallyHas(const std::string& text) const;

 private:
  const std::string phoneAddress_;
  ScratchFolder folder_;
  std::unique_ptr<Stand> host_;
};

}  // namespace Veldrift
