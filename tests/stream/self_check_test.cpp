// The host's one command for an unknown machine, as whoever runs it there sees it.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>

#include "tests/stream/stage.h"
#include "tests/support/child.h"
#include "tools/host/host_exit.h"

namespace Veldrift {
namespace {

class SelfCheckRun : public testing::Test {
 protected:
  // Another run of these tests on this machine may have the ports.
  void Run(const std::string& kinds, const std::string& traits = "") {
    const ScopedEnvironment shown("VD_TRANSFORMS", kinds);
    const ScopedEnvironment scripted("VD_TRANSFORM", traits);
    ASSERT_TRUE(Eventually([&] {
      StandIn host("veldrift-host", {"--self-test", "--json"}, stage_.NewStem("host"));
      exit_ = host.Wait();
      complaints_ = host.Complaints();
      result_ = host.Summary();
      return exit_ != kExitPortInUse;
    }));
    ASSERT_EQ(result_["streams"].size(), 2u) << testing::PrintToString(complaints_);
  }

  std::map<std::string, std::string> Verdicts() const {
    std::map<std::string, std::string> verdicts;
    for (const nlohmann::json& test : result_["self_tests"]) {
      verdicts[test["id"].get<std::string>()] = test["verdict"].get<std::string>();
    }
    return verdicts;
  }

  // By processes whose temporary files go into the test's folder.
  int FoldersLeft() const {
    int folders = 0;
    for (const auto& entry : std::filesystem::directory_iterator(stage_.File(""))) {
      folders += entry.path().filename().string().starts_with("veldrift-self-test-") ? 1 : 0;
    }
    return folders;
  }

  Stage stage_;
  int exit_ = 0;
  std::vector<std::string> complaints_;
  nlohmann::json result_;
};

// At whatever rate this machine encodes: what is counted is what came.
void ExpectMeasured(const nlohmann::json& stream, const char* codec) {
  SCOPED_TRACE(stream.dump());
  EXPECT_EQ(stream["codec"], codec);
  EXPECT_TRUE(stream["streamed"].get<bool>());
  EXPECT_NE(stream["encoder"].get<std::string>().find(std::string("1920x1080 ") + codec),
            std::string::npos);
  EXPECT_GE(stream["frames"], 2);
  EXPECT_GE(stream["key_frames"], 1);
  EXPECT_GT(stream["bytes"], 10'000);
  EXPECT_GT(stream["sound_blocks"], 10);
  EXPECT_GT(stream["pushed"], 0);
  EXPECT_GE(stream["seconds"], 5.0);
  EXPECT_GT(stream["first_picture_ms"], 0);
}

TEST_F(SelfCheckRun, MeasuresBothCodecsAndRunsTheBuiltInTests) {
  ASSERT_NO_FATAL_FAILURE(Run("intel"));
  EXPECT_EQ(exit_, kExitGood) << testing::PrintToString(complaints_);
  ExpectMeasured(result_["streams"][0], "H.264");
  ExpectMeasured(result_["streams"][1], "HEVC");
  EXPECT_GE(result_["engines"].size(), 1u);
  std::map<std::string, std::string> expected;
  for (const char* id : {"P0.1", "P0.3", "P0.4", "P1.1", "P1.2", "P2.1", "P3", "P6.1"}) {
    expected[id] = "ok";
  }
  expected["P6.2"] = HostIsWindows() ? "ok" : "not-here";
  for (const nlohmann::json& stream : result_["streams"]) {
    const bool resident = stream["resident"].get<std::string>().starts_with("ACTIVE (");
    EXPECT_EQ(resident, HostHasAdapter()) << stream["resident"];
  }
  EXPECT_EQ(Verdicts(), expected);
  const auto line = result_["line"].get<std::string>();
  EXPECT_TRUE(line.starts_with("veldrift-self-test v")) << line;
  EXPECT_TRUE(line.ends_with(" exit=0")) << line;
  EXPECT_EQ(line.find('\n'), line.npos);
  EXPECT_EQ(FoldersLeft(), 0);
}

TEST_F(SelfCheckRun, SaysInOneSentenceThatThereIsNoEncoder) {
  if (!HostIsWindows()) GTEST_SKIP() << "this system's host always has its encoders";
  ASSERT_NO_FATAL_FAILURE(Run("none"));
  EXPECT_EQ(exit_, kExitSelfTest);
  EXPECT_EQ(complaints_,
            std::vector<std::string>{
                "veldrift-host: the module has no encoder that works on this machine"});
  for (const nlohmann::json& stream : result_["streams"]) EXPECT_EQ(stream["frames"], 0);
}

TEST_F(SelfCheckRun, SeesAnEncoderThatGivesNothingMore) {
  if (!HostIsWindows()) GTEST_SKIP() << "this system's encoders can't be told to stop";
  ASSERT_NO_FATAL_FAILURE(Run("intel", "stall=3"));
  EXPECT_EQ(exit_, kExitSelfTest);
  EXPECT_FALSE(result_["streams"][0]["streamed"].get<bool>()) << result_["streams"][0];
  EXPECT_GE(result_["streams"][0]["stalls"], 1) << result_["streams"][0];
}

}  // namespace
}  // namespace Veldrift
