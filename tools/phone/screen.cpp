#include "screen.h"

#include <cstdio>

#include "tools/cli/complaint.h"
#include "verdict.h"

namespace Veldrift {

namespace {

// Per cent of the datagrams: told from the one on, and again when it has been below the other.
constexpr double kTellLoss = 20;
constexpr double kForgetLoss = 5;
constexpr int64_t kSilenceNs = 5 * kNanosPerSecond;

}  // namespace

Screen::Screen(bool quiet, const MediaReceiver& receiver, const DecodingSink& decoding,
               const RecordingSink* recording, const PhoneLink& link)
    : receiver_(receiver),
      decoding_(decoding),
      recording_(recording),
      link_(link),
      status_(quiet) {}

void Screen::Tell(const std::string& sentence) {
  status_.Clear();
  Complain("veldrift-phone", 0, sentence);
}

void Screen::Tick(int64_t nowNs, const std::string& waiting) {
  if (startNs_ == 0) startNs_ = lastDatagramNs_ = nowNs;
  video_ = receiver_.Counters(StreamType::Video).assembler;
  figures_.Add(SampleOf(video_), nowNs);
  LookForLoss();
  if (waiting.empty()) {
    LookForSilence(nowNs);
  } else {
    lastDatagramNs_ = nowNs;
  }
  LookAtRecording();
  status_.Show(Line(nowNs, waiting), nowNs);
}

void Screen::Woke(int64_t nowNs) {
  figures_.BeginAnew(nowNs);
  lastDatagramNs_ = nowNs;
}

// The figures of now come first: a narrow terminal shows no more.
std::string Screen::Line(int64_t nowNs, const std::string& waiting) const {
  char text[256];
  const double seconds = double(nowNs - startNs_) / 1e9;
  if (!waiting.empty()) {
    std::snprintf(text, sizeof text, "%6.1f s  no connection: %s", seconds, waiting.c_str());
    return text;
  }
  const LivePicture picture = decoding_.Live();
  std::snprintf(text, sizeof text,
                "%6.1f s  %4.1f/s  %.1f Mbit/s  %.0f %% lost%s  %s %dx%d  %llu whole  %llu "
                "repaired  %llu lost",
                seconds, figures_.FramesPerSecond(), figures_.MegabitsPerSecond(),
                figures_.FramesLostPercent(), link_.Playing() ? "" : "  paused", picture.codec,
                picture.width, picture.height, (unsigned long long)video_.framesWhole,
                (unsigned long long)video_.framesRepaired, (unsigned long long)video_.framesLost);
  return text;
}

void Screen::LookForLoss() {
  const double percent = figures_.DatagramsMissingPercent();
  if (percent < kForgetLoss) toldLoss_ = false;
  if (toldLoss_ || percent < kTellLoss || !figures_.Full()) return;
  toldLoss_ = true;
  Tell(NetworkAdvice(percent));
}

void Screen::LookForSilence(int64_t nowNs) {
  const bool came = video_.datagrams != lastDatagrams_;
  lastDatagrams_ = video_.datagrams;
  if (came || !link_.Playing()) {
    lastDatagramNs_ = nowNs;
    toldSilence_ = false;
  }
  if (toldSilence_ || nowNs - lastDatagramNs_ < kSilenceNs) return;
  toldSilence_ = true;
  Tell(
      "the host plays, but for 5 s no picture has come to port 47101, which a firewall may keep "
      "out");
}

void Screen::LookAtRecording() {
  if (toldLeftOut_ || recording_ == nullptr || recording_->LeftOut() == 0) return;
  toldLeftOut_ = true;
  Tell("this machine is too slow: frames are left out of the recording");
}

}  // namespace Veldrift
