// What somebody else's reader makes of the codes.
#include <gtest/gtest.h>

#include "tests/scan/qr_scanner.h"
#include "tests/support/terminal_picture.h"
#include "tests/ui/qr_texts.h"
#include "tools/cli/terminal_qr.h"
#include "ui/pairing_uri.h"
#include "ui/qr_code.h"

namespace Veldrift {
namespace {

std::optional<std::string> ScanRendered(const QrCode& code, int side) {
  const std::optional<QrBitmap> bitmap = RenderQrToBitmap(code, side);
  if (!bitmap) return std::nullopt;
  GrayPicture picture{bitmap->side, bitmap->side, {}};
  for (const uint32_t pixel : bitmap->pixels) picture.pixels.push_back(uint8_t(pixel));
  return ScanQr(picture);
}

class QrVersion : public testing::TestWithParam<int> {};

TEST_P(QrVersion, IsReadAtItsMostAndOneByteMore) {
  const int version = GetParam();
  const size_t most = kMostBytes[size_t(version - 1)];
  for (const size_t bytes : {most, most + 1}) {
    if (bytes > kMostBytes.back()) continue;
    for (const std::string& text : {Letters(bytes), Utf8(bytes), Binary(bytes)}) {
      const QrCode code = EncodeQrText(text);
      const int side = 3 * (code.size + 4) + 1;
      EXPECT_EQ(ScanRendered(code, side), text) << bytes << " bytes, version " << code.version;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(All, QrVersion, testing::Range(1, 41));

// The dialog's size. From version 20 on a module is one pixel, and it is luck whether a reader
// finds the code.
TEST(QrScan, TheDialogsPictureIsReadUpToTwoPixelsAModule) {
  for (int version = 1; version <= 19; ++version) {
    const std::string text = Binary(kMostBytes[size_t(version - 1)]);
    EXPECT_EQ(ScanRendered(EncodeQrText(text), 200), text) << "version " << version;
  }
}

TEST(QrScan, ATerminalShowsACodeThatIsRead) {
  for (const char* name : {"", "Desk", "Schnittplatz \u00FC 3, \U0001F3AC"}) {
    const std::string uri = BuildPairingUri({"0a1b2c3d-4e5f-4a6b-8c7d-9e0f1a2b3c4d", name});
    const std::string text = DrawQrForTerminal(EncodeQrText(uri)) + uri + "\n";
    EXPECT_EQ(ScanQr(ShowOnTerminal(text, 8)), uri);
  }
}

}  // namespace
}  // namespace Veldrift
