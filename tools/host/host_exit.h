// What the host stand-in's exit code says. --help lists them.
#pragma once

#include "tools/cli/complaint.h"

namespace Veldrift {

enum HostExit : int {
  kExitGood = 0,
  kExitFailed = 1,  // something of this machine: a folder or a copy that can't be made
  kExitUsage = 2,
  kExitNoModule = 3,     // it can't be loaded, or has no entry
  kExitRefused = 4,      // the module made no instance
  kExitNoInput = 5,      // no such file, or no video that can be read
  kExitUndisposed = 6,   // the module kept frames, or disposed of one twice
  kExitNoDecoder = 7,    // this build can't read files
  kExitPortInUse = 8,    // the control port: no phone could ever connect
  kExitLeftBehind = 9,   // threads or handles
  kExitMisbehaved = 10,  // it broke a rule of the host's interface
  kExitSelfTest = 11,    // --self-test: no stream, one that stopped, or a built-in test that failed
};

inline int Complain(HostExit exit, const std::string& sentence) {
  return Complain("veldrift-host", exit, sentence);
}

}  // namespace Veldrift
