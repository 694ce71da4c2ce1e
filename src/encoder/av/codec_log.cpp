#include "encoder/av/codec_log.h"

extern "C" {
#include <libavutil/log.h>
}

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

#include "platform/mutex.h"
#include "support/plugin_log.h"

namespace Veldrift {
namespace {

constexpr LogCategory kCategory{kLogSubsystem, "codec"};

struct Sources {
  Mutex mutex;
  std::vector<const void*> objects VD_GUARDED_BY(mutex);
};

Sources& LiveSources() {
  static Sources sources;
  return sources;
}

thread_local bool wholeThread = false;

bool IsOurs(const void* object) {
  if (wholeThread) return true;
  Sources& sources = LiveSources();
  MutexLock lock(sources.mutex);
  return std::find(sources.objects.begin(), sources.objects.end(), object) != sources.objects.end();
}

void Receive(void* object, int level, const char* format, va_list arguments) {
  if (!IsOurs(object)) {
    av_log_default_callback(object, level, format, arguments);
    return;
  }
  if (level > AV_LOG_INFO) return;
  char text[512];
  std::vsnprintf(text, sizeof text, format, arguments);
  std::string line(text);
  while (!line.empty() && line.back() == '\n') line.pop_back();
  if (!line.empty()) PluginLog(kCategory, kLogDebug, "%s", line.c_str());
}

}  // namespace

CodecLogScope::CodecLogScope(const void* object) : object_(object) {
  Sources& sources = LiveSources();
  MutexLock lock(sources.mutex);
  if (sources.objects.empty()) av_log_set_callback(Receive);
  sources.objects.push_back(object);
}

CodecLogScope::~CodecLogScope() {
  Sources& sources = LiveSources();
  MutexLock lock(sources.mutex);
  sources.objects.erase(std::find(sources.objects.begin(), sources.objects.end(), object_));
  // Nobody else's messages shall go through a function of ours while nobody encodes.
  if (sources.objects.empty()) av_log_set_callback(av_log_default_callback);
}

ThreadLogScope::ThreadLogScope() : scope_(this) { wholeThread = true; }

ThreadLogScope::~ThreadLogScope() { wholeThread = false; }

}  // namespace Veldrift
