#include "net/media_datagram.h"

#include <gtest/gtest.h>

#include <vector>

namespace Veldrift {
namespace {

std::vector<std::byte> Bytes(std::initializer_list<int> values) {
  std::vector<std::byte> bytes;
  for (const int value : values) bytes.push_back(std::byte(value));
  return bytes;
}

// A whole key frame of three bytes with one parity fragment announced.
std::vector<std::byte> SmallDataFragment() {
  return Bytes({0x56, 0x44, 0x56, 0x02, 1,    0x07, 0x34, 0x12, 0x04, 0x03,
                0x02, 0x01, 0x0D, 0x0C, 0x0B, 0x0A, 0,    0,    2,    0,
                3,    0,    0xAA, 0xBB, 0xCC, 0x44, 0x33, 0x22, 0x11});
}

std::vector<std::byte> SmallParityFragment() {
  std::vector<std::byte> bytes =
      Bytes({0x56, 0x44, 0x56, 0x02, 1, 0x05, 0x34, 0x12, 0x05, 0x03, 0x02, 0x01,
             0x0D, 0x0C, 0x0B, 0x0A, 1, 0,    2,    0,    0xA2, 0x05, 3,    0});
  bytes.resize(bytes.size() + kFragmentBytes, std::byte{0x5A});
  return bytes;
}

TEST(MediaDatagram, HeaderIsWrittenByteByByte) {
  const DatagramHeader header{StreamType::Video, 0x07, 0x1234, 0x01020304, 0x0A0B0C0D, 0, 2, 3};
  std::vector<std::byte> written(kDatagramHeaderBytes);
  WriteDatagramHeader(header, written.data());
  const std::vector<std::byte> wanted = SmallDataFragment();
  EXPECT_TRUE(std::equal(written.begin(), written.end(), wanted.begin()));
}

TEST(MediaDatagram, DataAndParityComeApart) {
  const std::vector<std::byte> dataBytes = SmallDataFragment();
  const auto data = ParseDatagram(dataBytes);
  ASSERT_TRUE(data);
  EXPECT_FALSE(data->parity);
  EXPECT_TRUE(data->header.KeyFrame());
  EXPECT_EQ(data->header.ParityCount(), 1U);
  EXPECT_EQ(data->header.frameNumber, 0x1234);
  EXPECT_EQ(data->header.sequence, 0x01020304U);
  EXPECT_EQ(data->header.timestamp, 0x0A0B0C0DU);
  EXPECT_EQ(data->payload.size(), 3U);
  EXPECT_EQ(data->payload[2], std::byte{0xCC});
  EXPECT_EQ(data->sendTimeMicros, 0x11223344U);

  const std::vector<std::byte> parityBytes = SmallParityFragment();
  const auto parity = ParseDatagram(parityBytes);
  ASSERT_TRUE(parity);
  EXPECT_TRUE(parity->parity);
  EXPECT_EQ(parity->lastFragmentLength, 3);
  EXPECT_EQ(parity->payload.size(), kFragmentBytes);
  EXPECT_FALSE(parity->sendTimeMicros);
}

TEST(MediaDatagram, NothingIsTakenThatNoSenderMakes) {
  struct Case {
    const char* what;
    size_t at;
    int value;
    bool parity;
  };
  const Case cases[] = {
      {"magic", 0, 0x57, false},
      {"version", 3, 3, false},
      {"stream 0", 4, 0, false},
      {"stream 3", 4, 3, false},
      {"flags on audio", 4, 2, false},
      {"index at the count", 16, 2, false},
      {"index above the count", 17, 1, false},
      {"count 1 with parity 1", 18, 1, false},
      {"count above the code with parity", 19, 1, false},
      {"payload length 0", 20, 0, false},
      {"payload length too long", 20, 4, false},
      {"payload length too short", 20, 2, false},
      {"trailer missing", 5, 0x05, false},
      {"parity with a trailer flag", 5, 0x07, true},
      {"parity of another length", 20, 0xA1, true},
      {"last fragment of length 0", 22, 0, true},
      {"last fragment above a block", 23, 0x06, true},
  };
  for (const Case& bad : cases) {
    std::vector<std::byte> bytes = bad.parity ? SmallParityFragment() : SmallDataFragment();
    ASSERT_TRUE(ParseDatagram(bytes)) << bad.what;
    bytes[bad.at] = std::byte(bad.value);
    EXPECT_FALSE(ParseDatagram(bytes)) << bad.what;
  }
  for (size_t length = 0; length < SmallDataFragment().size(); ++length) {
    std::vector<std::byte> cut = SmallDataFragment();
    cut.resize(length);
    EXPECT_FALSE(ParseDatagram(cut)) << length;
  }
}

TEST(MediaDatagram, AudioHeadGoesThereAndBack) {
  std::vector<std::byte> head(kAudioHeadBytes);
  WriteAudioHead({48'000, 2}, head.data());
  EXPECT_EQ(head, Bytes({0x80, 0xBB, 0, 0, 2, 32, 0, 0}));
  const auto parsed = ParseAudioHead(head);
  ASSERT_TRUE(parsed);
  EXPECT_EQ(parsed->sampleRate, 48'000U);
  EXPECT_EQ(parsed->channels, 2);
  head[5] = std::byte{16};
  EXPECT_FALSE(ParseAudioHead(head));
  EXPECT_FALSE(ParseAudioHead(std::span(head).first(7)));
}

}  // namespace
}  // namespace Veldrift
