#include "other_name.h"

#include <array>
#include <cstdio>
#include <vector>

#include "exit_codes.h"
#include "platform/file.h"
#include "platform/system.h"
#include "support/identifiers.h"
#include "tools/platform/process.h"

namespace Veldrift {

namespace {

constexpr std::array<const char*, 4> kNames = {"premiere", "afterfx", "media encoder",
                                               "veldrift-host"};

std::filesystem::path FolderFor(const HostOptions& options) {
  const std::filesystem::path root =
      options.home.empty() ? std::filesystem::temp_directory_path() : options.home;
  return root / ("veldrift-host-" + MakeToken(8));
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
  const std::filesystem::path folder = FolderFor(options);
  const std::filesystem::path copy = folder / (std::string(kNames[size_t(options.host)]) +
                                               GetExecutablePath().extension().string());
  std::error_code failed;
  std::filesystem::create_directories(folder, failed);
  const std::optional<int> exit =
      failed ? std::nullopt : RunAs(copy, ArgumentsFor(options, argc, argv, folder));
  std::filesystem::remove_all(folder, failed);
  if (exit) return exit;
  std::fprintf(stderr, "veldrift-host: can't run as %s\n", PathText(copy).c_str());
  return kExitFailed;
}

}  // namespace Veldrift
