#include "tools/cli/terminal_qr.h"

#include <gtest/gtest.h>

#include "tests/support/terminal_picture.h"

namespace Veldrift {
namespace {

void ExpectModulesInsideAQuietZone(const GrayPicture& picture, const QrCode& code) {
  ASSERT_EQ(picture.width, code.size + 8);
  ASSERT_EQ(picture.width, TerminalQrColumns(code));
  ASSERT_GE(picture.height, code.size + 8);
  for (int y = 0; y < code.size + 8; ++y) {
    for (int x = 0; x < code.size + 8; ++x) {
      const int column = x - 4;
      const int row = y - 4;
      const bool inside = column >= 0 && row >= 0 && column < code.size && row < code.size;
      const bool dark = inside && code.modules[code.Index(column, row)] == 1;
      ASSERT_EQ(picture.At(x, y), dark ? 0 : 255) << x << ',' << y;
    }
  }
}

TEST(TerminalQr, EachModuleIsAHalfCharacterInsideAQuietZone) {
  const QrCode code = EncodeQrText("Desk");
  ExpectModulesInsideAQuietZone(ShowOnTerminal(DrawQrForTerminal(code), 1), code);
}

TEST(TerminalQr, InAFileItIsBlackOnWhiteWithoutColours) {
  const QrCode code = EncodeQrText("Desk");
  const std::string text = DrawQrAsText(code);
  EXPECT_EQ(text.find('\x1b'), text.npos);
  ExpectModulesInsideAQuietZone(ShowOnTerminal(text, 1, Screen::Paper), code);
}

}  // namespace
}  // namespace Veldrift
