#include "net/control_reader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "net/control_protocol.h"
#include "tests/support/scratch.h"

namespace Veldrift {
namespace {

using Commands = std::vector<std::pair<int, size_t>>;  // opcode and payload length

// Runs the loop over exactly these bytes; what it handed on.
Commands ReadCommands(const std::string& bytes) {
  size_t at = 0;
  Commands commands;
  const std::atomic<bool> running{true};
  RunControlReadLoop(
      [&](std::span<std::byte> buffer) {
        if (bytes.size() - at < buffer.size()) return false;
        std::copy_n(reinterpret_cast<const std::byte*>(bytes.data()) + at, buffer.size(),
                    buffer.begin());
        at += buffer.size();
        return true;
      },
      [&](uint8_t opcode, std::span<const std::byte> payload) {
        commands.emplace_back(opcode, payload.size());
      },
      running);
  return commands;
}

std::string Bytes(std::initializer_list<int> values) {
  std::string bytes;
  for (const int value : values) bytes.push_back(char(value));
  return bytes;
}

TEST(ControlReader, EveryCommandHasItsLength) {
  const std::string stream =
      Bytes({0x01, 0x02, 1, 2, 3, 4, 0x03}) + std::string(24, 'r') + Bytes({0x04, 3, 0x05, 1}) +
      Bytes({0x07, 0xD0, 0x02, 0x08, 1, 80, 0x0A, 0, 0, 0, 0, 0x0B, 0, 0, 0, 0, 0x0C, 0, 0x0E}) +
      std::string(32, 'r') + Bytes({0x10, 0, 0x11, 0, 0x12, 0, 0, 0x13, 2, 'a', 'b', 0x14}) +
      std::string(10, 't') + Bytes({0x15, 0, 0x18, 0, 0, 0, 0, 0, 1, 'e', 0x19, 0}) +
      Bytes({0x20, 0x21, 0x22, 0x23, 0x24, 0x25, 0x26, 0x27, 0x28, 0x29}) +
      Bytes({0x40, 3, 'x', 'y', 'z'});
  const Commands wanted = {{0x01, 0}, {0x02, 4}, {0x03, 24}, {0x04, 1},  {0x05, 1},  {0x07, 2},
                           {0x08, 2}, {0x0A, 4}, {0x0B, 4},  {0x0C, 1},  {0x0E, 32}, {0x10, 1},
                           {0x11, 1}, {0x12, 2}, {0x13, 3},  {0x14, 10}, {0x15, 1},  {0x18, 7},
                           {0x19, 1}, {0x20, 0}, {0x21, 0},  {0x22, 0},  {0x23, 0},  {0x24, 0},
                           {0x25, 0}, {0x26, 0}, {0x27, 0},  {0x28, 0},  {0x29, 0},  {0x40, 4}};
  EXPECT_EQ(ReadCommands(stream), wanted);
}

TEST(ControlReader, EmptyCountedTailsAreJustTheirHead) {
  EXPECT_EQ(ReadCommands(Bytes({0x13, 0})), (Commands{{0x13, 1}}));
  EXPECT_EQ(ReadCommands(Bytes({0x18, 0, 0, 0, 0, 0, 0})), (Commands{{0x18, 6}}));
  EXPECT_EQ(ReadCommands(Bytes({0x40, 0})), (Commands{{0x40, 1}}));
}

TEST(ControlReader, ALongestTailFits) {
  EXPECT_EQ(ReadCommands(Bytes({0x18, 0, 0, 0, 0, 0, 255}) + std::string(255, 'e')),
            (Commands{{0x18, 261}}));
}

TEST(ControlReader, WhatIsNoOpcodeEndsTheConnection) {
  for (int opcode = 0; opcode < 256; ++opcode) {
    const bool known = (opcode >= 0x01 && opcode <= 0x05) || opcode == 0x07 || opcode == 0x08 ||
                       (opcode >= 0x0A && opcode <= 0x0C) || opcode == 0x0E ||
                       (opcode >= 0x10 && opcode <= 0x15) || opcode == 0x18 || opcode == 0x19 ||
                       (opcode >= 0x20 && opcode <= 0x29) || opcode == 0x40;
    const size_t before = CountInPluginLog("control: unknown opcode");
    // A command with a payload is truncated here; that isn't the unknown line.
    ReadCommands(std::string(1, char(opcode)));
    EXPECT_EQ(CountInPluginLog("control: unknown opcode") - before, known ? 0U : 1U) << opcode;
  }
  EXPECT_TRUE(ReadCommands(Bytes({0x09, 0x01})).empty());
  EXPECT_EQ(CountInPluginLog("control: unknown opcode 0x09 — dropping client"), 2U);
}

TEST(ControlReader, CutOffPayloadsSaySoByName) {
  const std::pair<std::string, const char*> rows[] = {
      {Bytes({0x02, 1, 2, 3}), "truncated SetBitrate"},
      {Bytes({0x03}), "truncated ReceiverReport"},
      {Bytes({0x04}), "truncated SetGopMode"},
      {Bytes({0x05}), "truncated SetCodec"},
      {Bytes({0x07, 1}), "truncated SetMaxResolution"},
      {Bytes({0x08, 1}), "truncated SetEncoderMode"},
      {Bytes({0x0A, 1}), "truncated 0x0A (retired)"},
      {Bytes({0x0B, 1}), "truncated SetHardFrameCap"},
      {Bytes({0x0C}), "truncated 0x0C (retired)"},
      {Bytes({0x0E, 1}), "truncated ReceiverReportV2"},
      {Bytes({0x10}), "truncated 0x10 (retired)"},
      {Bytes({0x11}), "truncated SetMode"},
      {Bytes({0x12, 1}), "truncated SetMaxLatency"},
      {Bytes({0x13}), "truncated SetEncoderEngine len"},
      {Bytes({0x13, 3, 'a', 'b'}), "truncated SetEncoderEngine body"},
      {Bytes({0x14, 1}), "truncated AppTelemetry"},
      {Bytes({0x15}), "truncated SetTransitionMode"},
      {Bytes({0x18, 0, 0, 0, 0, 0}), "truncated AppSettingsSnapshot head"},
      {Bytes({0x18, 0, 0, 0, 0, 0, 2, 'a'}), "truncated AppSettingsSnapshot tail"},
      {Bytes({0x19}), "truncated SetFullQualityWhenPaused"},
      {Bytes({0x40}), "truncated TestMarker len"},
      {Bytes({0x40, 2, 'a'}), "truncated TestMarker body"},
  };
  for (const auto& [bytes, text] : rows) {
    const std::string line = std::string("INFO] control: ") + text + "\r\n";
    const size_t before = CountInPluginLog(line);
    EXPECT_TRUE(ReadCommands(bytes).empty()) << text;
    EXPECT_EQ(CountInPluginLog(line), before + 1) << text;
  }
}

TEST(ControlProtocol, OnlyFourMessagesPassBeforePairing) {
  for (int opcode = 0; opcode < 256; ++opcode) {
    const bool allowed = opcode == 0x09 || opcode == 0x31 || opcode == 0x33 || opcode == 0x34;
    EXPECT_EQ(AllowedBeforePairing(uint8_t(opcode)), allowed) << opcode;
  }
}

}  // namespace
}  // namespace Veldrift
