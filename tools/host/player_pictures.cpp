// A player's picture thread: the picture under the playhead, when it is due.
#include <algorithm>
#include <array>
#include <cstdlib>
#include <utility>

#include "player.h"
#include "support/clock.h"

namespace Veldrift {

namespace {

constexpr int64_t kLongestWaitNs = 50 * kNanosPerMilli;
constexpr int64_t kShortestWaitNs = 100 * kNanosPerMicro;
constexpr uint64_t kOddListEvery = 5;
constexpr uint32_t kPixelFormatArgb = 0x62677261;
constexpr int kOriginLeft = -32;
constexpr int kOriginTop = 48;

}  // namespace

void Player::RunPictures() {
  int64_t place = 0;
  bool jumped = false;
  while (NextPlace(place, jumped)) ShowPlace(place, jumped);
}

// Waits for a picture that is due; false at the end.
bool Player::NextPlace(int64_t& place, bool& jumped) {
  MutexLock lock(mutex_);
  while (!ending_) {
    const int64_t nowNs = SteadyNanos();
    const int speed = playhead_.Speed();
    place = playhead_.PlaceAt(nowNs);
    jumped = std::exchange(wantsPicture_, false);
    if (jumped) return true;
    if (speed == 0) {
      changed_.Wait(lock);
      continue;
    }
    if (place != lastPlace_) {
      const int64_t passed = lastPlace_ < 0 ? 1 : std::abs(place - lastPlace_);
      if (speed == 1) counters_.framesSkipped += uint64_t(passed - 1);
      placesPlayed_ += uint64_t(passed);
      return true;
    }
    // Without a tick, the next place never comes.
    const int64_t waitNs =
        std::clamp(playhead_.NanosToNextPlace(nowNs), kShortestWaitNs, kLongestWaitNs);
    SystemClock().WaitUntil(changed_, lock, nowNs + waitNs);
  }
  return false;
}

// A picture's number grows with its place; behind a jump, and backwards, it goes on from the last
// one, so that whoever reads stamps sees every picture in the order in which it was pushed.
uint32_t Player::NumberOf(int64_t place, bool jumped) {
  const int64_t moved = lastPlace_ < 0 ? 1 : place - lastPlace_;
  lastPlace_ = place;
  if (moved != 0) lastNumber_ += jumped || moved < 0 ? 1 : moved;
  return uint32_t(lastNumber_ < 0 ? 0 : lastNumber_);
}

void Player::ShowPlace(int64_t place, bool jumped) {
  PictureFormat format;
  {
    const MutexLock lock(mutex_);
    format = format_;
  }
  pictures_.SetFormat(format);
  const uint32_t number = NumberOf(place, jumped);
  if (ways_.frames && lists_++ % kOddListEvery == 0) PushOddList();
  FramePool& pool = HostSuites::Instance().Frames();
  const int left = ways_.frames ? kOriginLeft : 0;
  const int top = ways_.frames ? kOriginTop : 0;
  const Host::FrameHandle frame =
      pool.Take(format.width, format.height, Host::kPixelFormatBgra, left, top);
  if (!pictures_.Paint(place, number, frame->pixels.data(), frame->rowBytes)) {
    pool.Dispose(frame);
    const MutexLock lock(mutex_);
    sourceEnded_ = true;
    playhead_.Stand(SteadyNanos());
    return;
  }
  // Behind the one to be shown, what a host renders ahead: of another size, and one that it hasn't.
  std::array<Host::FrameEntry, 3> entries = {{{frame}, {nullptr}, {nullptr}}};
  if (ways_.frames) entries[1].frame = pool.Take(format.width / 2, format.height / 2);
  const Host::FrameList list{ways_.frames ? entries.size() : 1, entries.data()};
  const int64_t before = SteadyNanos();
  table_.PushVideo(record_, &list);
  const int64_t took = SteadyNanos() - before;
  const MutexLock lock(mutex_);
  ++counters_.framesPushed;
  counters_.pushNs += took;
  counters_.longestPushNs = std::max(counters_.longestPushNs, took);
}

// What a module must give back without showing it.
void Player::PushOddList() {
  FramePool& pool = HostSuites::Instance().Frames();
  std::array<Host::FrameEntry, 2> entries = {};
  Host::FrameList list{1, entries.data()};
  switch (lists_ / kOddListEvery % 5) {
    case 0:
      return table_.PushVideo(record_, nullptr);
    case 1:
      list = {0, nullptr};
      break;
    case 2:
      list.frameCount = 2;
      entries[1].frame = pool.Take(640, 480);
      break;
    case 3:
      entries[0].frame = pool.Take(640, 480, kPixelFormatArgb);
      break;
    default:
      entries[0].frame = pool.Take(15, 2000);
      break;
  }
  table_.PushVideo(record_, &list);
}

}  // namespace Veldrift
