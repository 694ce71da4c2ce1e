#include "tests/support/scratch.h"

#include <system_error>

#include "platform/file.h"
#include "support/identifiers.h"
#include "support/paths.h"

namespace Veldrift {

ScratchFolder::ScratchFolder()
    : path_(std::filesystem::temp_directory_path() / ("veldrift-test-" + MakeToken(8))) {
  std::filesystem::create_directories(path_);
}

ScratchFolder::~ScratchFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

void ForbidDiscovery(const std::filesystem::path& roaming) {
  const std::filesystem::path settings = roaming / "Veldrift";
  std::filesystem::create_directories(settings);
  WriteWholeFile(settings / "install.json", "{\"discoverable\":\"false\"}\n");
}

ScratchHome::ScratchHome() : localBefore_(MovedLocalFolder()) {
  ForbidDiscovery(folder_.Path() / "settings");
  UseFoldersUnder(folder_.Path());
}

ScratchHome::~ScratchHome() {
  if (localBefore_) UseFoldersUnder(localBefore_->parent_path());
}

std::string ReadPluginLog() { return ReadWholeFile(GetPluginLogPath()).value_or(""); }

size_t CountInPluginLog(const std::string& text) { return CountIn(ReadPluginLog(), text); }

size_t CountIn(const std::string& log, const std::string& text) {
  size_t count = 0;
  for (size_t at = log.find(text); at != std::string::npos; at = log.find(text, at + 1)) ++count;
  return count;
}

}  // namespace Veldrift
