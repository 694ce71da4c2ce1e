#include "support/debug_topic_files.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <system_error>
#include <vector>

#include "platform/calendar.h"
#include "platform/file.h"
#include "platform/system.h"
#include "support/text.h"

namespace Veldrift {
namespace {

namespace fs = std::filesystem;

constexpr size_t kEarlierRuns = 5;

struct TopicNames {
  const char* key;
  const char* word;
};
constexpr std::array<TopicNames, kDebugTopicCount> kTopics = {{
    {"transitions", "TRANSITIONS"},
    {"controller", "CONTROLLER"},
    {"encoder", "ENCODER"},
    {"telemetry", "TELEMETRY"},
    {"fps", "FPS"},
    {"owd", "OWD"},
    {"ui_sync", "UI_SYNC"},
}};

std::string_view Trimmed(std::string_view text) {
  const auto isSpace = [](char character) {
    return std::isspace(static_cast<unsigned char>(character)) != 0;
  };
  while (!text.empty() && isSpace(text.front())) text.remove_prefix(1);
  while (!text.empty() && isSpace(text.back())) text.remove_suffix(1);
  return text;
}

struct EarlierRun {
  fs::path path;
  fs::file_time_type written;
};

// The topic's earlier runs, newest first; of two with the same time, the later name.
std::vector<EarlierRun> ListEarlierRuns(const fs::path& folder, const std::string& prefix) {
  std::vector<EarlierRun> runs;
  std::error_code error;
  fs::directory_iterator entry(folder, error);
  while (!error && entry != fs::directory_iterator()) {
    std::error_code unreadable;
    const std::string name = PathText(entry->path().filename());
    if (name.starts_with(prefix) && name.ends_with(".log") && entry->is_regular_file(unreadable)) {
      const auto written = entry->last_write_time(unreadable);
      if (!unreadable) runs.push_back({entry->path(), written});
    }
    entry.increment(error);
    if (error) throw fs::filesystem_error("directory_iterator::operator++", folder, error);
  }
  std::sort(runs.begin(), runs.end(), [](const EarlierRun& a, const EarlierRun& b) {
    return a.written != b.written ? a.written > b.written : a.path > b.path;
  });
  return runs;
}

// Puts the last run's file aside and deletes all but the newest earlier runs.
void RotateTopic(const fs::path& folder, const std::string& key) {
  const std::string prefix = "debug_" + key + "_";
  const fs::path current = folder / ("debug_" + key + ".log");
  std::error_code ignored;
  if (fs::exists(current, ignored)) {
    std::string stamp = UtcStamp(WallClockMillis(), StampPrecision::Millis);
    std::replace(stamp.begin(), stamp.end(), ':', '-');
    fs::rename(current, folder / (prefix + stamp + ".log"), ignored);
  }
  const auto runs = ListEarlierRuns(folder, prefix);
  for (size_t i = kEarlierRuns; i < runs.size(); ++i) fs::remove(runs[i].path, ignored);
}

}  // namespace

std::array<bool, kDebugTopicCount> SelectDebugTopics(const std::optional<std::string>& value) {
  std::array<bool, kDebugTopicCount> selected{};
  if (!value || value->empty()) {
    selected.fill(true);
    return selected;
  }
  const std::string lowered = LowerCase(*value);
  std::string_view rest = lowered;
  for (;;) {
    const size_t comma = rest.find(',');
    const std::string_view piece = Trimmed(rest.substr(0, comma));
    for (size_t i = 0; i < kTopics.size(); ++i) {
      if (piece == kTopics[i].key) selected[i] = true;
    }
    if (comma == std::string_view::npos) return selected;
    rest.remove_prefix(comma + 1);
  }
}

uint64_t ThreadHash(uint32_t threadNumber) {
  uint64_t hash = 0xCBF29CE484222325;
  for (int shift = 0; shift < 32; shift += 8) {
    hash = (hash ^ ((threadNumber >> shift) & 0xFF)) * 0x100000001B3;
  }
  return hash;
}

void DebugTopicFiles::Init(const fs::path& folder, const std::optional<std::string>& selection) {
  const auto selected = SelectDebugTopics(selection);
  for (size_t i = 0; i < kDebugTopicCount; ++i) sinks_[i].enabled = selected[i];
  std::error_code ignored;
  fs::create_directories(folder, ignored);
  for (size_t i = 0; i < kDebugTopicCount; ++i) {
    if (!selected[i]) continue;
    MutexLock lock(sinks_[i].mutex);
    if (sinks_[i].stream.is_open()) continue;
    const std::string key = kTopics[i].key;
    RotateTopic(folder, key);
    sinks_[i].stream.open(folder / ("debug_" + key + ".log"), std::ios::out | std::ios::trunc);
  }
}

bool DebugTopicFiles::IsEnabled(DebugTopic topic) const {
  const auto index = static_cast<size_t>(topic);
  return index < kDebugTopicCount && sinks_[index].enabled;
}

void DebugTopicFiles::Write(DebugTopic topic, const char* text) {
  if (!IsEnabled(topic)) return;
  const auto index = static_cast<size_t>(topic);
  const std::string stamp = UtcStamp(WallClockMillis(), StampPrecision::Millis);
  const uint64_t thread = ThreadHash(ThreadNumber());
  Sink& sink = sinks_[index];
  MutexLock lock(sink.mutex);
  if (!sink.stream.is_open()) return;
  sink.stream.clear();  // a disk that was full then may have room now
  // As text: the stream would put the host's digit grouping into a number.
  sink.stream << stamp << " | " << std::to_string(thread) << " | " << kTopics[index].word << " | "
              << (text == nullptr ? "" : text) << '\n'
              << std::flush;
}

}  // namespace Veldrift
