// Anything in place of an encoder's output and its parameter set records.
#include <cstdlib>
#include <vector>

#include "encoder/annex_b.h"

using namespace Veldrift;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const ByteSpan input(data, size);
  for (const int32_t codec : {0, 1}) {
    const std::vector<uint8_t> parameterSets = ParameterSetsFromHeader(input, codec);
    std::vector<uint8_t> unit;
    const bool keyFrame = AssembleAccessUnit(input, parameterSets, codec, false, unit);
    if (keyFrame && !ContainsKeyFrame(unit, codec)) std::abort();
    if (unit.size() > parameterSets.size() + size * 4) std::abort();
    static_cast<void>(FindParameterSets(unit, codec));
  }
  return 0;
}
