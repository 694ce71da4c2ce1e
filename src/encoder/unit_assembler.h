// What a codec gives, made into the access units of the stream.
#pragma once

#include <cstdint>
#include <vector>

#include "encoder/annex_b.h"
#include "encoder/output_port.h"

namespace Veldrift {

// Belongs to one opened codec: what that gives is read by the codec id that it was opened with,
// whatever has been chosen since.
//
// Sets that the codec gives beside the stream go in front of every key frame. From one that gives
// none there they are learned from its key frames, and go in front of those that lack them.
//
// Threads: one at a time.
class UnitAssembler {
 public:
  explicit UnitAssembler(int32_t codec) : codec_(codec) {}

  // Takes the sets from what the encoder gives beside the stream (ParameterSetsFromHeader), in
  // place of those before. They can change while the codec runs. An empty header has none.
  void ReadHeader(ByteSpan header);

  // Makes `data`, units behind start codes or lengths, an access unit; `marked` is the codec's own
  // word that it is a key frame. It is one if the codec says so or if one of its units is.
  // Key frames go out with the parameter sets in front, so that a phone can join at each of them.
  //
  // Every 25th unit of the process is described in the log, as the codec gave it: that tells a
  // stream without key frames from one without sets.
  void Assemble(ByteSpan data, bool marked, EncodedUnit& unit);

  size_t ParameterSetBytes() const { return parameterSets_.size(); }

 private:
  bool LearnSets(ByteSpan unit);

  const int32_t codec_;
  bool setsBesideStream_ = false;
  std::vector<uint8_t> parameterSets_;
};

}  // namespace Veldrift
