// An encoder that costs nothing: it answers every frame with the same access unit, at once.
#pragma once

#include <cstdint>
#include <vector>

#include "tests/support/encoder_double.h"

namespace Veldrift {

class StubEncoder final : public EncoderDouble {
 public:
  explicit StubEncoder(size_t accessUnitBytes = 1) : accessUnit_(accessUnitBytes, 0x42) {}

  void EncodeFrame(const uint8_t*, uint32_t, uint32_t, int32_t, int64_t timestamp) override {
    Emit(accessUnit_.data(), accessUnit_.size(), uint64_t(timestamp));
  }

 private:
  const std::vector<uint8_t> accessUnit_;
};

}  // namespace Veldrift
