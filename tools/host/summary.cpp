#include "summary.h"

#include <cstdio>
#include <nlohmann/json.hpp>

namespace Veldrift {

namespace {

double MeanPushMicros(const PlayCounters& play) {
  return play.framesPushed == 0 ? 0 : double(play.pushNs) / 1e3 / double(play.framesPushed);
}

double ClockSeconds(const PlayCounters& play) {
  return double(play.clockTicks) / double(kTicksPerSecond);
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
  if (!run.faults.empty()) {
    sentence = "the module " + run.faults.front().sentence;
    if (run.faults.size() > 1) {
      sentence += ", and " + std::to_string(run.faults.size() - 1) + " other faults";
    }
    return kExitMisbehaved;
  }
  if (run.afterRounds.empty()) return kExitGood;  // interrupted before the first
  const ProcessResources& first = run.afterRounds.front();
  const ProcessResources& last = run.afterRounds.back();
  if (last.threads <= first.threads && last.handles <= first.handles) return kExitGood;
  sentence = "the module left something behind: " + Left(first) + " after the first round, " +
             Left(last) + " after the last";
  return kExitLeftBehind;
}

std::string HostSummaryText(const HostRun& run) {
  const PlayCounters& play = run.counters.play;
  using Count = unsigned long long;
  char line[512];
  std::snprintf(line, sizeof line,
                "veldrift-host: %.1f s\n"
                "  frames pushed    %llu\n"
                "  frames skipped   %llu\n"
                "  push             mean %.0f us, longest %.0f us\n"
                "  sound            %llu blocks pushed, %lld samples pulled\n"
                "  clock            moved by %.2f s in %.2f s\n"
                "  undisposed       %zu\n"
                "  suites kept      %d\n",
                double(run.counters.playedNs) / 1e9, Count(play.framesPushed),
                Count(play.framesSkipped), MeanPushMicros(play), double(play.longestPushNs) / 1e3,
                Count(play.soundBlocks), (long long)play.samplesPulled, ClockSeconds(play),
                double(play.clockNs) / 1e9, run.counters.undisposed, run.counters.suitesHeld);
  std::string text = line;
  for (const DoneAction& action : run.counters.actions) {
    std::snprintf(line, sizeof line, "  at %6.2f s      %s%s, then at place %lld\n", action.seconds,
                  action.what.c_str(), action.byPhone ? " (phone)" : "", (long long)action.place);
    text += line;
  }
  for (const Fault& fault : run.faults) {
    text += "  the module       " + fault.sentence + " (" + std::to_string(fault.times) + ")\n";
  }
  if (run.afterRounds.size() < 2) return text;
  return text + "  rounds           " + std::to_string(run.afterRounds.size()) + ", then " +
         Left(run.afterRounds.back()) + "\n";
}

std::string HostSummaryJson(const HostRun& run, HostExit exit) {
  const PlayCounters& play = run.counters.play;
  nlohmann::ordered_json json = {
      {"exit", int(exit)},
      {"seconds", double(run.counters.playedNs) / 1e9},
      {"frames_pushed", play.framesPushed},
      {"frames_skipped", play.framesSkipped},
      {"push_mean_us", MeanPushMicros(play)},
      {"push_longest_us", double(play.longestPushNs) / 1e3},
      {"sound_blocks", play.soundBlocks},
      {"samples_pulled", play.samplesPulled},
      {"clock_ticks", play.clockTicks},
      {"clock_seconds", ClockSeconds(play)},
      {"clock_on_seconds", double(play.clockNs) / 1e9},
      {"undisposed", run.counters.undisposed},
      {"wrongly_disposed", run.counters.wronglyDisposed},
      {"suites_held", run.counters.suitesHeld},
      {"actions", nlohmann::ordered_json::array()},
      {"faults", nlohmann::ordered_json::array()},
  };
  for (const DoneAction& action : run.counters.actions) {
    json["actions"].push_back({{"seconds", action.seconds},
                               {"what", action.what},
                               {"by", action.byPhone ? "phone" : "script"},
                               {"place", action.place}});
  }
  for (const Fault& fault : run.faults) {
    json["faults"].push_back({{"what", fault.sentence}, {"times", fault.times}});
  }
  for (const ProcessResources& left : run.afterRounds) {
    json["rounds"].push_back({{"threads", left.threads}, {"handles", left.handles}});
  }
  return json.dump(2) + "\n";
}

}  // namespace Veldrift
