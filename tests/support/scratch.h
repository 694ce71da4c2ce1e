// Folders that a test may fill: under the system's temporary folder, removed at the end.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace Veldrift {

class ScratchFolder {
 public:
  ScratchFolder();
  ~ScratchFolder();
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  const std::filesystem::path& Path() const { return path_; }

 private:
  std::filesystem::path path_;
};

// Keeps the plug-in with this settings folder (the one that the system would name, in which it has
// a folder of its own) from advertising itself: tests send nothing to the machine's networks.
void ForbidDiscovery(const std::filesystem::path& roaming);

// Puts the plug-in's settings and logs of this process under a scratch folder for a scope, and
// keeps it off the network.
class ScratchHome {
 public:
  ScratchHome();
  ~ScratchHome();
  ScratchHome(const ScratchHome&) = delete;
  ScratchHome& operator=(const ScratchHome&) = delete;

  const std::filesystem::path& Path() const { return folder_.Path(); }

 private:
  const std::optional<std::filesystem::path> localBefore_;
  ScratchFolder folder_;
};

// Everything that the process's plug-in log holds now (the file of the unknown host, which a test
// binary is); and how often `text` stands in it.
std::string ReadPluginLog();
size_t CountInPluginLog(const std::string& text);
size_t CountIn(const std::string& log, const std::string& text);

}  // namespace Veldrift
