#include "plugin_table.h"

#include <algorithm>
#include <cwchar>

#include "fault_book.h"
#include "platform/file.h"

namespace Veldrift {

namespace {

constexpr uint32_t kMostSamplesPerBlock = 48'000;
constexpr int32_t kUntouched = -77;

void Judge(int slot, const char* role, Host::Error answer, Host::Error expected = Host::kNoError) {
  if (answer == expected) return;
  FaultBook::Instance().Note("slot " + std::to_string(slot) + " (" + role + ") answered " +
                             std::to_string(answer) + " and not " + std::to_string(expected));
}

void Expect(bool good, const std::string& otherwise) {
  if (!good) FaultBook::Instance().Note(otherwise);
}

// As far as the module's name is one: letters of ASCII, which is all that a log needs.
std::string Narrow(const wchar_t* text, size_t length) {
  std::string narrow;
  for (size_t i = 0; i < length; ++i) narrow += text[i] < 0x80 ? char(text[i]) : '?';
  return narrow;
}

}  // namespace

// ---- The module --------------------------------------------------------------------------------

HostExit PluginTable::Load(const std::filesystem::path& module, const ModuleOptions& options,
                           std::string& sentence) {
  std::string reason;
  module_ = LoadModule(module, reason, options);
  if (!module_) {
    sentence = "can't load the module " + PathText(module) + ": " + reason;
    return kExitNoModule;
  }
  entry_ = reinterpret_cast<Host::EntryFunction>(module_->FindSymbol(Host::kEntryExport));
  if (entry_ == nullptr || entry_(nullptr, 1, nullptr, &table_) != Host::kNoError ||
      table_.Startup == nullptr) {
    sentence = "the module " + PathText(module) + " has no working " + Host::kEntryExport;
    return kExitNoModule;
  }
  plugin_ = {};
  if (table_.Startup(&plugin_) != Host::kNoError) {
    sentence = "the module's startup failed";
    return kExitNoModule;
  }
  started_ = true;
  if (!ReadRecord(sentence)) return kExitRefused;
  AskWhatItSupports();
  return kExitGood;
}

bool PluginTable::ReadRecord(std::string& sentence) {
  const size_t room = std::size(plugin_.displayName);
  const size_t length = size_t(std::find(plugin_.displayName, plugin_.displayName + room, L'\0') -
                               plugin_.displayName);
  Expect(length > 0 && length < room, "gave itself no name, or one without an end");
  name_ = Narrow(plugin_.displayName, length);
  for (const int32_t able : {plugin_.hasSetup, plugin_.hasAudio, plugin_.hasVideo, plugin_.hasClock,
                             plugin_.hasStreamLabel, plugin_.pushesAudio, plugin_.isBroadcast}) {
    Expect(able == 0 || able == 1, "has a capability that is neither 0 nor 1");
  }
  if (plugin_.hasVideo != 0 && plugin_.hasClock != 0) return true;
  sentence = "the module takes no pictures, or drives no clock: there is nothing to play into";
  return false;
}

void PluginTable::AskWhatItSupports() {
  int32_t reset = kUntouched, playback = kUntouched, scrubbing = kUntouched;
  Judge(3, "needs reset", table_.NeedsReset(&reset));
  Judge(15, "unused", table_.Unused15());
  Judge(16, "unused", table_.Unused16());
  Judge(17, "supports playback", table_.SupportsPlayback(&playback));
  Judge(18, "supports scrubbing", table_.SupportsScrubbing(&scrubbing));
  Expect(reset == 0 && playback == 1 && scrubbing == 1,
         "wrote something unexpected as the answer of slot 3, 17 or 18");
}

void PluginTable::Unload() {
  if (started_) Judge(1, "shutdown", table_.Shutdown());
  if (entry_ != nullptr) Judge(-1, "entry", entry_(nullptr, 0, nullptr, &table_));
  started_ = false;
  entry_ = nullptr;
  module_.reset();
}

bool PluginTable::OpenSetup() {
  if (plugin_.hasSetup == 0) return false;
  Judge(2, "setup", table_.SetupDialog(nullptr));
  return true;
}

// ---- An instance -------------------------------------------------------------------------------

HostExit PluginTable::Create(Host::InstanceRecord& instance, std::string& sentence) {
  const Host::Error error = table_.CreateInstance(&instance);
  if (error != Host::kNoError) {
    Expect(instance.slot == nullptr, "left something in the slot of an instance that it refused");
    sentence = "the module made no instance: error " + std::to_string(error);
    return kExitRefused;
  }
  Expect(instance.slot != nullptr, "made an instance and left its slot empty");
  return AskForModes(instance, sentence);
}

// As a host asks: mode after mode until the module has no more.
HostExit PluginTable::AskForModes(const Host::InstanceRecord& instance, std::string& sentence) {
  constexpr int32_t kManyModes = 100;
  Host::VideoMode video{};
  Host::AudioMode audio{};
  int32_t videoModes = 0, audioModes = 0;
  bool bgra = false;
  Host::Error end = Host::kNoError;
  while (videoModes < kManyModes &&
         (end = table_.QueryVideoMode(&instance, videoModes, &video)) == Host::kNoError) {
    bgra = bgra || video.pixelFormat == Host::kPixelFormatBgra;
    Expect(video.latencyTicks >= 0, "offers a video mode that comes before its time");
    ++videoModes;
  }
  Judge(7, "video mode behind the last", end, Host::kErrorUnsupported);
  while (audioModes < kManyModes &&
         (end = table_.QueryAudioMode(&instance, audioModes, &audio)) == Host::kNoError) {
    const bool good = audio.sampleRate > 0 && audio.channelCount > 0 && audio.latencyTicks >= 0 &&
                      (instance.sampleRate <= 0 || audio.sampleRate == instance.sampleRate);
    Expect(good, "offers sound that doesn't fit the instance");
    ++audioModes;
  }
  Judge(6, "audio mode behind the last", end, Host::kErrorUnsupported);
  if (bgra && (audioModes > 0 || plugin_.hasAudio == 0)) return kExitGood;
  sentence = "the module offers no video in BGRA, or no sound";
  return kExitRefused;
}

void PluginTable::Dispose(Host::InstanceRecord& instance) {
  Judge(5, "dispose instance", table_.DisposeInstance(&instance));
  Expect(instance.slot == nullptr,
         "left something in the slot of an instance that was disposed of");
}

void PluginTable::Activate(Host::InstanceRecord& instance, bool audio, bool video) {
  Judge(8, "activate", table_.ActivateDeactivate(&instance, audio ? 1 : 0, video ? 1 : 0));
}

void PluginTable::StartClock(Host::InstanceRecord& instance, const Host::ClockRecord& clock) {
  Judge(9, "start clock", table_.StartClock(&instance, &clock));
}

void PluginTable::StopClock(Host::InstanceRecord& instance) {
  Judge(10, "stop clock", table_.StopClock(&instance));
}

void PluginTable::PushVideo(Host::InstanceRecord& instance, const Host::FrameList* frames) {
  Judge(11, "push video", table_.PushVideo(&instance, frames));
}

uint32_t PluginTable::StartPushAudio(Host::InstanceRecord& instance, bool scrubbing) {
  if (!TakesPushedSound()) return 0;
  Host::AudioStart start{kUntouched, scrubbing ? 1 : 0};
  Judge(12, "start of pushed sound", table_.StartPushAudio(&instance, &start));
  if (start.samplesPerFrame > 0 && uint32_t(start.samplesPerFrame) <= kMostSamplesPerBlock) {
    return uint32_t(start.samplesPerFrame);
  }
  Expect(false, "wants " + std::to_string(start.samplesPerFrame) + " samples a block");
  return 0;
}

void PluginTable::PushAudio(Host::InstanceRecord& instance, const Host::AudioBlock& block) {
  Judge(13, "push sound", table_.PushAudio(&instance, &block));
}

void PluginTable::StopPushAudio(Host::InstanceRecord& instance) {
  if (TakesPushedSound()) Judge(14, "end of pushed sound", table_.StopPushAudio(&instance));
}

}  // namespace Veldrift
