#include "session/phone_commands.h"

#include <algorithm>
#include <string>

#include "net/control_protocol.h"
#include "session/self_tests.h"
#include "support/little_endian.h"
#include "support/plugin_log.h"

namespace Veldrift {

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

void LogRetired(const CommandRow& command) {
  if (*command.retired == '\0') {
    PluginLog(kLog, kLogInfo, "control: retired opcode 0x%02X — ignored", command.opcode);
  } else {
    PluginLog(kLog, kLogInfo, "control: retired opcode 0x%02X (%s) — ignored", command.opcode,
              command.retired);
  }
}

uint8_t ByteAt(std::span<const std::byte> payload, size_t at) {
  return std::to_integer<uint8_t>(payload[at]);
}

std::string TextOf(std::span<const std::byte> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace

void PhoneCommands::HandleControlCommand(uint8_t opcode, std::span<const std::byte> payload) {
  const CommandRow* const command = FindCommand(opcode);
  if (command == nullptr || (opcode >= kHostCommandFirst && opcode <= kHostCommandLast)) {
    PluginLog(kLog, kLogInfo, "control: unhandled opcode 0x%02x", opcode);
    return;
  }
  if (command->retired != nullptr) {
    LogRetired(*command);
  } else if (payload.size() >= command->shape.headBytes || opcode == kAppSettingsSnapshot) {
    RunCommand(opcode, payload);
  }
  if (command->acknowledged) transport_.SendControlByte(kCommandAck, opcode);
}

void PhoneCommands::RunCommand(uint8_t opcode, std::span<const std::byte> payload) {
  switch (opcode) {
    case kRequestIdr:
      PluginLog(kLog, kLogInfo, "control: IDR requested by client");
      seat_.RequestIdr();
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
    default:  // the receiver's reports feed nothing
      break;
  }
}

void PhoneCommands::SetGopMode(uint8_t mode) {
  const PipelineSeat::Reference pipeline = seat_.Current();
  transport_.Settings().RememberGopMode(mode);
  if (mode == kGopModeAuto) {
    PluginLog(kLog, kLogInfo, "control: SetGopMode AUTO is retired — keeping current=%d",
              pipeline ? pipeline->GetGopSize() : 0);
    return;
  }
  const GopMode chosen = GopModeOf(mode);
  PluginLog(kLog, kLogInfo, "[Sunshine] Step 1 GOP applied: %s (gopSize=%d)", chosen.name,
            chosen.gopSize);
  if (pipeline) pipeline->SetGopSize(chosen.gopSize);
  transport_.Settings().RememberGopSize(chosen.gopSize);
  announcer_.PublishEncoderStatus();
}

void PhoneCommands::SetCodec(uint8_t codec) {
  const int32_t chosen = codec == kCodecH264 ? kCodecH264 : kCodecHevc;
  PluginLog(kLog, kLogInfo, "control: SetCodec %{public}s", chosen == kCodecH264 ? "H264" : "HEVC");
  if (const PipelineSeat::Reference pipeline = seat_.Current()) pipeline->SetCodec(chosen);
  transport_.Settings().RememberCodec(chosen);
  announcer_.PublishEncoderStatus();
}

// The next frame computes the new target and moves the encoder.
void PhoneCommands::SetMaxResolution(uint16_t shortSideCap) {
  PluginLog(kLog, kLogDebug, "[dx] control: SetMaxResolution shortSideCap=%u (was=%d, 0=Auto)",
            shortSideCap, video_.ShortSideCap());
  video_.SetShortSideCap(shortSideCap);
  transport_.Settings().RememberShortSideCap(shortSideCap);
}

void PhoneCommands::SetEncoderMode(uint8_t mode, uint8_t quality) {
  const PipelineSeat::Reference pipeline = seat_.Current();
  const EncoderMode chosen = EncoderModeOf(mode);
  const uint8_t percent = std::min(quality, kMaxQuality);
  PluginLog(kLog, kLogInfo, "control: SetEncoderMode %{public}s q=%u%%", chosen.name, percent);
  if (pipeline) pipeline->SetRateControl(chosen.rateControl, float(percent) / 100.0F);
  transport_.Settings().RememberEncoderMode(chosen.rateControl, percent);

  uint32_t rate = 0;
  if (chosen.rateControl == kRateControlBitrate) {
    rate = (pipeline ? pipeline->GetBitrate() : 0) * 2;
  } else {
    rate = uint32_t(std::max(suites_.Fps(), 1)) * (pipeline ? pipeline->GetFrameByteCap() : 0) * 32;
  }
  transport_.GetPacer().SetBitrate(std::max(rate, kLowestPacerBitrate));
}

void PhoneCommands::SetEncoderEngine(std::span<const std::byte> payload) {
  const uint8_t length = ByteAt(payload, 0);
  if (payload.size() == 1) {
    PluginLog(kLog, kLogInfo, "control: SetEncoderEngine (legacy 1B) — treating as 'auto' no-op");
    announcer_.RememberLegacyEngineByte(length);
    return;
  }
  if (length == 0 || size_t{length} + 1 > payload.size()) {
    PluginLog(kLog, kLogError, "control: SetEncoderEngine malformed (idLen=%u payloadLen=%zu)",
              length, payload.size());
    return;
  }
  const std::string id = TextOf(payload.subspan(1, length));
  PluginLog(kLog, kLogInfo, "control: SetEncoderEngine id='%s' (was '%s')", id.c_str(),
            engineSwitch_.EngineId().c_str());
  engineSwitch_.SwitchEncoderEngine(id);
}

// The engine comes last: what was set before doesn't reach its new encoder, but for the cap.
void PhoneCommands::ApplySettingsSnapshot(std::span<const std::byte> payload) {
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

}  // namespace Veldrift
