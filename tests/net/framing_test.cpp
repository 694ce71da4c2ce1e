#include "net/framing.h"

#include <gtest/gtest.h>

#include <bit>
#include <random>
#include <vector>

#include "net/block_code.h"

namespace Veldrift {
namespace {

using Datagrams = std::vector<std::vector<std::byte>>;

std::vector<std::byte> SomeFrame(size_t size, uint32_t seed = 1) {
  std::mt19937 random(seed);
  std::vector<std::byte> frame(size);
  for (std::byte& byte : frame) byte = std::byte(random() & 0xFF);
  return frame;
}

FrameToSend VideoFrame(std::span<const std::byte> data) {
  FrameToSend frame;
  frame.parityCount = ChooseParityCount(DataFragmentCount(data.size()));
  frame.data = data;
  frame.withSendTime = true;
  return frame;
}

Datagrams Fragment(const FrameToSend& frame, uint32_t& sequence, int64_t nowNanos = 0) {
  FrameGroup group = MakeFrameGroup(frame);
  if (!FragmentFrame(frame, sequence, nowNanos, group)) return {};
  Datagrams datagrams;
  group.ForEach([&](std::span<const std::byte> bytes) {
    datagrams.emplace_back(bytes.begin(), bytes.end());
    return true;
  });
  EXPECT_EQ(datagrams.size(), group.DatagramCount());
  return datagrams;
}

TEST(ChooseParityCount, IsATenthRoundedUpWithinTheCode) {
  const std::pair<size_t, size_t> rows[] = {{1, 1},    {10, 1},  {11, 2},  {100, 10}, {231, 24},
                                            {232, 23}, {254, 1}, {255, 0}, {256, 0},  {65'535, 0}};
  for (const auto& [dataCount, parity] : rows) {
    EXPECT_EQ(ChooseParityCount(dataCount), parity) << dataCount;
  }
}

TEST(CountDatagrams, KnowsTheLimits) {
  struct Row {
    size_t size, parity, count;
  };
  const Row rows[] = {{0, 1, 0},
                      {1, 1, 2},
                      {1440, 1, 2},
                      {1441, 1, 3},
                      {365'760, 1, 255},
                      {365'761, 0, 255},
                      {367'200, 0, 255},
                      {367'201, 7, 256},
                      {94'370'400, 0, 65'535},
                      {94'370'401, 0, 0},
                      // More parity than the flags and the code hold.
                      {1, 63, 64},
                      {1, 64, 0},
                      {276'480, 63, 255},
                      {276'481, 63, 0},
                      {367'200, 1, 0}};
  for (const Row& row : rows) {
    EXPECT_EQ(CountDatagrams(row.size, row.parity), row.count) << row.size;
  }
}

TEST(FragmentFrame, OneByteMakesOneDataAndOneParityFragment) {
  const std::vector<std::byte> frame{std::byte{0x42}};
  FrameToSend send = VideoFrame(frame);
  send.keyFrame = true;
  send.frameNumber = 7;
  send.timestamp = 99;
  uint32_t sequence = 0xFFFFFFFF;
  const Datagrams datagrams = Fragment(send, sequence, 5'000'999);
  ASSERT_EQ(datagrams.size(), 2U);
  EXPECT_EQ(sequence, 1U);
  EXPECT_EQ(datagrams[0].size(), 27U);
  EXPECT_EQ(datagrams[1].size(), 1464U);

  const auto data = ParseDatagram(datagrams[0]);
  ASSERT_TRUE(data);
  EXPECT_EQ(data->header.flags, 0x07);
  EXPECT_EQ(data->header.sequence, 0xFFFFFFFF);
  EXPECT_EQ(data->header.frameNumber, 7);
  EXPECT_EQ(data->header.timestamp, 99U);
  EXPECT_EQ(data->header.fragmentCount, 2);
  EXPECT_EQ(data->sendTimeMicros, 5'000U);

  const auto parity = ParseDatagram(datagrams[1]);
  ASSERT_TRUE(parity);
  EXPECT_EQ(parity->header.flags, 0x05);
  EXPECT_EQ(parity->header.sequence, 0U);
  EXPECT_EQ(parity->header.fragmentIndex, 1);
  EXPECT_EQ(parity->lastFragmentLength, 1);
}

TEST(FragmentFrame, FragmentsAreInOrderAndTheLastHasTheRest) {
  const std::vector<std::byte> frame = SomeFrame(254 * 1440);  // (K-1) x 1440 exceeds 16 bits
  uint32_t sequence = 10;
  const Datagrams datagrams =
      Fragment(VideoFrame(std::span(frame).first(253 * 1440 + 5)), sequence);
  ASSERT_EQ(datagrams.size(), 255U);
  EXPECT_EQ(sequence, 265U);
  size_t at = 0;
  for (size_t i = 0; i < datagrams.size(); ++i) {
    const auto parsed = ParseDatagram(datagrams[i]);
    ASSERT_TRUE(parsed) << i;
    EXPECT_EQ(parsed->header.fragmentIndex, i);
    EXPECT_EQ(parsed->header.sequence, 10 + i);
    if (parsed->parity) {
      EXPECT_EQ(parsed->lastFragmentLength, 5);
      continue;
    }
    EXPECT_EQ(parsed->payload.size(), i == 253 ? 5U : 1440U);
    EXPECT_TRUE(std::equal(parsed->payload.begin(), parsed->payload.end(), frame.begin() + at));
    at += parsed->payload.size();
  }
}

TEST(FragmentFrame, LargeFramesGoWithoutParityAndAudioWithoutTrailer) {
  const std::vector<std::byte> large = SomeFrame(300 * 1440);
  uint32_t sequence = 0;
  const Datagrams video = Fragment(VideoFrame(large), sequence);
  ASSERT_EQ(video.size(), 300U);
  EXPECT_EQ(ParseDatagram(video[0])->header.flags, 0x02);

  FrameToSend audio;
  audio.streamType = StreamType::Audio;
  audio.data = std::span(large).first(2000);
  const Datagrams sound = Fragment(audio, sequence);
  ASSERT_EQ(sound.size(), 2U);
  EXPECT_EQ(sound[0].size(), 1462U);
  const auto last = ParseDatagram(sound[1]);
  ASSERT_TRUE(last);
  EXPECT_EQ(last->header.flags, 0);
  EXPECT_EQ(last->header.fragmentCount, 2);
  EXPECT_EQ(last->payload.size(), 560U);
}

TEST(FragmentFrame, RefusesWhatCannotBeFramed) {
  FrameToSend nothing;
  FrameGroup group = MakeFrameGroup(nothing);
  uint32_t sequence = 3;
  EXPECT_FALSE(FragmentFrame(nothing, sequence, 0, group));
  EXPECT_EQ(sequence, 3U);
  EXPECT_TRUE(group.Empty());
}

TEST(FrameGroup, TakesNoMoreThanItHasRoomFor) {
  FrameGroup group(true, 2, 1'000);
  group.Append(1'000);
  EXPECT_THROW(group.Append(1'100), std::length_error);
  group.Append(1'000);
  EXPECT_THROW(group.Append(1), std::length_error);
  EXPECT_EQ(group.DatagramCount(), 2U);
  EXPECT_EQ(group.Bytes(), 2'000U);
}

// ---- Repair ------------------------------------------------------------------------------------

// Everything that a receiver has of one frame, as blocks of the code.
class ReceivedFrame {
 public:
  explicit ReceivedFrame(std::span<const std::byte> frame) : frame_(frame) {
    uint32_t sequence = 0;
    for (const auto& bytes : Fragment(VideoFrame(frame), sequence)) {
      const auto parsed = ParseDatagram(bytes);
      std::vector<std::byte> block(parsed->payload.begin(), parsed->payload.end());
      block.resize(kFragmentBytes);
      blocks_.push_back(block);
    }
    dataCount_ = DataFragmentCount(frame.size());
  }

  size_t DataCount() const { return dataCount_; }
  size_t ParityCount() const { return blocks_.size() - dataCount_; }
  size_t BlockCount() const { return blocks_.size(); }

  // Whether the frame comes back whole when the blocks marked in `lost` are missing.
  bool RepairedWithout(const std::vector<bool>& lost) const {
    Datagrams memory;
    std::vector<uint8_t> indices;
    for (size_t i = 0; i < blocks_.size() && memory.size() < dataCount_; ++i) {
      if (lost[i]) continue;
      memory.push_back(blocks_[i]);
      indices.push_back(uint8_t(i));
    }
    if (memory.size() < dataCount_) return false;
    std::vector<CodeBlock> code;
    for (size_t i = 0; i < memory.size(); ++i) code.push_back({memory[i].data(), indices[i]});
    return RecoverBlocks(code, ParityCount()) && IsTheFrame(code);
  }

 private:
  bool IsTheFrame(const std::vector<CodeBlock>& code) const {
    std::vector<bool> seen(dataCount_);
    for (const CodeBlock& block : code) {
      if (block.index >= dataCount_ || seen[block.index]) return false;
      seen[block.index] = true;
      const size_t at = block.index * kFragmentBytes;
      const size_t length = std::min(kFragmentBytes, frame_.size() - at);
      if (!std::equal(block.data, block.data + length, frame_.begin() + at)) return false;
    }
    return true;
  }

  std::span<const std::byte> frame_;
  Datagrams blocks_;
  size_t dataCount_ = 0;
};

TEST(Repair, EveryLossUpToTheParityCountOfSmallFrames) {
  ASSERT_TRUE(BlockCodeAvailable());
  for (const size_t dataCount : {1, 2, 5, 10, 11, 13}) {
    const std::vector<std::byte> bytes = SomeFrame(dataCount * 1440 - 17, uint32_t(dataCount));
    const ReceivedFrame frame(bytes);
    for (uint32_t pattern = 0; pattern < 1U << frame.BlockCount(); ++pattern) {
      const size_t count = size_t(std::popcount(pattern));
      if (count > frame.ParityCount() + 1) continue;
      std::vector<bool> lost(frame.BlockCount());
      for (size_t i = 0; i < lost.size(); ++i) lost[i] = (pattern >> i & 1) != 0;
      EXPECT_EQ(frame.RepairedWithout(lost), count <= frame.ParityCount())
          << dataCount << " fragments, pattern " << pattern;
    }
  }
}

TEST(Repair, RandomLossesOfLargeFrames) {
  std::mt19937 random(20'261);
  for (const size_t dataCount : {64, 100, 231, 232, 254}) {
    const std::vector<std::byte> bytes = SomeFrame(dataCount * 1440 - 700, uint32_t(dataCount));
    const ReceivedFrame frame(bytes);
    for (int round = 0; round < 20; ++round) {
      std::vector<bool> lost(frame.BlockCount());
      std::fill_n(lost.begin(), frame.ParityCount(), true);
      std::shuffle(lost.begin(), lost.end(), random);
      EXPECT_TRUE(frame.RepairedWithout(lost)) << dataCount;
    }
  }
}

}  // namespace
}  // namespace Veldrift
