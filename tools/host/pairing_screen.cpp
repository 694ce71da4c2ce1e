#include "pairing_screen.h"

#include "identity/install_identity.h"
#include "support/clock.h"
#include "tools/cli/terminal_qr.h"
#include "ui/pairing_uri.h"
#include "ui/qr_code.h"

namespace Veldrift {

namespace {

constexpr int64_t kLookPeriodNs = 100 * kNanosPerMilli;
constexpr int64_t kWarningPeriodNs = 5 * kNanosPerSecond;
constexpr double kSkippedShare = 0.02;  // of the pictures: less is an accident

// The code, or why there is none. Lines that wrap can't be scanned.
std::string Drawing(const QrCode& code, bool toTerminal) {
  if (code.size == 0) return "veldrift-host: the pairing URI is too long for a QR code\n";
  if (!toTerminal) return DrawQrAsText(code);
  const int columns = TerminalQrColumns(code);
  if (TerminalColumns() >= columns) return DrawQrForTerminal(code);
  return "veldrift-host: the QR code takes a terminal of " + std::to_string(columns) + " columns\n";
}

std::string Format(const char* format, auto... values) {
  char text[256];
  std::snprintf(text, sizeof text, format, values...);
  return text;
}

double MeanPushMillis(const PlayCounters& counters) {
  return counters.framesPushed == 0 ? 0
                                    : double(counters.pushNs) / 1e6 / double(counters.framesPushed);
}

PlayCounters Since(const PlayCounters& then, const PlayCounters& now) {
  PlayCounters since = now;
  since.framesPushed -= then.framesPushed;
  since.framesSkipped -= then.framesSkipped;
  since.pushNs -= then.pushNs;
  return since;
}

}  // namespace

PairingScreen::PairingScreen(const ScreenOptions& options)
    : options_(options),
      drawing_(PrepareTerminalForDrawing()),
      out_(options.json ? stderr : stdout),
      log_(options.log),
      status_(options.json) {
  if (!options.setup.empty()) setup_.emplace(options.setup);
}

void PairingScreen::ShowInvitation() const {
  const std::string uri = BuildPairingUri(LoadOrCreateInstallIdentity());
  // In one piece, so that nothing comes in between. The URI has a line of its own.
  const bool toTerminal = !options_.json && StandardOutputIsTerminal();
  const std::string text = Drawing(EncodeQrText(uri), toTerminal) + uri + "\n";
  std::fwrite(text.data(), 1, text.size(), out_);
  std::fflush(out_);
}

void PairingScreen::Say(const std::string& sentence) {
  if (options_.json && !options_.qr) return;
  status_.Clear();
  std::fprintf(out_, "veldrift-host: %s\n", sentence.c_str());
  std::fflush(out_);
}

void PairingScreen::ShowSetup() {
  const std::string text = setup_ ? setup_->Take() : std::string();
  if (text.empty()) return;
  status_.Clear();
  std::fprintf(out_, "%s\n", text.c_str());
  std::fflush(out_);
}

void PairingScreen::ReadLog() {
  for (const LogEntry& entry : log_.Take()) {
    const std::optional<PhoneEvent> event = PhoneEventIn(entry);
    if (!event) continue;
    switch (event->kind) {
      case PhoneEvent::Kind::Code:
        phone_ = "type " + event->code + " on " + event->name;
        Say("pairing code " + event->code + " for " + event->name);
        break;
      case PhoneEvent::Kind::Paired:
        phone_ = event->name.empty() ? "a phone that is known" : event->name;
        if (!options_.json) Say("paired with " + phone_);
        break;
      case PhoneEvent::Kind::Gone:
        if (!options_.json) Say("the phone is gone");
        phone_ = "no phone";
        break;
    }
  }
}

std::string PairingScreen::LiveText(const PlayCounters& counters, int speed) const {
  const std::string doing = speed == 0   ? "paused"
                            : speed == 1 ? "playing"
                                         : Format("at %d times the speed", speed);
  return Format("%6.1f s  %s  %llu pushed  %llu skipped  push %.1f ms  ",
                double(SteadyNanos() - startNs_) / 1e9, doing.c_str(),
                (unsigned long long)counters.framesPushed,
                (unsigned long long)counters.framesSkipped,
                MeanPushMillis(Since(atWarning_, counters))) +
         phone_;
}

// "It stutters": where it comes from.
void PairingScreen::WarnOfSkipping(const PlayCounters& counters, int64_t ticksPerFrame,
                                   int64_t nowNs) {
  if (nowNs < nextWarningNs_) return;
  nextWarningNs_ = nowNs + kWarningPeriodNs;
  const PlayCounters since = Since(atWarning_, counters);
  atWarning_ = counters;
  const double all = double(since.framesPushed + since.framesSkipped);
  if (options_.json || double(since.framesSkipped) <= kSkippedShare * all) return;
  const double frameMs = double(TicksToNanos(ticksPerFrame)) / 1e6;
  const double pushMs = MeanPushMillis(since);
  Say(Format(
      "%llu of the last %.0f pictures were skipped: a push takes %.1f ms, a frame lasts "
      "%.1f ms%s",
      (unsigned long long)since.framesSkipped, all, pushMs, frameMs,
      pushMs > frameMs ? " (the encoder is slower than the source)" : " (this machine is busy)"));
}

void PairingScreen::Update(const PlayCounters& counters, int speed, int64_t ticksPerFrame,
                           int64_t nowNs) {
  if (startNs_ == 0) {
    startNs_ = nowNs;
    nextWarningNs_ = nowNs + kWarningPeriodNs;
  }
  if (nowNs >= nextLookNs_) {
    nextLookNs_ = nowNs + kLookPeriodNs;
    ReadLog();
    ShowSetup();
  }
  WarnOfSkipping(counters, ticksPerFrame, nowNs);
  if (StandardOutputIsTerminal()) status_.Show(LiveText(counters, speed), nowNs);
}

}  // namespace Veldrift
