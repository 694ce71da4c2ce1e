// Where a user's settings and logs lie, by the sources that the two families of systems know. The
// order stands here, once, free of system calls; posix/ and win32/ ask with the real environment.
// All texts are UTF-8.
#pragma once

#include <functional>
#include <optional>
#include <string>

namespace Veldrift {

using EnvironmentLookup = std::function<std::optional<std::string>(const char* name)>;

// The known folder, APPDATA, USERPROFILE\AppData\Roaming, C:\.
std::string WindowsRoamingFolder(const std::optional<std::string>& knownFolder,
                                 const EnvironmentLookup& environment);
// LOCALAPPDATA, USERPROFILE\AppData\Local, ".".
std::string WindowsLocalFolder(const EnvironmentLookup& environment);

// XDG_CONFIG_HOME, HOME/.config, "/". Relative values count as unset.
std::string PosixRoamingFolder(const EnvironmentLookup& environment);
// XDG_STATE_HOME, HOME/.local/state, ".".
std::string PosixLocalFolder(const EnvironmentLookup& environment);

}  // namespace Veldrift
