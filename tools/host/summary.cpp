#include "summary.h"

#include <cstdio>
#include <nlohmann/json.hpp>

namespace Veldrift {

namespace {

double MeanPushMicros(const DriverCounters& counters) {
  return counters.framesPushed == 0 ? 0
                                    : double(counters.pushNs) / 1e3 / double(counters.framesPushed);
}

std::string Left(const ProcessResources& resources) {
  return std::to_string(resources.threads) + " threads and " + std::to_string(resources.handles) +
         " handles";
}

}  // namespace

// The first round may leave what lasts for the process.
HostExit Judge(const HostRun& run, std::string& sentence) {
  const DriverCounters& counters = run.counters;
  if (counters.undisposed != 0 || counters.wronglyDisposed != 0) {
    sentence = "the module kept " + std::to_string(counters.undisposed) +
               " frames and disposed of " + std::to_string(counters.wronglyDisposed) +
               " that weren't its";
    return kExitUndisposed;
  }
  const ProcessResources& first = run.afterRounds.front();
  const ProcessResources& last = run.afterRounds.back();
  if (last.threads <= first.threads && last.handles <= first.handles) return kExitGood;
  sentence = "the module left something behind: " + Left(first) + " after the first round, " +
             Left(last) + " after the last";
  return kExitLeftBehind;
}

std::string HostSummaryText(const HostRun& run) {
  const DriverCounters& counters = run.counters;
  using Count = unsigned long long;
  char text[512];
  std::snprintf(text, sizeof text,
                "veldrift-host: %.1f s\n"
                "  frames pushed    %llu\n"
                "  frames skipped   %llu\n"
                "  push             mean %.0f us, longest %.0f us\n"
                "  sound blocks     %llu\n"
                "  undisposed       %zu\n",
                double(counters.playedNs) / 1e9, Count(counters.framesPushed),
                Count(counters.framesSkipped), MeanPushMicros(counters),
                double(counters.longestPushNs) / 1e3, Count(counters.soundBlocks),
                counters.undisposed);
  if (run.afterRounds.size() < 2) return text;
  return text + std::string("  rounds           ") + std::to_string(run.afterRounds.size()) +
         ", then " + Left(run.afterRounds.back()) + "\n";
}

std::string HostSummaryJson(const HostRun& run, HostExit exit) {
  const DriverCounters& counters = run.counters;
  nlohmann::ordered_json json = {
      {"exit", int(exit)},
      {"seconds", double(counters.playedNs) / 1e9},
      {"frames_pushed", counters.framesPushed},
      {"frames_skipped", counters.framesSkipped},
      {"push_mean_us", MeanPushMicros(counters)},
      {"push_longest_us", double(counters.longestPushNs) / 1e3},
      {"sound_blocks", counters.soundBlocks},
      {"clock_ticks", counters.clockTicks},
      {"undisposed", counters.undisposed},
      {"wrongly_disposed", counters.wronglyDisposed},
      {"suites_held", counters.suitesHeld},
  };
  for (const ProcessResources& left : run.afterRounds) {
    json["rounds"].push_back({{"threads", left.threads}, {"handles", left.handles}});
  }
  return json.dump(2) + "\n";
}

}  // namespace Veldrift
