// The window: what is on the screen, when, and what its keys bring about in the host.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "platform/file.h"
#include "tests/stream/hidden_screen.h"
#include "tests/stream/stage.h"
#include "tests/support/eventually.h"
#include "tests/support/scratch.h"
#include "tools/pattern/clapper.h"
#include "tools/pattern/pattern.h"
#include "tools/phone/phone_exit.h"

namespace Veldrift {
namespace {

constexpr int kWidth = 640;
constexpr int kHeight = 360;
constexpr int kStride = kWidth * 4;
constexpr int kSoundFrameBytes = 8;  // two channels of 32 bits
constexpr int kSoundRate = 48'000;

class Window : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(screen_.Ready()); }

  void StartHost() {
    stage_.StartHost({"--size", "640x360", "--fps", "30", "--clapper"});
    sound_ = stage_.File("sound.raw");
  }
  // With settings, so that the picture's size stays what it is.
  StandIn& StartPhone() {
    return stage_.StartPhoneIn(
        {"DISPLAY=" + screen_.Display(), "SDL_VIDEODRIVER=x11", "SDL_AUDIODRIVER=disk",
         "SDL_DISKAUDIOFILE=" + PathText(sound_)},
        "a",
        {"--view", "--codec", "h264", "--gop", "long", "--mode", "quality", "--quality", "90"});
  }
  ScreenPicture Look() const { return screen_.Look(kWidth, kHeight); }
  std::optional<PatternStamp> Stamp() const {
    const ScreenPicture seen = Look();
    return ReadStamp(seen.luma.data(), kWidth, kHeight, kWidth);
  }
  // Pictures come, one behind another.
  bool Moves() const {
    std::optional<PatternStamp> first;
    return Eventually([&] {
      const std::optional<PatternStamp> now = Stamp();
      if (!first) first = now;
      return now && now != first;
    });
  }
  bool StandsStill() const {
    const std::optional<PatternStamp> before = Stamp();
    SystemClock().SleepFor(300 * kNanosPerMilli);
    return before && Stamp() == before;
  }
  // Waits for it: the key is on its way.
  bool Pauses() const {
    return Eventually([&] { return StandsStill(); });
  }

  ScratchFolder folder_;
  HiddenScreen screen_{folder_.Path(), 1024, 768};
  Stage stage_;
  std::filesystem::path sound_;
};

// The largest difference between the means of a block of both pictures, in levels: what coding
// loses is detail, the colour of an area stays.
double WorstBlock(const std::vector<uint8_t>& seen, const std::vector<uint8_t>& painted) {
  constexpr int kBlock = 40;
  double worst = 0;
  for (int top = 0; top < kHeight; top += kBlock) {
    for (int left = 0; left < kWidth; left += kBlock) {
      double sums[3] = {};
      for (int i = 0; i < kBlock * kBlock; ++i) {
        const size_t at = size_t(top + i / kBlock) * kStride + size_t(left + i % kBlock) * 4;
        for (size_t c = 0; c < 3; ++c) sums[c] += double(seen[at + c]) - double(painted[at + c]);
      }
      for (const double sum : sums) worst = std::max(worst, std::abs(sum) / (kBlock * kBlock));
    }
  }
  return worst;
}

// What was on the screen and out of the loudspeaker over a time, on the steady clock.
struct Watched {
  std::vector<uint32_t> numbers;  // of the pictures, as they came
  std::vector<int64_t> flashesNs;
  std::vector<std::pair<int64_t, size_t>> played;  // so many bytes of sound until then

  // When the click that lies at this byte was heard.
  int64_t HeardNs(size_t byte) const {
    const auto found =
        std::ranges::find_if(played, [byte](const auto& entry) { return entry.second > byte; });
    return found == played.end() ? 0 : found->first;
  }
};

std::vector<int64_t> ClicksNs(const Watched& watched, const std::string& sound) {
  std::vector<int64_t> clicks;
  size_t quietFrom = 0;
  for (size_t at = 0; at + kSoundFrameBytes <= sound.size(); at += kSoundFrameBytes) {
    float sample = 0;
    std::memcpy(&sample, &sound[at], sizeof sample);
    if (!IsClick(sample)) continue;
    const bool begins = at - quietFrom > size_t{kSoundRate} / 2 * kSoundFrameBytes;
    if (begins && watched.HeardNs(at) != 0) clicks.push_back(watched.HeardNs(at));
    quietFrom = at;
  }
  return clicks;
}

