// Small text files that are read whole and replaced whole. Not synchronised within the process: the
// caller holds its own lock. A reader in another process sees the old text or the new one.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "support/clock.h"
#include "support/plugin_log.h"

namespace Veldrift {

// The file's text. A reader can meet the file in the instant of its replacement, so an empty one is
// read again, 5 times in all and 5 ms apart. Nothing: there is no file, or it stayed empty.
std::optional<std::string> ReadTextFile(const std::filesystem::path& path, Clock& clock);

// Who writes, in the log lines of failures: the category, and what the texts begin with.
struct TextFileWriter {
  const LogCategory& category;
  const char* prefix;
};

// Writes the text beside the file, with ".tmp" appended to its name, and moves that over the file.
// False: it failed, which is logged, and the file is what it was.
bool ReplaceTextFile(const std::filesystem::path& path, std::string_view text,
                     const TextFileWriter& writer);

}  // namespace Veldrift
