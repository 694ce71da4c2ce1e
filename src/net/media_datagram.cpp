#include "net/media_datagram.h"

#include <cstring>

#include "support/little_endian.h"

namespace Veldrift {

namespace {

// Of the header's fields behind the magic.
constexpr size_t kStreamType = 4;
constexpr size_t kFlags = 5;
constexpr size_t kFrameNumber = 6;
constexpr size_t kSequence = 8;
constexpr size_t kTimestamp = 12;
constexpr size_t kFragmentIndex = 16;
constexpr size_t kFragmentCount = 18;
constexpr size_t kPayloadLength = 20;

constexpr size_t kHeadSampleRate = 0;
constexpr size_t kHeadChannels = 4;
constexpr size_t kHeadBits = 5;
constexpr size_t kHeadReserved = 7;

DatagramHeader ReadHeader(const std::byte* in) {
  DatagramHeader header;
  header.streamType = StreamType(std::to_integer<uint8_t>(in[kStreamType]));
  header.flags = std::to_integer<uint8_t>(in[kFlags]);
  header.frameNumber = GetU16(in + kFrameNumber);
  header.sequence = GetU32(in + kSequence);
  header.timestamp = GetU32(in + kTimestamp);
  header.fragmentIndex = GetU16(in + kFragmentIndex);
  header.fragmentCount = GetU16(in + kFragmentCount);
  header.payloadLength = GetU16(in + kPayloadLength);
  return header;
}

bool HeaderIsPossible(const DatagramHeader& header) {
  const size_t parityCount = header.ParityCount();
  if (header.streamType == StreamType::Audio) {
    if (header.flags != 0) return false;
  } else if (header.streamType != StreamType::Video) {
    return false;
  }
  if (header.fragmentCount <= parityCount || header.fragmentIndex >= header.fragmentCount) {
    return false;
  }
  return parityCount == 0 || header.fragmentCount <= kMaxCodeBlocks;
}

std::optional<MediaDatagram> ParseParity(MediaDatagram datagram, std::span<const std::byte> body) {
  if (datagram.header.payloadLength != kParityPayloadBytes || body.size() != kParityPayloadBytes ||
      (datagram.header.flags & kFlagSendTime) != 0) {
    return std::nullopt;
  }
  datagram.parity = true;
  datagram.lastFragmentLength = GetU16(body.data());
  if (datagram.lastFragmentLength == 0 || datagram.lastFragmentLength > kFragmentBytes) {
    return std::nullopt;
  }
  datagram.payload = body.subspan(2);
  return datagram;
}

std::optional<MediaDatagram> ParseData(MediaDatagram datagram, size_t dataCount,
                                       std::span<const std::byte> body) {
  const DatagramHeader& header = datagram.header;
  const bool withSendTime = (header.flags & kFlagSendTime) != 0;
  const size_t length = header.payloadLength;
  const bool last = header.fragmentIndex + 1U == dataCount;
  if (length == 0 || length > kFragmentBytes || (!last && length != kFragmentBytes) ||
      body.size() != length + (withSendTime ? kSendTimeBytes : 0)) {
    return std::nullopt;
  }
  datagram.payload = body.first(length);
  if (withSendTime) datagram.sendTimeMicros = GetU32(body.data() + length);
  return datagram;
}

}  // namespace

void WriteDatagramHeader(const DatagramHeader& header, std::byte* out) {
  PutU32(out, kDatagramMagic);
  out[kStreamType] = std::byte(header.streamType);
  out[kFlags] = std::byte(header.flags);
  PutU16(out + kFrameNumber, header.frameNumber);
  PutU32(out + kSequence, header.sequence);
  PutU32(out + kTimestamp, header.timestamp);
  PutU16(out + kFragmentIndex, header.fragmentIndex);
  PutU16(out + kFragmentCount, header.fragmentCount);
  PutU16(out + kPayloadLength, header.payloadLength);
}

FragmentHeaders::FragmentHeaders(const DatagramHeader& header) {
  WriteDatagramHeader(header, common_.data());
}

void FragmentHeaders::Write(uint32_t sequence, size_t fragmentIndex, size_t payloadLength,
                            std::byte* out) const {
  std::memcpy(out, common_.data(), common_.size());
  PutU32(out + kSequence, sequence);
  PutU16(out + kFragmentIndex, uint16_t(fragmentIndex));
  PutU16(out + kPayloadLength, uint16_t(payloadLength));
}

std::optional<MediaDatagram> ParseDatagram(std::span<const std::byte> bytes) {
  if (bytes.size() < kDatagramHeaderBytes || GetU32(bytes.data()) != kDatagramMagic) {
    return std::nullopt;
  }
  MediaDatagram datagram;
  datagram.header = ReadHeader(bytes.data());
  if (!HeaderIsPossible(datagram.header)) return std::nullopt;
  const size_t dataCount = datagram.header.fragmentCount - datagram.header.ParityCount();
  const std::span<const std::byte> body = bytes.subspan(kDatagramHeaderBytes);
  return datagram.header.fragmentIndex >= dataCount ? ParseParity(datagram, body)
                                                    : ParseData(datagram, dataCount, body);
}

void WriteAudioHead(const AudioBlockHead& head, std::byte* out) {
  PutU32(out + kHeadSampleRate, head.sampleRate);
  out[kHeadChannels] = std::byte(head.channels);
  PutU16(out + kHeadBits, kAudioBitsPerSample);
  out[kHeadReserved] = std::byte{0};
}

std::optional<AudioBlockHead> ParseAudioHead(std::span<const std::byte> block) {
  if (block.size() < kAudioHeadBytes || GetU16(block.data() + kHeadBits) != kAudioBitsPerSample) {
    return std::nullopt;
  }
  AudioBlockHead head;
  head.sampleRate = GetU32(block.data() + kHeadSampleRate);
  head.channels = std::to_integer<uint8_t>(block[kHeadChannels]);
  if (head.sampleRate == 0 || head.channels == 0) return std::nullopt;
  return head;
}

}  // namespace Veldrift
