#include "summary.h"

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

Json DelayJson(const DelayStats& delays) {
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

std::string FileLines(const MediaPipeline& media) {
  std::string text;
  if (const Recorder* recording = media.Recording()) {
    text += Line("  %-22s %.1f s in %d file%s", "recorded", recording->Seconds(),
                 recording->Files(), recording->Files() == 1 ? "" : "s");
  }
  if (const SnapshotWriter* snapshots = media.Snapshots()) {
    text += Line("  %-22s %d", "pictures written", snapshots->Written());
  }
  return text;
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

std::string SentLines(const std::vector<SentCommand>& commands) {
  std::string text;
  size_t keyFrames = 0;
  for (const SentCommand& sent : commands) {
    if (sent.command.opcode == kRequestIdr) {
      ++keyFrames;
    } else if (sent.acknowledgedNs) {
      text += Line("  %-22s acknowledged after %.2f ms", CommandName(sent.command.opcode),
                   MillisBetween(sent.sentNs, *sent.acknowledgedNs));
    } else {
      text += Line("  %-22s sent", CommandName(sent.command.opcode));
    }
  }
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

std::string FirstViolation(const RunResult& result) {
  for (const MediaCounters* counters : {&result.video, &result.audio}) {
    if (!counters->assembler.violationTexts.empty()) {
      return counters->assembler.violationTexts.front();
    }
  }
  return result.controlViolation;
}

}  // namespace

Verdict Judge(const RunResult& result) {
  if (const std::string violation = FirstViolation(result); !violation.empty()) {
    return {kExitBroken, "violation of the protocol: " + violation};
  }
  const DecoderCounters& decoder = result.media.Decoder().Counters();
  if (decoder.failed > 0) return {kExitBroken, "broken stream: " + decoder.firstFailure};
  if (!result.media.Checker().Right()) {
    return {kExitBroken, "broken stream: " + result.media.Checker().Counters().firstFault};
  }
  if (decoder.decoded == 0) return {kExitNoPicture, "no picture arrived"};
  if (const std::string error = result.media.FileError(); !error.empty()) {
    return {kExitFailed, error};
  }
  return {};
}

std::string SummaryText(const RunResult& result) {
  const AssemblerCounters& video = result.video.assembler;
  const AssemblerCounters& audio = result.audio.assembler;
  const VideoDecoder& decoder = result.media.Decoder();
  using Count = unsigned long long;
  std::string text = Line("veldrift-phone: %.1f s", double(result.endNs - result.startNs) / 1e9);
  text += Line("  %-22s %s %dx%d, %.1f Mbit/s%s%s", "video", decoder.CodecName(), decoder.Width(),
               decoder.Height(), result.media.BitRate() / 1e6, result.encoder.empty() ? "" : ", ",
               result.encoder.c_str());
  text += Line("  %-22s %llu whole (%llu repaired), %llu lost, %llu decoded", "frames",
               Count(video.framesWhole), Count(video.framesRepaired), Count(video.framesLost),
               Count(decoder.Counters().decoded));
  text +=
      Line("  %-22s %llu received, %llu missing, %llu fragments restored", "datagrams",
           Count(video.datagrams), Count(video.missingDatagrams), Count(video.fragmentsRepaired));
  if (result.video.simulatedDrops + result.video.simulatedReorders > 0) {
    text += Line("  %-22s %llu dropped, %llu delayed", "simulated",
                 Count(result.video.simulatedDrops), Count(result.video.simulatedReorders));
  }
  text += Line("  %-22s %llu blocks, %llu lost", "sound", Count(audio.framesWhole),
               Count(audio.framesLost));
  if (decoder.Counters().skipped > 0) {
    text += Line("  %-22s %llu", "awaited a key frame", Count(decoder.Counters().skipped));
  }
  if (result.media.LeftOut() > 0) {
    text += Line("  %-22s %zu: this machine is too slow", "left out", result.media.LeftOut());
  }
  text += StampLines(result.media.Checker().Counters());
  if (const int64_t pictureNs = result.media.FirstPictureNs(); pictureNs != 0) {
    text += Line("  %-22s %.1f ms after connecting", "first picture",
                 MillisBetween(result.connectNs, pictureNs));
  }
  text += DelayLine("push to whole frame", result.media.Checker().PushToWhole());
  text += DelayLine("push to picture", result.media.Checker().PushToPicture());
  text += DelayLine("framing to whole frame", result.media.Checker().FramingToWhole());
  return text + SentLines(result.sent) + FileLines(result.media);
}

std::string SummaryJson(const RunResult& result, const Verdict& verdict) {
  const VideoDecoder& decoder = result.media.Decoder();
  const StreamChecker& checker = result.media.Checker();
  Json json;
  json["exit"] = int(verdict.exit);
  json["verdict"] = verdict.sentence.empty() ? "good" : verdict.sentence;
  json["seconds"] = double(result.endNs - result.startNs) / 1e9;
  json["codec"] = decoder.CodecName();
  json["width"] = decoder.Width();
  json["height"] = decoder.Height();
  json["bits_per_second"] = result.media.BitRate();
  json["encoder"] = result.encoder;
  json["video"] = StreamJson(result.video);
  json["audio"] = StreamJson(result.audio);
  json["lost_video"] = LostJson(result.lostVideo);
  json["decoder"] = {{"decoded", decoder.Counters().decoded},
                     {"skipped", decoder.Counters().skipped},
                     {"failed", decoder.Counters().failed},
                     {"left_out", result.media.LeftOut()}};
  json["stamps"] = CheckJson(checker.Counters());
  if (const int64_t pictureNs = result.media.FirstPictureNs(); pictureNs != 0) {
    json["first_picture_ms"] = MillisBetween(result.connectNs, pictureNs);
  }
  json["delay"] = {{"push_to_whole", DelayJson(checker.PushToWhole())},
                   {"push_to_picture", DelayJson(checker.PushToPicture())},
                   {"framing_to_whole", DelayJson(checker.FramingToWhole())}};
  if (const Recorder* recording = result.media.Recording()) {
    json["recording"] = {{"files", recording->Files()}, {"seconds", recording->Seconds()}};
  }
  if (const SnapshotWriter* snapshots = result.media.Snapshots()) {
    json["snapshots"] = snapshots->Written();
  }
  for (const FoundService& service : result.found) json["found"].push_back(FoundJson(service));
  json["commands"] = Json::array();
  for (const SentCommand& sent : result.sent) {
    json["commands"].push_back(SentJson(sent, result.startNs));
  }
  json["control"] = Json::array();
  for (const StatusMessage& message : result.messages) {
    json["control"].push_back(MessageJson(message, result.startNs));
  }
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
