// Outputs that are finished and not fetched yet, and when they may be fetched: delayed by some
// frames, withheld before an input that is to be refused, behind stream changes.
#pragma once

#include <deque>
#include <utility>

#include "tests/transforms/module/encoding.h"

namespace Veldrift::Transforms {

// Threads: one at a time.
class OutputShelf {
 public:
  explicit OutputShelf(const Traits& traits)
      : delay_(static_cast<size_t>(traits.delay)),
        changes_(traits.changes),
        changeAt_(traits.changeAt) {}

  // How many outputs may be fetched now that might not before.
  size_t Put(Output output) {
    outputs_.push_back(std::move(output));
    return MakeReady(delay_);
  }
  // At the end of the stream nothing is held back.
  size_t ReleaseDelayed() { return MakeReady(0); }

  void Clear() {
    outputs_.clear();
    ready_ = 0;
  }

  bool HasReady() const { return ready_ > 0; }
  const Output& Front() const { return outputs_.front(); }
  void Pop() {
    outputs_.pop_front();
    --ready_;
    ++fetched_;
  }

  // Whether a change of the stream has to be announced before the front is fetched.
  bool ChangeDue() const { return (changes_ > 0 && fetched_ >= changeAt_) || Front().newSets; }
  void ChangeAnnounced() {
    if (changes_ > 0 && fetched_ >= changeAt_) {
      --changes_;
    } else {
      outputs_.front().newSets = false;
    }
  }

 private:
  size_t MakeReady(size_t held) {
    const size_t before = ready_;
    if (outputs_.size() > held + ready_) ready_ = outputs_.size() - held;
    return ready_ - before;
  }

  const size_t delay_;
  int changes_;
  const int changeAt_;
  std::deque<Output> outputs_;
  size_t ready_ = 0;
  int fetched_ = 0;
};

}  // namespace Veldrift::Transforms
