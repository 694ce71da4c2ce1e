// Anything in place of an encoder's output and of what it gives beside the stream.
#include <algorithm>
#include <cstdlib>
#include <vector>

#include "encoder/annex_b.h"
#include "encoder/unit_assembler.h"

using namespace Veldrift;

namespace {

void CheckAssembly(ByteSpan header, ByteSpan input, int32_t codec, bool marked) {
  UnitAssembler assembler(codec);
  assembler.ReadHeader(header);
  const size_t sets = assembler.ParameterSetBytes();
  EncodedUnit unit;
  assembler.Assemble(input, marked, unit);
  // Sets that a stream brings are the newest.
  const size_t room = std::max(sets, assembler.ParameterSetBytes()) + input.size();
  if (unit.data.size() > room) std::abort();
  if (unit.keyFrame && !marked && !ContainsKeyFrame(unit.data, codec)) std::abort();
  if (marked && !unit.keyFrame) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const ByteSpan input(data, size);
  for (const int32_t codec : {0, 1}) {
    for (const bool marked : {false, true}) {
      CheckAssembly(input, input, codec, marked);
      CheckAssembly({}, input, codec, marked);
    }
    static_cast<void>(FindParameterSets(input, codec));
  }
  return 0;
}
