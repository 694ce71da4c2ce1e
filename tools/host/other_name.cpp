#include "other_name.h"

#include <array>
#include <chrono>
#include <vector>

#include "host_exit.h"
#include "platform/file.h"
#include "platform/system.h"
#include "support/identifiers.h"
#include "tools/platform/process.h"

namespace Veldrift {

namespace {

constexpr std::array<const char*, 4> kNames = {"premiere", "afterfx", "media encoder",
                                               "veldrift-host"};

constexpr const char* kFolderPrefix = "veldrift-host-";
constexpr auto kAbandonedAfter = std::chrono::hours(24);

std::filesystem::path RootFor(const HostOptions& options) {
  return options.home.empty() ? std::filesystem::temp_directory_path() : options.home;
}

// What runs that were killed have left. One that still runs loses nothing on a system that lets its
// file be removed; others keep it.
void RemoveAbandoned(const std::filesystem::path& root) {
  std::error_code failed;
  const auto now = std::filesystem::file_time_type::clock::now();
  for (const auto& entry : std::filesystem::directory_iterator(root, failed)) {
    const bool ours = entry.path().filename().string().starts_with(kFolderPrefix);
    const auto made = entry.last_write_time(failed);
    if (!ours || failed || now - made < kAbandonedAfter) continue;
    for (const char* name : kNames) {
      std::filesystem::remove(entry.path() / name, failed);
      std::filesystem::remove(entry.path() / (std::string(name) + ".exe"), failed);
    }
    std::filesystem::remove(entry.path(), failed);
  }
}

std::vector<std::string> ArgumentsFor(const HostOptions& options, int argc, char** argv,
                                      const std::filesystem::path& folder) {
  std::vector<std::string> arguments(argv + 1, argv + argc);
  if (options.module.empty()) {
    arguments.insert(arguments.end(), {"--module", PathText(DefaultModule())});
  }
  arguments.insert(arguments.end(), {"--remove-at-exit", PathText(folder)});
  return arguments;
}

}  // namespace

std::filesystem::path DefaultModule() { return GetExecutablePath().parent_path() / "Veldrift.prm"; }

std::optional<int> RunUnderOtherName(const HostOptions& options, int argc, char** argv) {
  if (!options.removeAtExit.empty() || HostFromExecutable(GetExecutablePath()) == options.host) {
    return std::nullopt;
  }
  const std::filesystem::path root = RootFor(options);
  RemoveAbandoned(root);
  const std::filesystem::path folder = root / (kFolderPrefix + MakeToken(8));
  const std::filesystem::path copy = folder / (std::string(kNames[size_t(options.host)]) +
                                               GetExecutablePath().extension().string());
  std::error_code failed, ignored;
  std::filesystem::create_directories(folder, failed);
  if (failed) {
    return Complain(kExitFailed,
                    "can't make the folder " + PathText(folder) + ": " + failed.message());
  }
  const std::optional<int> exit = RunAs(copy, ArgumentsFor(options, argc, argv, folder));
  const bool copied = std::filesystem::exists(copy, ignored);
  const auto room = std::filesystem::space(folder, ignored);
  std::filesystem::remove_all(folder, ignored);
  if (exit) return exit;
  const char* reason = copied                ? "it doesn't start"
                       : room.available == 0 ? "the disk is full"
                                             : "no copy of this program can be made there";
  return Complain(kExitFailed, "can't run as " + PathText(copy) + ": " + reason);
}

}  // namespace Veldrift
