// FragmentFrame against what it can't do without: the code's encoder and one copy of the frame.
#include <benchmark/benchmark.h>

#include <cm256cc/cm256.h>

#include <cstring>
#include <random>
#include <vector>

#include "bench/allocation_count.h"
#include "bench/ratios.h"
#include "net/framing.h"

namespace Veldrift {
namespace {

constexpr int kFragmentCounts[] = {1, 10, 100, 231, 400};

std::vector<std::byte> SomeFrame(size_t fragments) {
  std::mt19937 random(7);
  std::vector<std::byte> frame(fragments * kFragmentBytes);
  for (std::byte& byte : frame) byte = std::byte(random() & 0xFF);
  return frame;
}

void BM_EncodeAndCopy(benchmark::State& state) {
  const size_t fragments = size_t(state.range(0));
  std::vector<std::byte> frame = SomeFrame(fragments);
  const size_t parityCount = ChooseParityCount(fragments);
  std::vector<std::byte> copy(frame.size());
  std::vector<std::byte> parity(parityCount * kFragmentBytes);
  std::vector<CM256::cm256_block> blocks(fragments);
  for (size_t i = 0; i < fragments; ++i) {
    blocks[i] = {frame.data() + i * kFragmentBytes, uint8_t(i)};
  }
  CM256 codec;
  const CM256::cm256_encoder_params shape{int(fragments), int(parityCount), int(kFragmentBytes)};
  for (auto _ : state) {
    if (parityCount > 0) {
      benchmark::DoNotOptimize(codec.cm256_encode(shape, blocks.data(), parity.data()));
    }
    std::memcpy(copy.data(), frame.data(), frame.size());
    benchmark::ClobberMemory();
  }
}

void BM_FragmentFrame(benchmark::State& state) {
  const std::vector<std::byte> bytes = SomeFrame(size_t(state.range(0)));
  FrameToSend frame;
  frame.data = bytes;
  frame.parityCount = ChooseParityCount(DataFragmentCount(bytes.size()));
  frame.withSendTime = true;
  uint32_t sequence = 0;
  uint64_t allocations = 0;
  for (auto _ : state) {
    const uint64_t before = AllocationCount();
    FrameGroup group = MakeFrameGroup(frame);
    benchmark::DoNotOptimize(FragmentFrame(frame, sequence, 0, group));
    benchmark::DoNotOptimize(group);
    allocations += AllocationCount() - before;
  }
  state.counters["allocations_a_frame"] =
      benchmark::Counter(double(allocations), benchmark::Counter::kAvgIterations);
}

void EachCount(benchmark::internal::Benchmark* bench) {
  for (const int count : kFragmentCounts) bench->Arg(count);
}
BENCHMARK(BM_EncodeAndCopy)->Apply(EachCount);
BENCHMARK(BM_FragmentFrame)->Apply(EachCount);

const int kRatios = [] {
  for (const int count : kFragmentCounts) {
    const std::string arg = "/" + std::to_string(count);
    PrintRatio({"FragmentFrame / encode and copy, " + std::to_string(count) + " fragments",
                "BM_FragmentFrame" + arg, "BM_EncodeAndCopy" + arg, "at most 1.2"});
  }
  return 0;
}();

}  // namespace
}  // namespace Veldrift
