// Files as the persistent files, the log and the recordings need them. Paths are std::filesystem
// paths, which hold wide text on Windows; PathText gives UTF-8 for log lines.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace Veldrift {

// UTF-8 and back, whatever the process's code page.
std::string PathText(const std::filesystem::path& path);
std::filesystem::path PathFromText(std::string_view utf8);

enum class FileRead {
  Read,
  NotFound,  // there is no file of this name
  Failed,    // there may be one, but it can't be opened or read to its end
};

// The whole file in `text`, empty for an empty file; empty too if it wasn't read.
FileRead ReadWholeFile(const std::filesystem::path& path, std::string& text);
// The same, for whom it is enough that there is nothing to read.
std::optional<std::string> ReadWholeFile(const std::filesystem::path& path);

enum class WriteResult { Written, OpenFailed, WriteFailed };

// Creates or truncates `path`, writes the bytes and closes it, through to the disk's queue.
WriteResult WriteWholeFile(const std::filesystem::path& path, std::string_view bytes);

// Moves `from` over `to` in one step: a reader sees the old file or the new one, whole. On failure
// false, with the system's message in `error`.
bool ReplaceFile(const std::filesystem::path& from, const std::filesystem::path& to,
                 std::string& error);

// Opens `path` for appending (created if missing, shared with every other reader, writer and
// renamer), writes the bytes with one call and closes it. False if it can't be opened.
bool AppendToFile(const std::filesystem::path& path, std::string_view bytes);

}  // namespace Veldrift
