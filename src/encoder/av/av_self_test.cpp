#include <atomic>
#include <thread>

#include "encoder/av/av_encoder.h"
#include "encoder/platform_self_test.h"
#include "support/clock.h"

namespace Veldrift {
namespace {

constexpr int64_t kRaceNanos = 150 * kNanosPerMilli;

bool RaceCallback(std::string& result) {
  AvEncoder encoder;
  std::atomic<bool> stop{false};
  std::atomic<uint64_t> sets{0};
  std::atomic<uint64_t> calls{0};
  const EncodedUnit unit{{0, 0, 0, 1}, true, 0};
  std::thread setter([&] {
    for (; !stop; ++sets) {
      encoder.SetOutputCallback([&calls](const uint8_t*, uint64_t, bool, uint64_t) { ++calls; });
    }
  });
  std::thread caller([&] {
    while (!stop) encoder.Emit(unit);
  });
  SystemClock().SleepFor(kRaceNanos);
  stop = true;
  setter.join();
  caller.join();
  result = "callback set/invoke race ok: sets=" + std::to_string(sets) +
           " calls=" + std::to_string(calls);
  return sets > 0 && calls > 0;
}

}  // namespace

bool RunPlatformEncoderSelfTest(const std::string& name, std::string& result) {
  if (name == "P6.2") {
    result = "GPU-resident inactive — the libavcodec encoder converts and encodes on the CPU";
    return false;
  }
  return RaceCallback(result);
}

}  // namespace Veldrift
