// A receiver's run against a plug-in that comes and goes, in virtual time.
#include "tools/receiver/session.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "net/control_protocol.h"
#include "tests/tools/fake_link.h"

namespace Veldrift {
namespace {

class FakeSink : public FrameSink {
 public:
  void Take(const SharedFrame&) override {}
  bool WantsKeyFrame() const override { return wants; }
  std::string Failure() const override { return failure; }
  void Finish() override {}

  bool wants = false;
  std::string failure;
};

class SessionRun : public testing::Test, protected SessionObserver, protected PluginWhereabouts {
 protected:
  SessionRun() : link_(clock_) {}

  SessionResult Run() {
    Session session(options_, {link_,
                               {&other_, &sink_},
                               [this](uint32_t number) { begun_.push_back(number); },
                               *this,
                               this,
                               clock_,
                               stopped_,
                               adapter_.get(),
                               &modes_,
                               [this] { return sleptNs_; }});
    return session.Run();
  }

  void Tell(const std::string& sentence) override {
    told_.push_back(sentence);
    toldAt_.push_back(double(clock_.NowNanos()) / 1e9);
  }
  void Tick(int64_t, const std::string& waiting) override { waiting_ = waiting; }
  void Woke(int64_t nowNs) override { woke_.push_back(double(nowNs) / 1e9); }
  std::vector<Ipv4Endpoint> Look() override {
    ++looks_;
    return seen_;
  }
  void Rest() override { ++rests_; }

  // The waits between the tries from the first of them on, in tenths of a second.
  std::vector<int> Waits() const {
    std::vector<int> waits;
    for (size_t i = 1; i < link_.tries.size(); ++i) {
      waits.push_back(int(std::lround(10 * (link_.tries[i] - link_.tries[i - 1]))));
    }
    return waits;
  }

