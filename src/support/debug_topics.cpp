#include "support/debug_topics.h"

#include <cstdarg>
#include <cstdio>

#include "platform/file.h"
#include "platform/system.h"
#include "support/debug_topic_files.h"
#include "support/paths.h"

namespace Veldrift {
namespace {

// Never destroyed: threads of ours can still write while the process's statics go.
DebugTopicFiles& Files() {
  static DebugTopicFiles& files = *new DebugTopicFiles;
  return files;
}

}  // namespace

// The standard's call_once can stay locked for ever behind an exception on some systems, so the
// once-only step is a lock and a flag: behind an exception the next call tries again.
void InitDebugTopics() {
  static Mutex mutex;
  static std::atomic<bool> done{false};
  if (done) return;
  MutexLock lock(mutex);
  if (done) return;
  Files().Init(GetLocalDir(), GetEnvironment("VELDRIFT_DEBUG_TOPICS"));
  done = true;
}

bool IsDebugTopicEnabled(DebugTopic topic) { return Files().IsEnabled(topic); }

void DebugTopicLog(DebugTopic topic, const char* format, ...) {
  if (!IsDebugTopicEnabled(topic)) return;
  char text[1024] = "";
  if (format != nullptr) {
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    if (length < 0) return;
  }
  DebugTopicWrite(topic, text);
}

void DebugTopicWrite(DebugTopic topic, const char* text) {
  if (!IsDebugTopicEnabled(topic)) return;
  InitDebugTopics();
  Files().Write(topic, text);
}

std::string DebugLogPath(const std::string& name) {
  const auto folder = GetLocalDir();
  return PathText(name.empty() ? folder : folder / PathFromText(name));
}

}  // namespace Veldrift
