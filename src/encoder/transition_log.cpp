#include "encoder/transition_log.h"

#include <filesystem>
#include <sstream>
#include <system_error>

#include "platform/file.h"
#include "platform/mutex.h"
#include "support/clock.h"
#include "support/debug_topics.h"

namespace Veldrift {
namespace {

constexpr const char* kFileName = "transitions.csv";
constexpr const char* kHeader =
    "ts,mode,fromW,fromH,toW,toH,cloneMs,firstKeyMs,swapMs,totalMs,framesDropped,error\n";

Mutex& FileMutex() {
  static Mutex mutex;
  return mutex;
}

void PutDuration(std::ostream& out, double milliseconds) {
  if (milliseconds >= 0.0) out << milliseconds;
  out << ',';
}

}  // namespace

std::string FormatTransition(const TransitionRecord& record, int64_t nowNanos) {
  std::ostringstream line;
  line.imbue(std::locale::classic());
  line << nowNanos / kNanosPerMilli << ',' << record.mode << ',' << record.fromWidth << ','
       << record.fromHeight << ',' << record.toWidth << ',' << record.toHeight << ',';
  PutDuration(line, record.cloneMs);
  PutDuration(line, record.firstKeyMs);
  PutDuration(line, record.swapMs);
  line << record.totalMs << ',' << record.framesDropped << ',' << record.error << '\n';
  return line.str();
}

void WriteTransition(const TransitionRecord& record, int64_t nowNanos) {
  const std::filesystem::path path = PathFromText(DebugLogPath(kFileName));
  std::string text = FormatTransition(record, nowNanos);
  MutexLock lock(FileMutex());
  std::error_code ignored;
  std::filesystem::create_directories(path.parent_path(), ignored);
  if (!std::filesystem::exists(path, ignored)) text.insert(0, kHeader);
  AppendToFile(path, text);
}

}  // namespace Veldrift