  ScriptClock clock_;
  FakeLink link_;
  FakeSink sink_;
  FakeSink other_;
  SessionOptions options_{.host = {0, 1}, .seconds = 100, .reconnect = true};
  std::atomic<bool> stopped_{false};
  std::vector<uint32_t> begun_;
  std::vector<double> woke_;
  int64_t sleptNs_ = 0;
  std::vector<std::string> told_;
  std::vector<double> toldAt_;
  std::string waiting_;
  std::unique_ptr<Adapter> adapter_;
  EncoderModeKeeper modes_;
  std::vector<Ipv4Endpoint> seen_;
  int looks_ = 0;
  int rests_ = 0;
};

TEST_F(SessionRun, LastsAsLongAsItShouldAndSaysNothing) {
  const SessionResult result = Run();
  EXPECT_EQ(result.end, SessionEnd::TimeUp);
  EXPECT_NEAR(double(result.endNs - result.startNs) / 1e9, 100, 0.1);
  EXPECT_TRUE(told_.empty());
  EXPECT_EQ(result.interruptionCount, 0U);
  EXPECT_EQ(begun_, std::vector<uint32_t>{1});
  EXPECT_TRUE(link_.sent.empty());
  EXPECT_EQ(looks_, 0);
}

TEST_F(SessionRun, APlugInThatIsAwayForAMinuteIsComeBackToAndTheTimeIsCounted) {
  link_.lives = 40;
  clock_.At(39, [this] { link_.answer = LinkResult::NoAnswer; });
  clock_.At(100, [this] { link_.answer = LinkResult::Open; });
  options_.seconds = 135;
  const SessionResult result = Run();
  EXPECT_EQ(result.end, SessionEnd::TimeUp);
  EXPECT_EQ(result.sentence, "");
  ASSERT_EQ(result.interruptions.size(), 1U);
  EXPECT_EQ(result.interruptions[0].reason, "it hung up");
  EXPECT_NEAR(double(result.interruptions[0].fromNs) / 1e9, 40, 0.1);
  const double back = double(result.interruptions[0].toNs) / 1e9;
  EXPECT_GE(back, 100);
  EXPECT_LT(back, 102.2);  // never more than two seconds between two tries
  EXPECT_NEAR(double(result.interruptedNs) / 1e9, back - 40, 0.1);
  ASSERT_EQ(told_.size(), 2U);
  EXPECT_EQ(told_[0], "the connection was lost after 40.0 s: it hung up; trying to connect again");
  EXPECT_NEAR(toldAt_[0], 40, 0.1);
  EXPECT_TRUE(told_[1].starts_with("connected again after 6")) << told_[1];
  ASSERT_GE(Waits().size(), 5U);
  EXPECT_EQ(Waits()[0], 400 + 5);
  EXPECT_EQ(Waits()[1], 5);
  EXPECT_EQ(Waits()[2], 10);
  EXPECT_EQ(Waits()[3], 20);
  EXPECT_EQ(Waits()[4], 20);
  // The frames of all tries for the second connection are the second connection's.
  EXPECT_EQ(begun_.front(), 1U);
  EXPECT_EQ(begun_[1], 2U);
  EXPECT_EQ(begun_.back(), 2U);
  EXPECT_EQ(rests_, 1);
}

TEST_F(SessionRun, SilenceIsTheEndOfAConnectionAfterFiveSeconds) {
  clock_.At(20, [this] { link_.beats = false; });
  clock_.At(27, [this] { link_.beats = true; });
  options_.seconds = 40;
  const SessionResult result = Run();
  ASSERT_EQ(result.interruptions.size(), 1U);
  EXPECT_NEAR(double(result.interruptions[0].fromNs) / 1e9, 20, 0.1);
  EXPECT_NEAR(toldAt_[0], 25, 0.1);
  EXPECT_NE(told_[0].find("no heartbeat came for 5.0 s"), std::string::npos) << told_[0];
}

TEST_F(SessionRun, AProcessThatStoodStillDoesntTakeItsOwnSilenceForThePlugIns) {
  clock_.At(20, [this] {
    link_.beats = false;
    clock_.Advance(30 * kNanosPerSecond);
  });
  clock_.At(51, [this] { link_.beats = true; });
  EXPECT_EQ(Run().interruptionCount, 0U);
  ASSERT_EQ(woke_.size(), 1U);
  EXPECT_NEAR(woke_[0], 50, 0.1);
  EXPECT_EQ(told_, std::vector<std::string>{
                       "this machine or process stood still for 30.0 s, in which nothing "
                       "was received"});
}

// Its clock goes on where it was.
TEST_F(SessionRun, AMachineThatSleptIsNoticedToo) {
  clock_.At(20, [this] { sleptNs_ += 40 * kNanosPerSecond; });
  Run();
  ASSERT_EQ(woke_.size(), 1U);
  EXPECT_NEAR(woke_[0], 20, 0.1);
  EXPECT_NE(told_.at(0).find(" 40.0 s"), std::string::npos) << told_[0];
}

// Two receivers that take one plug-in from each other.
TEST_F(SessionRun, APlugInThatHangsUpSoonIsLeftAloneForLongerEachTime) {
  link_.lives = 2;
  options_.seconds = 300;
  const SessionResult result = Run();
  // Two seconds of life, and a pause that doubles from one second to a minute.
  const std::vector<int> waits = Waits();
  ASSERT_GE(waits.size(), 7U);
  EXPECT_EQ(std::vector<int>(waits.begin(), waits.begin() + 7),
            (std::vector<int>{30, 40, 60, 100, 180, 340, 620}));
  EXPECT_EQ(result.interruptionCount, result.interruptions.size());
  // The first may have any reason.
  EXPECT_EQ(result.interruptions[0].reason, "it hung up");
  EXPECT_EQ(result.interruptions[1].reason,
            "it hung up, as it does when another receiver connects");
}

TEST_F(SessionRun, OneLongLifeForgetsTheShortOnes) {
  link_.lives = 2;
  clock_.At(3.5, [this] { link_.lives = 40; });  // in the second connection
  options_.seconds = 60;
  Run();
  ASSERT_GE(Waits().size(), 2U);
  EXPECT_EQ(Waits()[1], 400 + 5);
  for (const std::string& sentence : told_) EXPECT_EQ(sentence.find("another"), sentence.npos);
}

TEST_F(SessionRun, WithoutReconnectingTheConnectionsEndIsTheRuns) {
  options_.reconnect = false;
  link_.lives = 7;
  const SessionResult result = Run();
  EXPECT_EQ(result.end, SessionEnd::Lost);
  EXPECT_EQ(result.sentence, "the connection was lost after 7.0 s: it hung up");
  EXPECT_NEAR(double(result.endNs) / 1e9, 7, 0.1);
  EXPECT_EQ(link_.tries.size(), 1U);
  EXPECT_EQ(result.interruptions.at(0).toNs, 0);
  EXPECT_TRUE(told_.empty()) << "told twice";
}

TEST_F(SessionRun, AConnectionThatIsAwayAtTheEndIsLost) {
  link_.lives = 40;
  clock_.At(39, [this] { link_.answer = LinkResult::NoAnswer; });
  const SessionResult result = Run();
  EXPECT_EQ(result.end, SessionEnd::Lost);
  EXPECT_EQ(result.sentence,
            "the connection was lost and didn't come back within 60.0 s: nobody there");
  EXPECT_NEAR(double(result.interruptedNs) / 1e9, 60, 0.1);
  EXPECT_EQ(result.interruptions.at(0).toNs, 0);
  EXPECT_EQ(waiting_, "nobody there");
}

TEST_F(SessionRun, AFirstConnectionThatDoesntComeAboutIsTold) {
  link_.answer = LinkResult::NoAnswer;
  const SessionResult result = Run();
  EXPECT_EQ(result.end, SessionEnd::NeverOpened);
  EXPECT_EQ(result.link, LinkResult::NoAnswer);
  EXPECT_EQ(result.sentence, "nobody there");
  EXPECT_EQ(link_.tries.size(), 1U);
}

// On coming back: what may pass is tried again, what won't ends the run.
TEST_F(SessionRun, BeingTurnedAwayIsTheEndAndBeingHungUpOnIsNot) {
  const struct {
    LinkResult answer;
    bool ends;
  } kCases[] = {{LinkResult::NoAnswer, false},
                {LinkResult::Closed, false},
                {LinkResult::Refused, true},
                {LinkResult::Broken, true},
                {LinkResult::Failed, true}};
  for (const auto& each : kCases) {
    SCOPED_TRACE(int(each.answer));
    link_.answer = LinkResult::Open;
    link_.lives = 40;
    const double start = double(clock_.NowNanos()) / 1e9;
    clock_.At(start + 39, [this, each] { link_.answer = each.answer; });
    clock_.At(start + 60, [this] { link_.answer = LinkResult::Open; });
    const SessionResult result = Run();
    EXPECT_EQ(result.end, each.ends ? SessionEnd::TurnedAway : SessionEnd::TimeUp);
    EXPECT_EQ(result.link, each.ends ? each.answer : LinkResult::Open);
    EXPECT_EQ(result.sentence, each.ends ? "nobody there" : "");
  }
}

// Also while there is no connection.
TEST_F(SessionRun, ASinkThatFailsEndsItAtOnce) {
  for (const double lives : {1e6, 8.0}) {
    link_.lives = lives;
    sink_.failure.clear();
    const double start = double(clock_.NowNanos()) / 1e9;
    clock_.At(start + 7.5, [this] { link_.answer = LinkResult::NoAnswer; });
    clock_.At(start + 10, [this] { sink_.failure = "can't write x: full"; });
    link_.answer = LinkResult::Open;
    const SessionResult result = Run();
    EXPECT_EQ(result.end, SessionEnd::SinkFailed);
    EXPECT_EQ(result.sentence, "can't write x: full");
    EXPECT_NEAR(double(result.endNs - result.startNs) / 1e9, 10, 0.1);
  }
}

TEST_F(SessionRun, AViolationEndsItAndIsNotTakenForALostConnection) {
  clock_.At(5, [this] {
    link_.violation = "it sent nonsense";
    link_.Close();
  });
  const SessionResult result = Run();
  EXPECT_EQ(result.end, SessionEnd::Broken);
  EXPECT_EQ(result.sentence, "it sent nonsense");
  EXPECT_EQ(link_.tries.size(), 1U);
}

TEST_F(SessionRun, TheUserEndsItWheneverHeLikes) {
  clock_.At(5, [this] { stopped_ = true; });
  const SessionResult result = Run();
  EXPECT_EQ(result.end, SessionEnd::Stopped);
  EXPECT_NEAR(double(result.endNs) / 1e9, 5, 0.1);
}

TEST_F(SessionRun, APlugInThatHasMovedIsTriedWhereItIsSeenAtOnce) {
  link_.lives = 40;
  clock_.At(39, [this] { link_.port = 2; });
  clock_.At(50.7, [this] {     // between two tries of the old one
    seen_ = {{0, 1}, {0, 2}};  // a stale record beside the true one
    link_.lives = 1e6;
  });
  const SessionResult result = Run();
  EXPECT_EQ(result.end, SessionEnd::TimeUp);
  EXPECT_EQ(link_.ports.back(), 2);
  EXPECT_NEAR(link_.tries.back(), 50.7, 0.1);
  EXPECT_EQ(rests_, 1);
}

TEST_F(SessionRun, KeyFramesAreAskedForWhileAnySinkWaitsAndEverMoreSeldom) {
  clock_.At(10, [this] { sink_.wants = true; });
  clock_.At(20, [this] { sink_.wants = false; });
  clock_.At(30, [this] { sink_.wants = true; });
  clock_.At(30.1, [this] { sink_.wants = false; });
  Run();
  // At 0, 0.3, 0.9, 2.1, 4.5, 6.9 and 9.3 s, and once for the second wish.
  EXPECT_EQ(link_.sent.size(), 8U);
  for (const Command& command : link_.sent) EXPECT_EQ(command.opcode, kRequestIdr);
}

// An encoder that does as it is told, and begins each size, and each connection, with a quality of
// its own.
class ForgetfulEncoder {
 public:
  explicit ForgetfulEncoder(const FakeLink& link) : link_(link) {}

