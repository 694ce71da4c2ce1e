// By what phones recognise this installation, and the user's two switches: `install.json` in the
// application support folder. Nothing is kept in memory: every question reads the file, every
// change replaces it. A file that is there and can't be read counts as one with the defaults, and
// is never written over: the session goes on under an identity of this process alone.
//
// Threads: any thread; one mutex for all operations. Two processes are kept apart by the file's
// replacement in one step only: of two changes in the same instant one can be lost.
#pragma once

#include <string>

namespace Veldrift {

struct InstallIdentity {
  std::string id;    // a UUID in lower-case text form, made once
  std::string name;  // the display name, UTF-8
};

// The identity, with a non-empty id and name; makes or completes the file if needed.
InstallIdentity LoadOrCreateInstallIdentity();

// On unless the file says "false". Read when listening starts.
bool IsDiscoverable();
// Off unless the file says "true".
bool IsAsyncHwEncodersEnabled();

// These rewrite the file with the new value and keep the rest; without an identity on disk they
// make one.
void SetDiscoverable(bool value);
void SetEnableAsyncHwEncoders(bool value);

// Does nothing without an identity on disk.
void SetDisplayName(const std::string& name);

}  // namespace Veldrift
