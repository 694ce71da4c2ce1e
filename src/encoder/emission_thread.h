// Emission where nobody waits for it but those who ask for it.
#pragma once

#include <memory>
#include <thread>

#include "encoder/output_port.h"
#include "platform/mutex.h"

namespace Veldrift {

// Emits what is posted to a port on a thread of its own. A platform may have one thread for all
// events of an encoder: standing in the callback, it could bring none, and whoever drains the
// encoder, perhaps under a lock that the callback wants, would wait in vain.
//
// Threads: Wake from any, under any lock; the rest by one owner.
class EmissionThread {
 public:
  explicit EmissionThread(std::shared_ptr<OutputPort> port);
  // Waits for a callback that is running.
  ~EmissionThread();
  EmissionThread(const EmissionThread&) = delete;
  EmissionThread& operator=(const EmissionThread&) = delete;

  // Units have been posted.
  void Wake();

 private:
  void Loop();
  bool AwaitWork();

  const std::shared_ptr<OutputPort> port_;
  Mutex mutex_;
  CondVar changed_;
  bool posted_ VD_GUARDED_BY(mutex_) = false;
  bool ending_ VD_GUARDED_BY(mutex_) = false;
  std::thread thread_;
};

}  // namespace Veldrift
