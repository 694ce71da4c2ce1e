// What a session's frames go to: a recording, a decoder, a view.
//
// Threads: Take comes from the receiving threads, one a stream, and must not wait; the others from
// the session's.
#pragma once

#include <string>

#include "tools/receiver/whole_frame.h"

namespace Veldrift {

class FrameSink {
 public:
  virtual ~FrameSink() = default;

  virtual void Take(const SharedFrame& frame) = 0;

  // Whether it waits for a key frame that should be asked for.
  virtual bool WantsKeyFrame() const { return false; }

  // Why it can't go on, in one sentence; empty while it can. It ends the session.
  virtual std::string Failure() const { return {}; }

  // Whether nobody wants what it makes any more, which is no failure. It ends the session.
  virtual bool Done() const { return false; }

  // Works off everything that has come, and closes what it has open. Nothing is taken after it.
  virtual void Finish() = 0;
};

}  // namespace Veldrift
