#include "bench/wire/receive.h"

#include <cstdio>
#include <fstream>

#include "support/clock.h"
#include "tools/platform/this_process.h"
#include "tools/receiver/media_receiver.h"

namespace Veldrift {

int WireReceive(const WireReceiveOptions& options) {
  const auto address = ParseAddress(options.bind);
  std::ofstream log(options.log);
  if (!address || !log) {
    std::fprintf(stderr, "veldrift-wire: %s\n",
                 address ? "the log can't be written" : "--bind is no IPv4 address");
    return 1;
  }
  MediaReceiverOptions receiverOptions;
  receiverOptions.bindAddress = *address;
  receiverOptions.loss = options.loss;
  MediaReceiver receiver(receiverOptions);
  std::string error;
  if (receiver.Open(error) != MediaReceiver::OpenResult::Opened) {
    std::fprintf(stderr, "veldrift-wire: %s\n", error.c_str());
    return 1;
  }
  log << "# receiving" << std::endl;
  const double cpuBefore = ProcessCpuSeconds();
  const int64_t start = SteadyNanos();
  uint64_t whole = 0;
  int64_t index = -1;
  receiver.Start([&](WholeFrame&& frame) {
    if (frame.stream != StreamType::Video) return;
    index = index < 0 ? frame.frameNumber
                      : index + uint16_t(frame.frameNumber - uint16_t(index & 0xFFFF));
    log << index << ' ' << frame.wholeNs << '\n';
    ++whole;
  });
  SystemClock().SleepFor(int64_t(options.seconds * 1e9));
  receiver.Stop();
  log << "# {\"cpu_s\": " << ProcessCpuSeconds() - cpuBefore
      << ", \"wall_s\": " << double(SteadyNanos() - start) / 1e9 << ", \"whole\": " << whole
      << "}\n";
  return 0;
}

}  // namespace Veldrift
