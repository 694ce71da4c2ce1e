#include "fault_book.h"

#include <algorithm>

namespace Veldrift {

FaultBook& FaultBook::Instance() {
  static FaultBook book;
  return book;
}

void FaultBook::Note(const std::string& sentence) {
  const MutexLock lock(mutex_);
  const auto found = std::ranges::find(faults_, sentence, &Fault::sentence);
  if (found == faults_.end()) {
    faults_.push_back({sentence, 1});
  } else {
    ++found->times;
  }
}

std::vector<Fault> FaultBook::All() const {
  const MutexLock lock(mutex_);
  return faults_;
}

}  // namespace Veldrift
