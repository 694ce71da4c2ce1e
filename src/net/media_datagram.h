// The one layout of every UDP datagram, video and audio. docs/protocol.md tells it to people who
// write receivers, with a worked example. All fields are little-endian and packed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "support/little_endian.h"

namespace Veldrift {

inline constexpr size_t kFragmentBytes = 1440;        // payload, and block of the block code
inline constexpr size_t kMaxFragments = 65'535;       // data and parity of one frame
inline constexpr size_t kMaxFrameBytes = 94'370'400;  // kMaxFragments * kFragmentBytes
inline constexpr size_t kMaxParityFragments = 63;     // six bits of the flags
inline constexpr size_t kMaxCodeBlocks = 255;         // data and parity of a frame with parity
inline constexpr uint16_t kVideoPort = 47101;         // on the phone
inline constexpr uint16_t kAudioPort = 47102;

inline constexpr size_t kDatagramHeaderBytes = 22;
inline constexpr size_t kSendTimeBytes = 4;
inline constexpr size_t kParityPayloadBytes = 2 + kFragmentBytes;
inline constexpr size_t kMaxDatagramBytes = kDatagramHeaderBytes + kFragmentBytes + kSendTimeBytes;

inline constexpr uint32_t kDatagramMagic = 0x02564456;  // "VDV" and the format version 2

enum class StreamType : uint8_t { Video = 1, Audio = 2 };

inline constexpr uint8_t kFlagKeyFrame = 1;
inline constexpr uint8_t kFlagSendTime = 2;
inline constexpr int kFlagParityShift = 2;  // bits 2 to 7: the frame's parity count

// The header, offsets 0 to 21, behind the magic.
struct DatagramHeader {
  StreamType streamType = StreamType::Video;
  uint8_t flags = 0;
  uint16_t frameNumber = 0;
  uint32_t sequence = 0;
  uint32_t timestamp = 0;      // microseconds
  uint16_t fragmentIndex = 0;  // data 0 to K-1, parity K to K+M-1
  uint16_t fragmentCount = 0;  // K+M
  uint16_t payloadLength = 0;  // bytes behind the header, without the trailer

  bool KeyFrame() const { return (flags & kFlagKeyFrame) != 0; }
  size_t ParityCount() const { return flags >> kFlagParityShift; }
};

// Where its fields stand.
namespace HeaderOffset {
inline constexpr size_t kStreamType = 4;
inline constexpr size_t kFlags = 5;
inline constexpr size_t kFrameNumber = 6;
inline constexpr size_t kSequence = 8;
inline constexpr size_t kTimestamp = 12;
inline constexpr size_t kFragmentIndex = 16;
inline constexpr size_t kFragmentCount = 18;
inline constexpr size_t kPayloadLength = 20;
}  // namespace HeaderOffset

// A datagram taken apart; the spans point into it.
struct MediaDatagram {
  DatagramHeader header;
  bool parity = false;
  std::span<const std::byte> payload;      // a piece of the frame, or one recovery block
  uint16_t lastFragmentLength = 0;         // parity only
  std::optional<uint32_t> sendTimeMicros;  // video data only
};

// Writes the header's 22 bytes to `out`. Here, since each of a frame's datagrams passes it.
inline void WriteDatagramHeader(const DatagramHeader& header, std::byte* out) {
  PutU32(out, kDatagramMagic);
  out[HeaderOffset::kStreamType] = std::byte(header.streamType);
  out[HeaderOffset::kFlags] = std::byte(header.flags);
  PutU16(out + HeaderOffset::kFrameNumber, header.frameNumber);
  PutU32(out + HeaderOffset::kSequence, header.sequence);
  PutU32(out + HeaderOffset::kTimestamp, header.timestamp);
  PutU16(out + HeaderOffset::kFragmentIndex, header.fragmentIndex);
  PutU16(out + HeaderOffset::kFragmentCount, header.fragmentCount);
  PutU16(out + HeaderOffset::kPayloadLength, header.payloadLength);
}

// Takes a datagram apart. Nothing for one that no sender of this format makes: wrong magic or
// stream, lengths that don't add up, an index outside the count, parity of another length.
std::optional<MediaDatagram> ParseDatagram(std::span<const std::byte> bytes);

// Datagrams that may go now, in order; and how many of them, with how many bytes, were taken.
using Datagrams = std::span<const std::span<const std::byte>>;
struct DatagramsTaken {
  size_t count = 0;
  uint64_t bytes = 0;
};

// The head of an audio block, its first 8 bytes; float samples follow, interleaved.
inline constexpr size_t kAudioHeadBytes = 8;
inline constexpr uint16_t kAudioBitsPerSample = 32;
struct AudioBlockHead {
  uint32_t sampleRate = 0;  // Hz
  uint8_t channels = 0;
};
void WriteAudioHead(const AudioBlockHead& head, std::byte* out);
std::optional<AudioBlockHead> ParseAudioHead(std::span<const std::byte> block);

}  // namespace Veldrift
