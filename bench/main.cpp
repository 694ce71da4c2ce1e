// Runs the benchmarks in mixed order, several times, and prints the ratios of their best times.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "bench/ratios.h"

namespace Veldrift {

namespace {

std::vector<Ratio>& Ratios() {
  static std::vector<Ratio> ratios;
  return ratios;
}

// Keeps the best time of every name.
class BestTimes final : public benchmark::ConsoleReporter {
 public:
  BestTimes() : ConsoleReporter(OO_Tabular) {}

  // Of several repetitions the medians are printed.
  void ReportRuns(const std::vector<Run>& runs) override {
    std::vector<Run> shown;
    for (const Run& run : runs) {
      if (run.repetitions <= 1 || run.aggregate_name == "median") shown.push_back(run);
    }
    if (!shown.empty()) ConsoleReporter::ReportRuns(shown);
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
      const double time =
          run.GetAdjustedRealTime() / benchmark::GetTimeUnitMultiplier(run.time_unit);
      const auto [entry, isNew] = best_.try_emplace(
          run.run_name.function_name + (run.run_name.args.empty() ? "" : "/") + run.run_name.args,
          time);
      if (!isNew) entry->second = std::min(entry->second, time);
    }
  }

  void PrintRatios() const {
    std::printf("\n%-44s %8s   %s\n", "ratio (best of the repetitions)", "measured", "wanted");
    for (const Ratio& ratio : Ratios()) {
      const auto numerator = best_.find(ratio.numerator);
      const auto denominator = best_.find(ratio.denominator);
      if (numerator == best_.end() || denominator == best_.end()) continue;
      std::printf("%-44s %8.2f   %s\n", ratio.what.c_str(), numerator->second / denominator->second,
                  ratio.wanted.c_str());
    }
  }

 private:
  std::map<std::string, double> best_;  // seconds
};

}  // namespace

int PrintRatio(const Ratio& ratio) {
  Ratios().push_back(ratio);
  return 0;
}

}  // namespace Veldrift

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  Veldrift::BestTimes reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.PrintRatios();
  return 0;
}
