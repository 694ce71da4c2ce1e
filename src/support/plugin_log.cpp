#include "support/plugin_log.h"

#include <cstdarg>

#include "platform/calendar.h"
#include "platform/mutex.h"
#include "platform/system.h"
#include "support/log_line.h"
#include "support/paths.h"

namespace Veldrift {
namespace {

// Read while the module loads, before any thread of ours exists.
const int32_t minimumLevel = MinimumLogLevel(GetEnvironment("VD_LOG_DEBUG"));

// Guards the file, from the path to the close.
Mutex& FileMutex() {
  static Mutex mutex;
  return mutex;
}

void AppendToLog(std::string_view line) {
  MutexLock lock(FileMutex());
  AppendRotating(GetPluginLogPath(), line);
}

}  // namespace

void PluginLog(const LogCategory& category, LogLevel level, const char* format, ...) {
  if (level < minimumLevel) return;
  va_list arguments;
  va_start(arguments, format);
  const LogLine line =
      FormatLogLine(LocalTime(WallClockMillis()), category, level, format, arguments);
  va_end(arguments);
  if (line.length == 0) return;
  WriteToDebugger(line.text.data());
  try {
    AppendToLog({line.text.data(), line.length});
  } catch (...) {
    // Out of memory for the path: the debugger has the line.
  }
}

}  // namespace Veldrift
