// The seam at the platform's encoder transforms: what Media Foundation's objects do, one call each,
// and nothing that is decided. All that is decided stands above it, where every system builds it.
//
// Answers named `int32_t` are the platform's own: 0 or more is success, below 0 an error, whose
// name HresultName knows. Real: encoder/mf/. Fake: tests/support/scripted_transform.h.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "encoder/annex_b.h"

namespace Veldrift {

// Answers that decide what happens next.
namespace transform_error {

inline constexpr int32_t kFail = static_cast<int32_t>(0x80004005);
// A transform that has output to give takes no input. The platform's headers give this number
// another name than our log does: the number counts.
inline constexpr int32_t kNotAccepting = static_cast<int32_t>(0xC00D36B5);
inline constexpr int32_t kStreamChange = static_cast<int32_t>(0xC00D6D61);
inline constexpr int32_t kNeedMoreInput = static_cast<int32_t>(0xC00D6D72);

}  // namespace transform_error

// What both sides of a transform are negotiated for.
struct TransformFormat {
  int32_t codec = 0;
  int32_t width = 0;
  int32_t height = 0;
  int32_t fps = 30;
  uint32_t bitrate = 0;  // bits per second
};

// One NV12 frame on its way into a transform. Times are in units of 100 nanoseconds.
//
// Threads: one at a time.
class TransformSample {
 public:
  virtual ~TransformSample() = default;

  // The sample's memory, until Unlock; null, with the error, if it can't be had.
  virtual uint8_t* Lock(int32_t& error) = 0;
  // `length` bytes of it have been filled.
  virtual void Unlock(size_t length) = 0;

  virtual void SetTimes(int64_t time, int64_t duration) = 0;
  // The mark of a key frame (clean point), and its removal.
  virtual void MarkKeyFrame() = 0;
  virtual void ClearMark() = 0;
};

// Takes what a transform gives. `data` is valid during the call and never empty; `marked`: the
// transform says that it is a key frame; `time` is the sample's own, if it has one.
class TransformOutputSink {
 public:
  virtual ~TransformOutputSink() = default;
  virtual void OnOutput(ByteSpan data, bool marked, std::optional<int64_t> time) = 0;
};

// The kinds of event that asynchronous transforms send; the numbers are the platform's.
inline constexpr uint32_t kEventError = 1;
inline constexpr uint32_t kEventNeedInput = 601;
inline constexpr uint32_t kEventHaveOutput = 602;
inline constexpr uint32_t kEventDrainComplete = 603;

// An event that has come and can be read, once.
class TransformEvent {
 public:
  virtual ~TransformEvent() = default;
  virtual int32_t Read(uint32_t& type) = 0;
};

// Who is told of an event. Held shared by the platform: it can be told after everybody else is
// gone. Threads: the platform's; one event at a time, since the next one is asked for behind it.
class TransformEventListener {
 public:
  virtual ~TransformEventListener() = default;
  virtual void OnEvent(TransformEvent& event) noexcept = 0;
};

enum class TransformMessage {
  Flush,
  Drain,
  BeginStreaming,
  StartOfStream,
  EndOfStream,
  EndStreaming,
};

enum class CodecProperty {
  LowLatency,  // a truth value; all others are numbers
  RealTime,
  RateControlMode,
  MeanBitRate,
  MaxBitRate,
  Quality,
  GopSize,
  BPictureCount,
  ForceKeyFrame,
  EncodeQp,
};

// One transform, and the settings interface of the codec in it.
//
// Threads: negotiation, messages and properties under one lock of the owner's; input and output too
// for a synchronous transform, and under the driver's queue lock for an asynchronous one, which may
// get a message or a property meanwhile.
class EncoderTransform {
 public:
  // What one attempt to take output came to.
  struct Output {
    enum class Answer {
      Taken,   // the sink had it, unless it was empty
      Failed,  // by ProcessOutput, with `error`; the two below have their own names
      NeedMoreInput,
      StreamChange,
      Unavailable,  // nothing could be asked for: no stream info, or no memory for a sample
    };
    Answer answer = Answer::Unavailable;
    int32_t error = 0;
  };
  struct StreamChange {
    int32_t got = 0;  // the transform's new type
    int32_t set = 0;  // and its acceptance; kFail if there was no type to accept
  };
  enum class InputOffer { Nv12, Other, NoMore };

  virtual ~EncoderTransform() = default;

  // ---- Negotiation, in this order ----
  virtual bool IsAsynchronous() = 0;
  // Reads the attributes again and unlocks. `readError` is the reading's answer.
  virtual int32_t UnlockAsynchronous(int32_t& readError) = 0;
  // Hands it the device manager; nothing if there is none.
  virtual std::optional<int32_t> OfferDevice() = 0;
  virtual int32_t SetOutputType(const TransformFormat& format) = 0;
  virtual InputOffer OfferedInput(uint32_t index) = 0;
  // NV12 in the format's size and rate, on the offered type of this index, or on a plain one.
  virtual int32_t SetInputType(const TransformFormat& format, std::optional<uint32_t> offered) = 0;

  // It says that it takes textures of Direct3D 11.
  virtual bool IsD3d11Aware() = 0;

  // ---- Settings ----
  // Without them every SetProperty fails.
  virtual bool HasProperties() = 0;
  virtual int32_t SetProperty(CodecProperty property, uint32_t value) = 0;
  // The sequence header in the type of its output; empty if it gives none.
  virtual std::vector<uint8_t> SequenceHeader() = 0;

  // ---- The stream ----
  virtual int32_t SendMessage(TransformMessage message) = 0;
  virtual int32_t ProcessInput(TransformSample& sample) = 0;
  // Takes one output, in a sample of the transform's or of ours as it wants.
  virtual Output TakeOutput(TransformOutputSink& sink) = 0;
  // Takes the type that a transform has changed its output to.
  virtual StreamChange AcceptStreamChange() = 0;

  // ---- Events ----
  // Whether it can send any.
  virtual int32_t OpenEvents() = 0;
  // Asks for the next event: the listener is told once.
  virtual int32_t RequestEvent(const std::shared_ptr<TransformEventListener>& listener) = 0;
  // No event is asked for any more.
  virtual void CloseEvents() = 0;
};

}  // namespace Veldrift
