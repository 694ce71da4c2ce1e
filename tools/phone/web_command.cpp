#include "web_command.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "net/control_protocol.h"
#include "support/little_endian.h"

namespace Veldrift {

namespace {

constexpr int kMostPixels = 65'535;
constexpr int kMostQuality = 100;
constexpr std::byte kBitRateMode{0};
constexpr std::byte kQualityMode{1};

struct Choice {
  std::string_view text;
  uint8_t opcode;
  uint8_t value;
};
constexpr std::array kChoices = {
    Choice{"codec=hevc", kSetCodec, 0},  Choice{"codec=h264", kSetCodec, 1},
    Choice{"gop=intra", kSetGopMode, 0}, Choice{"gop=short", kSetGopMode, 1},
    Choice{"gop=long", kSetGopMode, 3},  Choice{"gop=auto", kSetGopMode, 2},
};

std::optional<int> NumberBehind(std::string_view text, std::string_view head, int most) {
  if (!text.starts_with(head)) return std::nullopt;
  const char* end = text.data() + text.size();
  int value = 0;
  const auto [stopped, error] = std::from_chars(text.data() + head.size(), end, value);
  if (error != std::errc() || stopped != end || value < 0 || value > most) return std::nullopt;
  return value;
}

std::optional<Command> KeyOf(std::string_view text) {
  for (int opcode = kHostCommandFirst; opcode <= kHostCommandLast; ++opcode) {
    if (text == CommandName(uint8_t(opcode))) return Command{uint8_t(opcode), {}};
  }
  if (text == CommandName(kRequestIdr)) return Command{kRequestIdr, {}};
  return std::nullopt;
}

}  // namespace

std::optional<Command> ParseWebCommand(std::string_view text) {
  const auto choice = std::ranges::find(kChoices, text, &Choice::text);
  if (choice != kChoices.end()) return Command{choice->opcode, {std::byte(choice->value)}};
  if (const auto pixels = NumberBehind(text, "size=", kMostPixels)) {
    return MaxResolutionCommand(uint16_t(*pixels));
  }
  if (const auto quality = NumberBehind(text, "quality=", kMostQuality)) {
    return Command{kSetEncoderMode, {kQualityMode, std::byte(*quality)}};
  }
  if (text == "bitrate") return Command{kSetEncoderMode, {kBitRateMode, std::byte{0}}};
  return KeyOf(text);
}

std::string WebSettingText(const Command& command) {
  const std::vector<std::byte>& payload = command.payload;
  if (command.opcode == kSetMaxResolution && payload.size() == 2) {
    return "size=" + std::to_string(GetU16(payload.data()));
  }
  if (command.opcode == kSetEncoderMode && payload.size() == 2) {
    if (payload[0] != kQualityMode) return "bitrate";
    return "quality=" + std::to_string(std::to_integer<int>(payload[1]));
  }
  for (const Choice& choice : kChoices) {
    if (choice.opcode == command.opcode && payload.size() == 1 &&
        payload[0] == std::byte(choice.value)) {
      return std::string(choice.text);
    }
  }
  return {};
}

}  // namespace Veldrift
