// The phone stand-in: what the phone app does with the plug-in, without a screen, and with a
// judgement at the end.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>

#include "media_pipeline.h"
#include "net/control_protocol.h"
#include "phone_exit.h"
#include "phone_options.h"
#include "plugin_finder.h"
#include "summary.h"
#include "support/clock.h"
#include "tools/cli/status_line.h"
#include "tools/platform/interrupt.h"
#include "tools/receiver/media_receiver.h"
#include "tools/receiver/phone_link.h"
#include "tools/receiver/self_tests.h"

namespace Veldrift {
namespace {

constexpr int64_t kTickNs = 20 * kNanosPerMilli;
constexpr int64_t kKeyFramePeriodNs = 300 * kNanosPerMilli;

std::string StatusText(const MediaReceiver& receiver, const MediaPipeline& media, int64_t runNs) {
  const LiveCounters live = media.Live();
  const AssemblerCounters video = receiver.Counters(StreamType::Video).assembler;
  char text[256];
  std::snprintf(
      text, sizeof text,
      "%5.1f s  %s %dx%d  %llu whole  %llu repaired  %llu lost  %llu decoded  %.1f Mbit/s",
      double(runNs) / 1e9, live.codec, live.width, live.height,
      (unsigned long long)video.framesWhole, (unsigned long long)video.framesRepaired,
      (unsigned long long)video.framesLost, (unsigned long long)live.decoded,
      media.BitRate() / 1e6);
  return text;
}

// Until the time is up, the user or the plug-in has had enough.
void Watch(const PhoneOptions& options, const std::atomic<bool>& interrupted,
           const MediaReceiver& receiver, const MediaPipeline& media, PhoneLink& link) {
  StatusLine status(options.json);
  const int64_t startNs = SteadyNanos();
  int64_t askedNs = startNs;
  while (!interrupted && !link.Ended()) {
    const int64_t nowNs = SteadyNanos();
    if (options.seconds > 0 && nowNs - startNs >= int64_t(options.seconds * 1e9)) break;
    link.SendDue(nowNs);
    if (media.WantsKeyFrame() && nowNs - askedNs >= kKeyFramePeriodNs) {
      link.Send({kRequestIdr, {}});
      askedNs = nowNs;
    }
    status.Show(StatusText(receiver, media, nowNs - startNs), nowNs);
    SystemClock().SleepFor(kTickNs);
  }
}

int Report(const PhoneOptions& options, const RunResult& result) {
  const Verdict verdict = Judge(result);
  const std::string text = options.json ? SummaryJson(result, verdict) : SummaryText(result);
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fflush(stdout);
  return verdict.sentence.empty() ? verdict.exit : Complain(verdict.exit, verdict.sentence);
}

int RunSelfTests(const PhoneOptions& options, const std::atomic<bool>& interrupted,
                 PhoneLink& link) {
  SelfTests tests(options.pluginLog);
  const std::vector<SelfTestVerdict> verdicts =
      tests.Run(options.selfTests, link, options.waitSeconds, interrupted);
  link.Close();
  const std::string text = options.json ? VerdictJson(verdicts) : VerdictText(verdicts);
  std::fwrite(text.data(), 1, text.size(), stdout);
  const bool passed = std::all_of(verdicts.begin(), verdicts.end(),
                                  [](const SelfTestVerdict& verdict) { return verdict.passed; });
  return passed ? kExitGood : kExitSelfTest;
}

// The options with the plug-in's address, found if it wasn't given. Otherwise the exit code.
std::optional<int> LocatePlugin(PhoneOptions& options, FoundPlugins& found,
                                const std::atomic<bool>& interrupted) {
  if (!options.discover) return std::nullopt;
  std::string sentence;
  const PhoneExit exit = FindPlugin(options, interrupted, found, sentence);
  if (!options.json) std::printf("%s", ListOf(found.services).c_str());
  if (!sentence.empty()) return Complain(exit, sentence);
  options.host = found.chosen;
  return std::nullopt;
}

PhoneExit ExitOf(LinkResult result) {
  switch (result) {
    case LinkResult::Open:
    case LinkResult::Interrupted:
      return kExitGood;
    case LinkResult::NoAnswer:
      return kExitCantConnect;
    case LinkResult::Refused:
      return kExitRefused;
    case LinkResult::Broken:
      return kExitBroken;
    case LinkResult::Failed:
      break;
  }
  return kExitFailed;
}

// Whoever sits at the terminal. Nothing has been recorded while the code is awaited.
CodeReader TerminalReader() {
  return {[]() -> std::optional<std::string> {
            std::fprintf(stderr, "veldrift-phone: the six digits that the plug-in shows: ");
            std::string line;
            if (!std::getline(std::cin, line)) return std::nullopt;
            return line;
          },
          [] { std::_Exit(kExitRefused); }};
}

int Run(PhoneOptions options) {
  const std::atomic<bool>& interrupted = InstallInterruptFlag();
  FoundPlugins found;
  if (const auto exit = LocatePlugin(options, found, interrupted)) return *exit;
  av_log_set_level(AV_LOG_FATAL);
  AssemblerLimits limits;
  limits.maxWaitNs = options.patienceMs * kNanosPerMilli;
  MediaReceiver receiver(
      {.bindAddress = options.bindAddress, .loss = options.loss, .limits = limits});
  std::string sentence;
  const MediaReceiver::OpenResult opened = receiver.Open(sentence);
  if (opened != MediaReceiver::OpenResult::Opened) {
    return Complain(opened == MediaReceiver::OpenResult::PortInUse ? kExitPortInUse : kExitFailed,
                    sentence);
  }
  MediaPipeline media(options);
  if (!media.Start(sentence)) return Complain(kExitFailed, sentence);
  receiver.Start([&media](WholeFrame&& frame) { media.Take(std::move(frame)); });
  PhoneLink link(options, interrupted, TerminalReader());
  const LinkResult linked = link.Open(sentence);
  if (linked != LinkResult::Open) {
    receiver.Stop();
    media.Finish();
    return Complain(ExitOf(linked), sentence);
  }
  if (!options.selfTests.empty()) {
    receiver.Stop();
    media.Finish();
    return RunSelfTests(options, interrupted, link);
  }
  const int64_t startNs = SteadyNanos();
  Watch(options, interrupted, receiver, media, link);
  const int64_t endNs = SteadyNanos();
  receiver.Stop();
  media.Finish();
  link.Close();
  return Report(options,
                {receiver.Counters(StreamType::Video), receiver.Counters(StreamType::Audio),
                 receiver.Lost(StreamType::Video), media, link.EncoderText(), link.Violation(),
                 link.Messages(), link.Sent(), found.services, link.ConnectNs(), startNs, endNs});
}

}  // namespace
}  // namespace Veldrift

int main(int argc, char** argv) {
  Veldrift::PhoneOptions options;
  if (const std::optional<int> exit = Veldrift::ParsePhoneOptions(argc, argv, options))
    return *exit;
  return Veldrift::Run(options);
}
