#include "support/plugin_log.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "platform/file.h"
#include "support/paths.h"
#include "tests/support/child.h"
#include "tests/support/scratch.h"

namespace Veldrift {
namespace {

constexpr LogCategory kCategory = {"com.example", "demo"};

TEST(PluginLog, LinesOfManyThreadsStayWhole) {
  constexpr int kThreads = 4;
  constexpr int kLines = 50;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t] {
      const std::string filling(200, static_cast<char>('a' + t));
      for (int i = 0; i < kLines; ++i) {
        PluginLog(kCategory, kLogInfo, "<%{public}s>", filling.c_str());
      }
    });
  }
  for (auto& thread : threads) thread.join();
  for (int t = 0; t < kThreads; ++t) {
    const std::string filling(200, static_cast<char>('a' + t));
    EXPECT_EQ(CountInPluginLog("com.example:demo:INFO] <" + filling + ">\r\n"), size_t{kLines});
  }
}

TEST(PluginLog, DISABLED_SaysOneLineOfEachLevel) {
  UseFoldersUnder(ChildFolder());
  PluginLog(kCategory, kLogDebug, "quiet");
  PluginLog(kCategory, kLogInfo, "loud");
}

std::string LogOfChildWith(const std::optional<std::string>& debugVariable) {
  const ScratchFolder folder;
  const ScopedEnvironment variable("VD_LOG_DEBUG", debugVariable);
  const auto child = StartChild("PluginLog.DISABLED_SaysOneLineOfEachLevel", folder.Path());
  if (child == nullptr || child->Wait() != 0) return "the child failed";
  return ReadWholeFile(folder.Path() / "local" / "Veldrift" / "plugin-x.log").value_or("no log");
}

TEST(PluginLog, DebugLinesAppearWhenTheVariableAskedForThemAtLoad) {
  const std::string log = LogOfChildWith("1");
  EXPECT_NE(log.find("demo:DEBUG] quiet\r\n"), std::string::npos) << log;
  EXPECT_NE(log.find("demo:INFO] loud\r\n"), std::string::npos) << log;
}

TEST(PluginLog, DebugLinesAreOffByDefault) {
  const std::string log = LogOfChildWith(std::nullopt);
  EXPECT_EQ(log.find("quiet"), std::string::npos) << log;
  EXPECT_NE(log.find("demo:INFO] loud\r\n"), std::string::npos) << log;
}

}  // namespace
}  // namespace Veldrift
