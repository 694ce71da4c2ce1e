// What a log line costs, written and not written.
#include <benchmark/benchmark.h>

#include "support/debug_topics.h"
#include "support/plugin_log.h"
#include "tests/support/scratch.h"

namespace Veldrift {
namespace {

constexpr LogCategory kLog{kLogSubsystem, "bench"};

// Below the minimum level, unless VD_LOG_DEBUG is set.
void BM_LogLineDisabled(benchmark::State& state) {
  int frame = 0;
  for (auto _ : state) PluginLog(kLog, kLogDebug, "frame %d of %d bytes", ++frame, 1000);
}
BENCHMARK(BM_LogLineDisabled);

void BM_LogLine(benchmark::State& state) {
  const ScratchHome home;
  int frame = 0;
  for (auto _ : state) PluginLog(kLog, kLogInfo, "frame %d of %d bytes", ++frame, 1000);
}
BENCHMARK(BM_LogLine);

void BM_DebugTopicDisabled(benchmark::State& state) {
  int frame = 0;
  for (auto _ : state) DebugTopicLog(DebugTopic::Owd, "frame %d of %d bytes", ++frame, 1000);
}
BENCHMARK(BM_DebugTopicDisabled);

}  // namespace
}  // namespace Veldrift
