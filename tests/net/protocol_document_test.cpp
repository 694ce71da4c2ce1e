// The datagrams and the block code on docs/protocol.md's page, made and read.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "net/block_code.h"
#include "net/framing.h"
#include "tests/support/document.h"
#include "tools/receiver/frame_assembler.h"

namespace Veldrift {
namespace {

using Bytes = std::vector<std::byte>;

Bytes ToBytes(const std::string& text) {
  const auto bytes = std::as_bytes(std::span(text));
  return {bytes.begin(), bytes.end()};
}

// The frames that the page tells of, and the marker of each of their datagrams that it shows.
struct Example {
  const char* name;
  FrameToSend frame;  // without its data
  Bytes data;
  uint32_t sequence;
  int64_t cutAtNanos;
  std::vector<std::pair<size_t, const char*>> shown;
};

Bytes SoundBlock() {
  Bytes block(kAudioHeadBytes + 4 * sizeof(float));
  const float samples[] = {0.5F, -0.5F, 0.25F, -1};
  WriteAudioHead({48'000, 2}, block.data());
  std::memcpy(block.data() + kAudioHeadBytes, samples, sizeof samples);
  return block;
}

Bytes TwoFragments() {
  Bytes data(1'440);
  for (const int last : {0x0A, 0x0B, 0x0C, 0x0D}) data.push_back(std::byte(last));
  return data;
}

std::vector<Example> Examples() {
  return {
      {"worked example",
       {StreamType::Video, true, 1, 258, 1'000'000, {}, true},
       ToBytes("Veldrift"),
       4'660,
       2'500'000'000,
       {{0, "Data fragment, whole"}, {1, "Parity fragment, its first 32 bytes"}}},
      {"two fragments",
       {StreamType::Video, false, ChooseParityCount(2), 7, 40'000, {}, true},
       TwoFragments(),
       300,
       5'000'000'000,
       {{0, "First data fragment, its first 24 bytes"},
        {1, "Second data fragment, whole"},
        {2, "Parity of the two, its first 32 bytes"}}},
      {"without parity",
       {StreamType::Video, true, ChooseParityCount(255), 8, 80'000, {}, true},
       Bytes(367'200),
       303,
       0,
       {{254, "A frame without parity"}}},
      {"sound",
       {StreamType::Audio, false, 0, 9, 50'000, {}, false},
       SoundBlock(),
       54,
       0,
       {{0, "A block of sound"}}},
  };
}

std::vector<Bytes> Fragment(const Example& example) {
  FrameToSend frame = example.frame;
  frame.data = example.data;
  uint32_t sequence = example.sequence;
  FrameGroup group = MakeFrameGroup(frame);
  EXPECT_TRUE(FragmentFrame(frame, sequence, example.cutAtNanos, group));
  std::vector<Bytes> datagrams;
  group.ForEach([&](std::span<const std::byte> datagram) {
    datagrams.emplace_back(datagram.begin(), datagram.end());
    return true;
  });
  return datagrams;
}

// The datagram on the page; zeros stand for what it leaves out.
Bytes Shown(const char* marker, size_t length) {
  Bytes bytes = ToBytes(BytesBehind(marker));
  bytes.resize(length);
  return bytes;
}

TEST(ProtocolDocument, ItsDatagramsAreWhatIsSent) {
  for (const Example& example : Examples()) {
    const std::vector<Bytes> sent = Fragment(example);
    for (const auto& [index, marker] : example.shown) {
      ASSERT_LT(index, sent.size()) << marker;
      const Bytes bytes = ToBytes(BytesBehind(marker));
      const bool whole = std::string(marker).ends_with(", whole");
      EXPECT_GE(bytes.size(), whole ? sent[index].size() : kDatagramHeaderBytes) << marker;
      const auto start = std::span(sent[index]).first(std::min(bytes.size(), sent[index].size()));
      EXPECT_EQ(bytes, Bytes(start.begin(), start.end())) << marker;
    }
  }
}

// Expects the example's frame of these datagrams.
void ExpectFrame(const Example& example, std::span<const Bytes> datagrams) {
  SCOPED_TRACE(example.name);
  std::vector<WholeFrame> frames;
  FrameAssembler assembler(example.frame.streamType, {},
                           [&](WholeFrame&& frame) { frames.push_back(std::move(frame)); });
  for (const Bytes& datagram : datagrams) assembler.Add(datagram, 0);
  ASSERT_EQ(frames.size(), 1U);
  EXPECT_EQ(frames[0].data, example.data);
  EXPECT_EQ(frames[0].frameNumber, example.frame.frameNumber);
  EXPECT_EQ(frames[0].timestamp, example.frame.timestamp);
  EXPECT_EQ(frames[0].keyFrame, example.frame.keyFrame);
  EXPECT_EQ(assembler.Counters().violations, 0U);
}

TEST(ProtocolDocument, ItsDatagramsAreReadAsTheirFrames) {
  for (const Example& example : Examples()) {
    std::vector<Bytes> datagrams = Fragment(example);
    for (const auto& [index, marker] : example.shown) {
      datagrams.at(index) = Shown(marker, datagrams[index].size());
    }
    const size_t needed = DataFragmentCount(example.data.size());
    ExpectFrame(example, std::span(datagrams).first(needed));
    ExpectFrame(example, std::span(datagrams).last(needed));  // repaired, where there is parity
  }
}

// Where data block j is a 1 at place j and zeros, recovery block i has the factors of row i.
TEST(ProtocolDocument, TheRowsOfItsMatrixAreTheBlockCodes) {
  for (const auto& [dataCount, marker] :
       {std::pair{size_t{3}, "the exclusive or of all"}, std::pair{size_t{11}, "and for K = 11"}}) {
    Bytes data(dataCount * kFragmentBytes), parity(2 * kFragmentBytes);
    for (size_t j = 0; j < dataCount; ++j) data[j * kFragmentBytes + j] = std::byte{1};
    ASSERT_TRUE(EncodeParity(data, 2, parity.data()));
    const std::vector<DocumentLine> rows = BlockBehind(marker);
    ASSERT_EQ(rows.size(), 2U);
    for (size_t i = 0; i < 2; ++i) {
      const std::byte* row = parity.data() + i * kFragmentBytes;
      EXPECT_EQ(ToBytes(rows[i].bytes), Bytes(row, row + dataCount)) << dataCount << ", row " << i;
    }
  }
}

}  // namespace
}  // namespace Veldrift
