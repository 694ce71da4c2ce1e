// From pictures to finished outputs: the codec with the properties' rates, the key frames that they
// ask for, and the form in which the traits want the units.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>

#include "tests/transforms/module/codec.h"
#include "tests/transforms/module/codec_properties.h"
#include "tests/transforms/module/traits.h"

namespace Veldrift::Transforms {

struct Output {
  Bytes bytes;
  bool keyFrame = false;
  bool newSets = false;  // the parameter sets are others than those announced
  LONGLONG time = 0;
  LONGLONG duration = 0;
};

// Threads: any.
class Encoding {
 public:
  Encoding(const Traits& traits, CodecProperties& properties)
      : traits_(traits), properties_(properties) {}

  // Begins anew with pictures of this size.
  void SetSize(const CodecSize& size);

  // The sequence header as the traits want it, empty without a codec. What the properties say of
  // the rates is in it, as long as no frame has been encoded.
  Bytes SequenceHeader();

  // False: the codec can't be had or failed.
  bool Encode(const Picture& picture, FrameOrder order, Output& output);

 private:
  bool Prepare(const FrameOrder& order);
  bool Reopen(const Rates& rates);
  bool SetsHaveToBeTold() const;
  Bytes Finish(const CodedFrame& coded) const;

  const Traits& traits_;
  CodecProperties& properties_;
  std::mutex mutex_;
  // Guarded by mutex_.
  CodecSize size_;
  std::unique_ptr<Codec> codec_;
  std::vector<Bytes> setsBefore_;
  uint32_t sinceKey_ = 0;
  bool begun_ = false;
};

}  // namespace Veldrift::Transforms
