#include "tools/receiver/frame_assembler.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <random>

#include "support/little_endian.h"
#include "tests/tools/sender.h"

namespace Veldrift {
namespace {

constexpr int64_t kMs = kNanosPerMilli;

class Assembler {
 public:
  explicit Assembler(const AssemblerLimits& limits = {})
      : assembler_(StreamType::Video, limits,
                   [this](WholeFrame&& frame) { frames.push_back(std::move(frame)); }) {}

  void Take(const Datagram& datagram) { assembler_.Add(datagram, nowNs); }
  void Take(const std::vector<Datagram>& datagrams) {
    for (const Datagram& datagram : datagrams) Take(datagram);
  }
  // All but the ones with a bit in `lost`.
  void TakeBut(uint64_t lost, const std::vector<Datagram>& datagrams) {
    for (size_t i = 0; i < datagrams.size(); ++i) {
      if ((lost >> i & 1) == 0) Take(datagrams[i]);
    }
  }
  void Poll() { assembler_.Poll(nowNs); }
  void Flush() { assembler_.Flush(); }
  void BeginAnew() { assembler_.BeginAnew(); }
  AssemblerCounters Counters() const { return assembler_.Counters(); }

  std::vector<int> Numbers() const {
    std::vector<int> numbers;
    for (const WholeFrame& frame : frames) numbers.push_back(frame.frameNumber);
    return numbers;
  }
  // Every delivered frame is, byte by byte, the one that was sent under its number.
  bool AllTrue() const {
    return std::all_of(frames.begin(), frames.end(), [](const WholeFrame& frame) {
      return frame.data == FrameContents(frame.data.size(), frame.frameNumber);
    });
  }

  int64_t nowNs = 1'000 * kMs;
  std::vector<WholeFrame> frames;

