// The debug topics' files of one run: the selection, the rotation and the open streams. The process
// has one; tests make their own in folders of theirs.
//
// Threads: Init from one thread, again if it threw; Write and IsEnabled from any thread, before it
// too, when all topics are off. Each topic's mutex guards its stream.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>

#include "platform/mutex.h"
#include "support/debug_topics.h"

namespace Veldrift {

constexpr size_t kDebugTopicCount = 7;

// Which topics the value of VELDRIFT_DEBUG_TOPICS switches on: all when it is unset or empty, else
// those whose keys it lists between commas, in any case, with white space around them.
std::array<bool, kDebugTopicCount> SelectDebugTopics(const std::optional<std::string>& value);

// A stable decimal per thread: the FNV-1a hash of its number's four bytes, low byte first.
uint64_t ThreadHash(uint32_t threadNumber);

class DebugTopicFiles {
 public:
  DebugTopicFiles() = default;

  // Switches the selected topics on, rotates their files and opens them. What can't be opened loses
  // its lines silently; a failure while the folder is listed throws std::filesystem_error. Called
  // again, it leaves the files that are open alone.
  void Init(const std::filesystem::path& folder, const std::optional<std::string>& selection);

  bool IsEnabled(DebugTopic topic) const;

  // Nothing if the topic is off. A null text counts as empty.
  void Write(DebugTopic topic, const char* text);

 private:
  struct Sink {
    Mutex mutex;
    std::ofstream stream VD_GUARDED_BY(mutex);
    std::atomic<bool> enabled{false};
  };

  std::array<Sink, kDebugTopicCount> sinks_;
};

}  // namespace Veldrift
