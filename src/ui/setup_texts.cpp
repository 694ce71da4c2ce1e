#include "ui/setup_texts.h"

#include <array>
#include <charconv>

namespace Veldrift {
namespace {

std::string Fixed(double value, int decimals) {
  std::array<char, 64> text;
  const auto written = std::to_chars(text.data(), text.data() + text.size(), value,
                                     std::chars_format::fixed, decimals);
  return written.ec == std::errc() ? std::string(text.data(), written.ptr) : kNothing;
}

std::string Mbps(uint32_t bitsPerSecond) {
  return Fixed(double(bitsPerSecond) / 1'000'000, 1) + " Mbps";
}

bool HasRate(const ClientTelemetry& telemetry) {
  return telemetry.valid != 0 && telemetry.targetRate != 0;
}

// Only the second version of the unified controller has a phase and figures of its own.
constexpr uint8_t kUnifiedV2 = 2;
bool HasFigures(const ClientTelemetry& telemetry) {
  return telemetry.controllerKind == kUnifiedV2 && telemetry.valid != 0;
}

// ---- The stream --------------------------------------------------------------------------------

std::string StatusValue(const LiveState& state) {
  if (!state.running) return "Transmit disabled";
  return state.connected ? "Streaming" : "Idle · waiting for iPhone";
}

std::string PhoneValue(const LiveState& state) {
  return state.connected && !state.phone.empty() ? state.phone : kNothing;
}

std::string CodecValue(const LiveState& state) {
  switch (state.settings.codec) {
    case 0:
      return "HEVC (H.265)";
    case 1:
      return "H.264";
    default:
      return kNothing;
  }
}

std::string BitrateValue(const LiveState& state) {
  return HasRate(state.telemetry) ? Mbps(state.telemetry.targetRate) : kNothing;
}

// "Auto (native)" once the phone has said that it wants no limit.
std::string CapText(const ClientSettings& settings, const char* unit) {
  if (settings.shortSideCap > 0) return std::to_string(settings.shortSideCap) + unit;
  return settings.shortSideCap == 0 && settings.hasClientSettings ? "Auto (native)" : kNothing;
}

std::string ResolutionValue(const LiveState& state) {
  const ClientTelemetry& telemetry = state.telemetry;
  if (telemetry.valid != 0 && telemetry.shortSide != 0) {
    return std::to_string(telemetry.shortSide) + "p short · L" + std::to_string(telemetry.level);
  }
  return CapText(state.settings, "p (short-side cap)");
}

std::string GopValue(const LiveState& state) {
  const ClientTelemetry& telemetry = state.telemetry;
  const int32_t gop = telemetry.valid != 0 ? telemetry.gop : state.settings.gopSize;
  const bool automatic = telemetry.gopAuto != 0;
  if (gop == 1) return automatic ? "All-Intra · Auto" : "All-Intra (every frame IDR)";
  if (gop < 1) return kNothing;
  return "Short-GOP (" + std::to_string(gop) + (automatic ? ") · Auto" : ")");
}

std::string FecParityValue(const LiveState& state) {
  const ClientTelemetry& telemetry = state.telemetry;
  if (telemetry.valid == 0 || telemetry.fecPerMille == 0) return kNothing;
  return Fixed(double(telemetry.fecPerMille) / 10, 1) + " %";
}

// No phone tells a ceiling.
std::string BitrateCeilingValue(const LiveState&) { return kNothing; }

std::string MaxResolutionValue(const LiveState& state) {
  return CapText(state.settings, "p (short side)");
}

std::string OfNetwork(const LiveState&) { return kNothing; }

// ---- Adaptation --------------------------------------------------------------------------------

std::string ControllerValue(const LiveState& state) {
  switch (state.telemetry.controllerKind) {
    case 0:
      return state.telemetry.valid != 0 ? "Legacy (AIMD)" : kNothing;
    case 1:
      return "Unified v1";
    case kUnifiedV2:
      return "Unified v2 (experimental)";
    default:
      return kNothing;
  }
}

std::string LastReasonValue(const LiveState& state) {
  static constexpr std::array<const char*, 11> kReasons = {
      kNothing, "Ramp up",      "Bandwidth", "Loss",        "Backlog",   "Size over budget",
      "CPU",    "User ceiling", "Delay",     "Probe start", "Probe fail"};
  const size_t reason = state.telemetry.lastReason;
  return state.telemetry.valid != 0 && reason < kReasons.size() ? kReasons[reason] : kNothing;
}

std::string PhaseValue(const LiveState& state) {
  if (state.telemetry.controllerKind != kUnifiedV2) return "n/a (v1)";
  if (state.telemetry.valid == 0) return kNothing;
  switch (state.telemetry.controllerPhase) {
    case 1:
      return "Settling";
    case 2:
      return "Probing";
    default:
      return "Normal";
  }
}

std::string LossValue(const LiveState& state) {
  return HasFigures(state.telemetry) ? Fixed(state.telemetry.lossPercent, 2) + " %" : kNothing;
}

std::string BacklogValue(const LiveState& state) {
  return HasFigures(state.telemetry) ? Fixed(state.telemetry.backlog * 100, 0) + " %" : kNothing;
}

std::string OwdTrendValue(const LiveState& state) {
  if (!HasFigures(state.telemetry)) return kNothing;
  const int32_t trend = state.telemetry.owdTrendMicros;
  return (trend >= 0 ? "+" : "") + std::to_string(trend) + " µs";
}

std::string RateModeValue(const LiveState& state) {
  switch (state.settings.encoderMode) {
    case 0:
      return "Adaptive (CBR, AIMD target)";
    case 1:
      return state.settings.quality < 0
                 ? "Quality"
                 : "Quality " + std::to_string(state.settings.quality) + " %";
    case 2:
      return "VBR (peak-constrained)";
    default:
      return kNothing;
  }
}

// ---- The encoder -------------------------------------------------------------------------------

std::string EngineValue(const LiveState& state) {
  const EncoderStatus& encoder = state.encoder;
  return encoder.valid && !encoder.description.empty() ? encoder.description : kNothing;
}

std::string EngineCodecValue(const LiveState& state) {
  if (!state.encoder.valid) return kNothing;
  return state.encoder.codec == 1 ? "H.264" : "H.265 (HEVC)";
}

std::string EngineGopValue(const LiveState& state) {
  if (!state.encoder.valid) return kNothing;
  switch (state.encoder.gopClass) {
    case GopClass::AllIntra:
      return "All-Intra";
    case GopClass::Long:
      return "Long-GOP";
    default:
      return "Short-GOP";
  }
}

}  // namespace

bool IsStreaming(const LiveState& state) { return state.connected && state.running; }

std::string StatusLine(const LiveState& state) {
  if (!state.running) return "Transmit disabled";
  if (!state.connected) return "Ready · waiting for iPhone";
  return HasRate(state.telemetry) ? "Streaming · " + Mbps(state.telemetry.targetRate) : "Streaming";
}

std::string EncoderLine(const LiveState& state) {
  return "Active encoder: " + (state.encoderName.empty()
                                   ? std::string(kNothing) + " (not configured)"
                                   : state.encoderName);
}

std::string InstanceLine(const std::string& installId) { return "Instance ID: " + installId; }

std::string PanelText(PanelValue value, const LiveState& state) {
  static constexpr std::array<std::string (*)(const LiveState&), kPanelValues> kValues = {
      StatusValue,      PhoneValue,     CodecValue,          BitrateValue,       ResolutionValue,
      GopValue,         FecParityValue, BitrateCeilingValue, MaxResolutionValue, OfNetwork,
      OfNetwork,        OfNetwork,      ControllerValue,     LastReasonValue,    PhaseValue,
      LossValue,        BacklogValue,   OwdTrendValue,       RateModeValue,      EngineValue,
      EngineCodecValue, EngineGopValue};
  return kValues[size_t(value)](state);
}

std::string PeerName(const TrustedPeer& peer) {
  return peer.name.empty() ? "(unnamed iPhone)" : peer.name;
}

std::string PairedLine(const TrustedPeer& peer) {
  return peer.firstPaired.empty() ? "" : "paired " + peer.firstPaired;
}

std::string PeersSignature(const std::vector<TrustedPeer>& peers) {
  std::string signature;
  for (const TrustedPeer& peer : peers) {
    signature += peer.id + "|" + peer.name + "|" + peer.firstPaired + ";";
  }
  return signature;
}

}  // namespace Veldrift
