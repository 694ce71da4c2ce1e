// The small parts of the receiving side.
#include <gtest/gtest.h>

#include "platform/file.h"
#include "tests/support/scratch.h"
#include "tests/tools/sender.h"
#include "tools/platform/client_sockets.h"
#include "tools/receiver/loss_simulator.h"
#include "tools/receiver/media_receiver.h"
#include "tools/receiver/pairing_log.h"
#include "tools/receiver/receive_stats.h"
#include "tools/receiver/sequence_tracker.h"
#include "tools/receiver/token_file.h"

namespace Veldrift {
namespace {

std::vector<int> Surviving(const LossSettings& settings, int count) {
  std::vector<int> out;
  LossSimulator loss(settings, [&](std::span<const std::byte> bytes) {
    out.push_back(std::to_integer<int>(bytes[0]) + 256 * std::to_integer<int>(bytes[1]));
  });
  for (int i = 0; i < count; ++i) {
    const std::array datagram = {std::byte(i % 256), std::byte(i / 256)};
    loss.Push(datagram);
  }
  loss.Flush();
  return out;
}

TEST(LossSimulator, TheSameSeedLosesTheSame) {
  const LossSettings settings{.dropPercent = 5, .reorderPercent = 3, .seed = 9};
  EXPECT_EQ(Surviving(settings, 2'000), Surviving(settings, 2'000));
  LossSettings other = settings;
  other.seed = 10;
  EXPECT_NE(Surviving(settings, 2'000), Surviving(other, 2'000));
}

TEST(LossSimulator, LosesAndReordersAboutAsMuchAsItWasTold) {
  EXPECT_EQ(Surviving({}, 500).size(), 500U);
  EXPECT_TRUE(Surviving({.dropPercent = 100}, 500).empty());
  const size_t left = Surviving({.dropPercent = 5}, 10'000).size();
  EXPECT_NEAR(double(left), 9'500, 100);
  const std::vector<int> reordered = Surviving({.reorderPercent = 10}, 10'000);
  EXPECT_EQ(reordered.size(), 10'000U);
  int steps = 0;
  for (size_t i = 1; i < reordered.size(); ++i) steps += reordered[i] < reordered[i - 1];
  EXPECT_NEAR(steps, 950, 150);
}

TEST(LossSimulator, ADelayedDatagramIsOvertakenByEightAtMost) {
  const std::vector<int> out = Surviving({.reorderPercent = 20, .seed = 4}, 5'000);
  int highest = -1;
  for (const int number : out) {
    EXPECT_GE(number, highest - 16);  // some of those that overtake are themselves delayed
    highest = std::max(highest, number);
  }
}

TEST(SequenceTracker, CountsWhatIsMissingAndWhatCameTwice) {
  SequenceTracker tracker;
  for (const uint32_t sequence : {10U, 11U, 14U, 12U}) EXPECT_TRUE(tracker.Note(sequence));
  EXPECT_EQ(tracker.Missing(), 1U);  // 13
  EXPECT_FALSE(tracker.Note(12));
  EXPECT_TRUE(tracker.Note(8));  // from before the first: 9 is now missing, too
  EXPECT_EQ(tracker.Missing(), 2U);
  EXPECT_EQ(tracker.Received(), 5U);
}

TEST(SequenceTracker, NumbersWrapAndJump) {
  SequenceTracker tracker;
  for (const uint32_t sequence : {0xFFFFFFFEU, 0xFFFFFFFFU, 1U})
    EXPECT_TRUE(tracker.Note(sequence));
  EXPECT_EQ(tracker.Missing(), 1U);
  EXPECT_TRUE(tracker.Note(1'000'001));
  EXPECT_EQ(tracker.Missing(), 1'000'000U);
  EXPECT_FALSE(tracker.Note(2));  // older than the window: can't be told from a repetition
}

TEST(DelayStats, PercentilesAreValuesThatWereMeasured) {
  DelayStats delays;
  EXPECT_EQ(delays.PercentileMs(50), 0);
  for (int64_t i = 100; i >= 1; --i) delays.Add(i * 1'000'000);
  EXPECT_EQ(delays.PercentileMs(50), 50);
  EXPECT_EQ(delays.PercentileMs(99), 99);
  EXPECT_EQ(delays.PercentileMs(100), 100);
  EXPECT_EQ(delays.PercentileMs(0), 1);
}

// An even choice of a long run is kept: its percentiles stay right, and its count.
TEST(DelayStats, ALongRunStaysRightInBoundedMemory) {
  DelayStats delays;
  constexpr int64_t kDelays = 1'000'000;
  for (int64_t i = 0; i < kDelays; ++i) delays.Add(i * 1'000);
  EXPECT_EQ(delays.Count(), size_t(kDelays));
  EXPECT_NEAR(delays.PercentileMs(50), 500, 1);
  EXPECT_NEAR(delays.PercentileMs(99), 990, 1);
}

TEST(TokenFile, IsReadBackAndReplacedWhole) {
  const ScratchFolder folder;
  const std::filesystem::path file = folder.Path() / "token";
  std::string error;
  EXPECT_EQ(ReadToken(file), "");
  ASSERT_TRUE(WriteToken(file, "0123abcd", error)) << error;
  ASSERT_TRUE(WriteToken(file, "fedc9876", error)) << error;
  EXPECT_EQ(ReadToken(file), "fedc9876");
  EXPECT_FALSE(std::filesystem::exists(folder.Path() / "token.tmp"));
  EXPECT_FALSE(WriteToken(folder.Path() / "missing" / "token", "00", error));
  EXPECT_FALSE(error.empty());
}

TEST(TokenFile, WhatCantBeATokenIsNone) {
  const ScratchFolder folder;
  const std::filesystem::path file = folder.Path() / "token";
  for (const std::string& text : {std::string("two words\n"), std::string(129, 'a')}) {
    ASSERT_EQ(WriteWholeFile(file, text), WriteResult::Written);
    EXPECT_EQ(ReadToken(file), "");
  }
}

TEST(PairingCodeLog, FindsTheNewestCodeOfThisPhoneWrittenSince) {
  const ScratchFolder folder;
  const std::filesystem::path file = folder.Path() / "plugin.log";
  ASSERT_TRUE(AppendToFile(file, "[t s:network:INFO] pair: challenge=111111 for Desk\r\n"));
  PairingCodeLog log(file, "Desk");
  EXPECT_EQ(log.Find(), std::nullopt);
  ASSERT_TRUE(AppendToFile(file, "[t s:network:INFO] pair: challenge=222222 for Desktop\r\n"));
  EXPECT_EQ(log.Find(), std::nullopt);
  ASSERT_TRUE(AppendToFile(file, "[t s:network:INFO] pair: challenge=000333 for Desk\r\n"));
  EXPECT_EQ(log.Find(), "000333");
  ASSERT_TRUE(AppendToFile(file, "[t s:network:INFO] pair: challenge=444444 for De"));
  EXPECT_EQ(log.Find(), "000333");
  ASSERT_TRUE(AppendToFile(file, "sk\r\n"));
  EXPECT_EQ(log.Find(), "444444");
}

TEST(PairingCodeLog, ARotatedLogIsReadFromItsStart) {
  const ScratchFolder folder;
  const std::filesystem::path file = folder.Path() / "plugin.log";
  ASSERT_TRUE(AppendToFile(file, std::string(500, 'x') + "\r\n"));
  PairingCodeLog log(file, "Desk");
  ASSERT_EQ(WriteWholeFile(file, "[t s:network:INFO] pair: challenge=123456 for Desk\r\n"),
            WriteResult::Written);
  EXPECT_EQ(log.Find(), "123456");
}

// What a phone calls itself can't be taken for a challenge, and every name is found by its own.
TEST(PairingCodeLog, ANameIsOnlyAName) {
  const ScratchFolder folder;
  const std::filesystem::path file = folder.Path() / "plugin.log";
  const std::string longName(200, 'n');
  PairingCodeLog victim(file, "bob");
  PairingCodeLog lengthy(file, longName);
  PairingCodeLog torn(file, "two\nlines");
  PairingCodeLog latin(file, "caf\xE9");  // not UTF-8
  const std::string lines[] = {
      "[t s:network:INFO] pair: Hello from id=x name=pair: challenge=111111 for bob token=<none>",
      "[t s:network:INFO] pair: challenge=222222 for pair: challenge=111111 for bob",
      "[t s:transmit:INFO] pair: challenge=111111 for bob",
      "pair: challenge=111111 for bob",
      "[t s:network:INFO] pair: challenge=333333 for " + longName.substr(0, 128),
      "[t s:network:INFO] pair: challenge=444444 for two?lines",
      "[t s:network:INFO] pair: challenge=555555 for caf?"};
  for (const std::string& line : lines) ASSERT_TRUE(AppendToFile(file, line + "\r\n"));
  EXPECT_EQ(victim.Find(), std::nullopt);
  EXPECT_EQ(lengthy.Find(), "333333");
  EXPECT_EQ(torn.Find(), "444444");
  EXPECT_EQ(latin.Find(), "555555");
}

TEST(LogTail, ARotationLosesNoLineAndRepeatsNone) {
  const ScratchFolder folder;
  const std::filesystem::path file = folder.Path() / "plugin.log";
  ASSERT_TRUE(AppendToFile(file, "[t s:a:INFO] before\r\n"));
  LogTail tail(file);
  ASSERT_TRUE(AppendToFile(file, "[t s:a:INFO] one\r\n[t s:a:INFO] t"));
  ASSERT_EQ(tail.Take().size(), 1U);
  ASSERT_TRUE(AppendToFile(file, "wo\r\n"));
  std::filesystem::rename(file, folder.Path() / "plugin.log.1");
  ASSERT_TRUE(AppendToFile(file, "[t s:a:INFO] three\r\n"));
  const std::vector<LogEntry> rest = tail.Take();
  ASSERT_EQ(rest.size(), 2U);
  EXPECT_EQ(rest[0].message, "two");
  EXPECT_EQ(rest[1].message, "three");
  EXPECT_TRUE(tail.Take().empty());
}

TEST(PhoneEvent, TheComingAndGoingOfPhonesIsRead) {
  using Kind = PhoneEvent::Kind;
  const auto kind = [](const char* message) {
    const auto event = PhoneEventIn({"network", message});
    return event ? std::optional(event->kind) : std::nullopt;
  };
  EXPECT_EQ(kind("pair: OK id=x name=Desk"), Kind::Paired);
  EXPECT_EQ(PhoneEventIn({"network", "pair: OK id=x name=Desk"})->name, "Desk");
  EXPECT_EQ(kind("pair: trusted reconnect id=x"), Kind::Paired);
  EXPECT_EQ(kind("control read loop exit fd=9 — closed + peer cleared"), Kind::Gone);
  EXPECT_EQ(kind("control read loop exit fd=9 — stale (current=10), already handed off"),
            std::nullopt);
  EXPECT_EQ(kind("pair: Hello from id=pair: OK id=x name=Desk"), std::nullopt);
}

TEST(MediaReceiver, APortInUseIsTold) {
  const SocketLayer layer;
  const auto loopback = ParseAddress("127.0.0.1");
  const auto taken = OpenDatagramReceiver({*loopback, 0}, 0);
  ASSERT_TRUE(taken);
  MediaReceiver receiver({.bindAddress = *loopback,
                          .videoPort = 0,
                          .audioPort = taken->Port(),
                          .loss = {},
                          .limits = {}});
  std::string error;
  EXPECT_EQ(receiver.Open(error), MediaReceiver::OpenResult::PortInUse);
  EXPECT_EQ(error,
            "port " + std::to_string(taken->Port()) + " on 127.0.0.1 is in use by another program");
}

TEST(MediaReceiver, FramesComeThroughRealSocketsOnBothStreams) {
  const SocketLayer layer;
  const auto loopback = ParseAddress("127.0.0.1");
  // Two free ports, given back for the receiver to take.
  uint16_t videoPort = 0;
  uint16_t audioPort = 0;
  {
    const auto one = OpenDatagramReceiver({*loopback, 0}, 0);
    const auto two = OpenDatagramReceiver({*loopback, 0}, 0);
    videoPort = one->Port();
    audioPort = two->Port();
  }
  MediaReceiver receiver({.bindAddress = *loopback,
                          .videoPort = videoPort,
                          .audioPort = audioPort,
                          .loss = {},
                          .limits = {}});
  std::string error;
  ASSERT_EQ(receiver.Open(error), MediaReceiver::OpenResult::Opened) << error;
  Mutex mutex;
  CondVar arrived;
  std::vector<std::pair<StreamType, size_t>> frames;
  receiver.Start([&](WholeFrame&& frame) {
    const MutexLock lock(mutex);
    frames.emplace_back(frame.stream, frame.data.size());
    arrived.NotifyAll();
  });
  const auto sender = OpenDatagramSender();
  for (const Datagram& datagram : TestSender{}.Next(20'000)) {
    ASSERT_EQ(sender->Send(datagram, {*loopback, videoPort}), DatagramSocket::SendResult::Sent);
  }
  {
    MutexLock lock(mutex);
    while (frames.empty()) arrived.Wait(lock);
  }
  const std::vector<std::byte> sound(100);
  FrameToSend block{.streamType = StreamType::Audio, .data = sound};
  FrameGroup group = MakeFrameGroup(block);
  uint32_t sequence = 0;
  ASSERT_TRUE(FragmentFrame(block, sequence, 0, group));
  group.ForEach([&](std::span<const std::byte> datagram) {
    return sender->Send(datagram, {*loopback, audioPort}) == DatagramSocket::SendResult::Sent;
  });
  {
    MutexLock lock(mutex);
    while (frames.size() < 2) arrived.Wait(lock);
  }
  receiver.Stop();
  EXPECT_EQ(frames[0], (std::pair{StreamType::Video, size_t{20'000}}));
  EXPECT_EQ(frames[1], (std::pair{StreamType::Audio, size_t{100}}));
  EXPECT_EQ(receiver.Counters(StreamType::Video).assembler.framesWhole, 1U);
}

}  // namespace
}  // namespace Veldrift
