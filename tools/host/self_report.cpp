#include "self_report.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string_view>

namespace Veldrift {

namespace {

// Asks for pictures that stay on the graphics adapter, for which only Windows has a way.
constexpr const char* kResidencyTest = "P6.2";

std::string Format(const char* format, auto... values) {
  char text[512];
  std::snprintf(text, sizeof text, format, values...);
  return text;
}

bool CanPass(const std::string& id, const SelfReport& report) {
  return id != kResidencyTest || report.system.starts_with("windows");
}

std::string WordFor(const SelfTestVerdict& verdict, const SelfReport& report) {
  if (verdict.passed) return "ok";
  if (!verdict.came) return "silent";
  return CanPass(verdict.id, report) ? "failed" : "not-here";
}

std::string AdapterOf(const LogFindings& log) {
  if (!log.adapter.empty()) return log.adapter;
  return log.noAdapter.empty() ? "none" : "none: " + log.noAdapter;
}

std::string ResidentOf(const StreamCheck& stream) {
  return stream.resident.empty() ? "no such way on this system" : stream.resident;
}

std::string OutcomeOf(const StreamCheck& stream) {
  if (stream.tally.frames == 0) return "no picture came";
  if (stream.stopped) return "the pictures stopped";
  return stream.stalls > 0 ? "the encoder gave nothing any more and was made anew" : "";
}

bool NoStream(const SelfCheckResult& check) {
  return std::ranges::none_of(check.streams,
                              [](const StreamCheck& stream) { return stream.tally.frames > 0; });
}

// The first of each kind, since one cause makes many.
std::string FaultOf(const SelfReport& report) {
  const SelfCheckResult& check = report.check;
  if (check.interrupted) return "interrupted";
  // Where there is no encoder, the module listens for no phone.
  if (check.log.noEncoder && NoStream(check)) {
    return "the module has no encoder that works on this machine";
  }
  if (!check.phoneTrouble.empty()) return check.phoneTrouble;
  for (const StreamCheck& stream : check.streams) {
    if (!stream.Streamed()) return std::string(NameOf(stream.codec)) + ": " + OutcomeOf(stream);
  }
  for (const SelfTestVerdict& verdict : check.verdicts) {
    if (verdict.passed || !CanPass(verdict.id, report)) continue;
    return "the built-in test " + VerdictText(verdict);
  }
  return "";
}

// Quotes enclose texts in the line, and it goes through mails and terminals of all kinds.
std::string Quoted(std::string text) {
  constexpr std::string_view kDash = "—";
  for (size_t at = text.find(kDash); at != text.npos; at = text.find(kDash, at)) {
    text.replace(at, kDash.size(), "-");
  }
  std::ranges::replace(text, '"', '\'');
  std::ranges::replace_if(
      text, [](unsigned char c) { return c < 0x20 || c > 0x7E; }, '?');
  return '"' + text + '"';
}

std::string EngineNames(const SelfCheckResult& check) {
  std::string names;
  for (const ReportedEngine& engine : check.engines) {
    names += (names.empty() ? "" : ",") + engine.id;
  }
  return names.empty() ? "none" : names;
}

std::string StreamPart(const StreamCheck& stream) {
  const std::string name = stream.codec == StreamCodec::H264 ? "h264" : "hevc";
  if (stream.tally.frames == 0) return " " + name + "=none";
  return " " + name + "=" + Quoted(stream.encoder) +
         Format(" %.1ffps pushed=%llu lost=%llu %.1fMbit/s first=%.0fms keys=%llu sound=%llu",
                stream.FramesPerSecond(), (unsigned long long)stream.pushed,
                (unsigned long long)stream.lost, stream.MegabitsPerSecond(),
                stream.FirstPictureMs(), (unsigned long long)stream.tally.keyFrames,
                (unsigned long long)stream.tally.soundBlocks) +
         (stream.stopped ? " stopped" : "") + " resident=" + Quoted(ResidentOf(stream)) +
         Format(" latches=%zu stalls=%zu", stream.latches.size(), stream.stalls);
}

// Who held the pictures up; empty if all is well.
std::string Bottleneck(const StreamCheck& stream, double sourceFps) {
  constexpr double kGoodShare = 0.95;
  if (!OutcomeOf(stream).empty()) return OutcomeOf(stream);
  if (stream.FramesPerSecond() >= kGoodShare * sourceFps) return "";
  if (stream.lost > 0) return "pictures were lost on the way, though it is this machine's own";
  if (double(stream.pushed) < kGoodShare * sourceFps * stream.seconds) {
    return "the host handed over fewer: the encoder takes too long, or this machine is busy";
  }
  return "the encoder left pictures out";
}

std::string StreamText(const StreamCheck& stream, double sourceFps) {
  const char* const name = NameOf(stream.codec);
  if (stream.tally.frames == 0) return Format("  %-14s no picture came\n", name);
  std::string text = Format("  %-14s %s\n", name, stream.encoder.c_str());
  text += Format(
      "  %-14s %.1f frames a second of %.0f arrived: %llu in %.1f s, of %llu pushed, %llu lost\n",
      "", stream.FramesPerSecond(), sourceFps, (unsigned long long)stream.tally.frames,
      stream.seconds, (unsigned long long)stream.pushed, (unsigned long long)stream.lost);
  text += Format(
      "  %-14s %.1f Mbit/s, first picture after %.0f ms, %llu key frames, %llu blocks of sound\n",
      "", stream.MegabitsPerSecond(), stream.FirstPictureMs(),
      (unsigned long long)stream.tally.keyFrames, (unsigned long long)stream.tally.soundBlocks);
  const std::string trouble = Bottleneck(stream, sourceFps);
  if (!trouble.empty()) text += Format("  %-14s %s\n", "", trouble.c_str());
  text += Format("  %-14s stays on the adapter: %s\n", "", ResidentOf(stream).c_str());
  for (const std::string& latch : stream.latches) text += "                 " + latch + "\n";
  return text;
}

std::string TestsText(const SelfReport& report) {
  std::string text;
  for (const SelfTestVerdict& verdict : report.check.verdicts) {
    text += Format("  %-14s ", ("test " + verdict.id).c_str()) + WordFor(verdict, report) +
            (verdict.came ? ": " + verdict.detail : "") + "\n";
  }
  return text;
}

std::string ErrorsText(const LogFindings& log) {
  std::string text = Format("  %-14s %zu in the module's log\n", "errors", log.errorCount);
  for (const std::string& error : log.errors) text += "                 " + error + "\n";
  return text;
}

nlohmann::ordered_json StreamJson(const StreamCheck& stream) {
  return {{"codec", NameOf(stream.codec)},
          {"streamed", stream.Streamed()},
          {"stopped", stream.stopped},
          {"encoder", stream.encoder},
          {"resident", stream.resident},
          {"latches", stream.latches},
          {"stalls", stream.stalls},
          {"seconds", stream.seconds},
          {"frames", stream.tally.frames},
          {"key_frames", stream.tally.keyFrames},
          {"bytes", stream.tally.bytes},
          {"sound_blocks", stream.tally.soundBlocks},
          {"pushed", stream.pushed},
          {"lost", stream.lost},
          {"frames_per_second", stream.FramesPerSecond()},
          {"megabits_per_second", stream.MegabitsPerSecond()},
          {"first_picture_ms", stream.tally.frames > 0 ? stream.FirstPictureMs() : 0}};
}

}  // namespace

HostExit Judge(const SelfReport& report, std::string& sentence) {
  const HostExit module = Judge(report.run, sentence);
  if (module != kExitGood) return module;
  sentence = FaultOf(report);
  return sentence.empty() ? kExitGood : kExitSelfTest;
}

std::string SelfTestLine(const SelfReport& report, HostExit exit) {
  const SelfCheckResult& check = report.check;
  std::string line = "veldrift-self-test v" + report.version + " " + report.system +
                     " adapter=" + Quoted(AdapterOf(check.log)) + " engines=" + EngineNames(check);
  for (const StreamCheck& stream : check.streams) line += StreamPart(stream);
  for (const SelfTestVerdict& verdict : check.verdicts) {
    line += " " + verdict.id + "=" + WordFor(verdict, report);
  }
  line += Format(" errors=%zu", check.log.errorCount);
  if (!check.log.errors.empty()) line += " first-error=" + Quoted(check.log.errors.front());
  return line + Format(" exit=%d", int(exit)) + "\n";
}

std::string SelfTestText(const SelfReport& report, HostExit exit) {
  const SelfCheckResult& check = report.check;
  std::string text = Format("veldrift-host self-test, version %s, on %s\n", report.version.c_str(),
                            report.system.c_str());
  text += report.kept ? "  asynchronous encoders were switched on in the settings of --home\n"
                      : "  in settings of its own, which are gone now, with asynchronous encoders "
                        "switched on\n";
  text += Format("  %-14s %s\n", "adapter", AdapterOf(check.log).c_str());
  for (const ReportedEngine& engine : check.engines) {
    text += Format("  %-14s %s: %s (%s)\n", "engine", engine.id.c_str(), engine.label.c_str(),
                   engine.note.c_str());
  }
  for (const StreamCheck& stream : check.streams) text += StreamText(stream, check.sourceFps);
  text += TestsText(report) + ErrorsText(check.log);
  for (const Fault& fault : report.run.faults) {
    text += Format("  %-14s ", "the module") + fault.sentence + "\n";
  }
  return text + "The line to send back:\n" + SelfTestLine(report, exit);
}

std::string SelfTestJson(const SelfReport& report, HostExit exit) {
  const SelfCheckResult& check = report.check;
  nlohmann::ordered_json json = {{"exit", int(exit)},
                                 {"version", report.version},
                                 {"system", report.system},
                                 {"adapter", check.log.adapter},
                                 {"no_adapter", check.log.noAdapter},
                                 {"phone_trouble", check.phoneTrouble},
                                 {"interrupted", check.interrupted},
                                 {"engines", nlohmann::ordered_json::array()},
                                 {"streams", nlohmann::ordered_json::array()},
                                 {"self_tests", nlohmann::ordered_json::array()},
                                 {"error_count", check.log.errorCount},
                                 {"errors", check.log.errors},
                                 {"faults", nlohmann::ordered_json::array()}};
  for (const ReportedEngine& engine : check.engines) {
    json["engines"].push_back({{"id", engine.id}, {"label", engine.label}, {"note", engine.note}});
  }
  for (const StreamCheck& stream : check.streams) json["streams"].push_back(StreamJson(stream));
  for (const SelfTestVerdict& verdict : check.verdicts) {
    json["self_tests"].push_back(
        {{"id", verdict.id}, {"verdict", WordFor(verdict, report)}, {"detail", verdict.detail}});
  }
  for (const Fault& fault : report.run.faults) json["faults"].push_back(fault.sentence);
  std::string line = SelfTestLine(report, exit);
  line.pop_back();
  json["line"] = line;
  return json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

}  // namespace Veldrift