 private:
  FrameAssembler assembler_;
};

using Numbers = std::vector<int>;

TEST(FrameAssembler, AWholeFrameCarriesWhatItsDatagramsSaid) {
  TestSender sender{.frameNumber = 8, .sequence = 100};
  const std::vector<Datagram> datagrams = sender.Next(2'000);  // K = 2, M = 1
  ASSERT_EQ(datagrams.size(), 3U);
  Assembler assembler;
  assembler.Take(datagrams[0]);
  assembler.nowNs += 5 * kMs;
  EXPECT_TRUE(assembler.frames.empty());
  assembler.Take(datagrams[1]);
  ASSERT_EQ(assembler.frames.size(), 1U);
  const WholeFrame& frame = assembler.frames[0];
  EXPECT_EQ(frame.stream, StreamType::Video);
  EXPECT_EQ(frame.frameNumber, 8);
  EXPECT_TRUE(frame.keyFrame);
  EXPECT_EQ(frame.timestamp, 8'000U);
  EXPECT_EQ(frame.data, FrameContents(2'000, 8));
  EXPECT_EQ(frame.firstDatagramNs, 1'000 * kMs);
  EXPECT_EQ(frame.wholeNs, 1'005 * kMs);
  EXPECT_EQ(frame.sendTimeMicros, 77U);
  EXPECT_EQ(frame.repairedFragments, 0U);
}

TEST(FrameAssembler, EveryLossUpToTheParityIsRepairedAndNoneBeyond) {
  constexpr struct {
    size_t dataCount, parityCount;
  } kShapes[] = {{1, 1}, {1, 3}, {2, 1}, {3, 2}, {4, 4}, {7, 3}, {10, 1}};
  for (const auto& shape : kShapes) {
    SCOPED_TRACE(testing::Message() << "K=" << shape.dataCount << " M=" << shape.parityCount);
    TestSender sender{.frameNumber = 5};
    const size_t size = shape.dataCount * 1'440 - 1'000;
    const std::vector<Datagram> datagrams = sender.Next(size, shape.parityCount);
    const uint64_t patterns = uint64_t{1} << datagrams.size();
    for (uint64_t lost = 0; lost < patterns; ++lost) {
      Assembler assembler;
      assembler.TakeBut(lost, datagrams);
      assembler.Flush();
      const bool repairable = size_t(std::popcount(lost)) <= shape.parityCount;
      ASSERT_EQ(assembler.frames.size(), repairable ? 1U : 0U) << "lost " << lost;
      ASSERT_TRUE(assembler.AllTrue()) << "lost " << lost;
      for (const WholeFrame& frame : assembler.frames) ASSERT_EQ(frame.data.size(), size);
    }
  }
}

TEST(FrameAssembler, RandomLossesOfLargeFramesAreRepairedUpToTheParityAndNotBeyond) {
  std::mt19937 random(20);
  for (const size_t dataCount : {50U, 100U, 200U, 231U, 254U}) {
    for (int round = 0; round < 12; ++round) {
      TestSender sender{.frameNumber = uint16_t(round)};
      std::vector<Datagram> datagrams = sender.Next(dataCount * 1'440 - round * 100);
      const size_t parityCount = datagrams.size() - dataCount;
      const size_t lost = parityCount + size_t(round % 2);  // every second one too many
      std::shuffle(datagrams.begin(), datagrams.end(), random);
      datagrams.resize(datagrams.size() - lost);
      Assembler assembler;
      assembler.Take(datagrams);
      SCOPED_TRACE(testing::Message() << "K=" << dataCount << " lost " << lost);
      EXPECT_EQ(assembler.frames.size(), round % 2 == 0 ? 1U : 0U);
      EXPECT_TRUE(assembler.AllTrue());
    }
  }
}

TEST(FrameAssembler, ParityThatWasAnnouncedAndNeverSentIsNotWaitedFor) {
  TestSender sender;
  std::vector<Datagram> datagrams = sender.Next(30 * 1'440);  // K = 30, M = 3
  datagrams.resize(30);
  Assembler assembler;
  assembler.Take(datagrams);
  EXPECT_EQ(assembler.Numbers(), Numbers{0});
  EXPECT_TRUE(assembler.AllTrue());
}

TEST(FrameAssembler, FramesTooLargeForTheCodeComeWithoutParity) {
  TestSender sender;
  Assembler assembler;
  const std::vector<Datagram> datagrams = sender.Next(400 * 1'440 + 1);
  ASSERT_EQ(datagrams.size(), 401U);
  assembler.Take(datagrams);
  assembler.Take(std::vector<Datagram>(sender.Next(300 * 1'440)));
  EXPECT_EQ(assembler.Numbers(), (Numbers{0, 1}));
  EXPECT_TRUE(assembler.AllTrue());
}

TEST(FrameAssembler, RepairIsCounted) {
  TestSender sender;
  Assembler assembler;
  assembler.TakeBut(0b1010, sender.Next(20 * 1'440));  // K = 20, M = 2
  assembler.TakeBut(0b010, sender.Next(10 * 1'440));
  assembler.Take(sender.Next(1'440));
  const AssemblerCounters counters = assembler.Counters();
  EXPECT_EQ(counters.framesWhole, 3U);
  EXPECT_EQ(counters.framesRepaired, 2U);
  EXPECT_EQ(counters.fragmentsRepaired, 3U);
  EXPECT_EQ(counters.missingDatagrams, 3U);
  EXPECT_EQ(counters.framesLost, 0U);
  EXPECT_EQ(counters.violations, 0U);
}

TEST(FrameAssembler, DuplicatesAndReorderingChangeNothing) {
  TestSender sender;
  std::vector<Datagram> datagrams;
  for (int i = 0; i < 3; ++i) {
    for (const Datagram& datagram : sender.Next(5'000)) {
      datagrams.push_back(datagram);
      datagrams.push_back(datagram);
    }
  }
  std::mt19937 random(7);
  std::shuffle(datagrams.begin() + 1, datagrams.end(), random);  // frame 0's comes first
  Assembler assembler;
  assembler.Take(datagrams);
  EXPECT_EQ(assembler.Numbers(), (Numbers{0, 1, 2}));
  EXPECT_TRUE(assembler.AllTrue());
  EXPECT_EQ(assembler.Counters().missingDatagrams, 0U);
  EXPECT_EQ(assembler.Counters().framesLost, 0U);
}

TEST(FrameAssembler, ANewerFrameWaitsForAnOlderOneThatStillComes) {
  TestSender sender;
  const std::vector<Datagram> first = sender.Next(1'440), second = sender.Next(1'440),
                              third = sender.Next(1'440);
  Assembler assembler;
  assembler.Take(first);
  assembler.Take(third);
  EXPECT_EQ(assembler.Numbers(), Numbers{0});
  assembler.nowNs += 59 * kMs;
  assembler.Poll();
  EXPECT_EQ(assembler.Numbers(), Numbers{0});
  assembler.Take(second);
  EXPECT_EQ(assembler.Numbers(), (Numbers{0, 1, 2}));
}

TEST(FrameAssembler, AnOlderFrameIsGivenUpAfterATime) {
  TestSender sender;
  const std::vector<Datagram> first = sender.Next(1'440), second = sender.Next(1'440),
                              third = sender.Next(1'440);
  Assembler assembler;
  assembler.Take(first);
  assembler.Take(third);
  assembler.nowNs += 60 * kMs;
  assembler.Poll();
  EXPECT_EQ(assembler.Numbers(), (Numbers{0, 2}));
  EXPECT_EQ(assembler.Counters().framesLost, 1U);
  assembler.Take(second);  // too late
  EXPECT_EQ(assembler.Numbers(), (Numbers{0, 2}));
  // The first's and the second's parity came behind its frame.
  EXPECT_EQ(assembler.Counters().late, second.size() - 1);
  EXPECT_EQ(assembler.Counters().spareParity, 2U);
}

TEST(FrameAssembler, AHugeFrameThatComesTooLateIsNoNewBeginning) {
  TestSender sender;
  Assembler assembler;
  assembler.Take(sender.Next(1'440));
  const std::vector<Datagram> huge = sender.Next(1'200 * 1'440);
  for (int i = 0; i < 5; ++i) assembler.Take(sender.Next(1'440));  // so many don't wait for it
  assembler.Take(huge);
  assembler.Take(sender.Next(1'440));
  EXPECT_EQ(assembler.Numbers(), (Numbers{0, 2, 3, 4, 5, 6, 7}));
  EXPECT_EQ(assembler.Counters().late, huge.size());
}

TEST(FrameAssembler, AnOlderFrameIsGivenUpAfterACount) {
  TestSender sender;
  Assembler assembler({.maxWaitingWhole = 2});
  assembler.Take(sender.Next(1'440));
  sender.Next(1'440);
  assembler.Take(sender.Next(1'440));
  assembler.Take(sender.Next(1'440));
  EXPECT_EQ(assembler.Numbers(), Numbers{0});
  assembler.Take(sender.Next(1'440));
  EXPECT_EQ(assembler.Numbers(), (Numbers{0, 2, 3, 4}));
  EXPECT_EQ(assembler.Counters().framesLost, 1U);
}

TEST(FrameAssembler, GapsOfWholeFramesAreLossesAndNoError) {
  TestSender sender;
  Assembler assembler;
  assembler.Take(sender.Next(1'440));
  for (int i = 0; i < 100; ++i) sender.Next(3'000);  // numbered, cleared from the queue
  assembler.Take(sender.Next(1'440));
  assembler.Flush();
  EXPECT_EQ(assembler.Numbers(), (Numbers{0, 101}));
  EXPECT_EQ(assembler.Counters().framesLost, 100U);
  EXPECT_EQ(assembler.Counters().missingDatagrams, 400U);  // K = 3, M = 1
  EXPECT_EQ(assembler.Counters().violations, 0U);
}

TEST(FrameAssembler, NumbersWrap) {
  TestSender sender{.frameNumber = 65'534, .sequence = 0xFFFFFFFD};
  Assembler assembler;
  for (int i = 0; i < 4; ++i) assembler.Take(sender.Next(2'000));
  EXPECT_EQ(assembler.Numbers(), (Numbers{65'534, 65'535, 0, 1}));
  EXPECT_EQ(assembler.Counters().missingDatagrams, 0U);
  EXPECT_EQ(assembler.Counters().framesLost, 0U);
}

TEST(FrameAssembler, AGapAcrossTheWrapIsCounted) {
  TestSender sender{.frameNumber = 65'530};
  Assembler assembler;
  assembler.Take(sender.Next(1'440));
  for (int i = 0; i < 9; ++i) sender.Next(1'440);
  assembler.Take(sender.Next(1'440));
  assembler.Flush();
  EXPECT_EQ(assembler.Numbers(), (Numbers{65'530, 4}));
  EXPECT_EQ(assembler.Counters().framesLost, 9U);
}

TEST(FrameAssembler, AGapOfMoreThanHalfTheNumbersIsNoStepBack) {
  TestSender sender{.frameNumber = 10};
  Assembler assembler;
  assembler.Take(sender.Next(1'440));
  sender.frameNumber = 50'000;
  sender.sequence += 2 * (50'000 - 11);
  assembler.Take(sender.Next(1'440));
  assembler.Flush();
  EXPECT_EQ(assembler.Numbers(), (Numbers{10, 50'000}));
  EXPECT_EQ(assembler.Counters().framesLost, 49'989U);
}

TEST(FrameAssembler, ANumberingThatStartedOverIsFollowed) {
  Assembler assembler;
  TestSender sender{.frameNumber = 20'000, .sequence = 1'000'000};
  assembler.Take(sender.Next(1'440));
  sender = {};
  for (int i = 0; i < 600; ++i) assembler.Take(sender.Next(1'440));
  EXPECT_EQ(assembler.Numbers().front(), 20'000);
  EXPECT_EQ(assembler.Numbers().back(), 599);
  EXPECT_TRUE(assembler.AllTrue());
}

TEST(FrameAssembler, DatagramsOfNoSenderAreViolations) {
  TestSender sender;
  const std::vector<Datagram> good = sender.Next(4'000);  // K = 3, M = 1
  const auto with = [&](size_t which, const std::function<void(Datagram&)>& change) {
    Datagram datagram = good[which];
    change(datagram);
    return datagram;
  };
  const std::vector<Datagram> bad = {
      {},
      Datagram(21),
      with(0, [](Datagram& d) { d[3] = std::byte{3}; }),       // another format version
      with(0, [](Datagram& d) { d[4] = std::byte{2}; }),       // audio on the video port
      with(0, [](Datagram& d) { PutU16(&d[16], 4); }),         // index outside the count
      with(0, [](Datagram& d) { d.pop_back(); }),              // cut off
      with(2, [](Datagram& d) { PutU16(&d[20], 1); }),         // length that doesn't add up
      with(1, [](Datagram& d) { PutU16(&d[18], 5); }),         // another count than the frame's
      with(1, [](Datagram& d) { PutU32(&d[12], 4242); }),      // another time stamp
      with(1, [](Datagram& d) { d[5] ^= std::byte{1}; }),      // no longer a key frame
      with(1, [](Datagram& d) { PutU32(&d[8], 1'000'000); }),  // a number that isn't in its order
  };
  for (size_t i = 0; i < bad.size(); ++i) {
    SCOPED_TRACE(i);
    Assembler assembler;
    assembler.Take(good[0]);
    assembler.Take(bad[i]);
    EXPECT_EQ(assembler.Counters().violations, 1U);
    EXPECT_EQ(assembler.Counters().violationTexts.size(), 1U);
    assembler.Take(good);  // the frame itself isn't harmed
    EXPECT_EQ(assembler.Numbers(), Numbers{0});
    EXPECT_TRUE(assembler.AllTrue());
  }
}

TEST(FrameAssembler, AFrameWhoseEndContradictsItselfIsNotDelivered) {
  TestSender sender;
  std::vector<Datagram> datagrams = sender.Next(4'000);  // the last fragment has 1,120 bytes
  PutU16(&datagrams[3][22], 1'121);
  Assembler assembler;
  assembler.TakeBut(0b0001, datagrams);
  assembler.Flush();
  EXPECT_TRUE(assembler.frames.empty());
  EXPECT_EQ(assembler.Counters().violations, 1U);
}

// As after the plug-in was started anew: its numbers begin again.
TEST(FrameAssembler, AnotherSendersNumbersBeginAnewAndWhatWasLostBeforeStaysCounted) {
  Assembler assembler;
  TestSender before{.frameNumber = 5'000, .sequence = 70'000};
  assembler.Take(before.Next(4'000));
  before.Next(4'000);  // lost
  assembler.Take(before.Next(4'000));
  assembler.BeginAnew();  // and what was whole comes out
  const auto lost = assembler.Counters();
  EXPECT_EQ(lost.framesLost, 1U);
  EXPECT_EQ(lost.missingDatagrams, 4U);
  TestSender after{.frameNumber = 300, .sequence = 9};
  assembler.Take(after.Next(4'000));
  assembler.Take(after.Next(4'000));
  EXPECT_EQ(assembler.Numbers(), (Numbers{5'000, 5'002, 300, 301}));
  EXPECT_EQ(assembler.Counters().framesLost, 1U);
  EXPECT_EQ(assembler.Counters().late, 0U);
  EXPECT_EQ(assembler.Counters().missingDatagrams, 4U);
}

TEST(FrameAssembler, FramesThatNeverEndDontPushOutTheStream) {
  Assembler assembler({.maxPending = 4});
  TestSender hostile{.frameNumber = 100, .sequence = 1'000'000};
  TestSender sender;
  assembler.Take(sender.Next(1'440));
  for (int i = 0; i < 50; ++i) {
    assembler.nowNs += kMs;
    assembler.Take(hostile.Next(400 * 1'440)[0]);
    assembler.Take(sender.Next(1'440));
  }
  EXPECT_EQ(assembler.frames.size(), 51U);
  EXPECT_TRUE(assembler.AllTrue());
}

TEST(FrameAssembler, AHeldFrameGivesUpItsPlaceWhenMemoryIsShort) {
  Assembler assembler({.maxPendingBytes = 10 * 1'440});
  TestSender sender;
  const std::vector<Datagram> large = sender.Next(20 * 1'440, 0);
  assembler.TakeBut(1 << 19, large);
  assembler.nowNs += kMs;
  const std::vector<Datagram> small = sender.Next(3 * 1'440, 0);
  assembler.Take(small[0]);  // the large one goes
  assembler.Take(large[19]);
  assembler.Take(small);
  assembler.Flush();
  EXPECT_EQ(assembler.Numbers(), Numbers{1});
}

}  // namespace
}  // namespace Veldrift
