// What the module's windows would show of phones, and the one live line: the QR code of the pairing
// URI, the six digits when a pairing begins, who came and went, and whether pictures are skipped.
//
// Threads: the main thread.
#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "player.h"
#include "setup_view.h"
#include "tools/cli/status_line.h"
#include "tools/platform/terminal.h"
#include "tools/receiver/pairing_log.h"

namespace Veldrift {

struct ScreenOptions {
  std::filesystem::path log;  // the plug-in's
  bool qr = false;
  bool json = false;                 // standard output carries the summary alone
  std::filesystem::path setup = {};  // the module's setup as a text; empty: it isn't shown
};

class PairingScreen {
 public:
  // Make it before the module starts: what `options.log` says counts from now on.
  explicit PairingScreen(const ScreenOptions& options);

  // Draws the code and the URI of the installation, which the module has made when it started.
  void ShowInvitation() const;

  // Whether there was anything of the module's setup to show.
  bool SetupShown() const { return setup_ && setup_->Shown(); }

  // Tells what is new. `speed` is the playhead's, `ticksPerFrame` its rate.
  void Update(const PlayCounters& counters, int speed, int64_t ticksPerFrame, int64_t nowNs);

 private:
  void ReadLog();
  void ShowSetup();
  void Say(const std::string& sentence);
  std::string LiveText(const PlayCounters& counters, int speed) const;
  void WarnOfSkipping(const PlayCounters& counters, int64_t ticksPerFrame, int64_t nowNs);

  const ScreenOptions options_;
  const std::unique_ptr<TerminalDrawing> drawing_;
  std::FILE* const out_;
  LogTail log_;
  std::optional<SetupView> setup_;
  StatusLine status_;
  std::string phone_ = "no phone";
  int64_t startNs_ = 0;
  int64_t nextLookNs_ = 0;
  int64_t nextWarningNs_ = 0;
  PlayCounters atWarning_;
};

}  // namespace Veldrift