TEST_F(Window, ShowsTheStreamInOrderAndColourWithSoundInStep) {
  ASSERT_NO_FATAL_FAILURE(StartHost());
  StandIn& phone = StartPhone();
  ASSERT_TRUE(Moves());
  Watched watched;
  bool flashed = true;
  Eventually([&] {
    const ScreenPicture seen = Look();
    const int64_t nowNs = SteadyNanos();
    const auto stamp = ReadStamp(seen.luma.data(), kWidth, kHeight, kWidth);
    if (stamp && (watched.numbers.empty() || watched.numbers.back() != stamp->frameNumber)) {
      watched.numbers.push_back(stamp->frameNumber);
    }
    const bool flashes = HasFlash(seen.luma.data(), kWidth, kHeight, kWidth);
    if (flashes && !flashed) watched.flashesNs.push_back(nowNs);
    flashed = flashes;
    std::error_code error;
    const auto bytes = std::filesystem::file_size(sound_, error);
    if (!error) watched.played.emplace_back(nowNs, bytes);
    return watched.flashesNs.size() == 7 || phone.Ended();
  });
  EXPECT_TRUE(std::ranges::is_sorted(watched.numbers));
  const uint32_t painted = watched.numbers.back() - watched.numbers.front();
  EXPECT_GT(watched.numbers.size(), painted / 2);

  const std::vector<int64_t> clicks =
      ClicksNs(watched, ReadWholeFile(sound_).value_or(std::string()));
  std::vector<double> apartMs;
  for (const int64_t flashNs : watched.flashesNs) {
    for (const int64_t clickNs : clicks) {
      const double apart = double(clickNs - flashNs) / 1e6;
      if (std::abs(apart) < 500) apartMs.push_back(apart);
    }
  }
  ASSERT_GE(apartMs.size(), 4U) << testing::PrintToString(clicks);
  std::ranges::nth_element(apartMs, apartMs.begin() + ptrdiff_t(apartMs.size() / 2));
  EXPECT_NEAR(apartMs[apartMs.size() / 2], 0, 80) << testing::PrintToString(apartMs);

  screen_.Press({"space"});
  ASSERT_TRUE(Pauses());
  const ScreenPicture seen = Look();
  const auto stamp = ReadStamp(seen.luma.data(), kWidth, kHeight, kWidth);
  ASSERT_TRUE(stamp.has_value());
  std::vector<uint8_t> wanted(size_t(kStride) * kHeight);
  PaintPattern(wanted.data(), kWidth, kHeight, kStride, *stamp);
  if (HasFlash(seen.luma.data(), kWidth, kHeight, kWidth)) {
    PaintFlash(wanted.data(), kWidth, kHeight, kStride);
  }
  EXPECT_LT(WorstBlock(seen.bgra, wanted), 4);

  screen_.Press({"Escape"});
  EXPECT_EQ(phone.Wait(), kExitGood) << testing::PrintToString(phone.Complaints());
  ExpectGoodPictures(phone.Summary());
}

TEST_F(Window, ItsKeysSteerTheHostAndShowWhatTheyDo) {
  ASSERT_NO_FATAL_FAILURE(StartHost());
  StandIn& phone = StartPhone();
  ASSERT_TRUE(Moves());
  screen_.Press({"space"});
  ASSERT_TRUE(Pauses());
  const ScreenPicture plain = Look();
  screen_.Type("?");
  EXPECT_TRUE(Eventually([&] { return Look().bgra != plain.bgra; }));
  screen_.Type("?");
  EXPECT_TRUE(Eventually([&] { return Look().bgra == plain.bgra; }));
  screen_.Press({"Tab"});
  EXPECT_TRUE(Eventually([&] { return Look().bgra != plain.bgra; }));
  screen_.Press({"ctrl+l", "alt+space", "x"});  // the desktop's, and nobody's
  screen_.Press({"Right", "Left", "shift+Right", "shift+Left", "i", "o", "l", "k", "j", "K"});
  screen_.Press({"space"});
  screen_.Press({"q"});
  EXPECT_EQ(phone.Wait(), kExitGood) << testing::PrintToString(phone.Complaints());
  std::vector<std::string> did;
  const nlohmann::json host = stage_.EndHost();
  for (const nlohmann::json& action : host["actions"]) did.push_back(action["what"]);
  // The first is what the module asks for when a phone comes.
  EXPECT_EQ(did, (std::vector<std::string>{"render", "pause", "step 1", "step -1", "step 5",
                                           "step -5", "goto 0", "goto 10", "play", "pause",
                                           "shuttle -1", "pause", "play"}));
}

TEST_F(Window, SaysInThePictureThatTheConnectionIsMissing) {
  ASSERT_NO_FATAL_FAILURE(StartHost());
  StandIn& phone = StartPhone();
  ASSERT_TRUE(Moves());
  const double before = Look().Brightness();
  stage_.Host().Kill();
  stage_.Host().Wait();
  EXPECT_TRUE(Eventually([&] { return Look().Brightness() < 0.6 * before; }));
  screen_.Press({"space"});  // not meant for the next connection
  ASSERT_NO_FATAL_FAILURE(stage_.StartHostAgain());
  EXPECT_TRUE(Eventually([&] { return Look().Brightness() > 0.8 * before; }));
  EXPECT_TRUE(Moves());
  screen_.Press({"q"});
  EXPECT_EQ(phone.Wait(), kExitLost) << testing::PrintToString(phone.Complaints());
  const nlohmann::json host = stage_.EndHost();
  for (const nlohmann::json& action : host["actions"]) EXPECT_NE(action["what"], "pause");
}

TEST_F(Window, ThatCannotBeOpenedIsSaidBeforeAnythingIsConnected) {
  ASSERT_NO_FATAL_FAILURE(StartHost());
  StandIn& phone = stage_.StartPhoneIn({"DISPLAY=:7777", "SDL_VIDEODRIVER=x11"}, "a", {"--view"});
  EXPECT_EQ(phone.Wait(), kExitFailed);
  ASSERT_EQ(phone.Complaints().size(), 1U) << testing::PrintToString(phone.Complaints());
  EXPECT_NE(phone.Complaints()[0].find("--view"), std::string::npos) << phone.Complaints()[0];
  EXPECT_EQ(stage_.CountInHostLog("Phone a"), 0U);
}

}  // namespace
}  // namespace Veldrift
