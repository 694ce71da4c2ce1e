// What a run of the phone stand-in found, for people and for programs; and what it comes to.
#pragma once

#include <string>
#include <vector>

#include "media_pipeline.h"
#include "phone_exit.h"
#include "tools/discovery/service_browser.h"
#include "tools/receiver/media_receiver.h"
#include "tools/receiver/phone_link.h"
#include "tools/receiver/self_tests.h"
#include "tools/receiver/status_message.h"

namespace Veldrift {

struct RunResult {
  MediaCounters video;
  MediaCounters audio;
  std::vector<LostFrame> lostVideo;
  const MediaPipeline& media;
  std::string encoder;  // as the plug-in describes it
  std::string controlViolation;
  std::vector<StatusMessage> messages;
  std::vector<SentCommand> sent;
  std::vector<FoundService> found;  // by discovery
  int64_t connectNs = 0;
  int64_t startNs = 0;  // of the watching, once paired
  int64_t endNs = 0;
};

struct Verdict {
  PhoneExit exit = kExitGood;
  std::string sentence;  // what is wrong; empty: nothing
};

Verdict Judge(const RunResult& result);

std::string SummaryText(const RunResult& result);
std::string SummaryJson(const RunResult& result, const Verdict& verdict);

// What a run of the plug-in's built-in tests came to.
std::string VerdictText(const std::vector<SelfTestVerdict>& verdicts);
std::string VerdictJson(const std::vector<SelfTestVerdict>& verdicts);

}  // namespace Veldrift
