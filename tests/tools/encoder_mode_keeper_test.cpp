// An encoder that forgets its quality with each change of size, and who reminds it.
#include "tools/receiver/encoder_mode_keeper.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "net/control_protocol.h"

namespace Veldrift {
namespace {

constexpr std::byte kBitRate{0}, kQuality{1};

// Sets as short as can be; what stands behind their first byte is the size.
constexpr char kSmall[] = "\x67\x01";
constexpr char kLarge[] = "\x67\x02";
constexpr char kSmallHevc[] = "\x42\x01\x01";
constexpr char kOtherPictureSet[] = "\x68\x09";
constexpr char kPictureSet[] = "\x68\x08";

class Keeper : public testing::Test {
 protected:
  void Picture(const std::string& sequenceSet, const std::string& pictureSet = kPictureSet,
               bool keyFrame = true) {
    auto frame = std::make_shared<WholeFrame>();
    frame->connection = connection_;
    frame->keyFrame = keyFrame;
    const std::string slice = keyFrame ? "\x65\x88" : "\x41\x88";
    const std::string start("\0\0\0\1", 4);
    std::string text = keyFrame ? start + sequenceSet + start + pictureSet : std::string();
    text += start + slice + std::to_string(++count_);
    for (const char c : text) frame->data.push_back(std::byte(c));
    keeper_.Take(frame);
  }
  void Ask(std::byte mode, int quality) {
    keeper_.NoteSent({kSetEncoderMode, {mode, std::byte(quality)}}, nowNs_);
  }
  void Size() { keeper_.NoteSent({kSetMaxResolution, {std::byte{180}, {}}}, nowNs_); }
  // What is sent again, and how often, if somebody looks each hundredth of a second of the next.
  std::string Again(double seconds = 0.1) {
    std::string text;
    for (int64_t endNs = nowNs_ + int64_t(seconds * 1e9); nowNs_ < endNs; nowNs_ += 10'000'000) {
      const auto command = keeper_.Due(nowNs_);
      if (!command) continue;
      keeper_.NoteSent(*command, nowNs_);
      EXPECT_EQ(command->opcode, kSetEncoderMode);
      text += command->payload.at(0) == kQuality ? " q" : " b";
      text += std::to_string(std::to_integer<int>(command->payload.at(1)));
    }
    return text;
  }

  EncoderModeKeeper keeper_;
  uint32_t connection_ = 1;
  int count_ = 0;
  int64_t nowNs_ = kNanosPerSecond;
};

TEST_F(Keeper, SendsTheQualityAgainBehindEachFirstPictureOfASize) {
  Ask(kQuality, 10);
  EXPECT_EQ(Again(60), "");  // a paused host: the size has yet to change
  Picture(kLarge);
  EXPECT_EQ(Again(), " q10");  // the connection's first may have another size already
  Picture(kSmall);
  EXPECT_EQ(Again(), " q10");
  Picture("", "", false);
  Picture(kSmall);
  Picture(kSmall, kOtherPictureSet);  // of that size
  EXPECT_EQ(Again(60), "");
  Ask(kQuality, 30);
  EXPECT_EQ(Again(60), "");  // it holds for that size
  Picture(kSmallHevc);
  EXPECT_EQ(Again(), " q30");
  Ask(kBitRate, 0);
  Picture(kLarge);
  EXPECT_EQ(Again(), " b0");
}

// Before its first picture has come over a slow network, others are pushed.
TEST_F(Keeper, SendsItAgainSoonBehindEachSizeThatIsAskedFor) {
  Ask(kQuality, 10);
  Size();
  EXPECT_EQ(Again(0.06), " q10");
  EXPECT_EQ(Again(0.26), " q10 q10 q10");
  Ask(kQuality, 30);
  EXPECT_EQ(Again(60), " q30");
}

TEST_F(Keeper, WhoAskedForNoModeGetsNone) {
  Size();
  Picture(kLarge);
  Picture(kSmall);
  EXPECT_EQ(Again(60), "");
  Ask(kQuality, 10);  // and what lies before it isn't owed
  EXPECT_EQ(Again(60), "");
}

TEST_F(Keeper, ASnapshotHasAModeToo) {
  Ask(kQuality, 10);
  keeper_.NoteSent({kAppSettingsSnapshot, {{}, {}, {}, {}, kQuality, {}}}, nowNs_);
  EXPECT_EQ(Again(60), " q70 q70 q70 q70 q70");
  Picture(kLarge);
  EXPECT_EQ(Again(), " q70");
}

TEST_F(Keeper, StreamsOfKeyFramesAloneAreNoChangesOfSize) {
  Ask(kQuality, 10);
  std::string again;
  for (int i = 0; i < 300; ++i) {
    Picture(kSmall);
    again += Again(0.03);
  }
  EXPECT_EQ(again, " q10");
}

// Its parameter sets are others with each picture, such as one that is told something just then.
TEST_F(Keeper, AnEncoderThatNeverSettlesIsRemindedThreeTimes) {
  const auto unrest = [this](int pictures) {
    std::string again;
    for (int i = 0; i < pictures; ++i) {
      Picture(i % 2 == 0 ? kSmall : kLarge);
      again += Again(0.5);
    }
    return again;
  };
  Ask(kQuality, 10);
  EXPECT_EQ(unrest(100), " q10 q10 q10");
  Ask(kQuality, 20);  // what is asked for anew holds
  EXPECT_EQ(unrest(100), " q20 q20 q20");
  Again(6);
  EXPECT_EQ(unrest(1), " q20");  // a change by the host, hours later
}

TEST_F(Keeper, AnotherConnectionIsToldWhatWasAskedOfIt) {
  Ask(kQuality, 10);
  Picture(kSmall);
  EXPECT_EQ(Again(), " q10");
  keeper_.BeginConnection();
  ++connection_;
  Picture(kSmall);
  EXPECT_EQ(Again(), "");
  keeper_.BeginConnection();
  ++connection_;
  Ask(kQuality, 20);
  Picture(kSmall);  // of the size that the one before had, but of its own quality
  EXPECT_EQ(Again(), " q20");
}

}  // namespace
}  // namespace Veldrift
