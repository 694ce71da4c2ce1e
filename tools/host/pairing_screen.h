// What the setup dialog would show to a phone: the QR code of the pairing URI, and the six digits
// when a pairing begins.
//
// Threads: the main thread; the digits come from a thread of their own.
#pragma once

#include <cstdio>
#include <filesystem>
#include <memory>

#include "challenge_watch.h"
#include "tools/platform/terminal.h"

namespace Veldrift {

class PairingScreen {
 public:
  // Make it before the module starts: challenges in `log`, the plug-in's, count from now on. All
  // of it goes to `out`, which must outlive this.
  PairingScreen(std::filesystem::path log, std::FILE* out);

  // Draws the code and the URI of the installation, which the module has made when it started.
  void ShowInvitation() const;

 private:
  const std::unique_ptr<TerminalDrawing> drawing_;
  std::FILE* const out_;
  const ChallengeWatch challenges_;
};

}  // namespace Veldrift
