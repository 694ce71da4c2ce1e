// What the system knows about this process, its user and its machine.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>

namespace Veldrift {

// The value as UTF-8; nothing if the variable is unset. Set and empty is an empty text.
std::optional<std::string> GetEnvironment(const char* name);

// Full path of the process's main executable, empty if the system doesn't tell. On Windows at most
// 519 wide characters: a longer path comes cut.
std::filesystem::path GetExecutablePath();

// The folder that holds a user's roaming settings (Windows: the known folder, then APPDATA, then
// USERPROFILE\AppData\Roaming, then C:\; elsewhere XDG_CONFIG_HOME, then HOME/.config, then /).
// Asked anew at each call.
std::filesystem::path FindRoamingFolder();
// The folder for logs and dumps (Windows: LOCALAPPDATA, then USERPROFILE\AppData\Local, then ".";
// elsewhere XDG_STATE_HOME, then HOME/.local/state, then "."). Asked anew at each call.
std::filesystem::path FindLocalFolder();

// The machine's name without its domain, UTF-8; empty if there is none.
std::string GetComputerName();

// Fills the buffer from the system's cryptographic generator. False: it failed, and the buffer's
// contents are undefined.
bool FillRandom(std::span<std::byte> buffer);

// A new UUID's 16 bytes in text order (the bytes as the usual text form shows them); nothing on
// failure.
std::optional<std::array<uint8_t, 16>> CreateUuid();

// The calling thread's number as the system shows it.
uint32_t ThreadNumber();

// Pauses the calling thread for at least that time, as far as the system's timer is true to it: on
// Windows for the next whole millisecond.
void SleepNanos(int64_t nanos);

// Hands a NUL-terminated line to the debugger's channel; where there is none, nothing happens.
void WriteToDebugger(const char* line);

}  // namespace Veldrift
