#include "pairing_screen.h"

#include <utility>

#include "identity/install_identity.h"
#include "tools/cli/terminal_qr.h"
#include "ui/pairing_uri.h"
#include "ui/qr_code.h"

namespace Veldrift {

namespace {

// The code, or why there is none. Lines that wrap can't be scanned.
std::string Drawing(const QrCode& code) {
  if (code.size == 0) return "veldrift-host: the pairing URI is too long for a QR code\n";
  const int columns = TerminalQrColumns(code);
  if (!StandardOutputIsTerminal() || TerminalColumns() >= columns) return DrawQrForTerminal(code);
  return "veldrift-host: the QR code takes a terminal of " + std::to_string(columns) + " columns\n";
}

}  // namespace

PairingScreen::PairingScreen(std::filesystem::path log, std::FILE* out)
    : drawing_(PrepareTerminalForDrawing()), out_(out), challenges_(std::move(log), out) {}

void PairingScreen::ShowInvitation() const {
  const std::string uri = BuildPairingUri(LoadOrCreateInstallIdentity());
  // In one piece, so that digits don't come in between. The URI has a line of its own.
  const std::string text = Drawing(EncodeQrText(uri)) + uri + "\n";
  std::fwrite(text.data(), 1, text.size(), out_);
  std::fflush(out_);
}

}  // namespace Veldrift
