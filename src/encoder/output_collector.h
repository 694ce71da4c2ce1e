// What a transform gives, made into the stream's access units.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

#include "encoder/encoder_transform.h"
#include "encoder/frame_times.h"
#include "encoder/output_port.h"
#include "encoder/unit_assembler.h"

namespace Veldrift {

// Belongs to one transform's life. Units are posted to the port, and not emitted.
//
// Threads: one at a time.
class OutputCollector final : public TransformOutputSink {
 public:
  OutputCollector(int32_t codec, std::shared_ptr<OutputPort> port)
      : port_(std::move(port)), assembler_(codec) {}

  // A frame of the transform's time `time` came with the time `given`, which its unit gets back.
  void NoteInput(int64_t time, uint64_t given) { times_.Put(time, given); }

  // Reads the parameter sets anew from the type of the transform's output.
  void ReadHeader(EncoderTransform& transform) {
    assembler_.ReadHeader(transform.SequenceHeader());
  }
  size_t ParameterSetBytes() const { return assembler_.ParameterSetBytes(); }

  void OnOutput(ByteSpan data, bool marked, std::optional<int64_t> time) override;

 private:
  const std::shared_ptr<OutputPort> port_;
  UnitAssembler assembler_;
  FrameTimes times_;
};

// Takes out all that a synchronous transform has, and goes along with changes of its output: with 8
// of them at most.
void DrainOutput(EncoderTransform& transform, OutputCollector& collector);

}  // namespace Veldrift
