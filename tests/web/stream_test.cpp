// What a browser gets of a stream that does what streams do. The media library reads and decodes
// it.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "tests/support/manual_clock.h"
#include "tests/web/coder.h"
#include "tests/web/watched_file.h"
#include "tools/phone/web_track.h"

namespace Veldrift {
namespace {

constexpr int64_t kPicture = 33'333;  // microseconds
constexpr size_t kIdleBytes = 8;

// Whoever waits gets the end of the wait at once.
class HastyClock : public ManualClock {
 public:
  void WaitUntil(CondVar&, MutexLock&, int64_t deadlineNanos) override {
    AdvanceTo(std::max(deadlineNanos, NowNanos()));
  }
};

using Viewer = std::unique_ptr<WebBroadcast::Viewer>;

struct Watched {
  ByteVector bytes;
  bool over = false;
};

class Stream : public testing::Test {
 protected:
  // A picture and, where there is sound, a block of it, once each 33 ms of both clocks.
  void Play(int pictures, bool keyFirst = false) {
    for (int i = 0; i < pictures; ++i) {
      Push(coder_->Next(keyFirst && i == 0));
      if (sound_) track_.Take(Stamped(ToneBlock(micros_, kPicture, rate_)), clock_.NowNanos());
      Pass(kPicture);
    }
  }
  void Push(WholeFrame frame) {
    frame.frameNumber = number_++;
    frame.timestamp = uint32_t(micros_);
    track_.Take(Stamped(std::move(frame)), clock_.NowNanos());
  }
  WholeFrame Stamped(WholeFrame frame) const {
    frame.connection = connection_;
    return frame;
  }
  void Pass(int64_t micros) {
    micros_ += micros;
    clock_.Advance(micros * kNanosPerMicro);
    track_.Tick(clock_.NowNanos());
  }
  // Everything up to where nothing comes, which takes no time.
  Watched Drain(WebBroadcast::Viewer& viewer) {
    const int64_t nowNs = clock_.NowNanos();
    Watched watched;
    ByteVector piece(1 << 20);
    size_t count = 0;
    while ((count = viewer.Read(piece)) > kIdleBytes) {
      watched.bytes.insert(watched.bytes.end(), piece.begin(), piece.begin() + ptrdiff_t(count));
    }
    clock_.AdvanceTo(nowNs);
    watched.over = count == 0;
    return watched;
  }
  Viewer Watch(bool sound = true) { return broadcast_.Watch(sound, 0); }
  WatchedFile See(bool sound = true) { return ReadWatched(Drain(*Watch(sound)).bytes); }
  void Use(const char* codec, int width, int height) {
    coder_ = std::make_unique<Coder>(codec, width, height);
  }

