#include "session/stream_announcer.h"

#include <algorithm>
#include <array>
#include <bit>
#include <span>

#include "net/control_protocol.h"
#include "support/little_endian.h"
#include "support/plugin_log.h"

namespace Veldrift {

namespace {

constexpr LogCategory kLog{kLogSubsystem, "transmit"};
constexpr int64_t kSettleNanos = 500 * kNanosPerMilli;
constexpr size_t kLongestDescription = 200;
// Says that an empty description has been noticed: nothing goes out for one.
constexpr const char* kEmptyDescription = "<empty>";

constexpr const char* kSwitchingText = "Switching encoder...";
constexpr int32_t kLongestShortGop = 5;

GopClass ClassOf(int32_t gopSize) {
  if (gopSize <= 1) return GopClass::AllIntra;
  return gopSize <= kLongestShortGop ? GopClass::Short : GopClass::Long;
}

uint16_t CappedToU16(int32_t value) { return uint16_t(std::min(value, 65'535)); }

}  // namespace

void StreamAnnouncer::ObserveSource(const FrameGeometry& source, int64_t nowNanos) {
  RecursiveMutexLock lock(stateMutex_);
  if (source.fps <= 0 || source == source_) return;
  if (source != candidate_) {
    candidate_ = source;
    candidateSinceNanos_ = nowNanos;
    return;
  }
  if (nowNanos - candidateSinceNanos_ < kSettleNanos) return;
  if (SendSourceChanged(source)) source_ = source;
  SendStreamInfoIfReady();
}

void StreamAnnouncer::PromoteSource(const FrameGeometry& source) {
  {
    RecursiveMutexLock lock(stateMutex_);
    if (source != source_) {
      PluginLog(kLog, kLogDebug,
                "[dx] force-promoting source via Configure: %dx%d @ %d fps (was %dx%d @ %d)",
                source.width, source.height, source.fps, source_.width, source_.height,
                source_.fps);
      candidate_ = source;
      source_ = source;
      SendSourceChanged(source);
    }
  }
  SendStreamInfoIfReady();
}

bool StreamAnnouncer::SendSourceChanged(const FrameGeometry& source) {
  std::array<std::byte, 8> payload;
  PutU16(payload.data(), CappedToU16(source.width));
  PutU16(payload.data() + 2, CappedToU16(source.height));
  PutU32(payload.data() + 4, std::bit_cast<uint32_t>(float(source.fps)));
  if (!transport_.SendControl(kSourceChanged, payload)) return false;
  PluginLog(kLog, kLogInfo, "SendControl: kSourceChanged %dx%d @ %d fps", source.width,
            source.height, source.fps);
  return true;
}

void StreamAnnouncer::SendStreamInfoIfReady() {
  RecursiveMutexLock lock(stateMutex_);
  if (!source_.Complete()) {
    PluginLog(kLog, kLogDebug,
              "[dx] SendStreamInfoIfReady: skip — source dims not yet committed "
              "(sourceWHF=%d/%d/%d, candWHF=%d/%d/%d)",
              source_.width, source_.height, source_.fps, candidate_.width, candidate_.height,
              candidate_.fps);
    return;
  }
  if (source_ == sent_) return;
  const PipelineSeat::Reference pipeline = seat_.Current();
  if (!pipeline) return;
  const uint32_t cap = pipeline->GetFrameByteCap();
  std::array<std::byte, 10> payload;
  PutU16(payload.data(), CappedToU16(source_.width));
  PutU16(payload.data() + 2, CappedToU16(source_.height));
  PutU16(payload.data() + 4, CappedToU16(source_.fps));
  PutU32(payload.data() + 6, cap);
  if (transport_.SendControl(kStreamInfo, payload)) {
    sent_ = source_;
    PluginLog(kLog, kLogInfo, "SendControl: kStreamInfo w=%d h=%d fps=%d cap=%u", source_.width,
              source_.height, source_.fps, cap);
  }
  SendEncoderInfoIfChanged();
}

void StreamAnnouncer::SendEncoderInfoIfChanged() {
  const PipelineSeat::Reference pipeline = seat_.Current();
  std::string text = pipeline ? pipeline->GetDescription() : std::string();

  RecursiveMutexLock lock(stateMutex_);
  if (text.empty()) {
    if (lastEncoderDescription_ == kEmptyDescription) return;
    PluginLog(kLog, kLogDebug,
              "[dx] SendEncoderInfoIfChanged: skip — desc empty (encoder unconfigured?)");
    lastEncoderDescription_ = kEmptyDescription;
    return;
  }
  // Before the cut: a longer description never equals its stored form and is told on every call.
  if (text == lastEncoderDescription_) return;
  text.resize(std::min(text.size(), kLongestDescription));
  if (!SendEncoderInfo(text)) return;
  lastEncoderDescription_ = text;
  PluginLog(kLog, kLogInfo, "SendControl: kEncoderInfo \"%s\"", text.c_str());
  PublishEncoderStatus();
}

void StreamAnnouncer::ResetAnnouncedState(bool alsoSource) {
  RecursiveMutexLock lock(stateMutex_);
  sent_ = {};
  lastEncoderDescription_.clear();
  if (alsoSource) source_ = {};
}

// Whether it goes out is not looked at: it announces nothing that has to be told again.
void StreamAnnouncer::TellOfSwitching() { (void)SendEncoderInfo(kSwitchingText); }

bool StreamAnnouncer::SendEncoderInfo(const std::string& text) {
  std::string payload(1, char(text.size()));
  payload += text;
  return transport_.SendControl(kEncoderInfo, std::as_bytes(std::span(payload)));
}

void StreamAnnouncer::PublishEncoderStatus() {
  const PipelineSeat::Reference pipeline = seat_.Current();
  EncoderStatus status;
  status.legacyEngineByte = legacyEngineByte_;
  status.description = ToldDescription();
  status.codec = pipeline && pipeline->GetCodec() == kCodecH264 ? 1 : 0;
  status.gopClass = pipeline ? ClassOf(pipeline->GetGopSize()) : GopClass::AllIntra;
  transport_.SetEncoderStatus(status);
}

// The mark for "empty" is the announcer's own.
std::string StreamAnnouncer::ToldDescription() const {
  RecursiveMutexLock lock(stateMutex_);
  return lastEncoderDescription_ == kEmptyDescription ? std::string() : lastEncoderDescription_;
}

}  // namespace Veldrift
