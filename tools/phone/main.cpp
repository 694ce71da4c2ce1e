// The phone stand-in: what the phone app does with the plug-in, without a screen, and with a
// judgement at the end.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>
#include <utility>

#include "decoding_sink.h"
#include "live_sink.h"
#include "net/control_protocol.h"
#include "phone_exit.h"
#include "phone_options.h"
#include "plugin_finder.h"
#include "recording_sink.h"
#include "screen.h"
#include "summary.h"
#include "support/clock.h"
#include "tools/platform/interrupt.h"
#include "tools/platform/posix/output_file.h"
#include "tools/platform/posix/output_pipe.h"
#include "tools/platform/terminal.h"
#include "tools/platform/this_process.h"
#include "tools/receiver/media_receiver.h"
#include "tools/receiver/phone_link.h"
#include "tools/receiver/self_tests.h"
#include "tools/receiver/session.h"
#include "tools/view/live_view.h"
#include "tools/view/view_window.h"
#include "web_view.h"

namespace Veldrift {
namespace {

// The answer of a run that didn't come to a stream: one sentence, and for a program the same.
int Fail(const PhoneOptions& options, PhoneExit exit, const std::string& sentence) {
  if (options.json) {
    std::fputs(ErrorJson({exit, sentence}).c_str(), stdout);
    std::fflush(stdout);
  }
  return Complain(exit, sentence);
}

int Report(const PhoneOptions& options, const RunResult& result) {
  const Verdict verdict = Judge(result.findings, options.expected);
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
  if (!options.json) {
    std::printf("%s", ListOf(found.services).c_str());
    std::fflush(stdout);
  }
  if (!sentence.empty()) return Fail(options, exit, sentence);
  options.host = found.chosen;
  if (found.services.size() > 1) {
    std::fprintf(stderr, "veldrift-phone: connecting to %s, id=%s, of those that were found\n",
                 AddressText(found.chosen.address).c_str(), found.chosenId.c_str());
  }
  return std::nullopt;
}

// Whoever sits at the terminal. Nothing has been recorded while the code is awaited.
CodeReader TerminalReader() {
  return {[]() -> std::optional<std::string> {
            std::fprintf(stderr, "veldrift-phone: the six digits that the plug-in shows: ");
            std::string line;
            if (!std::getline(std::cin, line)) return std::nullopt;
            return line;
          },
          [] { std::_Exit(Complain(kExitInterrupted, "interrupted")); }};
}

// What a run is made of, in the order of what uses what.
class Phone {
 public:
  // `player`: where the live stream goes; null: there is none.
  Phone(const PhoneOptions& options, const FoundPlugins& found, std::unique_ptr<OutputPipe> player,
        const std::atomic<bool>& interrupted);

  int Run();

 private:
  // False: `exit_` and `sentence_` say why not.
  bool Prepare();
  bool OpenFiles();
  bool OpenWeb();
  // Shows decoded pictures; empty: there is no window.
  VideoDecoder::PictureSink Viewer();
  Session::Parts Parts();
  SessionResult RunSession();
  Findings Judgement(SessionResult session) const;

