#include "tools/receiver/commands.h"

#include <gtest/gtest.h>

#include "net/control_protocol.h"

namespace Veldrift {
namespace {

std::vector<int> Bytes(const Command& command) {
  std::vector<int> bytes;
  for (const std::byte byte : command.payload) bytes.push_back(std::to_integer<int>(byte));
  return bytes;
}

TEST(Commands, EachNameIsOneOpcodeWithAPayloadOfTheRightLength) {
  std::string error;
  for (const CommandRow& row : Commands()) {
    const auto command = ParseCommand(CommandName(row.opcode), error);
    ASSERT_TRUE(command) << error;
    EXPECT_EQ(command->opcode, row.opcode);
    EXPECT_EQ(command->payload.size(), row.shape.headBytes);
  }
}

TEST(Commands, APayloadMustBeWhatThePlugInWillRead) {
  const std::pair<const char*, std::vector<int>> good[] = {
      {"set-bitrate=00e1F505", {0, 0xE1, 0xF5, 5}},
      {"set-engine=026162", {2, 'a', 'b'}},
      {"test-marker=00", {0}}};
  std::string error;
  for (const auto& [text, bytes] : good) {
    const auto command = ParseCommand(text, error);
    ASSERT_TRUE(command) << text;
    EXPECT_EQ(Bytes(*command), bytes);
  }
  for (const char* text : {"set-gop=", "set-gop=1", "set-gop=0x", "set-gop=0102",
                           "set-engine=", "set-engine=0361", "play=00", "bogus", ""}) {
    error.clear();
    EXPECT_FALSE(ParseCommand(text, error)) << text;
    EXPECT_FALSE(error.empty()) << text;
  }
}

TEST(Commands, SettingsTravelInOneMessage) {
  const Command command = SnapshotCommand({720, 1, 3, 2, "abc"});
  EXPECT_EQ(command.opcode, 0x18);
  EXPECT_EQ(Bytes(command), (std::vector<int>{0xD0, 2, 1, 3, 2, 3, 'a', 'b', 'c'}));
  EXPECT_EQ(MarkerCommand(std::string(300, 'x')).payload.size(), 256U);
}

}  // namespace
}  // namespace Veldrift
