#include "platform/folders.h"

namespace Veldrift {
namespace {

bool IsGiven(const std::optional<std::string>& text) { return text && !text->empty(); }

// `first`, else `home` with `below` appended, else `fallback`; an empty variable counts as unset.
std::string FromEnvironment(const EnvironmentLookup& environment, const char* first,
                            const char* home, const char* below, const char* fallback) {
  if (const auto folder = environment(first); IsGiven(folder)) return *folder;
  if (const auto folder = environment(home); IsGiven(folder)) return *folder + below;
  return fallback;
}

// Relative paths in these variables are invalid, by the convention behind them, and ignored.
EnvironmentLookup AbsoluteOnly(const EnvironmentLookup& environment) {
  return [&environment](const char* name) {
    auto value = environment(name);
    if (value && !value->starts_with('/')) value.reset();
    return value;
  };
}

}  // namespace

std::string WindowsRoamingFolder(const std::optional<std::string>& knownFolder,
                                 const EnvironmentLookup& environment) {
  if (IsGiven(knownFolder)) return *knownFolder;
  return FromEnvironment(environment, "APPDATA", "USERPROFILE", "\\AppData\\Roaming", "C:\\");
}

std::string WindowsLocalFolder(const EnvironmentLookup& environment) {
  return FromEnvironment(environment, "LOCALAPPDATA", "USERPROFILE", "\\AppData\\Local", ".");
}

std::string PosixRoamingFolder(const EnvironmentLookup& environment) {
  return FromEnvironment(AbsoluteOnly(environment), "XDG_CONFIG_HOME", "HOME", "/.config", "/");
}

std::string PosixLocalFolder(const EnvironmentLookup& environment) {
  return FromEnvironment(AbsoluteOnly(environment), "XDG_STATE_HOME", "HOME", "/.local/state", ".");
}

}  // namespace Veldrift