  SharedFrame NextPicture(int64_t nowNs) {
    if (link_.tries.size() != connection_) {
      connection_ = link_.tries.size();
      quality = 75;
      fresh_ = true;
    }
    bool resized = std::exchange(fresh_, false);
    for (; read_ < link_.sent.size(); ++read_) {
      const Command& command = link_.sent[read_];
      if (command.opcode == kSetEncoderMode) quality = int(command.payload[1]);
      if (command.opcode != kSetMaxResolution) continue;
      const int wanted = int(command.payload[0]) + 256 * int(command.payload[1]);
      resized = resized || wanted != side;
      side = wanted;
    }
    auto frame = std::make_shared<WholeFrame>();
    frame->connection = uint32_t(connection_);
    frame->keyFrame = resized;
    frame->data.resize(10'000);
    if (resized) {
      quality = 75;
      const std::byte head[] = {{}, {}, std::byte{1}, std::byte{0x67}, std::byte(side / 16),
                                {}, {}, std::byte{1}, std::byte{0x65}};
      std::ranges::copy(head, frame->data.begin());
    }
    frame->firstDatagramNs = frame->wholeNs = nowNs;
    frame->sendTimeMicros = uint32_t(nowNs / 1'000);
    return frame;
  }

  int side = 1080;
  int quality = 75;

 private:
  const FakeLink& link_;
  size_t connection_ = 0;
  size_t read_ = 0;
  bool fresh_ = false;
};

// What was asked for on the command line goes out before the first picture.
TEST_F(SessionRun, AnEncoderThatForgetsItsQualityWithEachSizeIsToldItAgain) {
  ForgetfulEncoder encoder(link_);
  link_.settings = {{kSetEncoderMode, {std::byte{1}, std::byte{10}}}, MaxResolutionCommand(180)};
  link_.lives = 7;
  std::vector<int> qualities;
  for (int i = 0; i < 300; ++i) {
    clock_.At(i / 30.0, [&] {
      modes_.Take(encoder.NextPicture(clock_.NowNanos()));
      qualities.push_back(encoder.quality);
    });
  }
  options_.seconds = 12;
  Run();
  EXPECT_EQ(link_.tries.size(), 2U);
  EXPECT_EQ(encoder.side, 180);
  // One picture of each connection.
  EXPECT_EQ(std::ranges::count(qualities, 75), 2);
  EXPECT_EQ(qualities.back(), 10);
}

// The first size that each connection is asked for.
TEST_F(SessionRun, AdaptingGoesOnWhereItWasButNotAtAnotherAddress) {
  for (const bool moves : {false, true}) {
    SCOPED_TRACE(moves);
    ArrivalCounters arrivals;
    adapter_ = std::make_unique<Adapter>(
        AdaptationLimits{}, [&] { return arrivals; }, [] { return uint16_t{1080}; });
    const double start = double(clock_.NowNanos()) / 1e9;
    for (int i = 0; i < 180; ++i) {
      clock_.At(start + i / 30.0, [&] { ++arrivals.framesWhole, ++arrivals.datagrams; });
      clock_.At(start + i / 30.0, [&] {
        auto frame = std::make_shared<WholeFrame>();
        frame->data.resize(1'000);
        frame->firstDatagramNs = frame->wholeNs = clock_.NowNanos();
        adapter_->Take(frame);
      });
    }
    link_.lives = 7;
    if (moves) {
      clock_.At(start + 6.5, [this] {
        link_.port = 2;
        seen_ = {{7, 2}};
      });
    }
    options_.seconds = 12;
    link_.sent.clear();
    Run();
    std::vector<int> first;
    bool begins = false;
    for (const Command& command : link_.sent) {
      begins = begins || command.opcode == kSetGopMode;
      if (command.opcode != kSetMaxResolution || !std::exchange(begins, false)) continue;
      first.push_back(int(command.payload[0]) + 256 * int(command.payload[1]));
    }
    EXPECT_EQ(first, moves ? (std::vector<int>{720, 720}) : (std::vector<int>{720, 1080}));
  }
}

// 30 pictures a second over a network that has room until it is full; then the connection is made
// anew.
TEST_F(SessionRun, AdaptingAsksForWhatTheNetworkCarriesAndTellsEachStep) {
  ArrivalCounters arrivals;
  adapter_ = std::make_unique<Adapter>(
      AdaptationLimits{}, [&] { return arrivals; }, [] { return uint16_t{1080}; });
  ForgetfulEncoder encoder(link_);
  for (int i = 0; i < 300; ++i) {
    clock_.At(i / 30.0, [&, i] {
      const bool full = i >= 100 && i < 130;
      arrivals.datagrams += 20;
      arrivals.missing += full ? 10 : 0;
      arrivals.gaps += full ? 1 : 0;
      arrivals.bytes += 20 * 1'440;
      ++(full ? arrivals.framesLost : arrivals.framesWhole);
      if (full) return;
      const SharedFrame frame = encoder.NextPicture(clock_.NowNanos());
      adapter_->Take(frame);
      modes_.Take(frame);
    });
  }
  options_.seconds = 20;
  link_.lives = 12;
  Run();

  std::vector<int> sides;
  std::vector<int> gops;
  for (const Command& command : link_.sent) {
    const auto byte = [&command](size_t at) { return int(command.payload[at]); };
    if (command.opcode == kSetEncoderMode) {
      EXPECT_EQ(byte(0), 1);  // quality: the others know no rate
    } else if (command.opcode == kSetMaxResolution) {
      sides.push_back(byte(0) + 256 * byte(1));
    } else if (command.opcode == kSetGopMode) {
      gops.push_back(byte(0));
    }
  }
  EXPECT_EQ(gops, (std::vector<int>{3, 3}));  // once a connection
  ASSERT_GE(sides.size(), 4U);
  EXPECT_EQ(sides[0], 720);
  EXPECT_EQ(sides[1], 1080);                         // it had room
  EXPECT_LT(sides[2], 1080);                         // and then not
  EXPECT_EQ(sides.back(), sides[sides.size() - 2]);  // the next connection begins there
  // Size and quality hold, whatever the encoder had begun with.
  EXPECT_EQ(encoder.side, adapter_->Report().setting.shortSide);
  EXPECT_EQ(encoder.quality, adapter_->Report().setting.quality);
  EXPECT_EQ(adapter_->Report().steps + 2, adapter_->Report().entries.size());
  EXPECT_EQ(std::ranges::count_if(told_,
                                  [](const std::string& text) {
                                    return text.find("p, quality ") != std::string::npos;
                                  }),
            std::ptrdiff_t(adapter_->Report().entries.size()));
}

}  // namespace
}  // namespace Veldrift
