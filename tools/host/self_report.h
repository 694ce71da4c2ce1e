// What the host's self-test came to: for people, for programs, and as the one line that people send
// back.
#pragma once

#include <string>

#include "self_check.h"
#include "summary.h"

namespace Veldrift {

struct SelfReport {
  SelfCheckResult check;
  HostRun run;
  std::string version;  // of this build
  std::string system;   // SystemName()
  bool kept = false;    // settings and log are in a folder of the user's
};

// What it comes to; `sentence` says what is wrong. A built-in test that can't pass on this system
// isn't held against it.
HostExit Judge(const SelfReport& report, std::string& sentence);

// "veldrift-self-test v0.2.0 linux ..."
std::string SelfTestLine(const SelfReport& report, HostExit exit);

std::string SelfTestText(const SelfReport& report, HostExit exit);
std::string SelfTestJson(const SelfReport& report, HostExit exit);

}  // namespace Veldrift
