// The pacer on the real clock: the rate that it reaches, its largest burst, its CPU time.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <deque>
#include <thread>
#include <utility>
#include <vector>

#include "net/media_datagram.h"
#include "net/pacer.h"
#include "tests/support/one_by_one.h"
#include "tools/platform/this_process.h"

namespace Veldrift {
namespace {

constexpr int64_t kRunNanos = 2 * kNanosPerSecond;
constexpr int64_t kWindowNanos = 20 * kNanosPerMilli;

struct Sent {
  int64_t nanos;
  size_t bytes;
};

// The most bytes that left within any window.
size_t LargestBurst(const std::vector<Sent>& sent) {
  size_t largest = 0, inside = 0, first = 0;
  for (const Sent& last : sent) {
    inside += last.bytes;
    while (last.nanos - sent[first].nanos > kWindowNanos) inside -= sent[first++].bytes;
    largest = std::max(largest, inside);
  }
  return largest;
}

// Keeps the queue filled with groups of 5 ms for as long as the run lasts.
void Feed(Pacer& pacer, const std::atomic<size_t>& pending, size_t datagrams, int64_t endNanos,
          std::atomic<size_t>& queued) {
  while (SteadyNanos() < endNanos) {
    if (queued - pending >= 3 * datagrams) {
      SystemClock().SleepFor(kNanosPerMilli / 2);
      continue;
    }
    FrameGroup group(true, datagrams, kMaxDatagramBytes);
    for (size_t i = 0; i < datagrams; ++i) {
      std::fill_n(group.Append(kMaxDatagramBytes), kMaxDatagramBytes, std::byte{1});
    }
    queued += datagrams;
    pacer.Enqueue(std::move(group));
  }
}

void BM_Pacer(benchmark::State& state) {
  const uint32_t rate = uint32_t(state.range(0)) * 1'000'000;
  const size_t datagrams = std::max<size_t>(1, rate / 8 / 200 / kMaxDatagramBytes);
  for (auto _ : state) {
    std::vector<Sent> sent;
    sent.reserve(size_t(rate) / 8 / kMaxDatagramBytes * 3);
    std::atomic<size_t> sentCount{0}, queued{0};
    Pacer pacer;
    pacer.SetBitrate(rate);
    const auto send = OneByOne([&](std::span<const std::byte> bytes) {
      sent.push_back({SteadyNanos(), bytes.size()});
      ++sentCount;
      return true;
    });
    const double cpuBefore = ProcessCpuSeconds();
    const int64_t start = SteadyNanos();
    pacer.Start(send, send);
    Feed(pacer, sentCount, datagrams, start + kRunNanos, queued);
    pacer.Stop();
    const double seconds = double(SteadyNanos() - start) / 1e9;
    const double cpu = ProcessCpuSeconds() - cpuBefore;

    size_t bytes = 0;
    for (const Sent& each : sent) bytes += each.bytes;
    const double bound = rate / 8.0 * 0.02 + std::max(rate / 8.0 * 0.02, double(kMaxDatagramBytes));
    state.SetIterationTime(seconds);
    state.counters["rate_error_percent"] = (double(bytes) * 8 / seconds / rate - 1) * 100;
    state.counters["largest_burst_of_bound"] = double(LargestBurst(sent)) / bound;
    state.counters["cpu_us_a_datagram"] = cpu * 1e6 / double(sent.size());
  }
}
BENCHMARK(BM_Pacer)->Arg(1)->Arg(10)->Arg(100)->Arg(300)->Arg(1000)->Iterations(1)->UseManualTime();

}  // namespace
}  // namespace Veldrift
