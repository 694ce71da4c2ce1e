// One frame on its way in: the fragments that have come so far. Fragments lie in slots in order of
// arrival, so the memory follows what really came, not what a header announces.
//
// Threads: belongs to its assembler's thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "net/media_datagram.h"
#include "tools/receiver/sound_concealment.h"
#include "tools/receiver/whole_frame.h"

namespace Veldrift {

class PendingFrame {
 public:
  enum class AddResult {
    Added,
    Duplicate,  // the fragment is there already
    Mismatch,   // says something else about the frame than its first datagram did
  };

  // Takes the frame's properties from its first datagram, which still has to be added.
  PendingFrame(const MediaDatagram& first, int64_t nowNs);

  AddResult Add(const MediaDatagram& datagram, int64_t nowNs);

  // Whether the frame can be had: all data fragments are there, or as many fragments of either kind
  // as there are data fragments.
  bool Complete() const { return slots_ >= dataCount_; }

  // The frame, once it is complete. Nothing if the block code refused or the frame's end
  // contradicts itself. The object is used up.
  std::optional<WholeFrame> Take();

  // What has come, of a frame that won't be complete: its properties without bytes, and the bytes
  // with their gaps. The object is used up.
  WholeFrame TakePart(PartialFrame& part);

  int64_t FirstNs() const { return firstNs_; }
  int64_t LastNs() const { return lastNs_; }
  size_t Bytes() const { return blocks_.size() + slotOf_.size() * sizeof(uint32_t); }

 private:
  static constexpr uint32_t kNoSlot = UINT32_MAX;

  bool Agrees(const MediaDatagram& datagram) const;
  std::byte* Block(uint32_t slot) { return blocks_.data() + size_t{slot} * kFragmentBytes; }
  void NoteEnd(const MediaDatagram& datagram);
  bool Repair();
  WholeFrame Properties() const;
  void Gather(std::vector<std::byte>& out);

  const DatagramHeader first_;
  const size_t dataCount_;
  const int64_t firstNs_;
  int64_t lastNs_;
  std::vector<uint32_t> slotOf_;  // by fragment index
  std::vector<std::byte> blocks_;
  size_t slots_ = 0;
  size_t dataHere_ = 0;
  size_t repaired_ = 0;
  size_t lastLength_ = 0;  // of the last data fragment; 0: not known yet
  bool endContradicts_ = false;
  std::optional<uint32_t> sendTimeMicros_;
};

}  // namespace Veldrift
