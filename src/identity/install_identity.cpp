#include "identity/install_identity.h"

#include "identity/atomic_text_file.h"
#include "identity/json_text.h"
#include "platform/mutex.h"
#include "support/identifiers.h"
#include "support/paths.h"
#include "support/plugin_log.h"

namespace Veldrift {
namespace {

constexpr LogCategory kLog = {kLogSubsystem, "installid"};
constexpr const char* kFileName = "install.json";
constexpr const char* kIdKey = "id";
constexpr const char* kNameKey = "name";
constexpr const char* kDiscoverableKey = "discoverable";
constexpr const char* kAsyncKey = "enableAsyncHwEncoders";

Mutex identityMutex;

// The switches, with their values for a file that doesn't have them.
struct Flags {
  bool discoverable = true;
  bool enableAsyncHwEncoders = false;
};

const char* FlagText(bool value) { return value ? "true" : "false"; }

bool ReadIdentityFile(std::string& text) VD_REQUIRES(identityMutex) {
  auto found = ReadTextFile(GetAppSupportDir() / kFileName, SystemClock());
  if (!found) return false;
  text = std::move(*found);
  return true;
}

bool ReadIdentity(InstallIdentity& identity) VD_REQUIRES(identityMutex) {
  std::string text;
  if (!ReadIdentityFile(text)) return false;
  identity.id = ExtractJsonString(text, kIdKey);
  identity.name = ExtractJsonString(text, kNameKey);
  return !identity.id.empty();
}

// Each switch has only one exact text that moves it from its default.
Flags ReadFlags() VD_REQUIRES(identityMutex) {
  std::string text;
  if (!ReadIdentityFile(text)) return {};
  return {.discoverable = ExtractJsonString(text, kDiscoverableKey) != "false",
          .enableAsyncHwEncoders = ExtractJsonString(text, kAsyncKey) == "true"};
}

bool WriteIdentityFile(const std::string& text) VD_REQUIRES(identityMutex) {
  return ReplaceTextFile(GetAppSupportDir() / kFileName, text, {kLog, "write identity"});
}

bool Write(const InstallIdentity& identity, const Flags& flags) VD_REQUIRES(identityMutex) {
  EnsureAppSupportDir();
  return WriteIdentityFile("{" + JsonMember(kIdKey, identity.id) + "," +
                           JsonMember(kNameKey, identity.name) + "," +
                           JsonMember(kDiscoverableKey, FlagText(flags.discoverable)) + "," +
                           JsonMember(kAsyncKey, FlagText(flags.enableAsyncHwEncoders)) + "}\n");
}

bool SaveIdentity(const InstallIdentity& identity) VD_REQUIRES(identityMutex) {
  return Write(identity, ReadFlags());
}

// Rewrites the file with one switch changed, and logs `key` with its new value, whether or not the
// write succeeded.
void SetFlag(bool Flags::*flag, const char* key, bool value) VD_EXCLUDES(identityMutex) {
  MutexLock lock(identityMutex);
  InstallIdentity identity;
  if (!ReadIdentity(identity)) identity.id = MakeUuid();
  if (identity.name.empty()) identity.name = GetHostComputerName();
  Flags flags = ReadFlags();
  flags.*flag = value;
  Write(identity, flags);
  PluginLog(kLog, kLogInfo, "%s=%{public}s", key, FlagText(value));
}

}  // namespace

InstallIdentity LoadOrCreateInstallIdentity() {
  MutexLock lock(identityMutex);
  InstallIdentity identity;
  if (ReadIdentity(identity)) {
    if (!identity.name.empty()) return identity;
    identity.name = GetHostComputerName();
    SaveIdentity(identity);
    return identity;
  }
  identity = {MakeUuid(), GetHostComputerName()};
  SaveIdentity(identity);
  PluginLog(kLog, kLogInfo, "install identity created id=%{public}s name=%{public}s",
            identity.id.c_str(), identity.name.c_str());
  return identity;
}

bool IsDiscoverable() {
  MutexLock lock(identityMutex);
  return ReadFlags().discoverable;
}

bool IsAsyncHwEncodersEnabled() {
  MutexLock lock(identityMutex);
  return ReadFlags().enableAsyncHwEncoders;
}

void SetDiscoverable(bool value) { SetFlag(&Flags::discoverable, kDiscoverableKey, value); }

void SetEnableAsyncHwEncoders(bool value) {
  SetFlag(&Flags::enableAsyncHwEncoders, kAsyncKey, value);
}

void SetDisplayName(const std::string& name) {
  MutexLock lock(identityMutex);
  InstallIdentity identity;
  if (!ReadIdentity(identity)) return;
  identity.name = name;
  SaveIdentity(identity);
}

}  // namespace Veldrift
