// Runs the plug-in's built-in tests from outside: each is named in a marker, and its verdict stands
// in the plug-in's log.
#pragma once

#include <atomic>
#include <filesystem>
#include <string>
#include <vector>

#include "tools/receiver/pairing_log.h"
#include "tools/receiver/phone_link.h"

namespace Veldrift {

struct SelfTestVerdict {
  std::string id;
  bool came = false;  // in time
  bool passed = false;
  std::string detail;
};

class SelfTests {
 public:
  // From now on, verdicts in this log count.
  explicit SelfTests(const std::filesystem::path& pluginLog) : log_(pluginLog) {}

  // Runs one test after the other. Waits at most `seconds` for each, and not when interrupted or
  // when the plug-in goes.
  std::vector<SelfTestVerdict> Run(const std::vector<std::string>& ids, PhoneLink& link,
                                   double seconds, const std::atomic<bool>& interrupted);

 private:
  LogTail log_;
};

// "P0.1 PASS — what it showed".
std::string VerdictText(const SelfTestVerdict& verdict);

}  // namespace Veldrift
