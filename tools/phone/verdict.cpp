#include "verdict.h"

#include <cstdarg>
#include <cstdio>
#include <optional>

namespace Veldrift {

namespace {

constexpr double kTooMuchLoss = 20;  // per cent of the datagrams

std::string Text(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string Text(const char* format, ...) {
  char text[256];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  return text;
}

std::string FirstViolation(const Findings& findings) {
  for (const AssemblerCounters* counters : {&findings.video, &findings.audio}) {
    if (!counters->violationTexts.empty()) return counters->violationTexts.front();
  }
  return findings.controlViolation;
}

std::optional<Verdict> JudgeStream(const Findings& findings) {
  if (const std::string violation = FirstViolation(findings); !violation.empty()) {
    return Verdict{kExitBroken, "violation of the protocol: " + violation};
  }
  if (findings.decoder.failed > 0) {
    return Verdict{kExitBroken, "broken stream: " + findings.decoder.firstFailure};
  }
  if (!findings.wrongPicture.empty()) {
    return Verdict{kExitBroken, "broken stream: " + findings.wrongPicture};
  }
  return std::nullopt;
}

std::optional<Verdict> JudgeEnd(const Findings& findings) {
  const SessionResult& session = findings.session;
  switch (session.end) {
    case SessionEnd::TimeUp:
    case SessionEnd::Stopped:
    case SessionEnd::Unwanted:
      break;
    case SessionEnd::NeverOpened:
    case SessionEnd::TurnedAway:
      return Verdict{ExitOf(session.link), session.sentence};
    case SessionEnd::Lost:
      return Verdict{kExitLost, session.sentence};
    case SessionEnd::Broken:
      return Verdict{kExitBroken, "violation of the protocol: " + session.sentence};
    case SessionEnd::SinkFailed:
      return Verdict{kExitFailed, session.sentence};
  }
  if (!findings.fileError.empty()) return Verdict{kExitFailed, findings.fileError};
  if (findings.leftOutOfRecording > 0) {
    return Verdict{kExitFailed, Text("this machine was too slow: %zu frames were left out of the "
                                     "recording",
                                     findings.leftOutOfRecording)};
  }
  return std::nullopt;
}

std::string WhyNoPicture(const AssemblerCounters& video) {
  if (video.datagrams == 0) {
    return "no picture arrived: not one datagram came to port 47101, which a firewall may keep out";
  }
  const double missing = double(video.missingDatagrams);
  const double percent = 100 * missing / (missing + double(video.datagrams));
  return "no picture arrived" + (percent < kTooMuchLoss ? "" : ": " + NetworkAdvice(percent));
}

Verdict JudgeRun(const Findings& findings, const Expectations& expected) {
  const SessionResult& session = findings.session;
  if (findings.decoder.decoded == 0) return {kExitNoPicture, WhyNoPicture(findings.video)};
  if (session.end == SessionEnd::Stopped && expected.seconds > 0) {
    return {kExitInterrupted,
            Text("interrupted after %.1f of %.1f s", double(session.endNs - session.startNs) / 1e9,
                 expected.seconds)};
  }
  if (session.interruptionCount > 0) {
    return {kExitLost, Text("the connection was lost %zu time%s, for %.1f s altogether",
                            session.interruptionCount, session.interruptionCount == 1 ? "" : "s",
                            double(session.interruptedNs) / 1e9)};
  }
  const double lost = LostPercent(findings.video, findings.decoder);
  if (lost > expected.mostLostPercent) {
    return {kExitPoor, Text("%.1f per cent of the pictures were lost, of which --most-lost allows "
                            "%.15g",
                            lost, expected.mostLostPercent)};
  }
  if (expected.sound && findings.audio.framesWhole == 0) return {kExitPoor, "no sound arrived"};
  return {};
}

}  // namespace

PhoneExit ExitOf(LinkResult result) {
  switch (result) {
    case LinkResult::Open:
      return kExitGood;
    case LinkResult::Interrupted:
      return kExitInterrupted;
    case LinkResult::NoAnswer:
      return kExitCantConnect;
    case LinkResult::Closed:
    case LinkResult::Refused:
      return kExitRefused;
    case LinkResult::Broken:
      return kExitBroken;
    case LinkResult::Failed:
      break;
  }
  return kExitFailed;
}

double LostPercent(const AssemblerCounters& video, const DecoderCounters& decoder) {
  const double lost = double(video.framesLost) + double(decoder.skipped);
  return lost > 0 ? 100 * lost / double(video.framesLost + video.framesWhole) : 0;
}

std::string NetworkAdvice(double percent) {
  return Text(
      "the network loses %.0f per cent of what is sent; ask for less, by --mode quality "
      "--quality 30 or --max-short-side 540",
      percent);
}

Verdict Judge(const Findings& findings, const Expectations& expected) {
  if (const auto broken = JudgeStream(findings)) return *broken;
  if (const auto end = JudgeEnd(findings)) return *end;
  return JudgeRun(findings, expected);
}

}  // namespace Veldrift
