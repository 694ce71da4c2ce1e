#include "tools/receiver/frame_assembler.h"

#include <algorithm>
#include <utility>

namespace Veldrift {

namespace {

constexpr size_t kKeptTexts = 8;
constexpr int64_t kFrameNumbers = 1 << 16;
// So many late datagrams in a row, of so many frames, and nothing else, can't be stragglers: the
// numbering has moved. A single frame that was given up while it still came can be longer.
constexpr size_t kLateRunOfAnotherStream = 1000;
constexpr size_t kLateFramesOfAnotherStream = 4;

const char* StreamName(StreamType stream) {
  return stream == StreamType::Video ? "video" : "audio";
}

}  // namespace

FrameAssembler::FrameAssembler(StreamType stream, const AssemblerLimits& limits, Sink sink)
    : stream_(stream), limits_(limits), sink_(std::move(sink)) {}

void FrameAssembler::Violate(std::string text) {
  ++counters_.violations;
  if (counters_.violationTexts.size() < kKeptTexts) {
    counters_.violationTexts.push_back(std::move(text));
  }
}

void FrameAssembler::Add(std::span<const std::byte> bytes, int64_t nowNs) {
  const std::optional<MediaDatagram> datagram = ParseDatagram(bytes);
  if (!datagram || datagram->header.streamType != stream_) {
    Violate("a datagram of " + std::to_string(bytes.size()) + " bytes on the " +
            StreamName(stream_) + " port isn't one of this stream");
    return;
  }
  ++counters_.datagrams;
  counters_.bytes += bytes.size();
  Accept(*datagram, nowNs);
  Poll(nowNs);
}

void FrameAssembler::Accept(const MediaDatagram& datagram, int64_t nowNs) {
  const int64_t number = Unwrap(datagram.header);
  sequences_.Note(datagram.header.sequence);
  if (whole_.contains(number)) {
    ++counters_.duplicates;
  } else if (!TooLate(number, datagram.parity)) {
    AddTo(number, datagram, nowNs);
  }
}

int64_t FrameAssembler::Unwrap(const DatagramHeader& header) {
  if (!started_) {
    started_ = true;
    next_ = header.frameNumber;
    return next_;
  }
  int64_t number = next_ + int16_t(uint16_t(header.frameNumber - uint16_t(next_)));
  // A gap of more than half the numbers looks like a step back; the running number tells them
  // apart, since every frame has at least one datagram.
  if (number < next_ && sequences_.AheadBy(header.sequence) >= kFrameNumbers / 2) {
    number += kFrameNumbers;
  }
  return number;
}

bool FrameAssembler::TooLate(int64_t number, bool parity) {
  if (number >= next_) {
    lateRun_ = lateFrames_ = 0;
    return false;
  }
  // A frame that lost nothing is delivered before its parity comes.
  ++(parity ? counters_.spareParity : counters_.late);
  if (lateRun_ == 0 || number != lateFrame_) ++lateFrames_;
  lateFrame_ = number;
  if (++lateRun_ < kLateRunOfAnotherStream || lateFrames_ < kLateFramesOfAnotherStream) return true;
  StartOver(number);
  return false;
}

void FrameAssembler::StartOver(int64_t number) {
  lateRun_ = lateFrames_ = 0;
  pending_.clear();
  whole_.clear();
  pendingBytes_ = wholeBytes_ = 0;
  next_ = number;
}

void FrameAssembler::AddTo(int64_t number, const MediaDatagram& datagram, int64_t nowNs) {
  auto [entry, isNew] = pending_.try_emplace(number, datagram, nowNs);
  PendingFrame& frame = entry->second;
  const size_t before = isNew ? 0 : frame.Bytes();
  switch (frame.Add(datagram, nowNs)) {
    case PendingFrame::AddResult::Duplicate:
      ++counters_.duplicates;
      return;
    case PendingFrame::AddResult::Mismatch:
      Violate(std::string(StreamName(stream_)) + " frame " +
              std::to_string(datagram.header.frameNumber) + ": its datagrams disagree about it");
      return;
    case PendingFrame::AddResult::Added:
      break;
  }
  pendingBytes_ += frame.Bytes() - before;
  if (frame.Complete()) {
    Complete(number);
  } else {
    MakeRoom(number);
  }
}

void FrameAssembler::Complete(int64_t number) {
  const auto entry = pending_.find(number);
  pendingBytes_ -= entry->second.Bytes();
  std::optional<WholeFrame> frame = entry->second.Take();
  pending_.erase(entry);
  if (!frame) {
    Violate(std::string(StreamName(stream_)) + " frame " + std::to_string(uint16_t(number)) +
            ": its datagrams disagree about its end");
    return;
  }
  ++counters_.framesWhole;
  counters_.fragmentsRepaired += frame->repairedFragments;
  if (frame->repairedFragments > 0) ++counters_.framesRepaired;
  wholeBytes_ += frame->data.size();
  whole_.emplace(number, std::move(*frame));
  DeliverReady();
}

void FrameAssembler::MakeRoom(int64_t number) {
  while (pending_.size() > 1 &&
         (pending_.size() > limits_.maxPending || pendingBytes_ > limits_.maxPendingBytes)) {
    auto stalest = pending_.end();
    for (auto entry = pending_.begin(); entry != pending_.end(); ++entry) {
      if (entry->first == number) continue;
      if (stalest == pending_.end() || entry->second.LastNs() < stalest->second.LastNs()) {
        stalest = entry;
      }
    }
    pendingBytes_ -= stalest->second.Bytes();
    pending_.erase(stalest);
  }
}

void FrameAssembler::DeliverFirst() {
  const auto first = whole_.begin();
  GiveUpBefore(first->first);
  next_ = first->first + 1;
  WholeFrame frame = std::move(first->second);
  whole_.erase(first);
  wholeBytes_ -= frame.data.size();
  if (stream_ == StreamType::Audio) NoteSound(frame);
  sink_(std::move(frame));
}

// Older blocks of sound come before the one that gave them up.
void FrameAssembler::GiveUpBefore(int64_t number) {
  uint64_t lost = uint64_t(number - next_);
  while (!pending_.empty() && pending_.begin()->first < number) {
    PendingFrame& frame = pending_.begin()->second;
    pendingBytes_ -= frame.Bytes();
    const bool inTurn = pending_.begin()->first >= next_;
    if (inTurn && stream_ == StreamType::Audio && Conceal(frame)) --lost;
    pending_.erase(pending_.begin());
  }
  counters_.framesLost += lost;
  if (sound_) {
    counters_.secondsLost += double(lost) * double(sound_->blockBytes - kAudioHeadBytes) /
                             (sizeof(float) * sound_->head.channels) / sound_->head.sampleRate;
  }
}

void FrameAssembler::NoteSound(const WholeFrame& block) {
  const std::optional<AudioBlockHead> head = ParseAudioHead(block.data);
  if (head && head->channels > 0 && head->sampleRate > 0) sound_ = {*head, block.data.size()};
}

bool FrameAssembler::Conceal(PendingFrame& frame) {
  if (!sound_) return false;
  PartialFrame part;
  WholeFrame block = frame.TakePart(part);
  const std::optional<double> seconds = ConcealSound(part, *sound_);
  if (!seconds) return false;
  ++counters_.framesConcealed;
  counters_.secondsConcealed += *seconds;
  block.data = std::move(part.data);
  block.concealed = true;
  sink_(std::move(block));
  return true;
}

void FrameAssembler::DeliverReady() {
  while (!whole_.empty() &&
         (whole_.begin()->first == next_ || whole_.size() > limits_.maxWaitingWhole ||
          wholeBytes_ > limits_.maxWaitingBytes)) {
    DeliverFirst();
  }
}

void FrameAssembler::Poll(int64_t nowNs) {
  while (!whole_.empty() && nowNs - whole_.begin()->second.wholeNs >= limits_.maxWaitNs) {
    DeliverFirst();
    DeliverReady();
  }
}

void FrameAssembler::Flush() {
  while (!whole_.empty()) DeliverFirst();
}

void FrameAssembler::BeginAnew() {
  Flush();
  StartOver(0);
  started_ = false;
  missingBefore_ += sequences_.Missing();
  gapsBefore_ += sequences_.Gaps();
  sequences_ = {};
}

AssemblerCounters FrameAssembler::Counters() const {
  AssemblerCounters counters = counters_;
  counters.missingDatagrams = missingBefore_ + sequences_.Missing();
  counters.gaps = gapsBefore_ + sequences_.Gaps();
  return counters;
}

}  // namespace Veldrift
