// One of the stand-ins as a process of its own, with what it says kept in files.
//
// Threads: one thread uses it.
#pragma once

#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/support/eventually.h"
#include "tools/platform/process.h"

namespace Veldrift {

// The program of that name beside this one.
std::filesystem::path BesideThis(const std::string& name);

// The environment variable VD_WINDOWS_BIN names the Windows build's programs: then the host is the
// Windows one with the Windows module, under Wine, in the prefix that has encoders
// (tests/transforms). What that build hasn't, such as the phone, stays this system's.
// VD_WINDOWS_RUN names what runs these programs, if it isn't cmake/run-wine-transforms.
bool HostIsWindows();

// There the module has a graphics adapter that takes its shader and has textures that the shader
// can write: VD_WINDOWS_ADAPTER says so (tests/gpu/root.sh).
bool HostHasAdapter();

class StandIn {
 public:
  // Starts `program`; its output goes to `stem`.out and `stem`.err, its temporary files into the
  // stem's folder.
  StandIn(const std::string& program, const std::vector<std::string>& arguments,
          std::filesystem::path stem);

  // The exit code; -1 if it was killed, also for hanging.
  int Wait();
  // As if Ctrl-C were pressed.
  void Interrupt();
  void Kill() { process_->Kill(); }
  // As if its terminal were closed.
  void CloseTerminal();
  bool Ended() { return process_->WaitFor(0).has_value(); }

  std::string Output() const;
  // What it said on stderr, without what libraries add of their own; one line an entry.
  std::vector<std::string> Complaints() const;
  // The summary that --json makes; an empty object if there is none.
  nlohmann::json Summary() const;

 private:
  std::string Said(const char* where) const;

  const std::filesystem::path stem_;
  std::unique_ptr<ChildProcess> process_;
};

}  // namespace Veldrift
