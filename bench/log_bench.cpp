// What a log line costs, written and not written.
#include <benchmark/benchmark.h>

#include "support/debug_topics.h"
#include "support/plugin_log.h"
#include "tests/support/scratch.h"
#include "tools/platform/this_process.h"

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

// All topics but one are on, as they are by default; the choice is made once in a process.
void PrepareTopics() {
  static const ScratchHome home;
  SetEnvironment("VELDRIFT_DEBUG_TOPICS", "transitions,controller,encoder,telemetry,fps,ui_sync");
  InitDebugTopics();
}
const bool prepared = (PrepareTopics(), true);

void LogToTopic(benchmark::State& state, DebugTopic topic, bool enabled) {
  if (IsDebugTopicEnabled(topic) != enabled) state.SkipWithError("the topics are others");
  int frame = 0;
  for (auto _ : state) DebugTopicLog(topic, "frame %d of %d bytes", ++frame, 1000);
}

void BM_DebugTopicDisabled(benchmark::State& state) { LogToTopic(state, DebugTopic::Owd, false); }
BENCHMARK(BM_DebugTopicDisabled);

void BM_DebugTopic(benchmark::State& state) { LogToTopic(state, DebugTopic::Fps, true); }
BENCHMARK(BM_DebugTopic);

}  // namespace
}  // namespace Veldrift
