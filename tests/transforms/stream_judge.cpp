#include "tests/transforms/stream_judge.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "tests/transforms/client/decoder.h"

namespace Veldrift::Transforms {
namespace {

int TypeOf(uint8_t first, bool hevc) { return hevc ? (first >> 1) & 63 : first & 31; }

std::vector<int> TypesBehindLengths(const std::vector<uint8_t>& bytes, bool hevc) {
  std::vector<int> types;
  size_t at = 0;
  while (at + 4 < bytes.size()) {
    const size_t length = size_t{bytes[at]} << 24 | size_t{bytes[at + 1]} << 16 |
                          size_t{bytes[at + 2]} << 8 | size_t{bytes[at + 3]};
    types.push_back(TypeOf(bytes[at + 4], hevc));
    at += 4 + length;
  }
  return at == bytes.size() ? types : std::vector<int>();
}

double MeanOf(const uint8_t* plane, int stride, int side) {
  double sum = 0;
  for (int y = 0; y < side; ++y) {
    for (int x = 0; x < side; ++x) sum += plane[y * stride + x];
  }
  return sum / (side * side);
}

bool IsPatch(const DecodedPicture& picture) {
  constexpr double kNear = 2.0;
  const auto isNear = [&](int plane, int side, uint8_t wanted) {
    return std::abs(MeanOf(picture.planes[plane], picture.strides[plane], side) - wanted) <= kNear;
  };
  // Short of its edges.
  constexpr int kInside = kPatchSide - 16;
  return isNear(0, kInside, kPatchLuma) && isNear(1, kInside / 2, kPatchCb) &&
         isNear(2, kInside / 2, kPatchCr);
}

double Psnr(const DecodedPicture& picture, int frame) {
  const std::vector<uint8_t> pushed = PictureAt(frame);
  double sum = 0.1;
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      const int difference = picture.planes[0][y * picture.strides[0] + x] -
                             pushed[static_cast<size_t>(y * kWidth + x)];
      sum += difference * difference;
    }
  }
  return 10 * std::log10(255.0 * 255.0 * kWidth * kHeight / sum);
}

void WINAPI Look(void* state, const DecodedPicture* picture) {
  Decoded& decoded = *static_cast<Decoded*>(state);
  decoded.damaged += picture->damaged;
  decoded.unlikeSignal += !picture->bt709Limited;
  if (picture->width != kWidth || picture->height != kHeight) {
    ++decoded.damaged;
    return;
  }
  decoded.unlikePatch += !IsPatch(*picture);
  decoded.worstPsnr = std::min(decoded.worstPsnr, Psnr(*picture, decoded.pictures++));
}

}  // namespace

std::vector<int> TypesOf(const std::vector<uint8_t>& bytes, bool hevc, bool lengths) {
  if (lengths) return TypesBehindLengths(bytes, hevc);
  std::vector<int> types;
  for (size_t at = 0; at + 3 < bytes.size(); ++at) {
    if (bytes[at] == 0 && bytes[at + 1] == 0 && bytes[at + 2] == 1) {
      types.push_back(TypeOf(bytes[at + 3], hevc));
    }
  }
  return types;
}

bool HasKeyPicture(const std::vector<int>& types, bool hevc) {
  return std::any_of(types.begin(), types.end(),
                     [hevc](int type) { return hevc ? type == 19 || type == 20 : type == 5; });
}

bool HasSets(const std::vector<int>& types, bool hevc) {
  const std::vector<int> wanted = hevc ? std::vector<int>{32, 33, 34} : std::vector<int>{7, 8};
  return std::all_of(wanted.begin(), wanted.end(), [&](int type) {
    return std::find(types.begin(), types.end(), type) != types.end();
  });
}

std::vector<int> KeyPictures(const std::vector<Unit>& units, bool hevc) {
  std::vector<int> numbers;
  for (size_t place = 0; place < units.size(); ++place) {
    if (HasKeyPicture(TypesOf(units[place].bytes, hevc), hevc)) {
      numbers.push_back(static_cast<int>(place));
    }
  }
  return numbers;
}

size_t TotalBytes(const std::vector<Unit>& units) {
  size_t total = 0;
  for (const Unit& unit : units) total += unit.bytes.size();
  return total;
}

Decoded Decode(const std::vector<uint8_t>& before, const std::vector<Unit>& units, bool hevc) {
  static const DecodeFunction decode = FindDecoder();
  std::vector<uint8_t> stream = before;
  for (const Unit& unit : units) stream.insert(stream.end(), unit.bytes.begin(), unit.bytes.end());
  Decoded decoded;
  if (!decode) {
    ADD_FAILURE() << "the module isn't beside the program, or exports no decoder";
    decoded.pictures = -1;
    return decoded;
  }
  const int pictures = decode(hevc, stream.data(), stream.size(), &Look, &decoded);
  if (pictures < 0) decoded.pictures = -1;
  return decoded;
}

}  // namespace Veldrift::Transforms
