#include "other_name.h"

#include <array>
#include <chrono>
#include <vector>

#include "host_exit.h"
#include "platform/file.h"
#include "platform/system.h"
#include "support/identifiers.h"
#include "tools/platform/folder_hold.h"
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

// Who is killed between making the folder and holding it leaves one without a mark.
bool IsAbandoned(const std::filesystem::directory_entry& entry) {
  switch (FolderHold::Look(entry.path())) {
    case FolderHold::State::Held:
      return false;
    case FolderHold::State::Left:
      return true;
    case FolderHold::State::Unmarked:
      break;
  }
  std::error_code failed;
  const auto made = entry.last_write_time(failed);
  return !failed && std::filesystem::file_time_type::clock::now() - made >= kAbandonedAfter;
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

void RemoveAbandonedNames(const std::filesystem::path& root) {
  std::error_code failed;
  for (const auto& entry : std::filesystem::directory_iterator(root, failed)) {
    const bool ours = entry.path().filename().string().starts_with(kFolderPrefix);
    if (!ours || !IsAbandoned(entry)) continue;
    for (const char* name : kNames) {
      std::filesystem::remove(entry.path() / name, failed);
      std::filesystem::remove(entry.path() / (std::string(name) + ".exe"), failed);
    }
    std::filesystem::remove(entry.path() / FolderHold::kMark, failed);
    std::filesystem::remove(entry.path(), failed);
  }
}

std::filesystem::path DefaultModule() { return GetExecutablePath().parent_path() / "Veldrift.prm"; }

std::optional<int> RunUnderOtherName(const HostOptions& options, int argc, char** argv) {
  if (!options.removeAtExit.empty() || HostFromExecutable(GetExecutablePath()) == options.host) {
    return std::nullopt;
  }
  const std::filesystem::path root = RootFor(options);
  RemoveAbandonedNames(root);
  const std::filesystem::path folder = root / (kFolderPrefix + MakeToken(8));
  const std::filesystem::path copy = folder / (std::string(kNames[size_t(options.host)]) +
                                               GetExecutablePath().extension().string());
  std::error_code failed, ignored;
  std::filesystem::create_directories(folder, failed);
  if (failed) {
    return Complain(kExitFailed,
                    "can't make the folder " + PathText(folder) + ": " + failed.message());
  }
  auto hold = FolderHold::Take(folder);
  const std::optional<int> exit = RunAs(copy, ArgumentsFor(options, argc, argv, folder));
  const bool copied = std::filesystem::exists(copy, ignored);
  const auto room = std::filesystem::space(folder, ignored);
  hold.reset();
  std::filesystem::remove_all(folder, ignored);
  if (exit) return exit;
  const char* reason = copied                ? "it doesn't start"
                       : room.available == 0 ? "the disk is full"
                                             : "no copy of this program can be made there";
  return Complain(kExitFailed, "can't run as " + PathText(copy) + ": " + reason);
}

}  // namespace Veldrift
