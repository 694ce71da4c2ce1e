#include "session/self_tests.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <string_view>
#include <thread>
#include <vector>

#include "encoder/encoder_pipeline.h"
#include "net/network_transport.h"
#include "platform/mutex.h"
#include "session/transmit_instance.h"
#include "support/clock.h"
#include "support/guarded.h"
#include "support/plugin_log.h"

namespace Veldrift {

namespace {

constexpr LogCategory kLog{kLogSubsystem, "transmit"};
constexpr std::string_view kSelfTestPrefix = "SELFTEST ";
constexpr std::string_view kTrailingBlanks = " \t\r\n";
constexpr int64_t kRaceNanos = 150 * kNanosPerMilli;

// A private copy of an instance's announced state and frame cache, with the same locks, and the
// threads that come to them.
class StateRace {
 public:
  void Run() {
    using Body = void (StateRace::*)(int);
    constexpr std::array<Body, 7> kBodies{
        &StateRace::WriteState, &StateRace::WriteState, &StateRace::ReadText,  &StateRace::ReadText,
        &StateRace::ResetState, &StateRace::WriteFrame, &StateRace::CheckFrame};
    std::vector<std::jthread> threads;
    for (const Body body : kBodies) {
      threads.emplace_back([this, body](const std::stop_token& stop) {
        RunGuarded(kLog, "a thread of P3", [&] {
          for (int round = 0; !stop.stop_requested(); ++round, ++operations_) (this->*body)(round);
        });
      });
    }
    SystemClock().SleepFor(kRaceNanos);
  }

  int Operations() const { return operations_; }
  int TornCopies() const { return tornCopies_; }

 private:
  void WriteState(int round) {
    RecursiveMutexLock lock(stateMutex_);
    numbers_ = {round, round, round};
    text_ = std::to_string(uint64_t(std::hash<std::thread::id>{}(std::this_thread::get_id()))) +
            " in round " + std::to_string(round);
  }
  void ReadText(int) {
    RecursiveMutexLock lock(stateMutex_);
    const std::string copy = text_;
  }
  void ResetState(int) {
    RecursiveMutexLock lock(stateMutex_);
    numbers_ = {};
    text_.clear();
  }
  void WriteFrame(int round) {
    MutexLock lock(frameMutex_);
    frame_.assign(round % 2 == 0 ? 4096 : 12'288, uint8_t(1 + round % 255));
  }
  void CheckFrame(int) {
    std::vector<uint8_t> copy;
    {
      MutexLock lock(frameMutex_);
      copy = frame_;
    }
    for (const uint8_t byte : copy) {
      if (byte == copy.front()) continue;
      ++tornCopies_;
      return;
    }
  }

  RecursiveMutex stateMutex_;
  std::array<int, 3> numbers_ VD_GUARDED_BY(stateMutex_){};
  std::string text_ VD_GUARDED_BY(stateMutex_);
  Mutex frameMutex_;
  std::vector<uint8_t> frame_ VD_GUARDED_BY(frameMutex_) = std::vector<uint8_t>(8192);
  std::atomic<int> operations_{0}, tornCopies_{0};
};

bool RunNamedTest(const std::string& id, std::string& result) {
  if (id.starts_with("P1.") || id == "P6.2") return EncoderPipeline::RunSelfTest(id, result);
  if (id == "P3") return TransmitInstance::RunSelfTest(id, result);
  return NetworkTransport::RunSelfTest(id, result);
}

}  // namespace

bool RunStateRace(std::string& result) {
  StateRace race;
  race.Run();
  result = "concurrent dedup+frame stress: " + std::to_string(race.Operations()) +
           " ops, tornCopies=" + std::to_string(race.TornCopies()) + " (want 0)";
  return race.TornCopies() == 0;
}

void ObeyTestMarker(std::span<const std::byte> payload) {
  const size_t length = std::min(std::to_integer<size_t>(payload[0]), payload.size() - 1);
  const std::string text(reinterpret_cast<const char*>(payload.data() + 1), length);
  if (!text.starts_with(kSelfTestPrefix)) {
    PluginLog(kLog, kLogInfo, "[TEST] %{public}s", text.c_str());
    return;
  }
  std::string id = text.substr(kSelfTestPrefix.size());
  id.erase(id.find_last_not_of(kTrailingBlanks) + 1);
  std::string result;
  const bool passed = RunNamedTest(id, result);
  PluginLog(kLog, kLogInfo, "[FIXTEST %{public}s] %{public}s — %{public}s", id.c_str(),
            passed ? "PASS" : "FAIL", result.c_str());
}

}  // namespace Veldrift
