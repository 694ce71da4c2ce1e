// The self test of what every encoder's output goes through.

#include <atomic>
#include <thread>

#include "encoder/output_port.h"
#include "encoder/platform_self_test.h"
#include "support/clock.h"

namespace Veldrift {
namespace {

constexpr int64_t kRaceNanos = 150 * kNanosPerMilli;

}  // namespace

bool RaceOutputPort(std::string& result) {
  OutputPort port;
  port.Open();
  std::atomic<bool> stop{false};
  std::atomic<uint64_t> sets{0};
  std::atomic<uint64_t> calls{0};
  std::thread setter([&] {
    for (; !stop; ++sets) {
      port.SetCallback([&calls](const uint8_t*, uint64_t, bool, uint64_t) { ++calls; });
    }
  });
  std::thread caller([&] {
    while (!stop) {
      port.Post({{0, 0, 0, 1}, true, 0});
      port.Emit();
    }
  });
  SystemClock().SleepFor(kRaceNanos);
  stop = true;
  setter.join();
  caller.join();
  result = "callback set/invoke race ok: sets=" + std::to_string(sets) +
           " calls=" + std::to_string(calls);
  return sets > 0 && calls > 0;
}

}  // namespace Veldrift
