#include "encoder/output_port.h"

#include "support/guarded.h"

namespace Veldrift {
namespace {

constexpr LogCategory kCategory{kLogSubsystem, "encoder"};

// A stream has one unit under way, or two if the callback is slow for once.
constexpr size_t kSpareUnits = 2;

}  // namespace

OutputPort::OutputPort() { spare_.reserve(kSpareUnits); }

void OutputPort::SetCallback(EncodedFrameCallback callback) {
  SharedCallback replacement;
  if (callback) replacement = std::make_shared<const EncodedFrameCallback>(std::move(callback));
  {
    MutexLock lock(mutex_);
    std::swap(callback_, replacement);
  }
  // The old one dies here, outside the lock: it may own something that calls back.
}

void OutputPort::Open() {
  MutexLock lock(mutex_);
  open_ = true;
  ++stream_;
  keyFrameOut_ = false;
}

void OutputPort::Seal() {
  MutexLock lock(mutex_);
  open_ = false;
}

EncodedUnit OutputPort::Blank() {
  MutexLock lock(mutex_);
  if (spare_.empty()) return {};
  EncodedUnit unit = std::move(spare_.back());
  spare_.pop_back();
  return unit;
}

void OutputPort::Post(EncodedUnit unit) {
  MutexLock lock(mutex_);
  if (!open_) return;
  waiting_.push_back({std::move(unit), stream_});
  ++postedUnits_;
}

void OutputPort::Emit() {
  if (!BeginEmission()) return;
  Waiting next;
  SharedCallback callback;
  while (TakeNext(next, callback)) {
    if (callback) {
      const EncodedUnit& unit = next.unit;
      RunGuarded(kCategory, "output callback", [&] {
        (*callback)(unit.data.data(), unit.data.size(), unit.keyFrame, unit.timestamp);
      });
      callback.reset();  // before the unit counts as emitted: nothing of it outlives a drain
    }
    FinishUnit(std::move(next));
  }
}

bool OutputPort::BeginEmission() {
  MutexLock lock(mutex_);
  return !std::exchange(emitting_, true);
}

// Nothing left ends the emission, in the same step: a unit that is posted later finds nobody at it.
bool OutputPort::TakeNext(Waiting& next, SharedCallback& callback) {
  MutexLock lock(mutex_);
  if (waiting_.empty()) {
    emitting_ = false;
    return false;
  }
  next = std::move(waiting_.front());
  waiting_.erase(waiting_.begin());
  callback = callback_;
  return true;
}

void OutputPort::FinishUnit(Waiting&& done) {
  MutexLock lock(mutex_);
  if (done.unit.keyFrame && done.stream == stream_) keyFrameOut_ = true;
  if (spare_.size() < kSpareUnits) spare_.push_back(std::move(done.unit));
  ++emittedUnits_;
  emitted_.NotifyAll();
}

void OutputPort::Drain() {
  uint64_t posted = 0;
  {
    MutexLock lock(mutex_);
    posted = postedUnits_;
  }
  Emit();
  MutexLock lock(mutex_);
  while (emittedUnits_ < posted) emitted_.Wait(lock);
}

bool OutputPort::KeyFrameOut() const {
  MutexLock lock(mutex_);
  return keyFrameOut_;
}

}  // namespace Veldrift
