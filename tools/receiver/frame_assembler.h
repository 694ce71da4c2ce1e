// Datagrams of one stream in, whole frames out, in the order of their numbers.
//
// A frame is whole as soon as all of its K data fragments have come, or any K of its K+M fragments;
// parity that was announced and never sent is not waited for. A whole frame waits for older ones
// that may still be completed, but only so long: then those are given up, and so are frame numbers
// of which nothing came. A gap is a loss and never an error: senders leave numbers out.
//
// Sound has no parity and bears a gap: of a block that is given up, what came is delivered.
//
// Whatever comes in, memory stays bounded by AssemblerLimits: what doesn't fit pushes out the frame
// that has waited longest for its next fragment.
//
// Threads: one thread calls everything.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "net/media_datagram.h"
#include "support/clock.h"
#include "tools/receiver/pending_frame.h"
#include "tools/receiver/sequence_tracker.h"
#include "tools/receiver/whole_frame.h"

namespace Veldrift {

struct AssemblerLimits {
  size_t maxWaitingWhole = 4;                  // whole frames that wait for older ones
  int64_t maxWaitNs = 60 * kNanosPerMilli;     // how long the first of them waits
  size_t maxPending = 64;                      // frames that are not whole yet
  size_t maxPendingBytes = size_t{192} << 20;  // and their memory; one largest frame fits
  size_t maxWaitingBytes = size_t{192} << 20;  // memory of the whole frames that wait
};

struct AssemblerCounters {
  uint64_t datagrams = 0;  // of this stream's format
  uint64_t bytes = 0;      // all of them together
  uint64_t duplicates = 0;
  uint64_t late = 0;              // data for a frame that was delivered or given up before
  uint64_t spareParity = 0;       // parity for such a frame
  uint64_t missingDatagrams = 0;  // by their running number
  uint64_t gaps = 0;              // runs of missing numbers, also of those that came later
  uint64_t framesWhole = 0;
  uint64_t framesRepaired = 0;
  uint64_t fragmentsRepaired = 0;
  uint64_t framesLost = 0;
  uint64_t framesConcealed = 0;             // sound of which a part came, and was handed on
  double secondsConcealed = 0;              // of what was made up in it
  double secondsLost = 0;                   // of sound of which nothing could be handed on
  uint64_t violations = 0;                  // datagrams that no sender of this format makes
  std::vector<std::string> violationTexts;  // of the first few
};

class FrameAssembler {
 public:
  using Sink = std::function<void(WholeFrame&&)>;

  FrameAssembler(StreamType stream, const AssemblerLimits& limits, Sink sink);

  // Takes one datagram in. Calls the sink for every frame that can be delivered now.
  void Add(std::span<const std::byte> datagram, int64_t nowNs);

  // Gives up what has waited too long. Call it now and then also when nothing comes.
  void Poll(int64_t nowNs);

  // Whether a whole frame waits for older ones, so that Poll has something to give up.
  bool Waits() const { return !whole_.empty(); }

  // The end: delivers the whole frames that still wait for older ones.
  void Flush();

  // Another sender may come next, whose numbers have nothing to do with those so far: delivers what
  // is whole and forgets the rest. The counters go on.
  void BeginAnew();

  AssemblerCounters Counters() const;

 private:
  void Accept(const MediaDatagram& datagram, int64_t nowNs);
  int64_t Unwrap(const DatagramHeader& header);
  bool TooLate(int64_t number, bool parity);
  void AddTo(int64_t number, const MediaDatagram& datagram, int64_t nowNs);
  void Complete(int64_t number);
  void MakeRoom(int64_t number);
  void DeliverReady();
  void DeliverFirst();
  void GiveUpBefore(int64_t number);
  void NoteSound(const WholeFrame& block);
  bool Conceal(PendingFrame& frame);
  void StartOver(int64_t number);
  void Violate(std::string text);

  const StreamType stream_;
  const AssemblerLimits limits_;
  const Sink sink_;

  bool started_ = false;
  int64_t next_ = 0;       // the frame to deliver next; numbers here don't wrap
  size_t lateRun_ = 0;     // late datagrams in a row
  size_t lateFrames_ = 0;  // of how many frames
  int64_t lateFrame_ = 0;  // the last of them
  std::map<int64_t, PendingFrame> pending_;
  size_t pendingBytes_ = 0;
  std::map<int64_t, WholeFrame> whole_;  // waiting for older ones
  size_t wholeBytes_ = 0;
  std::optional<SoundShape> sound_;  // of the last whole block
  SequenceTracker sequences_;
  uint64_t missingBefore_ = 0;  // of the senders before
  uint64_t gapsBefore_ = 0;
  AssemblerCounters counters_;
};

}  // namespace Veldrift
