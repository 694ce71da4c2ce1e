// The host's side: its suites, and the records that pass through the module's entry.
//
// These are this project's own records. They carry what the module needs and nothing else, and they
// are the one place to adapt to a host's published interface: the module reads and writes the
// host's memory only through the types of this header, and `veldrift-host` implements the same
// types from the other side. All of it is plain C data with natural alignment, passed by pointer.
//
// Times are the host's ticks: a count of `TicksPerSecond` (Time suite) to the second.
#pragma once

#include <cstdint>

namespace Veldrift::Host {

// 0 is success. The module itself answers only 0 and kErrorUnsupported.
using Error = int32_t;
inline constexpr Error kNoError = 0;
inline constexpr Error kErrorUnsupported = -4;

// ---- Suites -----------------------------------------------------------------------------------

inline constexpr const char* kPpixSuiteName = "Premiere PPix Suite";
inline constexpr int32_t kPpixSuiteVersion = 1;
inline constexpr const char* kAudioSuiteName = "Premiere Playmod Audio Suite";
inline constexpr int32_t kAudioSuiteVersion = 4;
inline constexpr const char* kTimeSuiteName = "Premiere Time Suite";
inline constexpr int32_t kTimeSuiteVersion = 1;

// Finds suites by name and version. `*suite` is one of the suite records below, the host's memory,
// valid until the matching ReleaseSuite. Any thread.
struct SuiteAccess {
  Error (*AcquireSuite)(const char* name, int32_t version, const void** suite);
  Error (*ReleaseSuite)(const char* name, int32_t version);
};

// A frame the host rendered. Opaque: the PPix suite opens it.
using FrameHandle = struct OpaqueFrame*;

struct Rect {
  int32_t left, top, right, bottom;
};

inline constexpr int32_t kAccessReadOnly = 0;

// Pixel formats are four-character codes, first character lowest: 'b','g','r','a' is 0x61726762.
// 8-bit BGRA, rows top first.
inline constexpr uint32_t kPixelFormatBgra = 0x61726762;

// Opens frame handles. Whoever was given a handle disposes of it, once.
struct PpixSuite {
  Error (*Dispose)(FrameHandle frame);
  Error (*GetPixels)(FrameHandle frame, int32_t access, char** pixels);
  Error (*GetBounds)(FrameHandle frame, Rect* bounds);
  Error (*GetRowBytes)(FrameHandle frame, int32_t* rowBytes);
  Error (*GetPixelFormat)(FrameHandle frame, uint32_t* format);
};

// Hands out the sound of the play with `playID`: `frameCount` samples a channel into `buffers`,
// one pointer a channel. A negative result means that there is none.
struct AudioSuite {
  Error (*GetNextAudioBuffer)(int32_t playID, int64_t startTicks, float** buffers,
                              uint32_t frameCount);
};

struct TimeSuite {
  Error (*GetTicksPerSecond)(int64_t* ticksPerSecond);
};

// ---- Records ----------------------------------------------------------------------------------

// The host's utility functions, given with each instance.
struct Utilities {
  SuiteAccess* (*GetSuiteAccess)();
};

// Slot 0 fills it in: the plug-in's name and what it can do.
struct PluginRecord {
  wchar_t displayName[256];
  int32_t version;
  int32_t hasSetup;        // slot 2 opens a window
  int32_t hasAudio;        // slots 12 to 14
  int32_t hasVideo;        // slot 11
  int32_t hasClock;        // slots 9 and 10
  int32_t hasStreamLabel;  // the one capability that stays 0
  int32_t pushesAudio;     // audio may be pushed
  int32_t isBroadcast;     // frames leave the machine
};

// One transmit instance. The host owns it; `slot` belongs to the module between slots 4 and 5.
struct InstanceRecord {
  void* slot;
  const Utilities* utilities;
  int32_t playID;         // 0 is none; names the play for the audio suite
  float sampleRate;       // of the timeline, in Hz; not above 0: unknown
  uint32_t channels;      // of the timeline; 0: unknown
  int64_t ticksPerFrame;  // not above 0: unknown
};

// One audio mode (slot 6).
struct AudioMode {
  float sampleRate;
  int32_t sampleRateInteger;
  int32_t channelCount;
  int32_t channelLabels[2];
  int64_t latencyTicks;
};

// One video mode (slot 7). A size or aspect of 0 means any.
struct VideoMode {
  int32_t width, height;
  int32_t aspectNumerator, aspectDenominator;
  int32_t fieldType;
  uint32_t pixelFormat;
  int64_t latencyTicks;
};

// Advances the host's clock by `ticks`; called on the module's clock thread.
using ClockCallback = void (*)(void* data, int64_t ticks);

inline constexpr int32_t kPlayModePlaying = 1;

// Slot 9.
struct ClockRecord {
  ClockCallback callback;
  void* callbackData;
  int32_t mode;  // kPlayModePlaying runs the clock
};

// Slot 11: the frames of one point in time, the one to be shown first. A handle may be null.
struct FrameEntry {
  FrameHandle frame;
};
struct FrameList {
  uint64_t frameCount;
  const FrameEntry* frames;
};

// Slot 12: the module writes how many samples it wants a call.
struct AudioStart {
  int32_t samplesPerFrame;
  int32_t scrubbing;
};

// Slot 13: one block of sound, a pointer a channel; a null pointer is a silent channel.
struct AudioBlock {
  const float* const* buffers;
  uint32_t sampleCount;
  uint32_t channelCount;
};

// ---- The table --------------------------------------------------------------------------------

inline constexpr int kSlotCount = 19;

// What xTransmitEntry fills, in slot order. Every function answers 0 or kErrorUnsupported, throws
// nothing, and does nothing for an instance whose slot is empty.
struct TransmitTable {
  Error (*Startup)(PluginRecord* plugin);                                                   // 0
  Error (*Shutdown)();                                                                      // 1
  Error (*SetupDialog)(void* parentWindow);                                                 // 2
  Error (*NeedsReset)(int32_t* answer);                                                     // 3
  Error (*CreateInstance)(InstanceRecord* instance);                                        // 4
  Error (*DisposeInstance)(InstanceRecord* instance);                                       // 5
  Error (*QueryAudioMode)(const InstanceRecord* instance, int32_t index, AudioMode* mode);  // 6
  Error (*QueryVideoMode)(const InstanceRecord* instance, int32_t index, VideoMode* mode);  // 7
  Error (*ActivateDeactivate)(InstanceRecord* instance, int32_t audio, int32_t video);      // 8
  Error (*StartClock)(InstanceRecord* instance, const ClockRecord* clock);                  // 9
  Error (*StopClock)(InstanceRecord* instance);                                             // 10
  Error (*PushVideo)(InstanceRecord* instance, const FrameList* frames);                    // 11
  Error (*StartPushAudio)(InstanceRecord* instance, AudioStart* start);                     // 12
  Error (*PushAudio)(InstanceRecord* instance, const AudioBlock* block);                    // 13
  Error (*StopPushAudio)(InstanceRecord* instance);                                         // 14
  Error (*Unused15)();                                                                      // 15
  Error (*Unused16)();                                                                      // 16
  Error (*SupportsPlayback)(int32_t* answer);                                               // 17
  Error (*SupportsScrubbing)(int32_t* answer);                                              // 18
};

// The module's two exports.
inline constexpr const char* kEntryExport = "xTransmitEntry";
inline constexpr const char* kPublishExport = "vd_transmit_publish_playback_state";

// `load` is not 0 when the host loads the module and 0 when it lets go of it; the first and third
// argument are the host's own and unused here. Answers 0.
using EntryFunction = Error (*)(void* hostContext, int32_t load, void* reserved,
                                TransmitTable* table);
// Sends the playback state to the phone: not 0 is playing. Answers 1 if it went out, else 0.
using PublishFunction = int32_t (*)(int32_t state);

}  // namespace Veldrift::Host
