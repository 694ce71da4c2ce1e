// What the plug-in is asked for by an adapter, on a network with room, and what is said of it.
#include "tools/receiver/adapter.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "net/control_protocol.h"
#include "support/little_endian.h"
#include "tests/tools/fake_link.h"

namespace Veldrift {
namespace {

constexpr std::byte kBitRate{0}, kQuality{1};

class Adapting : public testing::Test {
 protected:
  void Begin(bool sameNetwork) {
    adapter_.BeginConnection(
        link_, [this](const std::string& text) { said_.push_back(text); }, sameNetwork, nowNs_);
  }
  // So many seconds of pictures, of so many a second; of none, just time.
  void Pass(double seconds, int pictures = 30) {
    for (int i = 0, ticks = int(seconds * 30); i < ticks; ++i) {
      nowNs_ += kNanosPerSecond / 30;
      if (pictures > 0 && i % (30 / pictures) == 0) Picture();
      adapter_.Steer(
          link_, [this](const std::string& text) { said_.push_back(text); }, nowNs_);
    }
  }
  void Picture() {
    ++arrivals_.framesWhole;
    arrivals_.datagrams += 2;
    arrivals_.bytes += 2'000;
    auto frame = std::make_shared<WholeFrame>();
    frame->data.resize(2'000);
    frame->firstDatagramNs = frame->wholeNs = nowNs_;
    frame->sendTimeMicros = uint32_t(nowNs_ / 1'000);
    adapter_.Take(frame);
  }
  bool Wish(const Command& command) { return adapter_.Wish(command); }
  static Command Quality(int percent) { return {kSetEncoderMode, {kQuality, std::byte(percent)}}; }

  // What was sent since the last look: "g3 s720 q40".
  std::string Sent() {
    std::string text;
    for (const Command& command : std::exchange(link_.sent, {})) {
      const auto first = std::to_integer<int>(command.payload.at(0));
      if (command.opcode == kSetGopMode) text += "g" + std::to_string(first);
      if (command.opcode == kSetMaxResolution) {
        text += "s" + std::to_string(GetU16(command.payload.data()));
      }
      if (command.opcode == kSetEncoderMode) {
        text += command.payload[0] == kQuality
                    ? "q" + std::to_string(std::to_integer<int>(command.payload.at(1)))
                    : "bitrate";
      }
      text += " ";
    }
    if (!text.empty()) text.pop_back();
    return text;
  }
  std::vector<std::string> Said() { return std::exchange(said_, {}); }

  using Texts = std::vector<std::string>;
  ScriptClock clock_;
  FakeLink link_{clock_};
  int64_t nowNs_ = kNanosPerSecond;
  uint16_t source_ = 1080;
  ArrivalCounters arrivals_;
  std::vector<std::string> said_;
  Adapter adapter_{{0, 80}, [this] { return arrivals_; }, [this] { return source_; }};
};

TEST_F(Adapting, SaysWhatItBeginsWithOnceTheSourceIsKnown) {
  source_ = 0;
  Begin(false);
  EXPECT_EQ(Sent(), "g3 s720 q40");
  EXPECT_EQ(Said(), Texts{});
  source_ = 480;
  Pass(0.1);
  EXPECT_EQ(Sent(), "s480 q50");  // of about the same rate
  EXPECT_EQ(Said(), Texts{"begins with 480p, quality 50"});
  source_ = 1080;
  Pass(0.1);
  EXPECT_EQ(Said(), Texts{"the picture has another size: 720p, quality 30"});
}

TEST_F(Adapting, DoesntKeepItsBeginningToItselfForEver) {
  source_ = 0;
  Begin(false);
  Pass(3, 0);
  EXPECT_EQ(Said(), Texts{"begins with 720p, quality 40"});
}

TEST_F(Adapting, APausedHostGivesNoReasonToClimb) {
  Begin(false);
  EXPECT_EQ(Said(), Texts{"begins with 720p, quality 40"});
  Picture();
  Pass(60, 0);
  Pass(60, 2);  // a hand that steps through the pictures
  EXPECT_EQ(Said(), Texts{});
  Pass(0.9);
  EXPECT_EQ(Said(), Texts{});  // nor does the time before it played
  Pass(0.7);
  EXPECT_EQ(Said(), Texts{"network has room: 720p, quality 50"});
}

TEST_F(Adapting, GoesOnWhereItWasUnlessThePlugInIsElsewhere) {
  Begin(false);
  Pass(10);
  EXPECT_EQ(adapter_.Report().setting, (StreamSetting{1080, 80, false}));
  Sent();
  Said();
  Begin(true);
  EXPECT_EQ(Sent(), "g3 s1080 q80");
  EXPECT_EQ(Said(), Texts{"begins with 1080p, quality 80"});
  Begin(false);
  EXPECT_EQ(Sent(), "g3 s720 q40");
  EXPECT_EQ(Said(), Texts{"begins with 720p, quality 40"});
}

TEST_F(Adapting, TakesWishesForTheMostAndClimbsToThem) {
  Begin(false);
  Pass(10);
  Sent();
  Said();
  EXPECT_TRUE(Wish(MaxResolutionCommand(540)));
  Pass(0.05);
  EXPECT_EQ(Sent(), "s540");  // at once
  EXPECT_EQ(Said(), Texts{"as asked for: 540p, quality 80"});
  EXPECT_TRUE(Wish(Quality(30)));
  Pass(0.05);
  EXPECT_EQ(Sent(), "q30");
  Pass(30);
  EXPECT_EQ(Sent(), "");
  EXPECT_TRUE(Wish(MaxResolutionCommand(0)));
  EXPECT_TRUE(Wish(Quality(90)));
  Pass(0.05);
  EXPECT_NE(Sent(), "s1080 q90");  // step by step
  Pass(10);
  EXPECT_EQ(adapter_.Report().setting, (StreamSetting{1080, 90, false}));
  // What is wished for holds for the next connection too.
  Wish(MaxResolutionCommand(360));
  Pass(0.05);
  Sent();
  Begin(true);
  EXPECT_TRUE(Sent().starts_with("g3 s360 q"));
  EXPECT_FALSE(Wish({kSetCodec, {std::byte{1}}}));
}

TEST_F(Adapting, RestsWhileTheRateIsTheEncodersMatter) {
  Begin(false);
  EXPECT_TRUE(Wish({kSetEncoderMode, {kBitRate, {}}}));
  EXPECT_TRUE(Wish(MaxResolutionCommand(360)));
  Sent();
  Said();
  Pass(30);
  EXPECT_EQ(Sent(), "s360 bitrate");
  EXPECT_EQ(Said(), Texts{"the rate is left to the encoder, as asked for"});
  Begin(true);
  EXPECT_EQ(Sent(), "g3 s360 bitrate");
  Wish(Quality(50));
  Pass(0.05);
  EXPECT_EQ(Sent(), "q50");
  EXPECT_EQ(adapter_.Said(), "as asked for: 360p, quality 50");
}

TEST_F(Adapting, LeavesAGopThatWasAskedForAlone) {
  Begin(false);
  Sent();
  Wish({kSetGopMode, {std::byte{1}}});
  Pass(0.1);
  EXPECT_EQ(Sent(), "g1");
  // A radio that wants key frames only.
  for (int i = 0; i < 300; ++i) {
    if (i % 3 == 0) {
      ++arrivals_.missing;
      ++arrivals_.gaps;
    }
    Pass(0.034);
  }
  EXPECT_EQ(Sent().find('g'), std::string::npos);
  EXPECT_FALSE(adapter_.Report().setting.intra);
  Wish({kSetGopMode, {std::byte{2}}});  // as the network has it
  Pass(10);
  EXPECT_EQ(Sent().substr(0, 2), "g3");
}

}  // namespace
}  // namespace Veldrift
