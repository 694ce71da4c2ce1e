// Small text files that are read whole and replaced whole. Not synchronised within the process: the
// caller holds its own lock. A reader in another process sees the old text or the new one.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "support/clock.h"
#include "support/plugin_log.h"

namespace Veldrift {

enum class TextFile {
  Read,
  Missing,     // there is no file, or it stayed empty
  Unreadable,  // it is there, or may be: who takes it for missing and writes, destroys it
};

// The file's text, empty but for Read. A reader can meet the file in the instant of its
// replacement, or while another program holds it: an empty or unreadable one is read again, 5 times
// in all and 5 ms apart.
TextFile ReadTextFile(const std::filesystem::path& path, std::string& text, Clock& clock);

// Who writes, in the log lines of failures: the category, and what the texts begin with.
struct TextFileWriter {
  const LogCategory& category;
  const char* prefix;
};

// Writes the text beside the file, with ".tmp" appended to its name, and moves that over the file;
// the move is tried 5 times, 5 ms apart, since a file that is just being read can't be replaced on
// some systems. False: it failed, which is logged, and the file is what it was.
bool ReplaceTextFile(const std::filesystem::path& path, std::string_view text,
                     const TextFileWriter& writer, Clock& clock);

}  // namespace Veldrift
