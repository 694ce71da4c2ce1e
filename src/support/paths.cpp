#include "support/paths.h"

#include <array>
#include <cwctype>
#include <system_error>
#include <type_traits>

#include "platform/file.h"
#include "platform/system.h"
#include "support/plugin_log.h"

namespace Veldrift {
namespace {

constexpr LogCategory kLog = {kLogSubsystem, "paths_win"};
constexpr const char* kFolderName = "Veldrift";
constexpr const char* kUnknownComputerName = "PC";

constexpr std::array<HostTraits, 4> kHosts = {{
    {"Premiere", "", 47100},
    {"After Effects", "ae", 47110},
    {"Media Encoder", "ame", 47120},
    {"Unknown Host", "x", 47130},
}};

struct NamePattern {
  std::string_view substring;
  HostApplication host;
};
// The order decides: "ame" comes before "premiere", so a name that holds both is Media Encoder's.
constexpr std::array<NamePattern, 4> kNamePatterns = {{
    {"afterfx", HostApplication::AfterEffects},
    {"media encoder", HostApplication::MediaEncoder},
    {"ame", HostApplication::MediaEncoder},
    {"premiere", HostApplication::Premiere},
}};

// The last component, in lower case, each character cut to its low seven bits.
std::string ComparableName(const std::filesystem::path& fileName) {
  using Character = std::filesystem::path::value_type;
  std::string name;
  for (const Character character : fileName.native()) {
    if (character == '/' || character == '\\') {
      name.clear();
    } else {
      const std::wint_t wide = static_cast<std::make_unsigned_t<Character>>(character);
      name += static_cast<char>(std::towlower(wide) & 0x7F);
    }
  }
  return name;
}

// Set by UseFoldersUnder only, before other threads exist. This and the folder below die with the
// module; what logs while it dies itself is built after them (see SharedTransport).
std::optional<std::filesystem::path>& FoldersHome() {
  static std::optional<std::filesystem::path> home;
  return home;
}

std::filesystem::path RoamingFolder() {
  if (FoldersHome()) return *FoldersHome() / "settings";
  static const std::filesystem::path folder = FindRoamingFolder();
  return folder;
}

}  // namespace

const HostTraits& TraitsOf(HostApplication host) {
  const auto index = static_cast<size_t>(host);
  return index < kHosts.size() ? kHosts[index] : kHosts.back();
}

HostApplication HostFromExecutable(const std::filesystem::path& fileName) {
  const std::string name = ComparableName(fileName);
  for (const auto& pattern : kNamePatterns) {
    if (name.find(pattern.substring) != std::string::npos) return pattern.host;
  }
  return HostApplication::UnknownHost;
}

HostApplication DetectHostApplication() {
  static const HostApplication host = HostFromExecutable(GetExecutablePath());
  return host;
}

std::string PerHostFileName(HostApplication host, std::string_view stem,
                            std::string_view extension) {
  const std::string_view suffix = TraitsOf(host).suffix;
  std::string name(stem);
  if (!suffix.empty()) name.append("-").append(suffix);
  return name.append(extension);
}

std::filesystem::path GetAppSupportDir() { return RoamingFolder() / kFolderName; }

bool EnsureAppSupportDir() {
  const std::filesystem::path folder = GetAppSupportDir();
  std::error_code error;
  const auto status = std::filesystem::status(folder, error);
  if (std::filesystem::exists(status)) return std::filesystem::is_directory(status);
  std::filesystem::create_directories(folder, error);
  if (!error) return true;
  PluginLog(kLog, kLogError, "EnsureAppSupportDir: create_directories(%s) failed: %s",
            PathText(folder).c_str(), error.message().c_str());
  return false;
}

std::optional<std::filesystem::path> MovedLocalFolder() {
  if (!FoldersHome()) return std::nullopt;
  return *FoldersHome() / "local";
}

std::filesystem::path GetLocalDir() {
  const auto moved = MovedLocalFolder();
  return (moved ? *moved : FindLocalFolder()) / kFolderName;
}

std::filesystem::path GetPluginLogPath() {
  return GetLocalDir() / PerHostFileName(DetectHostApplication(), "plugin", ".log");
}

std::string GetHostComputerName() {
  const std::string name = GetComputerName();
  return name.empty() ? kUnknownComputerName : name;
}

void UseFoldersUnder(const std::filesystem::path& home) { FoldersHome() = home; }

}  // namespace Veldrift
