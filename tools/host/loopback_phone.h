// A phone in the host's own process: pairs with the module over loopback by the code in its log,
// asks for streams, and counts what arrives of them. It decodes nothing.
//
// Threads: one thread uses it; frames arrive on the receiver's two threads.
#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "platform/mutex.h"
#include "tools/receiver/media_receiver.h"
#include "tools/receiver/parameter_sets.h"
#include "tools/receiver/phone_link.h"

namespace Veldrift {

// What arrived of a stream, from its first key frame on.
struct StreamTally {
  uint64_t frames = 0;  // whole ones
  uint64_t keyFrames = 0;
  uint64_t bytes = 0;  // of these frames
  uint64_t soundBlocks = 0;
  int64_t askedNs = 0;  // when the stream was asked for
  int64_t firstNs = 0;  // when its first picture was whole; 0: none was
  int64_t lastNs = 0;
};

class LoopbackPhone {
 public:
  // Make it before the module can show a code; `interrupted` and the log outlive it.
  LoopbackPhone(const std::filesystem::path& pluginLog, uint16_t controlPort,
                const std::atomic<bool>& interrupted);
  ~LoopbackPhone() { Close(); }
  LoopbackPhone(const LoopbackPhone&) = delete;
  LoopbackPhone& operator=(const LoopbackPhone&) = delete;

  // Binds the media ports, connects and pairs. Otherwise `sentence` says why not.
  bool Open(std::string& sentence);
  void Close();

  // Asks for this codec with a long GOP. What has been counted before is forgotten.
  void Ask(StreamCodec codec);
  StreamTally Tally() const;
  // Since Open, and with those that a change of codec costs.
  uint64_t FramesLost() const;

  PhoneLink& Link() { return link_; }
  std::vector<ReportedEngine> Engines() const;

 private:
  void Take(const WholeFrame& frame);

  const LinkOptions options_;
  PhoneLink link_;
  mutable Mutex mutex_;
  StreamCodec asked_ VD_GUARDED_BY(mutex_) = StreamCodec::None;
  StreamCodec arriving_ VD_GUARDED_BY(mutex_) = StreamCodec::None;
  StreamTally tally_ VD_GUARDED_BY(mutex_);
  // Last: its threads end before what they count into goes.
  MediaReceiver receiver_;
};

}  // namespace Veldrift
