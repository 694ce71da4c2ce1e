// A codec that does what a test tells it to, below the encoder shell.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "encoder/encoder_backend.h"
#include "platform/mutex.h"

namespace Veldrift {

// What the test sees and sets, shared by all backends of an encoder and of its clones.
// Threads: any.
class BackendScript {
 public:
  struct Behaviour {
    bool failOpen = false;
    bool throwInOpen = false;
    bool throwInTakeIn = false;
    EncoderBackend::Intake intake = EncoderBackend::Intake::Taken;
    bool failSubmit = false;
    bool throwInSubmit = false;
    bool takesChanges = true;
    int32_t rateError = 0;
    uint32_t mostBitrate = UINT32_MAX;  // where the codec ends the rate
    bool unitAtClose = false;           // held back until then
    // Units come from a thread of the backend's own, which also emits.
    bool asynchronous = false;
  };

  void Change(const std::function<void(Behaviour&)>& change);
  Behaviour Now() const;

  void Record(const std::string& call);
  // What was called since the last question.
  std::vector<std::string> TakeCalls();
  void RecordPlan(const EncoderPlan& plan);
  EncoderPlan LastPlan() const;

 private:
  mutable Mutex mutex_;
  Behaviour behaviour_ VD_GUARDED_BY(mutex_);
  std::vector<std::string> calls_ VD_GUARDED_BY(mutex_);
  EncoderPlan plan_ VD_GUARDED_BY(mutex_);
};

// Its units hold one slice, IDR or not, and its parameter sets go in front by the assembler.
std::unique_ptr<EncoderBackend> MakeScriptedBackend(std::shared_ptr<BackendScript> script);

// An encoder over it.
std::unique_ptr<IHardwareEncoder> MakeScriptedShell(std::shared_ptr<BackendScript> script);

}  // namespace Veldrift
