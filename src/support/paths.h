// Which host this process is, and where the plug-in's own folders lie.
//
// Threads: any thread. The host and the application support folder are found once and kept.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace Veldrift {

enum class HostApplication : int32_t {
  Premiere = 0,
  AfterEffects = 1,
  MediaEncoder = 2,
  UnknownHost = 3,
};

// What differs by host. `suffix` is empty for Premiere, else "ae", "ame" or "x".
struct HostTraits {
  const char* displayText;
  const char* suffix;
  uint16_t controlPort;
};
const HostTraits& TraitsOf(HostApplication host);

// The host by the name of its executable file: `fileName` is a path or a name.
HostApplication HostFromExecutable(const std::filesystem::path& fileName);

// The host of this process, found on the first call.
HostApplication DetectHostApplication();

// `stem` + "-" + suffix + `extension`, or without the dash and suffix for Premiere:
// ("plugin", ".log") gives "plugin-ae.log" in After Effects.
std::string PerHostFileName(HostApplication host, std::string_view stem,
                            std::string_view extension);

// `<roaming>/Veldrift`, which need not exist.
std::filesystem::path GetAppSupportDir();
// Makes sure that it exists; true if it is there as a directory afterwards.
bool EnsureAppSupportDir();

// `<local>/Veldrift`, for logs, dumps and "transitions.csv"; worked out anew at each call.
std::filesystem::path GetLocalDir();

// The plug-in log of this host, in GetLocalDir(); worked out anew at each call.
std::filesystem::path GetPluginLogPath();

// The machine's name as UTF-8 text, "PC" if it has none.
std::string GetHostComputerName();

// Puts both folders under `home` for this process (`home/settings` and `home/local` take the places
// of `<roaming>` and `<local>`). For tests; call it before other threads exist.
void UseFoldersUnder(const std::filesystem::path& home);
// What takes the place of `<local>`; nothing where UseFoldersUnder wasn't called.
std::optional<std::filesystem::path> MovedLocalFolder();

}  // namespace Veldrift
