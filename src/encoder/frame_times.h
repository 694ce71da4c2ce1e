// The times that frames came with, for the output that belongs to them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace Veldrift {

// A codec counts time in its own way, from 0 on at every opening; the stream keeps one timeline. So
// a codec's time only finds the given one again, for as many frames as a codec may hold back.
//
// Threads: one at a time.
class FrameTimes {
 public:
  // The frame with the codec's time `codecTime` came with `given`.
  void Put(int64_t codecTime, uint64_t given) {
    entries_[next_] = {codecTime, given};
    newest_ = next_;
    next_ = (next_ + 1) % entries_.size();
  }

  // What the frame of that time came with: of the nearest one, at most `tolerance` away, since
  // codecs round. For a time that isn't known, what the newest frame came with.
  uint64_t Find(int64_t codecTime, int64_t tolerance = 0) const {
    const Entry* nearest = nullptr;
    int64_t off = tolerance;
    for (const Entry& entry : entries_) {
      const int64_t distance = std::abs(entry.codecTime - codecTime);
      if (distance > off || (nearest && distance == off)) continue;
      nearest = &entry;
      off = distance;
    }
    return nearest ? nearest->given : Newest();
  }
  uint64_t Newest() const { return entries_[newest_].given; }

 private:
  struct Entry {
    int64_t codecTime = INT64_MIN / 2;  // of no frame
    uint64_t given = 0;
  };

  std::array<Entry, 32> entries_{};
  size_t next_ = 0;
  size_t newest_ = 0;
};

}  // namespace Veldrift
