#include "net/framing.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "net/block_code.h"
#include "support/clock.h"
#include "support/little_endian.h"

namespace Veldrift {

namespace {

// The block code's index is a byte: frames of more fragments go without.
constexpr size_t kMostProtectedFragments = 255;

bool SendsParity(size_t dataCount, size_t parityCount) {
  return parityCount > 0 && dataCount <= kMostProtectedFragments && BlockCodeAvailable();
}

size_t SendTimeBytes(const FrameToSend& frame) { return frame.withSendTime ? kSendTimeBytes : 0; }

// The last block of `data`, padded with zeros in memory of the calling thread where it is short.
const std::byte* LastBlock(std::span<const std::byte> rest) {
  if (rest.size() == kFragmentBytes) return rest.data();
  thread_local std::array<std::byte, kFragmentBytes> padded;
  std::memcpy(padded.data(), rest.data(), rest.size());
  std::memset(padded.data() + rest.size(), 0, kFragmentBytes - rest.size());
  return padded.data();
}

// The recovery blocks of `data`, end to end, in memory of the calling thread. The code reads whole
// blocks where they lie.
const std::byte* ComputeParity(std::span<const std::byte> data, size_t parityCount) {
  thread_local std::vector<std::byte> parity;
  thread_local std::array<const std::byte*, kMostProtectedFragments> blocks;
  const size_t dataCount = DataFragmentCount(data.size());
  for (size_t i = 0; i < dataCount; ++i) blocks[i] = data.data() + i * kFragmentBytes;
  blocks[dataCount - 1] = LastBlock(data.subspan((dataCount - 1) * kFragmentBytes));

  if (parity.size() < parityCount * kFragmentBytes) parity.resize(parityCount * kFragmentBytes);
  // Its refusals are excluded by the counts.
  (void)EncodeParity({blocks.data(), dataCount}, parityCount, parity.data());
  return parity.data();
}

void AppendData(const FrameToSend& frame, DatagramHeader header, size_t dataCount,
                uint32_t& sequence, uint32_t sendTimeMicros, FrameGroup& sink) {
  if (frame.withSendTime) header.flags = uint8_t(header.flags | kFlagSendTime);
  const FragmentHeaders headers(header);
  const size_t trailer = SendTimeBytes(frame);
  for (size_t i = 0; i < dataCount; ++i) {
    const size_t at = i * kFragmentBytes;
    const size_t length = std::min(kFragmentBytes, frame.data.size() - at);
    std::byte* out = sink.Append(kDatagramHeaderBytes + length + trailer);
    headers.Write(sequence++, i, length, out);
    std::memcpy(out + kDatagramHeaderBytes, frame.data.data() + at, length);
    if (trailer != 0) PutU32(out + kDatagramHeaderBytes + length, sendTimeMicros);
  }
}

void AppendParity(const std::byte* parity, const DatagramHeader& header, size_t dataCount,
                  size_t parityCount, size_t size, uint32_t& sequence, FrameGroup& sink) {
  const FragmentHeaders headers(header);
  const uint16_t lastFragmentLength = uint16_t(size - (dataCount - 1) * kFragmentBytes);
  for (size_t i = 0; i < parityCount; ++i) {
    std::byte* out = sink.Append(kDatagramHeaderBytes + kParityPayloadBytes);
    headers.Write(sequence++, dataCount + i, kParityPayloadBytes, out);
    PutU16(out + kDatagramHeaderBytes, lastFragmentLength);
    std::memcpy(out + kDatagramHeaderBytes + 2, parity + i * kFragmentBytes, kFragmentBytes);
  }
}

}  // namespace

size_t ChooseParityCount(size_t dataCount) {
  if (dataCount > kMostProtectedFragments) return 0;
  const size_t tenth = std::min((dataCount * 100 + 999) / 1000, kMaxParityFragments);
  if (dataCount + tenth <= kMaxCodeBlocks) return tenth;
  return kMaxCodeBlocks - dataCount;
}

size_t CountDatagrams(size_t size, size_t parityCount) {
  if (size < 1 || size > kMaxFrameBytes) return 0;
  const size_t dataCount = DataFragmentCount(size);
  const bool protectable = dataCount <= kMostProtectedFragments;
  if (dataCount + (protectable ? parityCount : 0) > kMaxFragments) return 0;
  return dataCount + (SendsParity(dataCount, parityCount) ? parityCount : 0);
}

FrameGroup MakeFrameGroup(const FrameToSend& frame) {
  const size_t datagrams = CountDatagrams(frame.data.size(), frame.parityCount);
  if (datagrams == 0) return {};
  const size_t longest = std::min(frame.data.size(), kFragmentBytes) + SendTimeBytes(frame);
  const bool withParity = datagrams > DataFragmentCount(frame.data.size());
  return {frame.streamType == StreamType::Video, datagrams,
          kDatagramHeaderBytes + (withParity ? std::max(longest, kParityPayloadBytes) : longest)};
}

bool FragmentFrame(const FrameToSend& frame, uint32_t& sequence, int64_t nowNanos,
                   FrameGroup& sink) {
  if (CountDatagrams(frame.data.size(), frame.parityCount) == 0) return false;
  const size_t dataCount = DataFragmentCount(frame.data.size());
  const size_t parityCount = dataCount > kMostProtectedFragments ? 0 : frame.parityCount;

  DatagramHeader header;
  header.streamType = frame.streamType;
  header.flags = uint8_t((frame.keyFrame ? kFlagKeyFrame : 0) | parityCount << kFlagParityShift);
  header.frameNumber = frame.frameNumber;
  header.timestamp = frame.timestamp;
  header.fragmentCount = uint16_t(dataCount + parityCount);

  AppendData(frame, header, dataCount, sequence, uint32_t(nowNanos / kNanosPerMicro), sink);
  if (SendsParity(dataCount, parityCount)) {
    AppendParity(ComputeParity(frame.data, parityCount), header, dataCount, parityCount,
                 frame.data.size(), sequence, sink);
  }
  return true;
}

}  // namespace Veldrift
