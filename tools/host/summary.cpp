#include "summary.h"

#include <cstdio>
#include <nlohmann/json.hpp>

namespace Veldrift {

namespace {

double MeanPushMicros(const DriverCounters& counters) {
  return counters.framesPushed == 0 ? 0
                                    : double(counters.pushNs) / 1e3 / double(counters.framesPushed);
}

}  // namespace

std::string HostSummaryText(const DriverCounters& counters) {
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
  return text;
}

std::string HostSummaryJson(const DriverCounters& counters, HostExit exit) {
  const nlohmann::ordered_json json = {
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
  return json.dump(2) + "\n";
}

}  // namespace Veldrift
