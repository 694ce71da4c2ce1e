// When to ask for a key frame: at once when pictures begin to wait for one, and then ever more
// seldom, since a network that loses key frames is made worse by more of them.
//
// Threads: the caller's matter.
#pragma once

#include <cstdint>

#include "support/clock.h"

namespace Veldrift {

class KeyFrameAsker {
 public:
  // One comes by itself at the start of a connection.
  void BeginConnection(int64_t nowNs);

  // Whether to ask now. `wanted`: pictures wait for a key frame.
  bool Due(bool wanted, int64_t nowNs);

  // A key frame takes so long to arrive: nobody is helped by the next one before.
  void SetTravel(int64_t travelNs) { travelNs_ = travelNs; }

  static constexpr int64_t kShortestNs = 300 * kNanosPerMilli;
  static constexpr int64_t kLongestNs = 2'400 * kNanosPerMilli;

 private:
  int64_t nextNs_ = 0;
  int64_t periodNs_ = kShortestNs;
  int64_t travelNs_ = 0;
};

}  // namespace Veldrift
