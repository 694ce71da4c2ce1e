// The host's own test of what this machine can do with the module: a phone of this process asks for
// a few seconds of each codec and for the module's built-in tests, while the host plays.
//
// Threads: the main thread makes it, starts it and destroys it; it works on a thread of its own and
// tells by Done that the host may stop playing.
#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "log_findings.h"
#include "loopback_phone.h"
#include "media_source.h"
#include "tools/cli/status_line.h"
#include "tools/receiver/self_tests.h"

namespace Veldrift {

struct StreamCheck {
  StreamCodec codec = StreamCodec::None;
  StreamTally tally;
  double seconds = 0;    // from the first picture on
  uint64_t pushed = 0;   // pictures that the host handed over in that time
  uint64_t lost = 0;     // frames that didn't arrive whole in it
  std::string encoder;   // as the module describes it; empty: it has named none
  std::string resident;  // LogFindings, of this stream
  std::vector<std::string> latches;
  size_t stalls = 0;
  bool stopped = false;  // nothing came any more at the end

  bool Streamed() const { return tally.frames > 0 && !stopped && stalls == 0; }
  // The first picture only starts the clock.
  double FramesPerSecond() const {
    return tally.frames > 1 && seconds > 0 ? double(tally.frames - 1) / seconds : 0;
  }
  double MegabitsPerSecond() const {
    return seconds > 0 ? double(tally.bytes) * 8e-6 / seconds : 0;
  }
  double FirstPictureMs() const { return double(tally.firstNs - tally.askedNs) / 1e6; }
};

struct SelfCheckResult {
  double sourceFps = 0;
  std::string phoneTrouble;  // why the phone couldn't come in; empty: it could
  std::vector<StreamCheck> streams;
  std::vector<SelfTestVerdict> verdicts;
  std::vector<ReportedEngine> engines;
  LogFindings log;
  bool interrupted = false;
};

class SelfCheck {
 public:
  // What the log says from here on counts. `quiet`: no progress is shown.
  SelfCheck(const std::filesystem::path& pluginLog, uint16_t controlPort,
            const std::atomic<bool>& interrupted, bool quiet);
  ~SelfCheck();
  SelfCheck(const SelfCheck&) = delete;
  SelfCheck& operator=(const SelfCheck&) = delete;

  // The same pictures, counted as the host takes them. Before Start.
  std::unique_ptr<FrameSource> Count(std::unique_ptr<FrameSource> pictures);

  // Once the module has its instance.
  void Start();
  const std::atomic<bool>& Done() const { return done_; }
  // Once the module is gone: its last lines count, too.
  SelfCheckResult Finish();

 private:
  void Run();
  void CheckStream(StreamCodec codec);
  bool AwaitPicture(StreamCodec codec);
  void Measure(StreamCheck& check);
  void RunTests();
  void ReadLog();
  void Show(const std::string& what);

  const std::filesystem::path pluginLog_;
  const std::atomic<bool>& interrupted_;
  std::atomic<bool> done_{false};
  std::atomic<uint64_t> pushed_{0};
  LogTail log_;
  StatusLine status_;
  LoopbackPhone phone_;
  SelfCheckResult result_;  // the thread's until it is joined
  std::thread thread_;
};

}  // namespace Veldrift
