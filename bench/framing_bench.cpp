// FragmentFrame against what it can't do without: the code's encoder and one copy of the frame,
// into memory that is there already.
#include <benchmark/benchmark.h>

#include <cm256cc/cm256.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "bench/allocation_count.h"
#include "bench/ratios.h"
#include "net/framing.h"

namespace Veldrift {
namespace {

constexpr int kFragmentCounts[] = {1, 10, 100, 231, 400};

constexpr size_t kLine = 64;

// Bytes that begin on a cache line, so that no side is the faster for where its memory happens to
// lie.
class AlignedBytes {
 public:
  explicit AlignedBytes(size_t size) : memory_(size + kLine), size_(size) {}
  std::span<std::byte> Span() {
    void* start = memory_.data();
    size_t space = memory_.size();
    return {static_cast<std::byte*>(std::align(kLine, size_, start, space)), size_};
  }

 private:
  std::vector<std::byte> memory_;
  size_t size_;
};

// The same one for both sides.
std::span<const std::byte> SomeFrame(size_t fragments) {
  static AlignedBytes frame = [] {
    AlignedBytes bytes(std::ranges::max(kFragmentCounts) * kFragmentBytes);
    std::mt19937 random(7);
    for (std::byte& byte : bytes.Span()) byte = std::byte(random() & 0xFF);
    return bytes;
  }();
  return frame.Span().first(fragments * kFragmentBytes);
}

void BM_EncodeAndCopy(benchmark::State& state) {
  const size_t fragments = size_t(state.range(0));
  const std::span<const std::byte> frame = SomeFrame(fragments);
  const size_t parityCount = ChooseParityCount(fragments);
  AlignedBytes copy(frame.size()), parity(parityCount * kFragmentBytes);
  std::vector<CM256::cm256_block> blocks(fragments);
  for (size_t i = 0; i < fragments; ++i) {
    blocks[i] = {const_cast<std::byte*>(frame.data() + i * kFragmentBytes), uint8_t(i)};
  }
  CM256 codec;
  const CM256::cm256_encoder_params shape{int(fragments), int(parityCount), int(kFragmentBytes)};
  std::byte* const copyAt = copy.Span().data();
  std::byte* const parityAt = parity.Span().data();
  for (auto _ : state) {
    if (parityCount > 0) {
      benchmark::DoNotOptimize(codec.cm256_encode(shape, blocks.data(), parityAt));
    }
    std::memcpy(copyAt, frame.data(), frame.size());
    benchmark::DoNotOptimize(copyAt);
    benchmark::ClobberMemory();
  }
}

FrameToSend SomeVideo(size_t fragments) {
  FrameToSend frame;
  frame.data = SomeFrame(fragments);
  frame.parityCount = ChooseParityCount(fragments);
  frame.withSendTime = true;
  return frame;
}

// With the making of the group and its end, as a stream has it.
void BM_FragmentFrame(benchmark::State& state) {
  const FrameToSend frame = SomeVideo(size_t(state.range(0)));
  uint32_t sequence = 0;
  const uint64_t before = AllocationCount();
  for (auto _ : state) {
    FrameGroup group = MakeFrameGroup(frame);
    benchmark::DoNotOptimize(FragmentFrame(frame, sequence, 0, group));
    benchmark::DoNotOptimize(group);
  }
  state.counters["allocations_a_frame"] =
      benchmark::Counter(double(AllocationCount() - before), benchmark::Counter::kAvgIterations);
}

// Only the group of it.
void BM_MakeFrameGroup(benchmark::State& state) {
  const FrameToSend frame = SomeVideo(size_t(state.range(0)));
  for (auto _ : state) {
    FrameGroup group = MakeFrameGroup(frame);
    benchmark::DoNotOptimize(group);
  }
}

void EachCount(benchmark::internal::Benchmark* bench) {
  for (const int count : kFragmentCounts) bench->Arg(count);
}
BENCHMARK(BM_EncodeAndCopy)->Apply(EachCount);
BENCHMARK(BM_MakeFrameGroup)->Apply(EachCount);
BENCHMARK(BM_FragmentFrame)->Apply(EachCount);

const int kRatios = [] {
  for (const int count : kFragmentCounts) {
    const std::string arg = "/" + std::to_string(count);
    PrintRatio({"FragmentFrame / encode and copy, " + std::to_string(count) + " fragments",
                "BM_FragmentFrame" + arg, "BM_EncodeAndCopy" + arg, "at most 1.2"});
    PrintRatio(
        {"  of it the group's memory", "BM_MakeFrameGroup" + arg, "BM_EncodeAndCopy" + arg, ""});
  }
  return 0;
}();

}  // namespace
}  // namespace Veldrift
