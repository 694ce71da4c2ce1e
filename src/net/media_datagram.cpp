#include "net/media_datagram.h"

namespace Veldrift {

namespace {

constexpr size_t kHeadSampleRate = 0;
constexpr size_t kHeadChannels = 4;
constexpr size_t kHeadBits = 5;
constexpr size_t kHeadReserved = 7;

DatagramHeader ReadHeader(const std::byte* in) {
  DatagramHeader header;
  header.streamType = StreamType(std::to_integer<uint8_t>(in[HeaderOffset::kStreamType]));
  header.flags = std::to_integer<uint8_t>(in[HeaderOffset::kFlags]);
  header.frameNumber = GetU16(in + HeaderOffset::kFrameNumber);
  header.sequence = GetU32(in + HeaderOffset::kSequence);
  header.timestamp = GetU32(in + HeaderOffset::kTimestamp);
  header.fragmentIndex = GetU16(in + HeaderOffset::kFragmentIndex);
  header.fragmentCount = GetU16(in + HeaderOffset::kFragmentCount);
  header.payloadLength = GetU16(in + HeaderOffset::kPayloadLength);
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
