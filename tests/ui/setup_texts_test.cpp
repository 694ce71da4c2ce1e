#include "ui/setup_texts.h"

#include <gtest/gtest.h>

#include <clocale>
#include <functional>

namespace Veldrift {
namespace {

using Change = std::function<void(LiveState&)>;

struct Row {
  const char* text;
  Change change;  // of a state in which nothing is known
};

LiveState After(const Change& change) {
  LiveState state;
  if (change) change(state);
  return state;
}

LiveState Streaming() {
  LiveState state;
  state.connected = state.running = true;
  return state;
}

TEST(SetupTexts, TheDeviceIsStreamingReadyOrDisabled) {
  struct Case {
    bool connected, running;
    uint8_t valid;
    uint32_t rate;
    const char* line;
    const char* value;
    const char* bitrate;
  };
  const Case cases[] = {
      {false, false, 0, 0, "Transmit disabled", "Transmit disabled", "—"},
      {true, false, 0, 0, "Transmit disabled", "Transmit disabled", "—"},
      {false, true, 1, 0, "Ready · waiting for iPhone", "Idle · waiting for iPhone", "—"},
      {true, true, 0, 12'340'000, "Streaming", "Streaming", "—"},
      {true, true, 1, 0, "Streaming", "Streaming", "—"},
      {true, true, 1, 12'340'000, "Streaming · 12.3 Mbps", "Streaming", "12.3 Mbps"},
      {true, true, 1, 4'294'967'295, "Streaming · 4295.0 Mbps", "Streaming", "4295.0 Mbps"},
  };
  for (const Case& each : cases) {
    LiveState state;
    state.connected = each.connected;
    state.running = each.running;
    state.telemetry.valid = each.valid;
    state.telemetry.targetRate = each.rate;
    EXPECT_EQ(StatusLine(state), each.line);
    EXPECT_EQ(PanelText(PanelValue::Status, state), each.value);
    EXPECT_EQ(PanelText(PanelValue::Bitrate, state), each.bitrate);
    EXPECT_EQ(IsStreaming(state), each.connected && each.running);
  }
}

TEST(SetupTexts, ThePhoneIsItsAddressWhileItIsConnected) {
  LiveState state;
  state.phone = "192.0.2.9";
  EXPECT_EQ(PanelText(PanelValue::Phone, state), "—");
  state.connected = true;  // also while no instance runs
  EXPECT_EQ(PanelText(PanelValue::Phone, state), "192.0.2.9");
  state.phone.clear();
  EXPECT_EQ(PanelText(PanelValue::Phone, state), "—");
}

// Everything that the phone chooses, from "not yet" to "no limit".
TEST(SetupTexts, ThePhonesChoices) {
  const auto settings = [](auto set) {
    return Change([=](LiveState& state) { set(state.settings); });
  };
  const std::pair<PanelValue, std::vector<Row>> values[] = {
      {PanelValue::Codec,
       {{"—", {}},
        {"HEVC (H.265)", settings([](ClientSettings& s) { s.codec = 0; })},
        {"H.264", settings([](ClientSettings& s) { s.codec = 1; })},
        {"—", settings([](ClientSettings& s) { s.codec = 2; })}}},
      {PanelValue::Resolution,
       {{"—", {}},
        {"720p (short-side cap)", settings([](ClientSettings& s) { s.shortSideCap = 720; })},
        {"Auto (native)", settings([](ClientSettings& s) { s.hasClientSettings = true; })},
        {"—", settings([](ClientSettings& s) {
           s.hasClientSettings = true;
           s.shortSideCap = -1;
         })}}},
      {PanelValue::MaxResolution,
       {{"—", {}},
        {"720p (short side)", settings([](ClientSettings& s) { s.shortSideCap = 720; })},
        {"Auto (native)", settings([](ClientSettings& s) { s.hasClientSettings = true; })}}},
      {PanelValue::Gop,
       {{"—", {}},
        {"All-Intra (every frame IDR)", settings([](ClientSettings& s) { s.gopSize = 1; })},
        {"Short-GOP (2)", settings([](ClientSettings& s) { s.gopSize = 2; })},
        {"—", settings([](ClientSettings& s) { s.gopSize = -3; })}}},
      {PanelValue::RateMode,
       {{"—", {}},
        {"Adaptive (CBR, AIMD target)", settings([](ClientSettings& s) { s.encoderMode = 0; })},
        {"Quality", settings([](ClientSettings& s) { s.encoderMode = 1; })},
        {"Quality 0 %", settings([](ClientSettings& s) {
           s.encoderMode = 1;
           s.quality = 0;
         })},
        {"VBR (peak-constrained)", settings([](ClientSettings& s) { s.encoderMode = 2; })},
        {"—", settings([](ClientSettings& s) { s.encoderMode = 3; })}}},
  };
  for (const auto& [value, rows] : values) {
    for (const Row& row : rows) EXPECT_EQ(PanelText(value, After(row.change)), row.text);
  }
}

// What the phones' reports would fill, without them and with them.
TEST(SetupTexts, TheReports) {
  const auto invalid = [](auto set) {
    return Change([=](LiveState& state) { set(state.telemetry); });
  };
  const auto valid = [](auto set) {
    return Change([=](LiveState& state) {
      state.telemetry.valid = 1;
      set(state.telemetry);
    });
  };
  const auto v2 = [](auto set) {
    return Change([=](LiveState& state) {
      state.telemetry.valid = 1;
      state.telemetry.controllerKind = 2;
      set(state.telemetry);
    });
  };
  using T = ClientTelemetry;
  const auto reason = [&](uint8_t index) { return valid([=](T& t) { t.lastReason = index; }); };
  const std::pair<PanelValue, std::vector<Row>> values[] = {
      {PanelValue::Resolution,
       {{"720p short · L3", valid([](T& t) { t.shortSide = 720, t.level = 3; })},
        {"720p short · L-1", valid([](T& t) { t.shortSide = 720, t.level = -1; })},
        {"—", valid([](T&) {})},
        {"—", invalid([](T& t) { t.shortSide = 720; })}}},
      {PanelValue::Gop,
       {{"All-Intra · Auto", valid([](T& t) { t.gop = 1, t.gopAuto = 1; })},
        {"All-Intra (every frame IDR)", valid([](T& t) { t.gop = 1; })},
        {"Short-GOP (15) · Auto", valid([](T& t) { t.gop = 15, t.gopAuto = 1; })},
        {"Short-GOP (15)", valid([](T& t) { t.gop = 15; })},
        {"—", valid([](T& t) { t.gop = -1; })},
        {"—", invalid([](T& t) { t.gop = 15; })}}},
      {PanelValue::FecParity,
       {{"10.0 %", valid([](T&) {})},
        {"12.5 %", valid([](T& t) { t.fecPerMille = 125; })},
        {"—", valid([](T& t) { t.fecPerMille = 0; })},
        {"—", {}}}},
      {PanelValue::BitrateCeiling,
       {{"—", {}}, {"—", valid([](T& t) { t.targetRate = 1'000'000; })}}},
      {PanelValue::Controller,
       {{"—", {}},
        {"Legacy (AIMD)", valid([](T&) {})},
        {"Unified v1", invalid([](T& t) { t.controllerKind = 1; })},
        {"Unified v2 (experimental)", invalid([](T& t) { t.controllerKind = 2; })},
        {"—", valid([](T& t) { t.controllerKind = 3; })}}},
      {PanelValue::LastReason,
       {{"—", invalid([](T& t) { t.lastReason = 3; })},
        {"—", reason(0)},
        {"Ramp up", reason(1)},
        {"Bandwidth", reason(2)},
        {"Loss", reason(3)},
        {"Backlog", reason(4)},
        {"Size over budget", reason(5)},
        {"CPU", reason(6)},
        {"User ceiling", reason(7)},
        {"Delay", reason(8)},
        {"Probe start", reason(9)},
        {"Probe fail", reason(10)},
        {"—", reason(11)}}},
      {PanelValue::Phase,
       {{"n/a (v1)", {}},
        {"n/a (v1)", valid([](T& t) { t.controllerKind = 1; })},
        {"—", invalid([](T& t) { t.controllerKind = 2; })},
        {"Normal", v2([](T&) {})},
        {"Settling", v2([](T& t) { t.controllerPhase = 1; })},
        {"Probing", v2([](T& t) { t.controllerPhase = 2; })},
        {"Normal", v2([](T& t) { t.controllerPhase = 3; })}}},
      {PanelValue::Loss,
       {{"0.50 %", v2([](T& t) { t.lossPercent = 0.5; })},
        {"—", valid([](T& t) { t.controllerKind = 1, t.lossPercent = 0.5; })},
        {"—", invalid([](T& t) { t.controllerKind = 2, t.lossPercent = 0.5; })}}},
      {PanelValue::Backlog, {{"50 %", v2([](T& t) { t.backlog = 0.5; })}, {"—", {}}}},
      {PanelValue::OwdTrend,
       {{"+0 µs", v2([](T&) {})},
        {"-250 µs", v2([](T& t) { t.owdTrendMicros = -250; })},
        {"+250 µs", v2([](T& t) { t.owdTrendMicros = 250; })},
        {"—", invalid([](T& t) { t.controllerKind = 2; })}}},
  };
  for (const auto& [value, rows] : values) {
    for (const Row& row : rows) EXPECT_EQ(PanelText(value, After(row.change)), row.text);
  }
}

TEST(SetupTexts, TheEncoderIsTheOneThatWasPublished) {
  LiveState state;
  state.encoder = {0, "NVIDIA", 1, GopClass::Long, false};
  for (PanelValue value : {PanelValue::Engine, PanelValue::EngineCodec, PanelValue::EngineGop}) {
    EXPECT_EQ(PanelText(value, state), "—");
  }
  state.encoder.valid = true;
  EXPECT_EQ(PanelText(PanelValue::Engine, state), "NVIDIA");
  EXPECT_EQ(PanelText(PanelValue::EngineCodec, state), "H.264");
  EXPECT_EQ(PanelText(PanelValue::EngineGop, state), "Long-GOP");
  state.encoder = {0, "", 0, GopClass::AllIntra, true};
  EXPECT_EQ(PanelText(PanelValue::Engine, state), "—");
  EXPECT_EQ(PanelText(PanelValue::EngineCodec, state), "H.265 (HEVC)");
  EXPECT_EQ(PanelText(PanelValue::EngineGop, state), "All-Intra");
  state.encoder.gopClass = GopClass::Short;
  EXPECT_EQ(PanelText(PanelValue::EngineGop, state), "Short-GOP");
  state.encoder.gopClass = GopClass(2);
  EXPECT_EQ(PanelText(PanelValue::EngineGop, state), "Short-GOP");

  EXPECT_EQ(EncoderLine(state), "Active encoder: — (not configured)");
  state.encoderName = "x265 [SW]";
  EXPECT_EQ(EncoderLine(state), "Active encoder: x265 [SW]");
}

TEST(SetupTexts, PeersShowWhatIsKnownOfThem) {
  const TrustedPeer named{"id1", "Mac & Cheese", "t", "2026-01-02T03:04:05Z"};
  const TrustedPeer unnamed{"id2", "", "t", ""};
  EXPECT_EQ(PeerName(named), "Mac & Cheese");
  EXPECT_EQ(PairedLine(named), "paired 2026-01-02T03:04:05Z");
  EXPECT_EQ(PeerName(unnamed), "(unnamed iPhone)");
  EXPECT_EQ(PairedLine(unnamed), "");
  EXPECT_EQ(PeersSignature({named, unnamed}), "id1|Mac & Cheese|2026-01-02T03:04:05Z;id2||;");
  EXPECT_EQ(PeersSignature({}), "");
}

// A host shares the C library with its plug-ins, and sets the user's locale.
TEST(SetupTexts, ADecimalSignIsAPointInEveryLocale) {
  const std::string before = std::setlocale(LC_ALL, nullptr);
  const bool german = std::setlocale(LC_ALL, "de_DE.UTF-8") != nullptr ||
                      std::setlocale(LC_ALL, "German") != nullptr;
  LiveState state = Streaming();
  state.telemetry.valid = 1;
  state.telemetry.targetRate = 1'500'000;
  const std::string line = StatusLine(state);
  std::setlocale(LC_ALL, before.c_str());
  if (!german) GTEST_SKIP() << "no German locale here";
  EXPECT_EQ(line, "Streaming · 1.5 Mbps");
}

}  // namespace
}  // namespace Veldrift
