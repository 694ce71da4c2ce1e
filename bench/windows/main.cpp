// The figures of the driver with the Windows encoder's own platform, over the scripted encoders
// that stand behind Media Foundation in the tests' Wine prefix (tests/transforms). Times are Wine's
// as much as ours: they compare with each other, and with no other system's.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "bench/driver_rig.h"
#include "encoder/mf/mf_platform.h"
#include "tests/support/scratch.h"
#include "tools/platform/this_process.h"

namespace Veldrift {
namespace {

constexpr double kMicroNanos = 1e3;
constexpr double kMilliNanos = 1e6;
constexpr int kOpenings = 12;
constexpr int kWarmUp = 4;

struct Case {
  const char* kind;  // as VD_TRANSFORMS has it
  int32_t codec;
  int32_t height;
};

constexpr Case kCases[] = {
    {"intel", kCodecH264, 1080}, {"nvidia-async", kCodecH264, 1080},
    {"intel", kCodecHevc, 1080}, {"nvidia-async", kCodecHevc, 1080},
    {"intel", kCodecH264, 2160}, {"nvidia-async", kCodecH264, 2160},
};

struct Figures {
  std::vector<int64_t> openings;
  std::vector<FrameCost> frames;
  size_t unitBytes = 0;  // the mean
};

bool MeasureOpenings(DriverRig& rig, Figures& figures) {
  for (int i = 0; i < kOpenings; ++i) {
    const int64_t nanos = rig.Configure();
    if (nanos < 0) return false;
    figures.openings.push_back(nanos);
  }
  return true;
}

bool MeasureFrames(DriverRig& rig, int frames, Figures& figures) {
  for (int i = 0; i < kWarmUp + frames; ++i) {
    FrameCost cost;
    if (!rig.Encode(cost)) return false;
    if (i < kWarmUp) continue;
    figures.frames.push_back(cost);
    figures.unitBytes += rig.UnitBytes();
  }
  figures.unitBytes /= static_cast<size_t>(frames);
  return true;
}

double MedianMicros(const std::vector<FrameCost>& frames, int64_t FrameCost::*part) {
  std::vector<int64_t> times;
  for (const FrameCost& cost : frames) times.push_back(cost.*part);
  return Percentile(times, 0.5) / kMicroNanos;
}

void Print(const Case& what, const Figures& figures) {
  const auto micros = [&](int64_t FrameCost::*part) { return MedianMicros(figures.frames, part); };
  std::printf("%-13s %-5s %4d  %8.1f %8.1f  %8.1f %8.1f  %8.1f %8.1f  %10.1f %7zu\n", what.kind,
              what.codec == kCodecH264 ? "H.264" : "HEVC", what.height,
              Percentile(figures.openings, 0) / kMilliNanos,
              Percentile(figures.openings, 0.5) / kMilliNanos, micros(&FrameCost::toInput),
              micros(&FrameCost::sample), micros(&FrameCost::toCallback),
              micros(&FrameCost::noMore), micros(&FrameCost::conversion), figures.unitBytes / 1000);
  std::fflush(stdout);
}

bool Run(const Case& what, int frames) {
  SetEnvironment("VD_TRANSFORMS", what.kind);
  DriverRig::Options options;
  options.makePlatform = [] { return std::make_unique<MfPlatform>(); };
  options.codec = what.codec;
  options.height = what.height;
  DriverRig rig(std::move(options));
  Figures figures;
  if (MeasureOpenings(rig, figures) && MeasureFrames(rig, frames, figures)) {
    Print(what, figures);
    return true;
  }
  std::fprintf(stderr, "veldrift-bench-windows: %s, %d rows: %s\n", what.kind, what.height,
               figures.openings.empty() ? "it doesn't open" : "nothing comes out");
  return false;
}

bool RunAll(int frames) {
  std::printf("openings: the least and the median of %d; the rest: medians of %d frames, in us\n\n",
              kOpenings, frames);
  std::printf("%-24s  %17s  %8s %8s  %8s %8s  %10s %7s\n", "", "Configure, ms", "to",
              "of it:", "to", "of it:", "", "unit");
  std::printf("%-13s %-5s %4s  %8s %8s  %8s %8s  %8s %8s  %10s %7s\n", "encoder", "codec", "rows",
              "least", "median", "input", "sample", "callback", "no more", "conversion", "in KB");
  return std::ranges::all_of(kCases, [frames](const Case& what) { return Run(what, frames); });
}

}  // namespace
}  // namespace Veldrift

int main(int argc, char** argv) {
  CLI::App app("Times the Windows encoder's way around scripted encoders");
  int frames = 60;
  app.add_option("--frames", frames, "of each encoder")
      ->capture_default_str()
      ->check(CLI::Range(1, 10'000));
  CLI11_PARSE(app, argc, argv);
  const Veldrift::ScratchHome home;
  return Veldrift::RunAll(frames) ? 0 : 1;
}
