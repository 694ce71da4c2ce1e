#include "platform/system.h"

#include <gtest/gtest.h>

#include <fstream>
#include <thread>

#include "tests/support/child.h"
#include "tests/support/eventually.h"
#include "tests/support/scratch.h"
#include "tools/platform/this_process.h"

namespace Veldrift {
namespace {

TEST(Environment, EmptyIsNotUnsetAndTextPassesUnchanged) {
  const ScopedEnvironment restore("VD_TEST_VALUE", std::nullopt);
  EXPECT_EQ(GetEnvironment("VD_TEST_VALUE"), std::nullopt);
  SetEnvironment("VD_TEST_VALUE", "");
  EXPECT_EQ(GetEnvironment("VD_TEST_VALUE"), "");
  SetEnvironment("VD_TEST_VALUE", "gr\xC3\xBCn");
  EXPECT_EQ(GetEnvironment("VD_TEST_VALUE"), "gr\xC3\xBCn");
  SetEnvironment("VD_TEST_VALUE", std::nullopt);
  EXPECT_EQ(GetEnvironment("VD_TEST_VALUE"), std::nullopt);
}

TEST(System, UuidsAreRandomOnesOfTheStandardsForm) {
  const auto first = CreateUuid();
  const auto second = CreateUuid();
  ASSERT_TRUE(first && second);
  EXPECT_NE(*first, *second);
  EXPECT_EQ((*first)[6] >> 4, 4);
  EXPECT_EQ((*first)[8] >> 6, 2);
}

TEST(System, TheGeneratorFillsEveryByte) {
  std::array<std::byte, 64> either{};
  for (int round = 0; round < 8; ++round) {
    std::array<std::byte, 64> random{};
    ASSERT_TRUE(FillRandom(random));
    for (size_t i = 0; i < random.size(); ++i) either[i] |= random[i];
  }
  for (const std::byte byte : either) EXPECT_NE(byte, std::byte{});
}

TEST(System, ThreadsHaveNumbersOfTheirOwn) {
  const uint32_t mine = ThreadNumber();
  uint32_t theirs = mine;
  std::thread([&] { theirs = ThreadNumber(); }).join();
  EXPECT_NE(theirs, mine);
  EXPECT_EQ(ThreadNumber(), mine);
}

TEST(System, OpenFilesAndThreadsAreCounted) {
  const ScratchFolder folder;
  std::thread([] {}).join();  // the first one may bring helpers of the system's own
  const ProcessResources before = CountProcessResources();
  EXPECT_GE(before.threads, 1U);
  {
    const std::ofstream file(folder.Path() / "open");
    EXPECT_EQ(CountProcessResources().handles, before.handles + 1);
    std::thread([&] { EXPECT_EQ(CountProcessResources().threads, before.threads + 1); }).join();
  }
  EXPECT_TRUE(Eventually([&] { return CountProcessResources() == before; }));
}

TEST(System, TheExecutableIsThisFile) {
  EXPECT_EQ(GetExecutablePath().stem(), "platform_test");
  EXPECT_TRUE(std::filesystem::exists(GetExecutablePath()));
}

}  // namespace
}  // namespace Veldrift
