#include "bench/wire/compare.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "bench/wire/send.h"
#include "net/framing.h"

namespace Veldrift {

namespace {

struct Frame {
  int64_t startNs = 0;
  int64_t wholeNs = 0;  // 0: never
  size_t bytes = 0;
};
using Run = std::map<int64_t, Frame>;

// Calls `take` with each line that is no comment. False if there is none.
template <typename Take>
bool EachLine(const std::string& path, Take&& take) {
  std::ifstream log(path);
  std::string line;
  bool any = false;
  while (std::getline(log, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream fields(line);
    take(fields);
    any = true;
  }
  if (!any) std::fprintf(stderr, "veldrift-wire: no frames in %s\n", path.c_str());
  return any;
}

bool ReadRun(const std::string& name, Run& run) {
  return EachLine(name + ".send",
                  [&run](std::istream& fields) {
                    int64_t index = 0, sentNs = 0;
                    Frame frame;
                    fields >> index >> frame.startNs >> sentNs >> frame.bytes;
                    run[index] = frame;
                  }) &&
         EachLine(name + ".receive", [&run](std::istream& fields) {
           int64_t index = 0, wholeNs = 0;
           fields >> index >> wholeNs;
           if (const auto frame = run.find(index); frame != run.end()) {
             frame->second.wholeNs = wholeNs;
           }
         });
}

double Percentile(std::vector<double> values, double percent) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  return values[std::min(values.size() - 1, size_t(double(values.size()) * percent / 100))];
}

struct Delays {
  std::vector<double> millis;      // of the frames that came whole
  std::vector<double> wireMillis;  // what the pacer's rate allows for their data datagrams
  size_t frames = 0;
};

double WireMillis(size_t bytes) {
  const size_t around = kDatagramHeaderBytes + kSendTimeBytes;
  const size_t onWire = bytes + DataFragmentCount(bytes) * around;
  return double(onWire) * 8 / kWirePacerBitrate * 1e3;
}

bool AddDelays(const std::string& name, Delays& delays) {
  Run run;
  if (!ReadRun(name, run)) return false;
  for (const auto& [index, frame] : run) {
    ++delays.frames;
    if (frame.wholeNs == 0) continue;
    delays.millis.push_back(double(frame.wholeNs - frame.startNs) / 1e6);
    delays.wireMillis.push_back(WireMillis(frame.bytes));
  }
  return true;
}

void Print(const std::string& what, const std::vector<double>& millis) {
  std::printf("  %-34s p50 %7.3f ms   p99 %7.3f ms\n", what.c_str(), Percentile(millis, 50),
              Percentile(millis, 99));
}

bool PrintRuns(const char* kind, const std::vector<std::string>& names, Delays& all) {
  for (const std::string& name : names) {
    Delays one;
    if (!AddDelays(name, one) || !AddDelays(name, all)) return false;
    Print(std::string(kind) + ", " + std::to_string(one.millis.size()) + " of " +
              std::to_string(one.frames) + " frames whole",
          one.millis);
  }
  return true;
}

// What the comment at the log's end says of the processor, in CPU seconds a minute. Negative: it
// doesn't say.
double CpuSecondsAMinute(const std::string& path) {
  std::ifstream log(path);
  std::string line;
  double cpu = -1, wall = 0;
  while (std::getline(log, line)) {
    const nlohmann::json cost = line.starts_with("# {")
                                    ? nlohmann::json::parse(line.substr(2), nullptr, false)
                                    : nlohmann::json();
    if (!cost.is_object()) continue;
    cpu = cost.value("cpu_s", -1.0);
    wall = cost.value("wall_s", 0.0);
  }
  return wall > 0 ? cpu * 60 / wall : -1;
}

// The least of the runs: what others do on the machine only adds.
double LeastCpu(const std::vector<std::string>& names, const char* side) {
  double least = -1;
  for (const std::string& name : names) {
    const double one = CpuSecondsAMinute(name + side);
    if (one >= 0 && (least < 0 || one < least)) least = one;
  }
  return least;
}

void PrintCpu(const char* side, const std::vector<std::string>& paced,
              const std::vector<std::string>& bare, const char* suffix) {
  const double ours = LeastCpu(paced, suffix), theirs = LeastCpu(bare, suffix);
  if (ours < 0 || theirs <= 0) return;
  std::printf("  %-9s CPU seconds a minute: media path %.2f, bare UDP %.2f, ratio %.2f\n", side,
              ours, theirs, ours / theirs);
}

// The chance that of `sent` datagrams more than `spare` are lost.
double ChanceOfMoreLost(size_t sent, size_t spare, double loss) {
  double term = std::pow(1 - loss, double(sent));
  double atMost = term;
  for (size_t lost = 1; lost <= spare; ++lost) {
    term *= double(sent - lost + 1) / double(lost) * loss / (1 - loss);
    atMost += term;
  }
  return std::max(0.0, 1 - atMost);
}

}  // namespace

int CompareDelays(const std::vector<std::string>& paced, const std::vector<std::string>& bare) {
  Delays ours, theirs;
  if (!PrintRuns("media path", paced, ours) || !PrintRuns("bare UDP", bare, theirs)) return 1;
  Print("media path, all runs", ours.millis);
  Print("bare UDP, all runs", theirs.millis);
  Print("wire time at the pacer's rate", ours.wireMillis);
  for (const double percent : {50.0, 99.0}) {
    const double difference = Percentile(ours.millis, percent) - Percentile(theirs.millis, percent);
    std::printf("  media path - bare UDP at p%.0f: %+.3f ms; beyond the wire time: %+.3f ms\n",
                percent, difference, difference - Percentile(ours.wireMillis, percent));
  }
  PrintCpu("sender", paced, bare, ".send");
  PrintCpu("receiver", paced, bare, ".receive");
  return 0;
}

int CompareRepair(const std::vector<std::string>& runs, const std::vector<double>& lossPercent) {
  for (size_t i = 0; i < runs.size() && i < lossPercent.size(); ++i) {
    Run run;
    if (!ReadRun(runs[i], run)) return 1;
    size_t lost = 0;
    double expected = 0, variance = 0;
    for (const auto& [index, frame] : run) {
      if (frame.wholeNs == 0) ++lost;
      const size_t dataCount = DataFragmentCount(frame.bytes);
      const size_t parityCount = ChooseParityCount(dataCount);
      const double chance =
          ChanceOfMoreLost(dataCount + parityCount, parityCount, lossPercent[i] / 100);
      expected += chance;
      variance += chance * (1 - chance);
    }
    std::printf(
        "  %g per cent lost: %zu of %zu frames not repaired; an ideal code leaves %.1f"
        " (standard deviation %.1f)\n",
        lossPercent[i], lost, run.size(), expected, std::sqrt(variance));
  }
  return 0;
}

}  // namespace Veldrift
