// The module's table as a host that looks at every answer calls it: what the module answers against
// the rules is noted in the FaultBook. It is called only for what it says it can do.
//
// Threads: Load, Unload and Create belong to the main thread; the rest may be called from any, as
// a host does.
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "host_exit.h"
#include "session/host_interface.h"
#include "tools/platform/module_loader.h"

namespace Veldrift {

class PluginTable {
 public:
  // Loads the module and starts it up (slots 0, 3, 17 and 18). Otherwise `sentence` says why not.
  HostExit Load(const std::filesystem::path& module, const ModuleOptions& options,
                std::string& sentence);
  // Slot 1, and the module is gone. Also after a Load that failed.
  void Unload();

  // Slot 2; false if the module says that it has no setup.
  bool OpenSetup();

  // Slot 4, and the modes that the instance offers (slots 6 and 7).
  HostExit Create(Host::InstanceRecord& instance, std::string& sentence);
  void Dispose(Host::InstanceRecord& instance);

  void Activate(Host::InstanceRecord& instance, bool audio, bool video);
  void StartClock(Host::InstanceRecord& instance, const Host::ClockRecord& clock);
  void StopClock(Host::InstanceRecord& instance);
  // Null is a list, too.
  void PushVideo(Host::InstanceRecord& instance, const Host::FrameList* frames);
  // The samples that the module wants a block; 0 if it takes no sound.
  uint32_t StartPushAudio(Host::InstanceRecord& instance, bool scrubbing);
  void PushAudio(Host::InstanceRecord& instance, const Host::AudioBlock& block);
  void StopPushAudio(Host::InstanceRecord& instance);

  // What the module called itself, and what it said it can do.
  const std::string& Name() const { return name_; }
  bool TakesPushedSound() const { return plugin_.hasAudio != 0 && plugin_.pushesAudio != 0; }

 private:
  bool ReadRecord(std::string& sentence);
  void AskWhatItSupports();
  HostExit AskForModes(const Host::InstanceRecord& instance, std::string& sentence);

  std::unique_ptr<LoadedModule> module_;
  Host::EntryFunction entry_ = nullptr;
  Host::TransmitTable table_{};
  Host::PluginRecord plugin_{};
  std::string name_;
  bool started_ = false;
};

}  // namespace Veldrift
