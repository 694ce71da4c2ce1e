// The QR encoder beside another one, at the same level and in the same mode.
#include <benchmark/benchmark.h>
#include <qrencode.h>

#include <string>

#include "bench/ratios.h"
#include "ui/pairing_uri.h"
#include "ui/qr_code.h"

namespace Veldrift {
namespace {

std::string TypicalUri() {
  return BuildPairingUri({"0a1b2c3d-4e5f-4a6b-8c7d-9e0f1a2b3c4d", "EDIT-SUITE-3"});
}

std::string LongestText() { return std::string(1272, 'a'); }

void RunOurs(benchmark::State& state, const std::string& text) {
  for (auto _ : state) benchmark::DoNotOptimize(EncodeQrText(text).modules.data());
  state.counters["version"] = EncodeQrText(text).version;
}

void RunOther(benchmark::State& state, const std::string& text) {
  const auto* const bytes = reinterpret_cast<const unsigned char*>(text.data());
  int version = 0;
  for (auto _ : state) {
    QRcode* const code = QRcode_encodeData(int(text.size()), bytes, 0, QR_ECLEVEL_H);
    version = code->version;
    QRcode_free(code);
  }
  state.counters["version"] = version;
}

void BM_QrUri(benchmark::State& state) { RunOurs(state, TypicalUri()); }
void BM_QrLongest(benchmark::State& state) { RunOurs(state, LongestText()); }
void BM_LibqrencodeUri(benchmark::State& state) { RunOther(state, TypicalUri()); }
void BM_LibqrencodeLongest(benchmark::State& state) { RunOther(state, LongestText()); }
BENCHMARK(BM_QrUri);
BENCHMARK(BM_LibqrencodeUri);
BENCHMARK(BM_QrLongest);
BENCHMARK(BM_LibqrencodeLongest);

const int kRatios[] = {
    PrintRatio(
        {"QR of a pairing URI, against libqrencode", "BM_QrUri", "BM_LibqrencodeUri", "below 1"}),
    PrintRatio({"QR of the longest text, against libqrencode", "BM_QrLongest",
                "BM_LibqrencodeLongest", "below 1"}),
};

}  // namespace
}  // namespace Veldrift
