// The times that frames came with, for the output that belongs to them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

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

  // What the frame of that time came with; for a time that isn't known, the newest frame's.
  uint64_t Find(int64_t codecTime) const {
    for (const Entry& entry : entries_) {
      if (entry.codecTime == codecTime) return entry.given;
    }
    return Newest();
  }
  uint64_t Newest() const { return entries_[newest_].given; }

 private:
  struct Entry {
    int64_t codecTime = -1;
    uint64_t given = 0;
  };

  std::array<Entry, 32> entries_{};
  size_t next_ = 0;
  size_t newest_ = 0;
};

}  // namespace Veldrift
