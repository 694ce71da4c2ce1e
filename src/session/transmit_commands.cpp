// The phone's commands, as one instance obeys them.
#include <algorithm>

#include "net/control_protocol.h"
#include "session/transmit_instance.h"
#include "support/little_endian.h"
#include "support/plugin_log.h"

using namespace Veldrift;

namespace {

constexpr LogCategory kLog{kLogSubsystem, "transmit"};
constexpr uint8_t kGopModeAuto = 2;
constexpr uint8_t kMaxQuality = 100;
constexpr uint8_t kSnapshotQuality = 70;  // the snapshot carries none
constexpr size_t kSnapshotHead = 6;
constexpr uint32_t kLowestPacerBitrate = 300'000'000;

struct GopMode {
  const char* name;
  int32_t gopSize;
};

GopMode GopModeOf(uint8_t mode) {
  switch (mode) {
    case 0:
      return {"All-Intra", 1};
    case 1:
      return {"Short-GOP", 5};
    case 3:
      return {"Long-GOP", 600};
    default:
      return {"?-fallback-AllIntra", 1};
  }
}

struct EncoderMode {
  const char* name;
  int32_t rateControl;
};

EncoderMode EncoderModeOf(uint8_t mode) {
  switch (mode) {
    case 1:
      return {"Quality", kRateControlQuality};
    case 2:
      return {"VBR", kRateControlVbr};
    default:
      return {"Bitrate", kRateControlBitrate};
  }
}

size_t LeastPayload(uint8_t opcode) {
  switch (opcode) {
    case kSetGopMode:
    case kSetCodec:
    case kSetEncoderEngine:
    case kTestMarker:
      return 1;
    case kSetMaxResolution:
    case kSetEncoderMode:
      return 2;
    default:
      return 0;
  }
}

bool IsAcknowledged(uint8_t opcode) {
  switch (opcode) {
    case kSetBitrate:
    case kSetGopMode:
    case kSetCodec:
    case kSetMaxResolution:
    case kSetEncoderMode:
    case kSetHardFrameCap:
    case kSetEncoderEngine:
      return true;
    default:
      return false;
  }
}

uint8_t ByteAt(std::span<const std::byte> payload, size_t at) {
  return std::to_integer<uint8_t>(payload[at]);
}

std::string TextOf(std::span<const std::byte> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace

// A command that is too short does nothing, and is acknowledged all the same.
void TransmitInstance::HandleControlCommand(uint8_t opcode, std::span<const std::byte> payload) {
  if (payload.size() >= LeastPayload(opcode)) RunCommand(opcode, payload);
  if (IsAcknowledged(opcode)) services_.transport.SendControlByte(kCommandAck, opcode);
}

void TransmitInstance::RunCommand(uint8_t opcode, std::span<const std::byte> payload) {
  switch (opcode) {
    case kRequestIdr:
      PluginLog(kLog, kLogInfo, "control: IDR requested by client");
      RequestIdr();
      break;
    case kReceiverReport:
    case kReceiverReportV2:
      break;
    case kSetGopMode:
      SetGopMode(ByteAt(payload, 0));
      break;
    case kSetCodec:
      SetCodec(ByteAt(payload, 0));
      break;
    case kSetMaxResolution:
      SetMaxResolution(GetU16(payload.data()));
      break;
    case kSetEncoderMode:
      SetEncoderMode(ByteAt(payload, 0), ByteAt(payload, 1));
      break;
    case kSetEncoderEngine:
      SetEncoderEngine(payload);
      break;
    case kAppSettingsSnapshot:
      ApplySettingsSnapshot(payload);
      break;
    case kTestMarker:
      ObeyTestMarker(payload);
      break;
    case kSetBitrate:
      PluginLog(kLog, kLogInfo, "control: retired opcode 0x02 (SetBitrate) — ignored");
      break;
    case kSetAutoMode:
      PluginLog(kLog, kLogInfo, "control: retired opcode 0x0A (SetAutoMode) — ignored");
      break;
    case kSetHardFrameCap:
      PluginLog(kLog, kLogInfo, "control: retired opcode 0x0B (SetHardFrameCap) — ignored");
      break;
    case kSetCongestionController:
      PluginLog(kLog, kLogInfo, "control: retired opcode 0x0C (SetCongestionController) — ignored");
      break;
    case kSetPlaybackPrefer:
      PluginLog(kLog, kLogInfo, "control: retired opcode 0x10 (SetPlaybackPrefer) — ignored");
      break;
    case kSetMode:
    case kSetMaxLatency:
    case kAppTelemetry:
    case kSetTransitionMode:
    case kSetFullQualityWhenPaused:
      PluginLog(kLog, kLogInfo, "control: retired opcode 0x%02X — ignored", opcode);
      break;
    default:
      PluginLog(kLog, kLogInfo, "control: unhandled opcode 0x%02x", opcode);
      break;
  }
}

void TransmitInstance::SetGopMode(uint8_t mode) {
  const PipelineReference pipeline = Pipeline();
  services_.transport.RememberGopMode(mode);
  if (mode == kGopModeAuto) {
    PluginLog(kLog, kLogInfo, "control: SetGopMode AUTO is retired — keeping current=%d",
              pipeline ? pipeline->GetGopSize() : 0);
    return;
  }
  const GopMode chosen = GopModeOf(mode);
  PluginLog(kLog, kLogInfo, "[Sunshine] Step 1 GOP applied: %s (gopSize=%d)", chosen.name,
            chosen.gopSize);
  if (pipeline) pipeline->SetGopSize(chosen.gopSize);
  services_.transport.RememberGopSize(chosen.gopSize);
  PublishEncoderStatus();
}

void TransmitInstance::SetCodec(uint8_t codec) {
  const int32_t chosen = codec == kCodecH264 ? kCodecH264 : kCodecHevc;
  PluginLog(kLog, kLogInfo, "control: SetCodec %{public}s", chosen == kCodecH264 ? "H264" : "HEVC");
  if (const PipelineReference pipeline = Pipeline()) pipeline->SetCodec(chosen);
  services_.transport.RememberCodec(chosen);
  PublishEncoderStatus();
}

// The next frame computes the new target and moves the encoder.
void TransmitInstance::SetMaxResolution(uint16_t shortSideCap) {
  PluginLog(kLog, kLogDebug, "[dx] control: SetMaxResolution shortSideCap=%u (was=%d, 0=Auto)",
            shortSideCap, shortSideCap_.load());
  shortSideCap_ = shortSideCap;
  services_.transport.RememberShortSideCap(shortSideCap);
}

void TransmitInstance::SetEncoderMode(uint8_t mode, uint8_t quality) {
  const PipelineReference pipeline = Pipeline();
  const EncoderMode chosen = EncoderModeOf(mode);
  const uint8_t percent = std::min(quality, kMaxQuality);
  PluginLog(kLog, kLogInfo, "control: SetEncoderMode %{public}s q=%u%%", chosen.name, percent);
  encoderMode_ = uint32_t(chosen.rateControl);
  if (pipeline) pipeline->SetRateControl(chosen.rateControl, float(percent) / 100.0F);
  services_.transport.RememberEncoderMode(chosen.rateControl, percent);

  uint32_t rate = 0;
  if (chosen.rateControl == kRateControlBitrate) {
    rate = (pipeline ? pipeline->GetBitrate() : 0) * 2;
  } else {
    rate =
        uint32_t(std::max(timeBase_.Fps(), 1)) * (pipeline ? pipeline->GetFrameByteCap() : 0) * 32;
  }
  services_.transport.GetPacer().SetBitrate(std::max(rate, kLowestPacerBitrate));
}

void TransmitInstance::SetEncoderEngine(std::span<const std::byte> payload) {
  const uint8_t length = ByteAt(payload, 0);
  if (payload.size() == 1) {
    PluginLog(kLog, kLogInfo, "control: SetEncoderEngine (legacy 1B) — treating as 'auto' no-op");
    legacyEngineByte_ = length;
    return;
  }
  if (length == 0 || size_t{length} + 1 > payload.size()) {
    PluginLog(kLog, kLogError, "control: SetEncoderEngine malformed (idLen=%u payloadLen=%zu)",
              length, payload.size());
    return;
  }
  const std::string id = TextOf(payload.subspan(1, length));
  PluginLog(kLog, kLogInfo, "control: SetEncoderEngine id='%s' (was '%s')", id.c_str(),
            engineId_.c_str());
  SwitchEncoderEngine(id);
}

// The engine comes last: what was set before doesn't reach its new encoder, but for the cap.
void TransmitInstance::ApplySettingsSnapshot(std::span<const std::byte> payload) {
  if (payload.size() < kSnapshotHead) {
    PluginLog(kLog, kLogInfo, "control: AppSettingsSnapshot too short (%zu)", payload.size());
    return;
  }
  const size_t engineLength = ByteAt(payload, 5);
  std::span<const std::byte> engine;
  if (kSnapshotHead + engineLength <= payload.size()) {
    engine = payload.subspan(kSnapshotHead, engineLength);
  }
  PluginLog(kLog, kLogInfo,
            "control: AppSettingsSnapshot resLimit=%u codec=%u gop=%u rc=%u engine=%s",
            GetU16(payload.data()), ByteAt(payload, 2), ByteAt(payload, 3), ByteAt(payload, 4),
            TextOf(engine).c_str());
  const std::byte mode[] = {payload[4], std::byte{kSnapshotQuality}};
  HandleControlCommand(kSetMaxResolution, payload.first(2));
  HandleControlCommand(kSetCodec, payload.subspan(2, 1));
  HandleControlCommand(kSetGopMode, payload.subspan(3, 1));
  HandleControlCommand(kSetEncoderMode, mode);
  if (!engine.empty()) {
    HandleControlCommand(kSetEncoderEngine, payload.subspan(kSnapshotHead - 1, engineLength + 1));
  }
}
