#include "summary.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "net/control_protocol.h"
#include "platform/file.h"

namespace Veldrift {

namespace {

using Json = nlohmann::ordered_json;

std::string Line(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string Line(const char* format, ...) {
  char text[512];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  return std::string(text) + "\n";
}

double MillisBetween(int64_t fromNs, int64_t toNs) { return double(toNs - fromNs) / 1e6; }

std::string DelayLine(const char* name, const DelayStats& delays) {
  if (delays.Count() == 0) return "";
  return Line("  %-22s p50 %.1f ms, p99 %.1f ms", name, delays.PercentileMs(50),
              delays.PercentileMs(99));
}

// A delay that wasn't measured is no delay of 0.
Json DelayJson(const DelayStats& delays) {
  if (delays.Count() == 0) return {{"count", 0}, {"p50_ms", nullptr}, {"p99_ms", nullptr}};
  return {{"count", delays.Count()},
          {"p50_ms", delays.PercentileMs(50)},
          {"p99_ms", delays.PercentileMs(99)}};
}

std::string StampLines(const CheckCounters& check) {
  if (check.stamped == 0) return Line("  %-22s none: order judged by the decoder", "stamps");
  std::string text = Line("  %-22s %llu read, %llu unreadable, %llu out of order", "stamps",
                          (unsigned long long)check.stamped, (unsigned long long)check.unreadable,
                          (unsigned long long)check.outOfOrder);
  if (check.neverSeen > 0) {
    text += Line("  %-22s %llu", "pictures never seen", (unsigned long long)check.neverSeen);
  }
  return text;
}

std::string FileLines(const RunResult& result) {
  std::string text;
  if (result.recording != nullptr) {
    const std::vector<RecordedPart>& parts = result.recording->Parts();
    text += Line("  %-22s %.1f s in %zu file%s", "recorded", result.recording->Seconds(),
                 parts.size(), parts.size() == 1 ? "" : "s");
    for (const RecordedPart& part : parts) {
      text += Line("  %-22s %.1f s, %.1f MB: %s", "", part.seconds, double(part.bytes) / 1e6,
                   PathText(part.path).c_str());
    }
  }
  if (result.snapshots != nullptr) {
    text += Line("  %-22s %d", "pictures written", result.snapshots->Written());
  }
  return text;
}

Json RecordingJson(const RecordingSink& recording) {
  Json json = {{"files", recording.Parts().size()},
               {"seconds", recording.Seconds()},
               {"parts", Json::array()}};
  for (const RecordedPart& part : recording.Parts()) {
    json["parts"].push_back(
        {{"file", PathText(part.path)}, {"seconds", part.seconds}, {"bytes", part.bytes}});
  }
  return json;
}

const char* NameOf(SessionEnd end) {
  switch (end) {
    case SessionEnd::TimeUp:
      return "time-up";
    case SessionEnd::Stopped:
      return "stopped";
    case SessionEnd::Unwanted:
      return "unwanted";
    case SessionEnd::NeverOpened:
      return "never-opened";
    case SessionEnd::Lost:
      return "lost";
    case SessionEnd::TurnedAway:
      return "turned-away";
    case SessionEnd::Broken:
      return "broken";
    case SessionEnd::SinkFailed:
      break;
  }
  return "file-failed";
}

Json SessionJson(const SessionResult& session) {
  Json json = {{"end", NameOf(session.end)},
               {"lost_connections", session.interruptionCount},
               {"seconds_without", double(session.interruptedNs) / 1e9},
               {"interruptions", Json::array()}};
  for (const Interruption& each : session.interruptions) {
    Json entry = {{"at_seconds", double(each.fromNs - session.startNs) / 1e9},
                  {"seconds", nullptr},
                  {"reason", each.reason}};
    if (each.toNs != 0) entry["seconds"] = double(each.toNs - each.fromNs) / 1e9;
    json["interruptions"].push_back(std::move(entry));
  }
  return json;
}

double RateOf(const RunResult& result) {
  return result.decoding.BitRate(result.findings.session.interruptedNs);
}

std::string InterruptionLine(const SessionResult& session) {
  if (session.interruptionCount == 0) return "";
  return Line("  %-22s lost %zu time%s, for %.1f s", "connection", session.interruptionCount,
              session.interruptionCount == 1 ? "" : "s", double(session.interruptedNs) / 1e9);
}

Json StreamJson(const MediaCounters& counters) {
  const AssemblerCounters& a = counters.assembler;
  return {{"datagrams", a.datagrams},
          {"bytes", a.bytes},
          {"missing_datagrams", a.missingDatagrams},
          {"duplicates", a.duplicates},
          {"late", a.late},
          {"spare_parity", a.spareParity},
          {"frames_whole", a.framesWhole},
          {"frames_repaired", a.framesRepaired},
          {"fragments_repaired", a.fragmentsRepaired},
          {"frames_lost", a.framesLost},
          {"frames_concealed", a.framesConcealed},
          {"seconds_concealed", a.secondsConcealed},
          {"seconds_without", a.secondsLost},
          {"simulated_drops", counters.simulatedDrops},
          {"simulated_reorders", counters.simulatedReorders},
          {"violations", a.violations},
          {"violation_texts", a.violationTexts}};
}

// "came" counts what came through the simulated network: at "data" and above, the code could have
// repaired the frame.
Json LostJson(const std::vector<LostFrame>& lost) {
  Json json = Json::array();
  for (const LostFrame& frame : lost) {
    json.push_back({{"frame", frame.frameNumber},
                    {"data", frame.dataCount},
                    {"parity", frame.parityCount},
                    {"came", frame.came},
                    {"dropped", frame.dropped}});
  }
  return json;
}

Json MessageJson(const StatusMessage& message, int64_t startNs) {
  Json json = {{"ms", MillisBetween(startNs, message.timeNs)},
               {"opcode", message.opcode},
               {"name", StatusName(message.opcode)}};
  if (const auto info = ParseStreamInfo(message)) {
    json["width"] = info->width;
    json["height"] = info->height;
    json["fps"] = info->fps;
    json["frame_byte_cap"] = info->frameByteCap;
  } else if (const auto change = ParseSourceChange(message)) {
    json["width"] = change->width;
    json["height"] = change->height;
    json["fps"] = change->fps;
  } else if (message.opcode == kEncoderEngineList) {
    for (const ReportedEngine& engine : ParseEngineList(message)) {
      json["engines"].push_back(
          {{"id", engine.id}, {"label", engine.label}, {"note", engine.note}});
    }
  } else if (message.opcode == kEncoderInfo) {
    json["text"] = message.Text();
  } else {
    for (const std::byte byte : message.payload)
      json["bytes"].push_back(std::to_integer<int>(byte));
  }
  return json;
}

Json AdaptationJson(const AdapterReport& report, int64_t startNs) {
  Json json = {{"steps", report.steps},
               {"max_short_side", report.setting.shortSide},
               {"quality", report.setting.quality},
               {"key_frames_only", report.setting.intra},
               {"said", Json::array()}};
  for (const AdapterReport::Entry& entry : report.entries) {
    json["said"].push_back(
        {{"ms", MillisBetween(startNs, entry.timeNs)}, {"sentence", entry.sentence}});
  }
  return json;
}

std::string AdaptationLine(const AdapterReport* report) {
  if (report == nullptr) return "";
  return Line("  %-22s %llu steps, in the end %dp, quality %d%s", "adapted to the network",
              (unsigned long long)report->steps, report->setting.shortSide, report->setting.quality,
              report->setting.intra ? ", key frames only" : "");
}

Json SentJson(const SentCommand& sent, int64_t startNs) {
  Json json = {{"ms", MillisBetween(startNs, sent.sentNs)},
               {"opcode", sent.command.opcode},
               {"name", CommandName(sent.command.opcode)}};
  for (const std::byte byte : sent.command.payload) {
    json["bytes"].push_back(std::to_integer<int>(byte));
  }
  if (sent.acknowledgedNs) {
    json["acknowledged_after_ms"] = MillisBetween(sent.sentNs, *sent.acknowledgedNs);
  }
  return json;
}

// The commands of one kind.
struct SentKind {
  std::string name;
  size_t sent = 0;
  std::vector<double> acknowledgedMs;
};

std::string SentLine(const SentKind& kind) {
  const auto& times = kind.acknowledgedMs;
  if (times.empty()) {
    return kind.sent == 1 ? Line("  %-22s sent", kind.name.c_str())
                          : Line("  %-22s %zu sent", kind.name.c_str(), kind.sent);
  }
  const auto [least, most] = std::ranges::minmax(times);
  if (kind.sent == 1) return Line("  %-22s acknowledged after %.2f ms", kind.name.c_str(), least);
  return Line("  %-22s %zu sent, %zu acknowledged after %.2f to %.2f ms", kind.name.c_str(),
              kind.sent, times.size(), least, most);
}

// In the order in which each kind was sent first.
std::string SentLines(const std::vector<SentCommand>& commands) {
  std::vector<SentKind> kinds;
  size_t keyFrames = 0;
  for (const SentCommand& sent : commands) {
    if (sent.command.opcode == kRequestIdr) {
      ++keyFrames;
      continue;
    }
    const std::string name = CommandName(sent.command.opcode);
    auto kind = std::ranges::find(kinds, name, &SentKind::name);
    if (kind == kinds.end()) kind = kinds.insert(kind, SentKind{name, 0, {}});
    ++kind->sent;
    if (!sent.acknowledgedNs) continue;
    kind->acknowledgedMs.push_back(MillisBetween(sent.sentNs, *sent.acknowledgedNs));
  }
  std::string text;
  for (const SentKind& kind : kinds) text += SentLine(kind);
  if (keyFrames > 0) text += Line("  %-22s %zu asked for", "key frames", keyFrames);
  return text;
}

Json FoundJson(const FoundService& service) {
  return {{"instance", service.instance},
          {"host_name", service.hostName},
          {"address", AddressText(service.endpoint.address)},
          {"port", service.endpoint.port},
          {"version", service.version},
          {"id", service.id},
          {"name", service.name},
          {"transmit", service.transmit}};
}

Json CheckJson(const CheckCounters& check) {
  return {{"stamped", check.stamped},         {"unreadable", check.unreadable},
          {"repeated", check.repeated},       {"replayed", check.replayed},
          {"out_of_order", check.outOfOrder}, {"never_seen", check.neverSeen}};
}

}  // namespace

std::string SummaryText(const RunResult& result) {
  const AssemblerCounters& video = result.video.assembler;
  const AssemblerCounters& audio = result.audio.assembler;
  const VideoDecoder& decoder = result.decoding.Decoder();
  const SessionResult& session = result.findings.session;
  using Count = unsigned long long;
  std::string text = Line("veldrift-phone: %.1f s", double(session.endNs - session.startNs) / 1e9);
  text += Line("  %-22s %s %dx%d, %.1f Mbit/s%s%s", "video", decoder.CodecName(), decoder.Width(),
               decoder.Height(), RateOf(result) / 1e6, result.encoder.empty() ? "" : ", ",
               result.encoder.c_str());
  text += Line("  %-22s %llu whole (%llu repaired), %llu lost, %llu decoded", "frames",
               Count(video.framesWhole), Count(video.framesRepaired), Count(video.framesLost),
               Count(decoder.Counters().decoded));
  text +=
      Line("  %-22s %llu received, %llu missing, %llu fragments restored", "video datagrams",
           Count(video.datagrams), Count(video.missingDatagrams), Count(video.fragmentsRepaired));
  text += InterruptionLine(session);
  text += AdaptationLine(result.adaptation);
  if (result.video.simulatedDrops + result.video.simulatedReorders > 0) {
    text += Line("  %-22s %llu dropped, %llu delayed", "simulated",
                 Count(result.video.simulatedDrops), Count(result.video.simulatedReorders));
  }
  text += Line("  %-22s %llu blocks whole, %llu with gaps filled (%.2f s), %llu lost (%.2f s)",
               "sound", Count(audio.framesWhole), Count(audio.framesConcealed),
               audio.secondsConcealed, Count(audio.framesLost), audio.secondsLost);
  if (decoder.Counters().skipped > 0) {
    text += Line("  %-22s %llu", "awaited a key frame", Count(decoder.Counters().skipped));
  }
  if (result.decoding.LeftOut() > 0) {
    text += Line("  %-22s %zu: this machine is too slow", "left out", result.decoding.LeftOut());
  }
  text += StampLines(result.decoding.Checker().Counters());
  if (const int64_t pictureNs = result.decoding.FirstPictureNs(); pictureNs != 0) {
    text += Line("  %-22s %.1f ms after connecting", "first picture",
                 MillisBetween(result.connectNs, pictureNs));
  }
  text += DelayLine("push to whole frame", result.decoding.Checker().PushToWhole());
  text += DelayLine("push to picture", result.decoding.Checker().PushToPicture());
  text += DelayLine("framing to whole frame", result.decoding.Checker().FramingToWhole());
  return text + SentLines(result.sent) + FileLines(result);
}

std::string SummaryJson(const RunResult& result, const Verdict& verdict) {
  const VideoDecoder& decoder = result.decoding.Decoder();
  const StreamChecker& checker = result.decoding.Checker();
  const SessionResult& session = result.findings.session;
  Json json;
  json["exit"] = int(verdict.exit);
  json["verdict"] = verdict.sentence.empty() ? "good" : verdict.sentence;
  json["seconds"] = double(session.endNs - session.startNs) / 1e9;
  json["session"] = SessionJson(session);
  json["codec"] = decoder.CodecName();
  json["width"] = decoder.Width();
  json["height"] = decoder.Height();
  json["bits_per_second"] = RateOf(result);
  json["encoder"] = result.encoder;
  json["lost_percent"] = LostPercent(result.video.assembler, decoder.Counters());
  json["video"] = StreamJson(result.video);
  json["audio"] = StreamJson(result.audio);
  json["lost_video"] = LostJson(result.lostVideo);
  json["decoder"] = {{"decoded", decoder.Counters().decoded},
                     {"skipped", decoder.Counters().skipped},
                     {"failed", decoder.Counters().failed},
                     {"left_out", result.decoding.LeftOut()}};
  json["stamps"] = CheckJson(checker.Counters());
  if (const int64_t pictureNs = result.decoding.FirstPictureNs(); pictureNs != 0) {
    json["first_picture_ms"] = MillisBetween(result.connectNs, pictureNs);
  }
  json["delay"] = {{"push_to_whole", DelayJson(checker.PushToWhole())},
                   {"push_to_picture", DelayJson(checker.PushToPicture())},
                   {"framing_to_whole", DelayJson(checker.FramingToWhole())}};
  if (result.adaptation != nullptr) {
    json["adaptation"] = AdaptationJson(*result.adaptation, session.startNs);
  }
  if (result.recording != nullptr) json["recording"] = RecordingJson(*result.recording);
  if (result.snapshots != nullptr) json["snapshots"] = result.snapshots->Written();
  for (const FoundService& service : result.found) json["found"].push_back(FoundJson(service));
  json["commands"] = Json::array();
  for (const SentCommand& sent : result.sent) {
    json["commands"].push_back(SentJson(sent, session.startNs));
  }
  json["control"] = Json::array();
  for (const StatusMessage& message : result.messages) {
    json["control"].push_back(MessageJson(message, session.startNs));
  }
  return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::string ErrorJson(const Verdict& verdict) {
  const Json json = {{"exit", int(verdict.exit)}, {"verdict", verdict.sentence}};
  return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::string VerdictText(const std::vector<SelfTestVerdict>& verdicts) {
  std::string text;
  for (const SelfTestVerdict& verdict : verdicts) text += VerdictText(verdict) + "\n";
  return text;
}

std::string VerdictJson(const std::vector<SelfTestVerdict>& verdicts) {
  Json json;
  for (const SelfTestVerdict& verdict : verdicts) {
    json["self_tests"].push_back({{"id", verdict.id},
                                  {"came", verdict.came},
                                  {"passed", verdict.passed},
                                  {"detail", verdict.detail}});
  }
  return json.dump(2) + "\n";
}

}  // namespace Veldrift
