// Narrow logs by topic, one file a topic in the local folder: `debug_<key>.log`, with five earlier
// runs kept. The environment variable VELDRIFT_DEBUG_TOPICS restricts them to a comma-separated
// list of keys.
//
// Threads: any thread. Each topic has a leaf mutex of its own.
#pragma once

#include <cstdint>
#include <string>

namespace Veldrift {

enum class DebugTopic : int32_t {
  Transitions = 0,
  Controller = 1,
  Encoder = 2,
  Telemetry = 3,
  Fps = 4,
  Owd = 5,
  UiSync = 6,
  Count = 7,  // bounds the table: a call with it does nothing
};

// Reads the selection, rotates and opens the files; once per process, at the first call.
void InitDebugTopics();

bool IsDebugTopicEnabled(DebugTopic topic);

// printf-style; nothing if the topic is off. The text is cut at 1,023 bytes.
void DebugTopicLog(DebugTopic topic, const char* format, ...);

// Writes one line "<UTC time> | <thread> | <WORD> | <text>".
void DebugTopicWrite(DebugTopic topic, const char* text);

// The debug directory, joined with `name` if it isn't empty, as UTF-8.
std::string DebugLogPath(const std::string& name);

}  // namespace Veldrift
