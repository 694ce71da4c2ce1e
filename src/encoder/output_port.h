// Where an encoder's output leaves it.
#pragma once

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "encoder/hardware_encoder.h"
#include "platform/mutex.h"

namespace Veldrift {

// One access unit.
struct EncodedUnit {
  std::vector<uint8_t> data;  // Annex B
  bool keyFrame = false;
  uint64_t timestamp = 0;  // microseconds, as the frame came with it
};

// Owns the callback, and keeps emission and the encoder's locks apart: whoever makes units posts
// them, under whatever locks, and emits when it holds none. Units go out in the order in which they
// were posted, one at a time, by whichever thread finds nobody emitting. Held shared: it outlives
// the encoder for those who come late, and takes nothing more from them once it is sealed.
//
// Threads: any. Its mutex is a leaf and isn't held while the callback runs. What the callback
// throws ends here.
class OutputPort {
 public:
  OutputPort();

  // Replaces the callback. One that is running on another thread finishes on its own copy.
  void SetCallback(EncodedFrameCallback callback);

  // A new stream begins: units are taken from now on, and no key frame of it has gone out.
  void Open();
  // No unit is taken any more; those inside still go out. Doesn't wait.
  void Seal();

  // An empty unit, with the memory of one that has gone out.
  EncodedUnit Blank();
  // Takes a unit; while the port is sealed it is dropped.
  void Post(EncodedUnit unit);

  // Emits all that is inside, unless another thread is at it: that one then emits these as well.
  // Never under a lock that the callback may take.
  void Emit();
  // Emits all that was posted before, or waits until whoever does it is done. Not from inside the
  // callback.
  void Drain();

  // A key frame of this stream has gone out.
  bool KeyFrameOut() const;

 private:
  struct Waiting {
    EncodedUnit unit;
    uint64_t stream;
  };
  using SharedCallback = std::shared_ptr<const EncodedFrameCallback>;

  bool BeginEmission();
  bool TakeNext(Waiting& next, SharedCallback& callback);
  void FinishUnit(Waiting&& done);

  mutable Mutex mutex_;
  CondVar emitted_;
  SharedCallback callback_ VD_GUARDED_BY(mutex_);
  bool open_ VD_GUARDED_BY(mutex_) = false;
  uint64_t stream_ VD_GUARDED_BY(mutex_) = 0;
  bool keyFrameOut_ VD_GUARDED_BY(mutex_) = false;
  bool emitting_ VD_GUARDED_BY(mutex_) = false;
  std::vector<Waiting> waiting_ VD_GUARDED_BY(mutex_);
  std::vector<EncodedUnit> spare_ VD_GUARDED_BY(mutex_);
  // Counts of units since the port was made.
  uint64_t postedUnits_ VD_GUARDED_BY(mutex_) = 0;
  uint64_t emittedUnits_ VD_GUARDED_BY(mutex_) = 0;
};

}  // namespace Veldrift
