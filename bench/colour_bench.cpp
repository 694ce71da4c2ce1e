// The colour conversion against a plain loop, a well-known library's and a copy of the frame; and
// what a frame of twice the size costs.

#include <benchmark/benchmark.h>
#include <libyuv/convert_from_argb.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "bench/plain_colour.h"
#include "bench/ratios.h"
#include "encoder/bgra_to_nv12.h"
#include "encoder/frame_input.h"

namespace Veldrift {
namespace {

struct Picture {
  explicit Picture(int pictureHeight)
      : width(pictureHeight * 16 / 9),
        height(pictureHeight),
        bgra(static_cast<size_t>(width) * static_cast<size_t>(height) * 4),
        copy(bgra.size(), 1),
        luma(bgra.size() / 4, 1),
        chroma(bgra.size() / 8, 1) {
    std::mt19937 random(1);
    for (uint8_t& byte : bgra) byte = static_cast<uint8_t>(random());
  }

  int width;
  int height;
  std::vector<uint8_t> bgra;
  std::vector<uint8_t> copy;
  std::vector<uint8_t> luma;
  std::vector<uint8_t> chroma;
};

using Step = void (*)(Picture&);

template <ConversionKind kind>
void Convert(Picture& picture) {
  ConvertBgraToNv12With(kind, picture.bgra.data(), picture.width * 4, picture.luma.data(),
                        picture.chroma.data(), picture.width, picture.height);
}

void ConvertYardstick(Picture& picture) {
  ConvertPlainly(picture.bgra.data(), picture.width * 4, picture.luma.data(), picture.chroma.data(),
                 picture.width, picture.height);
}

void ConvertByLibrary(Picture& picture) {
  libyuv::ARGBToNV12(picture.bgra.data(), picture.width * 4, picture.luma.data(), picture.width,
                     picture.chroma.data(), picture.width, picture.width, picture.height);
}

void CopyFrame(Picture& picture) {
  std::memcpy(picture.copy.data(), picture.bgra.data(), picture.bgra.size());
}

void RunWay(benchmark::State& state, Step step) {
  Picture picture(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    step(picture);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(picture.bgra.size()));
}

void RunKind(benchmark::State& state, ConversionKind kind, Step step) {
  if (ConversionSupported(kind)) {
    RunWay(state, step);
  } else {
    state.SkipWithError("this processor hasn't got it");
  }
}

void BM_ColourYardstick(benchmark::State& state) { RunWay(state, ConvertYardstick); }
void BM_ColourPlain(benchmark::State& state) { RunWay(state, Convert<ConversionKind::Plain>); }
void BM_ColourSsse3(benchmark::State& state) {
  RunKind(state, ConversionKind::Ssse3, Convert<ConversionKind::Ssse3>);
}
void BM_ColourAvx2(benchmark::State& state) {
  RunKind(state, ConversionKind::Avx2, Convert<ConversionKind::Avx2>);
}
void BM_ColourLibyuv(benchmark::State& state) { RunWay(state, ConvertByLibrary); }
void BM_ColourFrameCopy(benchmark::State& state) { RunWay(state, CopyFrame); }

// A frame of this height, scaled to half of it and converted.
void BM_ColourHalfSize(benchmark::State& state) {
  static FrameInput input;
  RunWay(state, [](Picture& picture) {
    const int width = picture.width / 2;
    const int height = picture.height / 2;
    input.Set({picture.bgra.data(), picture.width * 4, picture.width, picture.height}, width,
              height);
    input.ConvertToNv12(picture.luma.data(), picture.chroma.data(), width, height);
  });
}

// What that can't be below: the lines of memory that a frame scaled so is made of, once each.
void BM_ColourHalfRead(benchmark::State& state) {
  constexpr size_t kLine = 64;
  RunWay(state, [](Picture& picture) {
    const size_t stride = static_cast<size_t>(picture.width) * 4;
    uint64_t sum = 0;
    for (size_t row = stride; row < picture.bgra.size(); row += 2 * stride) {
      for (size_t at = 0; at < stride; at += kLine) sum += picture.bgra[row + at];
    }
    benchmark::DoNotOptimize(sum);
  });
}

BENCHMARK(BM_ColourHalfRead)->Arg(2160)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ColourHalfSize)->Arg(2160)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ColourYardstick)->Arg(1080)->Arg(2160)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ColourPlain)->Arg(1080)->Arg(2160)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ColourSsse3)->Arg(1080)->Arg(2160)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ColourAvx2)->Arg(1080)->Arg(2160)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ColourLibyuv)->Arg(1080)->Arg(2160)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ColourFrameCopy)->Arg(1080)->Arg(2160)->Unit(benchmark::kMillisecond);

const int kRatios = [] {
  for (const std::string size : {"1080", "2160"}) {
    const std::string ours = "BM_ColourAvx2/" + size;
    PrintRatio({"AVX2 / libyuv, " + size, ours, "BM_ColourLibyuv/" + size, "at most 1"});
    PrintRatio({"AVX2 / memcpy, " + size, ours, "BM_ColourFrameCopy/" + size, "at most 1.3"});
    const std::string yardstick = "BM_ColourYardstick/" + size;
    PrintRatio({"plain loop / AVX2, " + size, yardstick, ours, "at least 8"});
    PrintRatio({"plain loop / SSSE3, " + size, yardstick, "BM_ColourSsse3/" + size, ""});
    PrintRatio(
        {"the product's own plain loop / AVX2, " + size, "BM_ColourPlain/" + size, ours, ""});
  }
  PrintRatio({"2160 scaled to 1080 and converted / 1080 alone", "BM_ColourHalfSize/2160",
              "BM_ColourAvx2/1080", "below 2"});
  PrintRatio({"every other row of 2160 read / 1080 converted", "BM_ColourHalfRead/2160",
              "BM_ColourAvx2/1080", ""});
  return 0;
}();

}  // namespace
}  // namespace Veldrift
