// Which encoders a test sees, and how they behave.
//
// Under Wine there is no encoder, so a prefix of its own (cmake/run-wine-transforms runs a program
// in it) has scripted ones: real H.264 and HEVC by libavcodec behind Media Foundation's interfaces.
// All of them are registered at all times. Environment variables of the Windows process choose
// among them and script them; they are read at each listing and each activation, so one process can
// play many scenarios, and nothing has to be registered anew. build_module.sh and install.sh bring
// them to a Wine of another release.
//
// VD_TRANSFORMS        The kinds that the list of encoders shows, in this order. Unset: all, in the
//                      order of common/kinds.h. A kind is "nvidia", "nvidia-async", "intel",
//                      "intel-async", "amd", "amd-async", "other", "other-async" (hardware, the
//                      last two of a maker that nobody knows) or "software": both codecs; with
//                      "-h264" or "-hevc" behind it one. "others" are encoders that a test or Wine
//                      itself registers (Wine 10 has one for H.264);
//                      "none", like every word that is no kind, shows nothing.
// VD_TRANSFORMS_EXACT  Set: the flags of the listing have to fit all at once. Unset: they are
//                      alternatives, so "hardware, synchronous" lists hardware of both ways and
//                      synchronous software, as Windows does.
// VD_TRANSFORM         Traits of all kinds, below; VD_TRANSFORM_NVIDIA_ASYNC those of one family,
//                      VD_TRANSFORM_NVIDIA_ASYNC_HEVC of one kind. The more particular word wins;
//                      failures add up. A word that is no trait makes every activation fail.
// VD_PLATFORM_FAIL     Failures of the platform's own functions: MFStartup, MFTEnumEx,
//                      MFCreateAttributes, MFCreateMediaType, MFCreateSample, MFCreateMemoryBuffer,
//                      MFCreateDXGIDeviceManager, MFCreateVideoSampleAllocatorEx.
// VD_TRANSFORM_TRACE   A file (Windows path) that gets a line for every call: who, which, details,
//                      result: "nvidia-hevc#1 SetValue MeanBitRate 15000000 00000000". "Released"
//                      is a transform's end, and tells how many of the samples that it provided
//                      the client still had when it asked for the next. The number
//                      counts the process's transforms; "platform" calls the functions above.
// VD_TRANSFORM_PICTURES
//                      A file (Windows path) that gets every picture that is encoded, as it was
//                      read out of its sample: width * height * 3 / 2 bytes of NV12 each.
//
// Traits, separated by blanks (frames count from 0):
//
//   d3d=yes|no            accepts a Direct3D manager (hardware: yes, software: no)
//   d3d-aware=yes|no      reports MF_SA_D3D11_AWARE (the same)
//   provides=yes|no       provides its output samples (asynchronous: yes, else: no)
//   output-size=N         the size that GetOutputStreamInfo gives for outputs; 0: it doesn't know.
//                         By itself it gives what any output fits in.
//   largest=WxH           refuses larger pictures (8192x8192); odd ones and those below 16 always
//   nv12=first|later|none at which place of the input types NV12 is offered; it is taken even so
//   header=annexb|record|none
//                         the form of MF_MT_MPEG_SEQUENCE_HEADER: with start codes, an avcC or hvcC
//                         record, or missing
//   late-header=yes|no    no header before the first stream change (no)
//   sets-in-stream=yes|no parameter sets also in front of each key frame of the stream (yes)
//   units=annexb|lengths  how outputs are put together
//   lead=N                begins every output, behind the parameter sets, with N bytes (at least
//   32)
//                         of user data: with lengths, 256 to 511 look like a start code
//   clean-point=yes|no    marks key frames (yes)
//   times=yes|no          gives outputs their time (yes)
//   pieces=N              cuts an output that it provides into N buffers of its sample (1)
//   changes=N[@FRAME]     announces N stream changes in a row before output FRAME (0)
//   refuse=FRAME          holds the output before this frame back until the frame has been refused
//                         once with 0xC00D36B5
//   delay=N               an output comes N frames late; draining brings the rest
//   stall=FRAME           takes this frame and those behind it, and gives nothing for them
//   die=FRAME[=CODE]      at this frame the device is gone (0x887A0005): every later call answers
//                         so, and an asynchronous transform tells by an event of type MEError
//   drains=yes|no         an asynchronous transform answers a drain (yes)
//   credits=N             how many inputs an asynchronous transform asks for at the start (2)
//   threads=N             how many threads code a picture (by itself one up to 1280x720, two
//   above):
//                         with more than one, HEVC isn't the same twice to the byte
//   own-gop=yes|no        places key frames by itself as GOPSize says (yes), or only when forced
//   fail=CALL[@N[..M]][=CODE]
//                         this call fails from its N-th time on (1), up to the M-th, with CODE
//                         (80004005). Calls are the methods' names (ActivateObject, GetAttributes,
//                         SetOutputType, GetInputAvailableType, SetInputType, ProcessInput,
//                         ProcessOutput, ProcessMessage, SetValue, BeginGetEvent, ...), messages
//                         ("COMMAND_DRAIN"), properties as the trace names them ("MeanBitRate"),
//                         and interfaces to be had ("ICodecAPI", "IMFMediaEventGenerator"). Counted
//                         for each transform; ActivateObject and the platform's functions for the
//                         process, anew whenever the variable changes. (Wine tells every activation
//                         that fails as 0xC00D36B2; the trace has the code.)
//
// All of these are strict where an application may go wrong without noticing: types without size,
// rate or bit rate, properties of a wrong type, inputs without a credit, outputs that weren't
// announced, a sample given to a transform that provides them, calls before
// MF_TRANSFORM_ASYNC_UNLOCK.
//
// Of the properties MeanBitRate, MaxBitRate (in mode 1), Quality (in mode 3) and GOPSize act on the
// next frame, VideoForceKeyFrame and VideoEncodeQP on it alone. Two things HEVC can only do with a
// new codec: other rates wait for its next key frame, and a quantiser makes one of the frame it is
// for and of the frame behind. The others change nothing: there is no latency and no B picture.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Veldrift::Transforms {

// A line of the trace.
struct TracedCall {
  std::string who;
  std::string call;
  std::string details;
  uint32_t result = 0;
};

// Sets the variables for a scope, with a trace in a file of its own. Not set: nothing of the sort
// is inherited from outside. Threads: one; other threads may read the environment meanwhile.
class Scenario {
 public:
  // `kinds` as in VD_TRANSFORMS.
  explicit Scenario(const std::string& kinds = "");
  ~Scenario();
  Scenario(const Scenario&) = delete;
  Scenario& operator=(const Scenario&) = delete;

  void Show(const std::string& kinds);
  void ShowExactly();
  // Of all kinds, or of a family or kind. Replaces what was said of it before. Failures that count
  // for the process count from here.
  void Traits(const std::string& traits);
  void TraitsOf(const std::string& kind, const std::string& traits);
  void FailPlatform(const std::string& failures);

  std::vector<TracedCall> Trace() const;
  // Those of one name, whoever was called.
  std::vector<TracedCall> Calls(const std::string& call) const;
  // "MeanBitRate 15000000", in order; also the refused ones.
  std::vector<std::string> PropertiesSet() const;
  void ForgetTrace();

 private:
  void Set(const std::string& name, const std::string& value);

  std::filesystem::path trace_;
  std::map<std::string, std::optional<std::string>> before_;
};

}  // namespace Veldrift::Transforms
