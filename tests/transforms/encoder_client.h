// Drives one encoder as an application does: lists, activates, negotiates, feeds and fetches. For
// the tests of the scripted encoders; synchronous ones and, by their events, asynchronous ones.
#pragma once

#include <mfapi.h>
#include <mfidl.h>
#include <mftransform.h>
#include <strmif.h>

// Behind the one above, which declares the properties as plain identifiers.
#include <codecapi.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tests/transforms/common/com_ptr.h"

namespace Veldrift::Transforms {

inline constexpr int kWidth = 208;  // no multiple of 32
inline constexpr int kHeight = 144;
inline constexpr int kFps = 30;
inline constexpr UINT32 kBitRate = 2'000'000;
inline constexpr LONGLONG kFrameTime = 333'333;
inline constexpr UINT32 kAllFlags = 0x47;

struct Listed {
  std::string name;
  std::string vendor;  // empty: none
  ComPtr<IMFActivate> activation;
};

// The encoders that MFTEnumEx shows.
std::vector<Listed> ListEncoders(bool hevc, UINT32 flags = kAllFlags);

struct Unit {
  std::vector<uint8_t> bytes;
  bool clean = false;
  LONGLONG time = 0;
  LONGLONG duration = 0;
};

// A picture with something that moves, some noise, and a patch of one colour at its upper left, as
// NV12.
std::vector<uint8_t> PictureAt(int frame);
inline constexpr uint8_t kPatchLuma = 81;
inline constexpr uint8_t kPatchCb = 90;
inline constexpr uint8_t kPatchCr = 200;
inline constexpr int kPatchSide = 64;

ComPtr<IMFSample> SampleOf(const std::vector<uint8_t>& picture, int frame);

// Threads: one; HRESULTs of the call that failed.
class EncoderClient {
 public:
  explicit EncoderClient(bool hevc) : hevc_(hevc) {}
  // Also where it never got so far.
  ~EncoderClient();
  EncoderClient(const EncoderClient&) = delete;
  EncoderClient& operator=(const EncoderClient&) = delete;

  // The first of the list, unlocked; up to its first frame.
  HRESULT Open();
  // The steps of Open.
  HRESULT Activate();
  HRESULT Unlock();
  HRESULT NegotiateOutput();
  HRESULT NegotiateInput();
  HRESULT Start();

  HRESULT Set(const GUID& property, uint32_t value);
  HRESULT Message(MFT_MESSAGE_TYPE message, ULONG_PTR value = 0);
  HRESULT Put(int frame) { return PutSample(*SampleOf(PictureAt(frame), frame).Get()); }
  HRESULT PutSample(IMFSample& sample) { return transform_->ProcessInput(0, &sample, 0); }
  HRESULT Take(Unit& unit);
  // The one output of one sample, when the encoder is asked for it.
  HRESULT EncodeOne(IMFSample& sample, Unit& unit);
  // Answers a stream change as an application must.
  HRESULT Renegotiate();
  std::vector<uint8_t> Header();

  // Waits for the next event; its type, and its status if it isn't S_OK.
  MediaEventType Event(HRESULT* status = nullptr);
  // Passes over other events; at once with a synchronous encoder, which has none. The status.
  HRESULT WaitFor(MediaEventType type);

  // Feeds frames from `first` on and answers what comes out of them: everything that a synchronous
  // encoder has after each, or, by its events, an asynchronous one until it has given an output for
  // each.
  std::vector<Unit> Encode(int first, int count);
  // What comes out after the last frame; an asynchronous encoder says when it is all.
  std::vector<Unit> Drain();

  bool Async() const { return async_; }
  IMFTransform& Object() { return *transform_.Get(); }

 private:
  void TakeAll(std::vector<Unit>& units);
  std::vector<Unit> EncodeByEvents(int first, int count);

  const bool hevc_;
  bool async_ = false;
  int credits_ = 0;
  ComPtr<IMFTransform> transform_;
  ComPtr<ICodecAPI> properties_;
  ComPtr<IMFMediaEventGenerator> events_;
};

}  // namespace Veldrift::Transforms
