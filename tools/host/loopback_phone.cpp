#include "loopback_phone.h"

#include "net/control_protocol.h"
#include "support/clock.h"

namespace Veldrift {

namespace {

constexpr const char* kLoopback = "127.0.0.1";
constexpr uint8_t kCodecH264 = 1;
constexpr uint8_t kCodecHevc = 0;
constexpr uint8_t kGopLong = 3;

LinkOptions OptionsFor(const std::filesystem::path& pluginLog, uint16_t controlPort) {
  const uint32_t loopback = ParseAddress(kLoopback).value();
  LinkOptions options;
  options.host = {loopback, controlPort};
  options.bindAddress = loopback;
  options.id = "veldrift-self-test";
  options.name = "Self-test";
  options.codeFromLog = pluginLog;
  return options;
}

MediaReceiverOptions ReceiverAt(uint32_t address) {
  MediaReceiverOptions options;
  options.bindAddress = address;
  return options;
}

}  // namespace

LoopbackPhone::LoopbackPhone(const std::filesystem::path& pluginLog, uint16_t controlPort,
                             const std::atomic<bool>& interrupted)
    : options_(OptionsFor(pluginLog, controlPort)),
      link_(options_, interrupted),
      receiver_(ReceiverAt(options_.bindAddress)) {}

bool LoopbackPhone::Open(std::string& sentence) {
  if (receiver_.Open(sentence) != MediaReceiver::OpenResult::Opened) return false;
  receiver_.Start([this](WholeFrame&& frame) { Take(frame); });
  return link_.Open(sentence) == LinkResult::Open;
}

void LoopbackPhone::Close() {
  link_.Close();
  receiver_.Stop();
}

void LoopbackPhone::Ask(StreamCodec codec) {
  {
    const MutexLock lock(mutex_);
    asked_ = codec;
    tally_ = {};
    tally_.askedNs = SteadyNanos();
  }
  SettingsSnapshot settings;
  settings.codec = codec == StreamCodec::H264 ? kCodecH264 : kCodecHevc;
  settings.gopMode = kGopLong;
  link_.Send(SnapshotCommand(settings));
}

void LoopbackPhone::Take(const WholeFrame& frame) {
  const MutexLock lock(mutex_);
  if (frame.stream == StreamType::Audio) {
    ++tally_.soundBlocks;
    return;
  }
  if (frame.keyFrame) arriving_ = CodecOf(frame.data);
  if (arriving_ != asked_) return;
  // Pictures of the same codec that were under way when it was asked for aren't its first.
  if (tally_.firstNs == 0 && !frame.keyFrame) return;
  if (tally_.firstNs == 0) tally_.firstNs = frame.wholeNs;
  tally_.lastNs = frame.wholeNs;
  ++tally_.frames;
  tally_.keyFrames += frame.keyFrame ? 1 : 0;
  tally_.bytes += frame.data.size();
}

StreamTally LoopbackPhone::Tally() const {
  const MutexLock lock(mutex_);
  return tally_;
}

uint64_t LoopbackPhone::FramesLost() const {
  return receiver_.Counters(StreamType::Video).assembler.framesLost;
}

std::vector<ReportedEngine> LoopbackPhone::Engines() const {
  std::vector<ReportedEngine> engines;
  for (const StatusMessage& message : link_.Messages()) {
    if (message.opcode == kEncoderEngineList) engines = ParseEngineList(message);
  }
  return engines;
}

}  // namespace Veldrift
