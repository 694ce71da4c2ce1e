// What the phone stand-in's exit code says. --help lists them.
#pragma once

#include "tools/cli/complaint.h"

namespace Veldrift {

enum PhoneExit : int {
  kExitGood = 0,
  kExitFailed = 1,  // something of this machine: a file that can't be written
  kExitUsage = 2,
  kExitCantConnect = 3,
  kExitPortInUse = 4,
  kExitRefused = 5,  // the pairing
  kExitBroken = 6,   // broken stream, or a violation of the protocol
  kExitNoPicture = 7,
  kExitLost = 8,  // the connection, for a time or for good
  kExitSelfTest = 9,
  kExitPoor = 10,          // less arrived than was asked for
  kExitInterrupted = 130,  // before there was anything, or before its time
};

inline int Complain(PhoneExit exit, const std::string& sentence) {
  return Complain("veldrift-phone", exit, sentence);
}

}  // namespace Veldrift
