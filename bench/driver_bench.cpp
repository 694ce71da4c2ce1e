// What drives an encoder transform costs beside the transform: the way in, the way out, memory, and
// an opening. The transforms here cost nothing.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "bench/allocation_count.h"
#include "bench/driver_rig.h"
#include "bench/free_transform.h"
#include "bench/ratios.h"
#include "encoder/annex_b.h"

namespace Veldrift {
namespace {

constexpr double kNanos = 1e9;
constexpr double kMicroNanos = 1e3;
constexpr int kWarmUp = 70;  // more than a group of pictures

enum class Way { Synchronous, Asynchronous };

// At 30 Mbit/s and 60 frames a second, and what four times the pixels come to.
size_t UnitBytes(int64_t height) { return height > 1080 ? 340'000 : 60'000; }

DriverRig::Options RigOf(const benchmark::State& state, Way way) {
  DriverRig::Options options;
  options.makePlatform = FreePlatforms(way == Way::Asynchronous, UnitBytes(state.range(0)));
  options.height = static_cast<int32_t>(state.range(0));
  return options;
}

bool WarmUp(DriverRig& rig) {
  FrameCost cost;
  bool works = rig.Configure() >= 0;
  for (int i = 0; works && i < kWarmUp; ++i) works = rig.Encode(cost);
  return works;
}

// `part` of each frame is what counts. Beside the time: what was allocated a frame, in which share
// of the frames (every 25th is described in the log), and what the conversion took.
void RunFrames(benchmark::State& state, Way way, int64_t FrameCost::*part) {
  DriverRig rig(RigOf(state, way));
  if (!WarmUp(rig)) return state.SkipWithError("nothing comes out");
  std::vector<int64_t> times, conversions, allocations;
  for (auto* values : {&times, &conversions, &allocations}) values->reserve(state.max_iterations);
  for (auto _ : state) {
    FrameCost cost;
    const uint64_t before = AllocationCount();
    if (!rig.Encode(cost)) return state.SkipWithError("a frame got lost");
    allocations.push_back(static_cast<int64_t>(AllocationCount() - before));
    times.push_back(cost.*part);
    conversions.push_back(cost.conversion);
    state.SetIterationTime(static_cast<double>(cost.*part) / kNanos);
  }
  const auto frames = static_cast<double>(times.size());
  const auto total = std::accumulate(allocations.begin(), allocations.end(), int64_t{0});
  const auto free = std::count(allocations.begin(), allocations.end(), 0);
  state.counters["allocs"] = static_cast<double>(total) / frames;
  state.counters["allocating"] = 1 - static_cast<double>(free) / frames;
  state.counters["p50_us"] = Percentile(times, 0.5) / kMicroNanos;
  state.counters["p99_us"] = Percentile(times, 0.99) / kMicroNanos;
  state.counters["convert_us"] = Percentile(conversions, 0.5) / kMicroNanos;
}

void BM_SyncToInput(benchmark::State& state) {
  RunFrames(state, Way::Synchronous, &FrameCost::toInput);
}
void BM_SyncToCallback(benchmark::State& state) {
  RunFrames(state, Way::Synchronous, &FrameCost::toCallback);
}
void BM_AsyncToInput(benchmark::State& state) {
  RunFrames(state, Way::Asynchronous, &FrameCost::toInput);
}
void BM_AsyncToCallback(benchmark::State& state) {
  RunFrames(state, Way::Asynchronous, &FrameCost::toCallback);
}

// What the way out can't be below: the unit is copied once, from memory that others use too.
void BM_UnitCopy(benchmark::State& state) {
  const std::vector<uint8_t> unit(UnitBytes(state.range(0)), 0x42);
  std::vector<uint8_t> copy(unit.size());
  for (auto _ : state) {
    std::memcpy(copy.data(), unit.data(), unit.size());
    benchmark::ClobberMemory();
  }
}

// The one look at every byte of a unit that the way out takes.
void BM_KeyFrameSearch(benchmark::State& state) {
  std::vector<uint8_t> unit(UnitBytes(state.range(0)));
  std::mt19937 random(1);
  for (uint8_t& byte : unit) byte = static_cast<uint8_t>(random() % 255 + 1);
  for (auto _ : state) benchmark::DoNotOptimize(ContainsKeyFrame(unit, kCodecH264));
}

// Anew while one is open, as every change that rebuilds does it.
void RunConfigure(benchmark::State& state, Way way) {
  DriverRig rig(RigOf(state, way));
  if (!WarmUp(rig)) return state.SkipWithError("nothing comes out");
  for (auto _ : state) {
    const int64_t nanos = rig.Configure();
    if (nanos < 0) return state.SkipWithError("it doesn't open");
    state.SetIterationTime(static_cast<double>(nanos) / kNanos);
  }
}
void BM_SyncConfigure(benchmark::State& state) { RunConfigure(state, Way::Synchronous); }
void BM_AsyncConfigure(benchmark::State& state) { RunConfigure(state, Way::Asynchronous); }

void Frames(benchmark::internal::Benchmark* bench) {
  bench->Arg(1080)->Arg(2160)->Iterations(400)->UseManualTime()->Unit(benchmark::kMicrosecond);
}
BENCHMARK(BM_SyncToInput)->Apply(Frames);
BENCHMARK(BM_SyncToCallback)->Apply(Frames);
BENCHMARK(BM_AsyncToInput)->Apply(Frames);
BENCHMARK(BM_AsyncToCallback)->Apply(Frames);
BENCHMARK(BM_UnitCopy)->Arg(1080)->Arg(2160)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_KeyFrameSearch)->Arg(1080)->Arg(2160)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_SyncConfigure)->Apply(Frames);
BENCHMARK(BM_AsyncConfigure)->Apply(Frames);

const int kRatios = [] {
  for (const std::string size : {"1080", "2160"}) {
    const std::string conversion = "BM_ColourAvx2/" + size;
    PrintRatio({"AVX2 / EncodeFrame to input, sync, " + size, conversion, "BM_SyncToInput/" + size,
                "at least 100"});
    PrintRatio(
        {"AVX2 / EncodeFrame to input, async, " + size, conversion, "BM_AsyncToInput/" + size, ""});
    const std::string copy = "BM_UnitCopy/" + size;
    PrintRatio(
        {"output to callback / memcpy, sync, " + size, "BM_SyncToCallback/" + size, copy, ""});
    PrintRatio(
        {"output to callback / memcpy, async, " + size, "BM_AsyncToCallback/" + size, copy, ""});
  }
  return 0;
}();

}  // namespace
}  // namespace Veldrift
