// What the module did against the rules of the host's interface. One book a process, since the
// suites' calls carry no object.
//
// Threads: any.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/mutex.h"

namespace Veldrift {

struct Fault {
  std::string sentence;
  uint64_t times = 0;
};

class FaultBook {
 public:
  static FaultBook& Instance();

  // The same sentence again is counted. `sentence` is about the module: "slot 9 answered -4".
  void Note(const std::string& sentence);

  // In the order in which they were first seen.
  std::vector<Fault> All() const;

 private:
  FaultBook() = default;

  mutable Mutex mutex_;
  std::vector<Fault> faults_ VD_GUARDED_BY(mutex_);
};

}  // namespace Veldrift
