// Scaling of a frame whose size differs from the configured one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Veldrift {

// A picture of BGRA whose rows are `strideBytes` apart; somebody else's memory.
struct BgraPicture {
  const uint8_t* pixels = nullptr;
  ptrdiff_t strideBytes = 0;
  int32_t width = 0;
  int32_t height = 0;
};

// Nearest-neighbour sampling at pixel centres: truncate((i + 0.5) x ratio) on both axes. Keeps its
// tables: with sizes that stay it allocates nothing.
//
// Threads: one at a time.
class NearestScaler {
 public:
  // The sizes of what follows; all sides are above 0.
  void SetSizes(int32_t sourceWidth, int32_t sourceHeight, int32_t width, int32_t height);

  // Rows `first` to `first + count` of the scaled picture of `source`, packed, into `out`.
  void ScaleRows(const BgraPicture& source, int32_t first, int32_t count, uint32_t* out) const;

 private:
  // The source position of every position.
  struct Axis {
    void Set(int32_t newSource, int32_t newSize);

    int32_t source = 0;
    int32_t size = 0;
    std::vector<uint32_t> positions;
  };

  void ScaleRow(const uint8_t* row, uint32_t* out) const;

  Axis columns_;
  Axis rows_;
};

}  // namespace Veldrift
