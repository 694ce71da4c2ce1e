// The plug-in's log: one line a call, to the debugger's channel and to one file per host
// application, `<local>/Veldrift/plugin.log` (plugin-ae.log, plugin-ame.log, plugin-x.log), rotated
// once to ".1" above 4 MiB.
//
// Threads: any thread, at any time, under any lock: the log's own mutex is a leaf.
#pragma once

#include <cstdint>

namespace Veldrift {

// The one identifier that all categories share.
inline constexpr const char* kLogSubsystem = "com.ombrette.veldrift";

struct LogCategory {
  const char* subsystem;
  const char* category;
};

enum LogLevel : int32_t {
  kLogDebug = 0,
  kLogInfo = 1,
  kLogError = 2,
  kLogFault = 3,
};

// Writes "[time subsystem:category:LEVEL] message\r\n". `format` is a printf format in UTF-8; an
// annotation behind a percent sign, as in "%{public}s", is removed before formatting. The message
// is cut at 1,023 bytes. Never fails towards the caller. Below the minimum level (info, or debug
// when the environment variable VD_LOG_DEBUG was exactly "1" at load) it costs one comparison.
void PluginLog(const LogCategory& category, LogLevel level, const char* format, ...);

}  // namespace Veldrift
