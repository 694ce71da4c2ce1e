#include "net/media_sender.h"

#include <algorithm>
#include <utility>

namespace Veldrift {

MediaSender::Result MediaSender::SendPicture(std::span<const std::byte> unit, bool keyFrame,
                                             uint64_t timestamp) {
  Result result;
  result.dataFragments = DataFragmentCount(unit.size());
  result.parityFragments = ChooseParityCount(result.dataFragments);
  if (result.dataFragments + result.parityFragments > kMaxFragments) {
    result.outcome = Result::Outcome::TooLarge;
    return result;
  }
  FrameToSend frame;
  frame.streamType = StreamType::Video;
  frame.keyFrame = keyFrame;
  frame.parityCount = result.parityFragments;
  frame.timestamp = uint32_t(timestamp);
  frame.data = unit;
  frame.withSendTime = true;
  if (Queue(frame, picture_)) result.outcome = Result::Outcome::Queued;
  return result;
}

void MediaSender::SendSound(std::span<const std::byte> block, uint64_t timestamp) {
  for (size_t at = 0; at < block.size(); at += kMaxFrameBytes) {
    FrameToSend frame;
    frame.streamType = StreamType::Audio;
    frame.timestamp = uint32_t(timestamp);
    frame.data = block.subspan(at, std::min(kMaxFrameBytes, block.size() - at));
    Queue(frame, sound_);
  }
}

bool MediaSender::Queue(FrameToSend& frame, StreamNumbers& numbers) {
  const size_t datagrams = CountDatagrams(frame.data.size(), frame.parityCount);
  if (datagrams == 0) return false;
  // Before the queue: what the queue drops leaves a gap, by which the receiver knows of it.
  frame.frameNumber = numbers.frameNumber++;
  uint32_t sequence = numbers.sequence.fetch_add(uint32_t(datagrams));
  FrameGroup group = MakeFrameGroup(frame);
  if (!FragmentFrame(frame, sequence, clock_.NowNanos(), group)) return false;
  pacer_.Enqueue(std::move(group));
  return true;
}

}  // namespace Veldrift
