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

// What the file says, with defaults for what it doesn't say.
struct Contents {
  TextFile file = TextFile::Missing;
  InstallIdentity identity;
  Flags flags;

  bool HasIdentity() const { return !identity.id.empty(); }
};

// Each switch has only one exact text that moves it from its default.
Contents ReadContents() VD_REQUIRES(identityMutex) {
  std::string text;
  Contents contents;
  contents.file = ReadTextFile(GetAppSupportDir() / kFileName, text, SystemClock());
  contents.identity = {ExtractJsonString(text, kIdKey), ExtractJsonString(text, kNameKey)};
  contents.flags = {.discoverable = ExtractJsonString(text, kDiscoverableKey) != "false",
                    .enableAsyncHwEncoders = ExtractJsonString(text, kAsyncKey) == "true"};
  return contents;
}

bool WriteIdentityFile(const std::string& text) VD_REQUIRES(identityMutex) {
  return ReplaceTextFile(GetAppSupportDir() / kFileName, text, {kLog, "write identity"},
                         SystemClock());
}

bool Write(const InstallIdentity& identity, const Flags& flags) VD_REQUIRES(identityMutex) {
  EnsureAppSupportDir();
  return WriteIdentityFile("{" + JsonMember(kIdKey, identity.id) + "," +
                           JsonMember(kNameKey, identity.name) + "," +
                           JsonMember(kDiscoverableKey, FlagText(flags.discoverable)) + "," +
                           JsonMember(kAsyncKey, FlagText(flags.enableAsyncHwEncoders)) + "}\n");
}

// What was never read isn't written over: the installation would lose its identity to a moment in
// which another program held the file.
bool Save(const Contents& contents) VD_REQUIRES(identityMutex) {
  if (contents.file != TextFile::Unreadable) return Write(contents.identity, contents.flags);
  PluginLog(kLog, kLogError, "write identity: %{public}s can't be read and stays as it is",
            kFileName);
  return false;
}

// One for the whole process, where the file can't be read: what is advertised and what the pairing
// code shows must agree.
const std::string& StandInId() VD_REQUIRES(identityMutex) {
  static const std::string id = MakeUuid();
  return id;
}

// An identity in place of what the file lacks. False: it lacked nothing.
bool Complete(Contents& contents) VD_REQUIRES(identityMutex) {
  const bool complete = contents.HasIdentity() && !contents.identity.name.empty();
  if (!contents.HasIdentity()) {
    contents.identity.id = contents.file == TextFile::Unreadable ? StandInId() : MakeUuid();
  }
  if (contents.identity.name.empty()) contents.identity.name = GetHostComputerName();
  return !complete;
}

// Rewrites the file with one switch changed, and logs `key` with its new value, whether or not the
// write succeeded.
void SetFlag(bool Flags::*flag, const char* key, bool value) VD_EXCLUDES(identityMutex) {
  MutexLock lock(identityMutex);
  Contents contents = ReadContents();
  Complete(contents);
  contents.flags.*flag = value;
  Save(contents);
  PluginLog(kLog, kLogInfo, "%s=%{public}s", key, FlagText(value));
}

}  // namespace

InstallIdentity LoadOrCreateInstallIdentity() {
  MutexLock lock(identityMutex);
  Contents contents = ReadContents();
  const bool created = !contents.HasIdentity();
  if (!Complete(contents)) return contents.identity;
  // A file without an id has no name of ours either.
  if (created) contents.identity.name = GetHostComputerName();
  Save(contents);
  if (created && contents.file != TextFile::Unreadable) {
    PluginLog(kLog, kLogInfo, "install identity created id=%{public}s name=%{public}s",
              contents.identity.id.c_str(), contents.identity.name.c_str());
  }
  return contents.identity;
}

bool IsDiscoverable() {
  MutexLock lock(identityMutex);
  return ReadContents().flags.discoverable;
}

bool IsAsyncHwEncodersEnabled() {
  MutexLock lock(identityMutex);
  return ReadContents().flags.enableAsyncHwEncoders;
}

void SetDiscoverable(bool value) { SetFlag(&Flags::discoverable, kDiscoverableKey, value); }

void SetEnableAsyncHwEncoders(bool value) {
  SetFlag(&Flags::enableAsyncHwEncoders, kAsyncKey, value);
}

void SetDisplayName(const std::string& name) {
  MutexLock lock(identityMutex);
  Contents contents = ReadContents();
  if (!contents.HasIdentity()) return;
  contents.identity.name = name;
  Save(contents);
}

}  // namespace Veldrift
