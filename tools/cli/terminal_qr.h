// A QR code in characters, to be scanned from a terminal.
#pragma once

#include <string>

#include "ui/qr_code.h"

namespace Veldrift {

// The columns that DrawQrForTerminal fills: the code and a quiet zone of four modules at its sides.
int TerminalQrColumns(const QrCode& code);

// Lines of half blocks in UTF-8, each character two modules high: the upper one is its background,
// which fills a character's place wholly in every font, the lower one its foreground. Black on
// white whatever the terminal's colours are, by the two of the 256 that no theme redefines; each
// line ends with the terminal's own.
std::string DrawQrForTerminal(const QrCode& code);

// The same without colours, for a file: dark modules are blocks, as on white paper.
std::string DrawQrAsText(const QrCode& code);

}  // namespace Veldrift
