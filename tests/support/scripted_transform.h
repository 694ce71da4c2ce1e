// Encoder transforms that do what a test tells them to, and the platform that they are found on.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "encoder/transform_backend.h"
#include "encoder/transform_platform.h"
#include "platform/mutex.h"
#include "tests/support/scripted_events.h"

namespace Veldrift {

// One transform that can be found, and how it behaves. Answers below 0 are failures.
struct ScriptedTransformTraits {
  std::string name = "scripted";
  std::string vendor;
  std::vector<TransformClass> listedIn = {TransformClass::Software};
  bool asynchronous = false;
  bool d3d11Aware = false;
  bool properties = true;
  int32_t activate = 0;
  int32_t readAttributes = 0;
  int32_t unlock = 0;
  int32_t takeDevice = 0;
  int32_t outputType = 0;
  int32_t inputType = 0;
  std::vector<EncoderTransform::InputOffer> offers = {EncoderTransform::InputOffer::Nv12};
  int32_t openEvents = 0;
  int32_t requestEvent = 0;
  // Asynchronous: a thread of its own sends the events that belong to what happens, with so many
  // frames wanted at once. Without it, the test sends each event.
  bool sendsEvents = false;
  int wants = 2;
  bool answersDrain = true;
  bool wantsDuringStart = false;  // a frame, on another thread, before START_OF_STREAM returns
};

// What tests set and see; it outlives its encoders. Threads: any.
class TransformScript {
 public:
  struct Behaviour {
    std::vector<ScriptedTransformTraits> transforms = {{}};
    bool device = true;
    bool residentActive = false;  // what setting it up comes to
    bool residentEmpty = false;   // no sample is free
    bool gpuConverts = false;
    bool allowAsynchronous = true;
    int32_t makeSample = 0;
    int32_t lock = 0;
    int32_t drain = 0;           // the message's answer
    int32_t setProperty = 0;     // of every property
    std::deque<int32_t> inputs;  // answers of the next calls of ProcessInput; then success
    std::deque<EncoderTransform::Output> outputs;  // of the next of TakeOutput; then what is there
    EncoderTransform::StreamChange change;
    std::vector<uint8_t> header;    // the sequence header from the next reading on
    size_t delay = 0;               // frames that it holds back
    size_t capacity = SIZE_MAX;     // with so many inside it takes no more
    std::function<void()> onInput;  // while it takes a frame
    bool timedOutput = true;        // samples have a time
    int64_t timeOff = 0;            // by which it is off the frame's, as if it were rounded
  };

  void Change(const std::function<void(Behaviour&)>& change);
  Behaviour Now() const;
  // The next scripted answer, if there is one.
  std::optional<int32_t> NextInput();
  std::optional<EncoderTransform::Output> NextOutput();

  void Record(const std::string& call);
  // What was called since the last question. Only what begins with one of the words, if any.
  std::vector<std::string> TakeCalls(const std::vector<std::string>& words = {});

  // ---- Events, of the transform that was opened last ----
  std::shared_ptr<EventChannel> OpenChannel(bool sendsEvents);
  // Tells whoever asked for the next event, on this thread; false if nobody did. `readError`: what
  // reading it answers.
  bool Send(uint32_t type, int32_t readError = 0);

 private:
  mutable Mutex mutex_;
  Behaviour behaviour_ VD_GUARDED_BY(mutex_);
  std::vector<std::string> calls_ VD_GUARDED_BY(mutex_);
  std::shared_ptr<EventChannel> channel_ VD_GUARDED_BY(mutex_);
  std::unique_ptr<EventThreads> threads_ VD_GUARDED_BY(mutex_);
};

std::unique_ptr<TransformPlatform> MakeScriptedPlatform(std::shared_ptr<TransformScript> script);

// An encoder over it.
std::unique_ptr<IHardwareEncoder> MakeTransformEncoder(std::shared_ptr<TransformScript> script,
                                                       const std::string& engineId = "auto",
                                                       Clock& clock = SystemClock());

}  // namespace Veldrift
