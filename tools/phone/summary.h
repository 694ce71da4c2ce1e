// What a run of the phone stand-in found, for people and for programs.
#pragma once

#include <string>
#include <vector>

#include "decoding_sink.h"
#include "recording_sink.h"
#include "snapshot_writer.h"
#include "tools/discovery/service_browser.h"
#include "tools/receiver/adapter.h"
#include "tools/receiver/media_receiver.h"
#include "tools/receiver/phone_link.h"
#include "tools/receiver/self_tests.h"
#include "tools/receiver/status_message.h"
#include "verdict.h"

namespace Veldrift {

struct RunResult {
  Findings findings;
  MediaCounters video;
  MediaCounters audio;
  std::vector<LostFrame> lostVideo;
  const DecodingSink& decoding;
  const RecordingSink* recording;   // null: none was asked for
  const SnapshotWriter* snapshots;  // null: none was asked for
  std::string encoder;              // as the plug-in describes it
  std::vector<StatusMessage> messages;
  std::vector<SentCommand> sent;
  std::vector<FoundService> found;  // by discovery
  int64_t connectNs = 0;
  const AdapterReport* adaptation = nullptr;  // null: the stream stayed as it was asked for
};

std::string SummaryText(const RunResult& result);
std::string SummaryJson(const RunResult& result, const Verdict& verdict);
// Of a run that didn't come to a stream.
std::string ErrorJson(const Verdict& verdict);

// What a run of the plug-in's built-in tests came to.
std::string VerdictText(const std::vector<SelfTestVerdict>& verdicts);
std::string VerdictJson(const std::vector<SelfTestVerdict>& verdicts);

}  // namespace Veldrift
