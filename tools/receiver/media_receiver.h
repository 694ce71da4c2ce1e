// The phone's two media sockets, each with a thread that receives, stamps with the steady clock,
// loses what the loss simulator says, and assembles. No decoding.
//
// Threads: Open, Start, Stop and the destructor belong to the owner's thread; the callback runs on
// the two receiving threads, one a stream, and holds up the next datagram of its stream while it
// runs. Counters may come from any thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "net/media_datagram.h"
#include "platform/mutex.h"
#include "platform/socket.h"
#include "tools/receiver/arrival_ledger.h"
#include "tools/receiver/frame_assembler.h"
#include "tools/receiver/loss_simulator.h"
#include "tools/receiver/whole_frame.h"

namespace Veldrift {

struct MediaReceiverOptions {
  uint32_t bindAddress = 0;  // network byte order; 0 is any address
  uint16_t videoPort = kVideoPort;
  uint16_t audioPort = kAudioPort;
  LossSettings loss;
  AssemblerLimits limits;
};

struct MediaCounters {
  AssemblerCounters assembler;
  uint64_t simulatedDrops = 0;
  uint64_t simulatedReorders = 0;
};

class MediaReceiver {
 public:
  using FrameCallback = std::function<void(WholeFrame&&)>;
  enum class OpenResult { Opened, PortInUse, Failed };

  explicit MediaReceiver(const MediaReceiverOptions& options);
  ~MediaReceiver();
  MediaReceiver(const MediaReceiver&) = delete;
  MediaReceiver& operator=(const MediaReceiver&) = delete;

  // Binds both ports. Otherwise `error` is a sentence without its full stop.
  OpenResult Open(std::string& error);

  // Once, after Open.
  void Start(FrameCallback onFrame);

  // The plug-in may be another one from now on: frames of the connection of this number (from 1 on)
  // are told apart from those before, whose numbers and times they don't go on with. From any
  // thread.
  void BeginConnection(uint32_t number) { connection_ = number; }

  // Ends both threads; the callback has got every whole frame when this returns.
  void Stop();

  MediaCounters Counters(StreamType stream) const;

  // After Stop: the frames that were lost, with what had come of them.
  std::vector<LostFrame> Lost(StreamType stream) const;

 private:
  class Stream;

  const MediaReceiverOptions options_;
  SocketLayer socketLayer_;
  FrameCallback onFrame_;
  std::atomic<bool> running_{false};
  std::atomic<uint32_t> connection_{0};
  std::unique_ptr<Stream> video_;
  std::unique_ptr<Stream> audio_;
};

}  // namespace Veldrift
