#include "tools/receiver/pending_frame.h"

#include <algorithm>
#include <cstring>

#include "net/block_code.h"

namespace Veldrift {

PendingFrame::PendingFrame(const MediaDatagram& first, int64_t nowNs)
    : first_(first.header),
      dataCount_(first.header.fragmentCount - first.header.ParityCount()),
      firstNs_(nowNs),
      lastNs_(nowNs),
      slotOf_(first.header.fragmentCount, kNoSlot) {}

bool PendingFrame::Agrees(const MediaDatagram& datagram) const {
  const DatagramHeader& header = datagram.header;
  // A frame's sequence numbers are contiguous and in fragment order.
  return header.fragmentCount == first_.fragmentCount && header.timestamp == first_.timestamp &&
         ((header.flags ^ first_.flags) & ~kFlagSendTime) == 0 &&
         uint32_t(header.sequence - header.fragmentIndex) ==
             uint32_t(first_.sequence - first_.fragmentIndex);
}

void PendingFrame::NoteEnd(const MediaDatagram& datagram) {
  const bool last = datagram.header.fragmentIndex + 1U == dataCount_;
  if (!datagram.parity && !last) return;
  const size_t length = datagram.parity ? datagram.lastFragmentLength : datagram.payload.size();
  if (lastLength_ != 0 && lastLength_ != length) endContradicts_ = true;
  lastLength_ = length;
}

PendingFrame::AddResult PendingFrame::Add(const MediaDatagram& datagram, int64_t nowNs) {
  if (!Agrees(datagram)) return AddResult::Mismatch;
  uint32_t& slot = slotOf_[datagram.header.fragmentIndex];
  if (slot != kNoSlot) return AddResult::Duplicate;
  lastNs_ = nowNs;
  slot = uint32_t(slots_++);
  blocks_.resize(slots_ * kFragmentBytes);  // the last fragment's rest is zero, as the code needs
  std::memcpy(Block(slot), datagram.payload.data(), datagram.payload.size());
  if (!datagram.parity) ++dataHere_;
  if (datagram.sendTimeMicros && !sendTimeMicros_) sendTimeMicros_ = datagram.sendTimeMicros;
  NoteEnd(datagram);
  return AddResult::Added;
}

bool PendingFrame::Repair() {
  std::vector<CodeBlock> blocks;
  std::vector<uint32_t> slots;
  blocks.reserve(dataCount_);
  slots.reserve(dataCount_);
  for (size_t i = 0; i < slotOf_.size() && blocks.size() < dataCount_; ++i) {
    if (slotOf_[i] == kNoSlot) continue;
    blocks.push_back({Block(slotOf_[i]), uint8_t(i)});
    slots.push_back(slotOf_[i]);
  }
  if (!RecoverBlocks(blocks, first_.ParityCount())) return false;
  for (size_t i = 0; i < blocks.size(); ++i) slotOf_[blocks[i].index] = slots[i];
  repaired_ = dataCount_ - dataHere_;
  return true;
}

void PendingFrame::Gather(std::vector<std::byte>& out) {
  const size_t size = (dataCount_ - 1) * kFragmentBytes + lastLength_;
  bool inOrder = true;
  for (size_t i = 0; i < dataCount_; ++i) inOrder = inOrder && slotOf_[i] == i;
  if (inOrder) {
    blocks_.resize(size);
    out = std::move(blocks_);
    return;
  }
  out.resize(size);
  for (size_t i = 0; i < dataCount_; ++i) {
    const size_t at = i * kFragmentBytes;
    std::memcpy(out.data() + at, Block(slotOf_[i]), std::min(kFragmentBytes, size - at));
  }
}

WholeFrame PendingFrame::TakePart(PartialFrame& part) {
  part.endKnown = lastLength_ != 0;
  part.data.resize((dataCount_ - 1) * kFragmentBytes +
                   (part.endKnown ? lastLength_ : kFragmentBytes));
  for (size_t i = 0; i < dataCount_; ++i) {
    if (slotOf_[i] == kNoSlot) {
      part.missing.push_back(i);
      continue;
    }
    const size_t at = i * kFragmentBytes;
    std::memcpy(part.data.data() + at, Block(slotOf_[i]),
                std::min(kFragmentBytes, part.data.size() - at));
  }
  return Properties();
}

std::optional<WholeFrame> PendingFrame::Take() {
  if (endContradicts_ || (dataHere_ < dataCount_ && !Repair())) return std::nullopt;
  WholeFrame frame = Properties();
  Gather(frame.data);
  return frame;
}

WholeFrame PendingFrame::Properties() const {
  WholeFrame frame;
  frame.stream = first_.streamType;
  frame.frameNumber = first_.frameNumber;
  frame.keyFrame = first_.KeyFrame();
  frame.timestamp = first_.timestamp;
  frame.firstDatagramNs = firstNs_;
  frame.wholeNs = lastNs_;
  frame.sendTimeMicros = sendTimeMicros_;
  frame.repairedFragments = repaired_;
  return frame;
}

}  // namespace Veldrift
