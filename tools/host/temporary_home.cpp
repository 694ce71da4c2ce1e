#include "temporary_home.h"

#include <chrono>

#include "support/identifiers.h"

namespace Veldrift {

namespace {

constexpr const char* kPrefix = "veldrift-self-test-";
constexpr auto kAbandonedAfter = std::chrono::hours(24);

void RemoveAbandoned(const std::filesystem::path& root) {
  std::error_code failed;
  const auto now = std::filesystem::file_time_type::clock::now();
  for (const auto& entry : std::filesystem::directory_iterator(root, failed)) {
    if (!entry.path().filename().string().starts_with(kPrefix)) continue;
    const auto made = entry.last_write_time(failed);
    if (!failed && now - made >= kAbandonedAfter) {
      std::filesystem::remove_all(entry.path(), failed);
    }
  }
}

}  // namespace

TemporaryHome::TemporaryHome()
    : path_(std::filesystem::temp_directory_path() / (kPrefix + MakeToken(8))) {
  RemoveAbandoned(path_.parent_path());
}

TemporaryHome::~TemporaryHome() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

}  // namespace Veldrift
