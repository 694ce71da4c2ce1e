// judge-recording FILE...: says how like the recorded pictures are what the host painted, and how
// far the sound of a clapper is from its flash. Ends with 1 if that isn't good enough, or a file
// can't be read.
#include <algorithm>
#include <cstdio>

#include "tests/judge/video_file.h"

namespace {

constexpr double kLeastPsnr = 35;      // dB
constexpr double kMostPatch = 2;       // levels
constexpr double kMostOff = 1.0 / 30;  // seconds: a frame

bool Judge(const char* name) {
  const Veldrift::VideoFile file = Veldrift::ReadVideoFile(name);
  if (!file.error.empty() || file.stamps.empty()) {
    std::printf("  %s: %s\n", name, file.error.empty() ? "no stamped picture" : file.error.c_str());
    return false;
  }
  // The first may be the picture that greets a new phone.
  const bool inOrder = std::is_sorted(file.stamps.begin() + 1, file.stamps.end());
  const Veldrift::Sync sync = Veldrift::MeasureSync(file);
  std::printf(
      "  pictures judged        %d %dx%d %s, %s, luma at least %.1f dB, patches within %.1f "
      "levels%s\n",
      file.pictures, file.width, file.height, file.codec.c_str(),
      inOrder ? "in order" : "OUT OF ORDER", file.worstPsnr, file.worstPatch,
      file.saysBt709Limited ? ", BT.709" : ", COLOUR NOT SAID");
  if (sync.flashes > 0) {
    std::printf("  flash to click         at most %.1f ms (%zu flashes)\n", sync.worst * 1e3,
                sync.flashes);
  }
  return inOrder && file.worstPsnr > kLeastPsnr && file.worstPatch < kMostPatch &&
         file.saysBt709Limited && sync.worst < kMostOff;
}

}  // namespace

int main(int argc, char** argv) {
  bool good = argc > 1;
  for (int i = 1; i < argc; ++i) good = Judge(argv[i]) && good;
  return good ? 0 : 1;
}