  const PhoneOptions& options_;
  const FoundPlugins& found_;
  const std::atomic<bool>& interrupted_;
  PhoneExit exit_ = kExitFailed;
  std::string sentence_;
  std::unique_ptr<SnapshotWriter> snapshots_;
  std::unique_ptr<RecordingSink> recording_;
  std::unique_ptr<LiveSink> live_;
  std::unique_ptr<LiveView> view_;
  DecodingSink decoding_;
  std::vector<FrameSink*> sinks_;
  MediaReceiver receiver_;
  PhoneLink link_;
  std::unique_ptr<Adapter> adapter_;
  EncoderModeKeeper modes_;
  NetworkWhereabouts whereabouts_;
  Screen screen_;
  SessionObserver* observer_ = &screen_;  // passes on to the others
  std::unique_ptr<WebView> web_;
  std::unique_ptr<ViewWindow> window_;
};

std::optional<AVCodecID> CodecAskedFor(const PhoneOptions& options) {
  for (const Command& command : options.settings) {
    if (command.opcode != kSetCodec || command.payload.empty()) continue;
    return command.payload[0] == std::byte{1} ? AV_CODEC_ID_H264 : AV_CODEC_ID_HEVC;
  }
  return std::nullopt;
}

MediaReceiverOptions ReceiverOptions(const PhoneOptions& options) {
  AssemblerLimits limits;
  limits.maxWaitNs = options.patienceMs * kNanosPerMilli;
  return {.bindAddress = options.bindAddress, .loss = options.loss, .limits = limits};
}

ArrivalCounters ArrivalsOf(const MediaReceiver& receiver) {
  const AssemblerCounters video = receiver.Counters(StreamType::Video).assembler;
  return {video.datagrams, video.missingDatagrams, video.gaps,
          video.bytes,     video.framesWhole,      video.framesLost};
}

// Null: the stream stays as it was asked for.
std::unique_ptr<Adapter> MakeAdapter(const PhoneOptions& options, const MediaReceiver& receiver,
                                     const PhoneLink& link) {
  if (!options.adapt) return nullptr;
  return std::make_unique<Adapter>(
      options.adaptation, [&receiver] { return ArrivalsOf(receiver); },
      [&link] { return link.SourceShortSide(); });
}

Phone::Phone(const PhoneOptions& options, const FoundPlugins& found,
             std::unique_ptr<OutputPipe> player, const std::atomic<bool>& interrupted)
    : options_(options),
      found_(found),
      interrupted_(interrupted),
      snapshots_(options.snapshots.empty()
                     ? nullptr
                     : std::make_unique<SnapshotWriter>(options.snapshots, options.snapshotEvery)),
      recording_(options.record.empty()
                     ? nullptr
                     : std::make_unique<RecordingSink>(options.record, options.overwrite)),
      live_(player ? std::make_unique<LiveSink>(std::move(player), CodecAskedFor(options))
                   : nullptr),
      view_(options.view ? std::make_unique<LiveView>() : nullptr),
      decoding_(snapshots_.get(), Viewer()),
      sinks_{&decoding_, &modes_},
      receiver_(ReceiverOptions(options)),
      link_(options, interrupted, TerminalReader()),
      adapter_(MakeAdapter(options, receiver_, link_)),
      whereabouts_(found.chosenId, options.plugin, options.host.port),
      screen_(options.json, receiver_, decoding_, recording_.get(), link_) {
  if (recording_) sinks_.push_back(recording_.get());
  if (live_) sinks_.push_back(live_.get());
  if (adapter_) sinks_.push_back(adapter_.get());
  if (options.web.on) {
    web_ = std::make_unique<WebView>(options.web, options.settings, receiver_, link_,
                                     adapter_.get(), *observer_);
    sinks_.push_back(&web_->Sink());
    observer_ = web_.get();
  }
  if (view_) {
    window_ = std::make_unique<ViewWindow>(*view_, receiver_, link_, *observer_);
    sinks_.push_back(view_.get());
    observer_ = window_.get();
  }
}

VideoDecoder::PictureSink Phone::Viewer() {
  if (!view_) return {};
  return [this](const AVFrame& picture, const WholeFrame& frame) {
    view_->Show(picture, frame);
    window_->OnPicture();
  };
}

// Before anything is connected, so that it isn't in vain.
bool Phone::OpenFiles() {
  if (window_ && !window_->Open(sentence_)) return false;
  if (snapshots_ && !snapshots_->Start()) {
    sentence_ = snapshots_->Error();
    return false;
  }
  return !recording_ || recording_->Begin(sentence_);
}

bool Phone::Prepare() {
  const MediaReceiver::OpenResult opened = receiver_.Open(sentence_);
  if (opened == MediaReceiver::OpenResult::PortInUse) exit_ = kExitPortInUse;
  return opened == MediaReceiver::OpenResult::Opened && OpenFiles() && OpenWeb();
}

bool Phone::OpenWeb() {
  if (!web_) return true;
  if (!web_->Start(sentence_)) return false;
  const auto drawing = PrepareTerminalForDrawing();
  std::FILE* out = options_.json ? stderr : stdout;
  std::fputs(web_->Invitation(!options_.json && StandardOutputIsTerminal()).c_str(), out);
  std::fflush(out);
  return true;
}

Session::Parts Phone::Parts() {
  const bool canMove = options_.discover || !options_.plugin.empty();
  return {link_,
          sinks_,
          [this](uint32_t number) { receiver_.BeginConnection(number); },
          *observer_,
          canMove ? &whereabouts_ : nullptr,
          SystemClock(),
          interrupted_,
          adapter_.get(),
          &modes_,
          &SleptNanos};
}

Findings Phone::Judgement(SessionResult session) const {
  std::string fileError;
  for (const FrameSink* sink : sinks_) {
    if (fileError.empty()) fileError = sink->Failure();
  }
  return {std::move(session),
          receiver_.Counters(StreamType::Video).assembler,
          receiver_.Counters(StreamType::Audio).assembler,
          decoding_.Decoder().Counters(),
          decoding_.Checker().Counters().firstFault,
          link_.Violation(),
          std::move(fileError),
          recording_ ? recording_->LeftOut() : 0};
}

// Windows belong to the main thread, which this is.
SessionResult Phone::RunSession() {
  Session session({options_.host, options_.expected.seconds, !options_.noReconnect}, Parts());
  if (!window_) return session.Run();
  SessionResult result;
  window_->ShowDuring([&] { result = session.Run(); });
  return result;
}

int Phone::Run() {
  if (!Prepare()) return Fail(options_, exit_, sentence_);
  if (!options_.selfTests.empty()) {
    const LinkResult linked = link_.Open(sentence_);
    if (linked != LinkResult::Open) return Fail(options_, ExitOf(linked), sentence_);
    return RunSelfTests(options_, interrupted_, link_);
  }
  receiver_.Start([this](WholeFrame&& frame) {
    const auto shared = std::make_shared<const WholeFrame>(std::move(frame));
    for (FrameSink* sink : sinks_) sink->Take(shared);
  });
  SessionResult result = RunSession();
  receiver_.Stop();
  if (web_) web_->Stop();
  for (FrameSink* sink : sinks_) sink->Finish();
  link_.Close();
  screen_.Clear();
  if (live_ && live_->LeftOut() > 0) {
    std::fprintf(stderr, "veldrift-phone: the player was too slow: %zu frames were left out\n",
                 live_->LeftOut());
  }
  if (result.end == SessionEnd::NeverOpened) {
    return Fail(options_, ExitOf(result.link), result.sentence);
  }
  return Report(options_, {Judgement(std::move(result)), receiver_.Counters(StreamType::Video),
                           receiver_.Counters(StreamType::Audio), receiver_.Lost(StreamType::Video),
                           decoding_, recording_.get(), snapshots_.get(), link_.EncoderText(),
                           link_.Messages(), link_.Sent(), found_.services, link_.ConnectNs(),
                           adapter_ ? &adapter_->Report() : nullptr});
}

int Run(PhoneOptions options) {
  const std::atomic<bool>& interrupted = InstallInterruptFlag();
  SurviveFailedWrites();
  // Before anything is said.
  std::unique_ptr<OutputPipe> player;
  std::string sentence;
  if (options.live && !(player = OutputPipe::TakeStandardOutput(sentence))) {
    return Complain(kExitUsage, "--record -: " + sentence);
  }
  FoundPlugins found;
  if (const auto exit = LocatePlugin(options, found, interrupted)) return *exit;
  av_log_set_level(AV_LOG_FATAL);
  return Phone(options, found, std::move(player), interrupted).Run();
}

}  // namespace
}  // namespace Veldrift

int main(int argc, char** argv) {
  Veldrift::PhoneOptions options;
  if (const std::optional<int> exit = Veldrift::ParsePhoneOptions(argc, argv, options))
    return *exit;
  return Veldrift::Run(options);
}
