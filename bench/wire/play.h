// What both senders share: the pictures, their ticks and the log.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "bench/wire/coded_file.h"
#include "bench/wire/send.h"

namespace Veldrift {

struct FrameTimes {
  int64_t startNs = 0;
  std::atomic<int64_t> sentNs{0};  // of its last datagram; 0: it never left
  size_t bytes = 0;
  bool keyFrame = false;
};

// The pictures that `options` name. False after a sentence on the standard error.
bool OpenPictures(const WireSendOptions& options, CodedFile& coded);

// One entry a tick of the run.
std::vector<FrameTimes> TimesFor(const WireSendOptions& options);

// Calls `send` with each access unit and its index at its tick; the units repeat.
void Play(const CodedFile& coded, double fps, std::vector<FrameTimes>& frames,
          const std::function<void(const AccessUnit&, size_t)>& send);

// The time of the processor and of the wall since its making.
class RunCost {
 public:
  RunCost();
  double CpuSeconds() const;
  double WallSeconds() const;

 private:
  const double cpuBefore_;
  const int64_t start_;
};

// False after a sentence on the standard error.
bool WriteSendLog(const std::string& path, const std::vector<FrameTimes>& frames, double cpuSeconds,
                  double wallSeconds);

}  // namespace Veldrift
