#include "net/framing.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "net/block_code.h"
#include "support/clock.h"
#include "support/little_endian.h"

namespace Veldrift {

namespace {

// The block code's index is a byte: frames of more fragments go without.
constexpr size_t kMostProtectedFragments = 255;

// What the header's flags can tell and the block code takes.
bool CanProtect(size_t dataCount, size_t parityCount) {
  if (parityCount == 0 || dataCount > kMostProtectedFragments) return true;
  return parityCount <= kMaxParityFragments && dataCount + parityCount <= kMaxCodeBlocks;
}

bool SendsParity(size_t dataCount, size_t parityCount) {
  return parityCount > 0 && dataCount <= kMostProtectedFragments && BlockCodeAvailable();
}

size_t SendTimeBytes(const FrameToSend& frame) { return frame.withSendTime ? kSendTimeBytes : 0; }

// Memory of the calling thread for `parityCount` recovery blocks.
std::byte* ParityScratch(size_t parityCount) {
  thread_local std::vector<std::byte> scratch;
  if (scratch.size() < parityCount * kFragmentBytes) scratch.resize(parityCount * kFragmentBytes);
  return scratch.data();
}

// Begins a datagram with what is its own in the frame's header; answers where its payload goes.
std::byte* AppendHeader(DatagramHeader& header, size_t fragmentIndex, size_t payloadLength,
                        size_t trailer, uint32_t& sequence, FrameGroup& sink) {
  header.sequence = sequence++;
  header.fragmentIndex = uint16_t(fragmentIndex);
  header.payloadLength = uint16_t(payloadLength);
  std::byte* out = sink.Append(kDatagramHeaderBytes + payloadLength + trailer);
  WriteDatagramHeader(header, out);
  return out + kDatagramHeaderBytes;
}

void AppendData(const FrameToSend& frame, DatagramHeader header, size_t dataCount,
                uint32_t& sequence, uint32_t sendTimeMicros, FrameGroup& sink) {
  if (frame.withSendTime) header.flags = uint8_t(header.flags | kFlagSendTime);
  const size_t trailer = SendTimeBytes(frame);
  for (size_t i = 0; i < dataCount; ++i) {
    const size_t at = i * kFragmentBytes;
    const size_t length = std::min(kFragmentBytes, frame.data.size() - at);
    std::byte* out = AppendHeader(header, i, length, trailer, sequence, sink);
    std::memcpy(out, frame.data.data() + at, length);
    if (trailer != 0) PutU32(out + length, sendTimeMicros);
  }
}

// The same for a parity fragment; answers where its block goes.
std::byte* AppendParityHead(DatagramHeader& header, size_t fragmentIndex,
                            uint16_t lastFragmentLength, uint32_t& sequence, FrameGroup& sink) {
  std::byte* out = AppendHeader(header, fragmentIndex, kParityPayloadBytes, 0, sequence, sink);
  PutU16(out, lastFragmentLength);
  return out + 2;
}

void AppendParity(const FrameToSend& frame, DatagramHeader header, size_t dataCount,
                  size_t parityCount, uint32_t& sequence, FrameGroup& sink) {
  const uint16_t last = uint16_t(frame.data.size() - (dataCount - 1) * kFragmentBytes);
  // What the code refuses is excluded by the counts.
  if (dataCount == 1 && parityCount == 1) {  // a copy: made where it is sent from
    (void)EncodeParity(frame.data, 1, AppendParityHead(header, 1, last, sequence, sink));
    return;
  }
  std::byte* parity = ParityScratch(parityCount);
  (void)EncodeParity(frame.data, parityCount, parity);
  for (size_t i = 0; i < parityCount; ++i) {
    std::memcpy(AppendParityHead(header, dataCount + i, last, sequence, sink),
                parity + i * kFragmentBytes, kFragmentBytes);
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
  if (!CanProtect(dataCount, parityCount)) return 0;
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
    AppendParity(frame, header, dataCount, parityCount, sequence, sink);
  }
  return true;
}

}  // namespace Veldrift
