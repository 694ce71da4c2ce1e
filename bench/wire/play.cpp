#include "bench/wire/play.h"

#include <algorithm>
#include <cstdio>
#include <fstream>

#include "support/clock.h"
#include "tools/platform/this_process.h"

namespace Veldrift {

bool OpenPictures(const WireSendOptions& options, CodedFile& coded) {
  if (options.coded.empty()) {
    coded.Generate(options.mbps, options.fps);
    return true;
  }
  std::string error;
  if (coded.Open(options.coded, error)) return true;
  std::fprintf(stderr, "veldrift-wire: %s\n", error.c_str());
  return false;
}

std::vector<FrameTimes> TimesFor(const WireSendOptions& options) {
  return std::vector<FrameTimes>(size_t(std::max(1.0, options.seconds * options.fps)));
}

void Play(const CodedFile& coded, double fps, std::vector<FrameTimes>& frames,
          const std::function<void(const AccessUnit&, size_t)>& send) {
  const double periodNanos = 1e9 / fps;
  const int64_t start = SteadyNanos();
  for (size_t i = 0; i < frames.size(); ++i) {
    const AccessUnit& unit = coded.Units()[i % coded.Units().size()];
    SystemClock().SleepFor(
        std::max<int64_t>(0, start + int64_t(double(i) * periodNanos) - SteadyNanos()));
    frames[i].bytes = unit.bytes.size();
    frames[i].keyFrame = unit.keyFrame;
    frames[i].startNs = SteadyNanos();
    send(unit, i);
  }
}

RunCost::RunCost() : cpuBefore_(ProcessCpuSeconds()), start_(SteadyNanos()) {}
double RunCost::CpuSeconds() const { return ProcessCpuSeconds() - cpuBefore_; }
double RunCost::WallSeconds() const { return double(SteadyNanos() - start_) / 1e9; }

bool WriteSendLog(const std::string& path, const std::vector<FrameTimes>& frames, double cpuSeconds,
                  double wallSeconds) {
  std::ofstream log(path);
  for (size_t i = 0; i < frames.size(); ++i) {
    log << i << ' ' << frames[i].startNs << ' ' << frames[i].sentNs << ' ' << frames[i].bytes << ' '
        << (frames[i].keyFrame ? 1 : 0) << '\n';
  }
  log << "# {\"cpu_s\": " << cpuSeconds << ", \"wall_s\": " << wallSeconds
      << ", \"frames\": " << frames.size() << "}\n";
  if (log) return true;
  std::fprintf(stderr, "veldrift-wire: %s can't be written\n", path.c_str());
  return false;
}

}  // namespace Veldrift
