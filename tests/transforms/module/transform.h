// One encoder, as an application gets it from the platform. A synchronous one encodes inside
// ProcessInput; an asynchronous one on a thread of its own, and it keeps to the rules of its
// events: an input without a credit and an output that wasn't announced are refused.
#pragma once

#include <mfidl.h>
#include <mftransform.h>
#include <windows.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "tests/transforms/common/com_ptr.h"
#include "tests/transforms/module/call_gate.h"
#include "tests/transforms/module/codec_properties.h"
#include "tests/transforms/module/encoding.h"
#include "tests/transforms/module/event_source.h"
#include "tests/transforms/module/media_types.h"
#include "tests/transforms/module/output_shelf.h"
#include "tests/transforms/module/traits.h"
#include "tests/transforms/module/transform_base.h"
#include "tests/transforms/module/worker.h"

namespace Veldrift::Transforms {

// Threads: any. The encoding's lock is never taken with the transform's held.
class Transform final : public TransformBase, public IMFShutdown {
 public:
  // `who` names it in the trace.
  Transform(const Kind& kind, const Traits& traits, std::string who);
  ~Transform() override;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
  ULONG STDMETHODCALLTYPE AddRef() override { return ++references_; }
  ULONG STDMETHODCALLTYPE Release() override;

  HRESULT STDMETHODCALLTYPE GetAttributes(IMFAttributes** attributes) override;

  HRESULT STDMETHODCALLTYPE GetInputStreamInfo(DWORD id, MFT_INPUT_STREAM_INFO* info) override;
  HRESULT STDMETHODCALLTYPE GetOutputStreamInfo(DWORD id, MFT_OUTPUT_STREAM_INFO* info) override;
  HRESULT STDMETHODCALLTYPE GetInputAvailableType(DWORD id, DWORD place,
                                                  IMFMediaType** type) override;
  HRESULT STDMETHODCALLTYPE GetOutputAvailableType(DWORD id, DWORD place,
                                                   IMFMediaType** type) override;
  HRESULT STDMETHODCALLTYPE SetInputType(DWORD id, IMFMediaType* type, DWORD flags) override;
  HRESULT STDMETHODCALLTYPE SetOutputType(DWORD id, IMFMediaType* type, DWORD flags) override;
  HRESULT STDMETHODCALLTYPE GetInputCurrentType(DWORD id, IMFMediaType** type) override;
  HRESULT STDMETHODCALLTYPE GetOutputCurrentType(DWORD id, IMFMediaType** type) override;

  HRESULT STDMETHODCALLTYPE ProcessMessage(MFT_MESSAGE_TYPE message, ULONG_PTR value) override;
  HRESULT STDMETHODCALLTYPE ProcessInput(DWORD id, IMFSample* sample, DWORD flags) override;
  HRESULT STDMETHODCALLTYPE ProcessOutput(DWORD flags, DWORD count, MFT_OUTPUT_DATA_BUFFER* buffers,
                                          DWORD* status) override;

  HRESULT STDMETHODCALLTYPE Shutdown() override;
  HRESULT STDMETHODCALLTYPE GetShutdownStatus(MFSHUTDOWN_STATUS* status) override;

 private:
  struct Input {
    ComPtr<IMFSample> sample;
    FrameOrder order;
    bool stalled = false;
  };

  bool Async() const { return kind_.family.async; }
  bool Unlocked() const;
  // Through the gate; an asynchronous transform has to be unlocked first.
  HRESULT Answer(const char* call, const std::function<HRESULT(std::string& details)>& body);

  Bytes HeaderNow();
  HRESULT AcceptOutputType(IMFMediaType& type, bool testOnly);
  HRESULT AcceptInputType(IMFMediaType& type, bool testOnly);

  HRESULT SetManager(IUnknown* manager);
  HRESULT Handle(MFT_MESSAGE_TYPE message, ULONG_PTR value);
  void Start();
  void Drain();
  void Flush();

  HRESULT AdmitInput(IMFSample& sample, Input& input);
  HRESULT Encode(const Input& input);
  void EncodeOnWorker(const Input& input);
  void Announce(size_t outputs);
  void GiveCredit();

  HRESULT ChooseOutput(MFT_OUTPUT_DATA_BUFFER& buffer);
  HRESULT HandOut(MFT_OUTPUT_DATA_BUFFER& buffer, std::string& details);
  // Counts the last one if the client hasn't given it back, and takes note of the next.
  void NoteProvided(IMFSample* sample);

  const Kind& kind_;
  const Traits traits_;
  CallGate gate_;
  CodecProperties properties_;
  EventSource events_;
  Encoding encoding_;
  const ComPtr<IMFAttributes> attributes_;
  std::atomic<ULONG> references_{1};

  std::mutex mutex_;
  // Guarded by mutex_.
  ComPtr<IMFMediaType> inputType_;
  ComPtr<IMFMediaType> outputType_;
  OutputFormat format_;
  ComPtr<IUnknown> manager_;
  OutputShelf shelf_;
  int framesIn_ = 0;
  int credits_ = 0;
  size_t announced_ = 0;
  bool streaming_ = false;
  bool refused_ = false;
  bool renegotiating_ = false;
  bool changed_ = false;
  ComPtr<IMFSample> lastProvided_;
  int kept_ = 0;  // provided samples

  // Last: its thread uses the rest.
  std::unique_ptr<Worker> worker_;
};

}  // namespace Veldrift::Transforms