  HastyClock clock_;
  WebBroadcast broadcast_{clock_};
  WebTrack track_{broadcast_};
  std::unique_ptr<Coder> coder_ = std::make_unique<Coder>("libx264", 320, 180);
  uint32_t connection_ = 1;
  uint16_t number_ = 65'530;
  int64_t micros_ = 4'000'000;  // the sender's clock
  bool sound_ = false;
  int rate_ = kSoundRate;
};

TEST_F(Stream, EachPictureLiesWhereItsTimeStampSays) {
  Play(1, true);
  Pass(7'000);  // unevenly
  Play(14);
  const WatchedFile file = See();
  ASSERT_TRUE(file.read);
  EXPECT_EQ(file.failure, "");
  ASSERT_EQ(file.streams.size(), 1U);
  const WatchedStream& video = file.streams[0];
  EXPECT_EQ(video.codec, AV_CODEC_ID_H264);
  EXPECT_EQ(video.width, 320);
  EXPECT_EQ(video.height, 180);
  EXPECT_EQ(video.decoded, 15U);
  ASSERT_EQ(video.times.size(), 15U);
  EXPECT_TRUE(video.keys[0]);
  EXPECT_FALSE(video.keys[1]);
  EXPECT_NEAR(video.times[1] - video.times[0], 0.040'333, 2e-5);
  for (size_t i = 2; i < 15; ++i) {
    EXPECT_NEAR(video.times[i] - video.times[i - 1], 0.033'333, 2e-5) << i;
  }
}

// The library works durations out anew: they are looked at where they stand.
TEST(Fragment, SaysThatAPictureLastsUntilTheNext) {
  ByteVector unit;
  for (const int byte : {0, 0, 0, 1, 0x65, 7, 0, 0, 0, 1, 0x41}) unit.push_back(std::byte(byte));
  const ByteVector bytes = PictureFragment(1, 1'000'000, true, unit).bytes;
  const auto number = [&](size_t at) {
    uint32_t value = 0;
    for (size_t i = 0; i < 4; ++i) value = value << 8 | std::to_integer<uint32_t>(bytes[at + i]);
    return value;
  };
  EXPECT_EQ(number(64), 90'000U);      // when, in 90,000 of a second
  EXPECT_EQ(number(88), 18'000U);      // 200 ms
  EXPECT_EQ(number(92), 11U);          // two units behind their lengths
  EXPECT_EQ(number(96), 0x02000000U);  // a key frame
  EXPECT_EQ(number(100), 8U + 11);     // what holds it
  EXPECT_EQ(number(108), 2U);
  EXPECT_EQ(number(114), 1U);
  EXPECT_EQ(bytes.size(), 119U);
}

TEST_F(Stream, SoundIsOneTrackWithoutAHoleAndInStep) {
  Play(1, true);
  sound_ = true;
  Play(1);  // its sound begins another file, with a key frame
  EXPECT_TRUE(track_.WantsKeyFrame(clock_.NowNanos()));
  Play(60, true);
  const WatchedFile file = See();
  EXPECT_EQ(file.failure, "");
  ASSERT_EQ(file.streams.size(), 2U);
  const WatchedStream& sound = file.streams[1];
  EXPECT_EQ(sound.codec, AV_CODEC_ID_AAC);
  EXPECT_EQ(sound.sampleRate, kSoundRate);
  EXPECT_EQ(sound.channels, 2);
  ASSERT_GT(sound.times.size(), 80U);
  for (size_t i = 1; i < sound.times.size(); ++i) {
    EXPECT_NEAR(sound.times[i] - sound.times[i - 1], 1024.0 / kSoundRate, 3e-5) << i;
  }
  // It ends where the picture does, but for what its encoder holds.
  EXPECT_NEAR(sound.times.back(), file.streams[0].times.back(), 0.08);
  for (size_t i = 10; i + 5 < sound.levels.size(); ++i) EXPECT_GT(sound.levels[i], 0.3) << i;
  // Who doesn't hear has no track of it.
  EXPECT_EQ(See(false).streams.size(), 1U);
}

TEST_F(Stream, MissingSoundIsSilenceAndLateSoundIsntTakenTwice) {
  sound_ = true;
  Play(1);
  Play(30, true);
  Viewer viewer = Watch();
  sound_ = false;
  Play(15);
  sound_ = true;
  Play(12);
  const WatchedFile file = ReadWatched(Drain(*viewer).bytes);
  ASSERT_EQ(file.streams.size(), 2U);
  const WatchedStream& sound = file.streams[1];
  for (size_t i = 1; i < sound.times.size(); ++i) {
    EXPECT_NEAR(sound.times[i] - sound.times[i - 1], 1024.0 / kSoundRate, 3e-5) << i;
  }
  const auto silent =
      std::ranges::count_if(sound.levels, [](float level) { return level < 0.02F; });
  EXPECT_NEAR(double(silent), 51, 3);  // the half second, and the beginning
  EXPECT_NEAR(double(sound.decoded) / kSoundRate,
              sound.times.back() - sound.times.front() + 1024.0 / kSoundRate, 0.03);
}

TEST_F(Stream, SoundThatComesTooLateDoesntPushTheRestBack) {
  sound_ = true;
  Play(1);
  Play(10, true);
  Viewer viewer = Watch();
  sound_ = false;
  Play(8);
  for (int i = 0; i < 8; ++i) {  // all of what was missing, at once
    track_.Take(Stamped(ToneBlock(micros_ - (8 - i) * kPicture, kPicture)), clock_.NowNanos());
  }
  sound_ = true;
  Play(8);
  const WatchedFile file = ReadWatched(Drain(*viewer).bytes);
  ASSERT_EQ(file.streams.size(), 2U);
  EXPECT_NEAR(file.streams[1].times.back(), file.streams[0].times.back(), 0.08);
}

TEST_F(Stream, ThePictureHasSoundBehindItAlsoWhereNoneComes) {
  sound_ = true;
  Play(1);
  Play(10, true);
  Viewer viewer = Watch();
  sound_ = false;
  Play(10);
  Pass(600'000);  // and a pause
  const WatchedFile file = ReadWatched(Drain(*viewer).bytes);
  ASSERT_EQ(file.streams.size(), 2U);
  // But for the patience, and what the encoder holds.
  EXPECT_NEAR(file.streams[1].times.back() - file.streams[0].times.back(), 0.52, 0.06);
}

TEST_F(Stream, ALossLeavesOutWhatCantBeDecodedAndGoesOnInTheSameFile) {
  Play(10, true);
  Viewer viewer = Watch();
  EXPECT_FALSE(track_.WantsKeyFrame(clock_.NowNanos()));
  coder_->Next(false);
  ++number_;  // lost
  Play(5);
  EXPECT_TRUE(track_.WantsKeyFrame(clock_.NowNanos()));
  Play(10, true);
  EXPECT_FALSE(track_.WantsKeyFrame(clock_.NowNanos()));
  const WatchedFile file = ReadWatched(Drain(*viewer).bytes);
  EXPECT_EQ(file.failure, "");
  ASSERT_EQ(file.streams.size(), 1U);
  EXPECT_EQ(file.streams[0].decoded, 20U);
  EXPECT_TRUE(file.streams[0].keys[10]);
}

// What a file can't go on with, and what the next one is.
TEST_F(Stream, WhatAFileCantHoldBeginsTheNext) {
  struct Row {
    const char* codec;
    int width, height;
    int64_t pauseMicros;
    uint32_t connection;
    const char* codecs;
    AVCodecID id;
  };
  const Row rows[] = {
      {"libx264", 640, 360, 0, 1, "avc1.", AV_CODEC_ID_H264},
      {"libx265", 640, 360, 0, 1, "hvc1.1.6.L", AV_CODEC_ID_HEVC},
      {"libx264", 192, 320, 0, 1, "avc1.", AV_CODEC_ID_H264},
      {"libx264", 192, 320, 2'000'000, 1, "avc1.", AV_CODEC_ID_H264},
      {"libx264", 192, 320, 0, 2, "avc1.", AV_CODEC_ID_H264},
  };
  Play(10, true);
  double last = See().streams.at(0).times.back();
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << row.codec << " " << row.width << " " << row.pauseMicros);
    Viewer before = Watch();
    EXPECT_FALSE(Drain(*before).over);
    Use(row.codec, row.width, row.height);
    Pass(row.pauseMicros);
    if (row.connection != connection_) {
      connection_ = row.connection;
      micros_ = 0;  // another plug-in, with another clock
      number_ = 0;
    }
    Play(8, true);
    EXPECT_TRUE(Drain(*before).over);
    Viewer after = Watch();
    EXPECT_EQ(after->Codecs().find(row.codecs), 0U) << after->Codecs();
    const WatchedFile file = ReadWatched(Drain(*after).bytes);
    EXPECT_EQ(file.failure, "");
    ASSERT_EQ(file.streams.size(), 1U);
    EXPECT_EQ(file.streams[0].codec, row.id);
    EXPECT_EQ(file.streams[0].width, row.width);
    EXPECT_EQ(file.streams[0].decoded, 8U);
    EXPECT_GT(file.streams[0].times.front(), last);  // one line of time for all
    last = file.streams[0].times.back();
  }
}

TEST_F(Stream, SettingsThatStayTheSameBeginNothing) {
  Play(10, true);
  Viewer viewer = Watch();
  ByteVector bytes = Drain(*viewer).bytes;
  Pass(500'000);
  Play(10, true);
  const Watched rest = Drain(*viewer);
  EXPECT_FALSE(rest.over);
  bytes.insert(bytes.end(), rest.bytes.begin(), rest.bytes.end());
  EXPECT_EQ(ReadWatched(bytes).streams.at(0).decoded, 20U);
}

TEST_F(Stream, AWishForAKeyFrameComesWithAPauseAndWithAGroupThatIsTooLarge) {
  const auto wishes = [this] { return track_.WantsKeyFrame(clock_.NowNanos()); };
  EXPECT_FALSE(wishes());
  Play(2, true);
  EXPECT_FALSE(wishes());
  Pass(250'000);
  EXPECT_FALSE(wishes());
  Pass(50'000);
  EXPECT_TRUE(wishes());
  Pass(500'000);
  EXPECT_FALSE(wishes());  // it has been asked for
  WholeFrame large = coder_->Next(false);
  large.data.resize(WebTrack::kMostGroupBytes + 1, std::byte{1});
  Push(std::move(large));
  EXPECT_TRUE(wishes());
  Play(1, true);
  EXPECT_FALSE(wishes());
}

TEST_F(Stream, AfterALongPauseOnlyAKeyFrameShows) {
  Play(5, true);
  Pass(2'000'000);
  Viewer viewer = Watch();
  Play(1);
  EXPECT_TRUE(track_.WantsKeyFrame(clock_.NowNanos()));
  EXPECT_EQ(ReadWatched(Drain(*viewer).bytes).streams.at(0).decoded, 5U);
}

TEST_F(Stream, WhatCantBeReadIsPassedOver) {
  WholeFrame nonsense;
  nonsense.keyFrame = true;
  nonsense.data.assign(100, std::byte{0x77});
  Push(nonsense);
  nonsense.stream = StreamType::Audio;
  track_.Take(Stamped(nonsense), clock_.NowNanos());
  EXPECT_EQ(Watch(), nullptr);
  Play(5, true);
  EXPECT_EQ(See().streams.at(0).decoded, 5U);
}

}  // namespace
}  // namespace Veldrift
