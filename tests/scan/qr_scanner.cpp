#include "tests/scan/qr_scanner.h"

#include <zbar.h>

#include <memory>

namespace Veldrift {

namespace {

using Scanner =
    std::unique_ptr<zbar::zbar_image_scanner_t, decltype(&zbar::zbar_image_scanner_destroy)>;
using Image = std::unique_ptr<zbar::zbar_image_t, decltype(&zbar::zbar_image_destroy)>;

Scanner MakeScanner() {
  Scanner scanner(zbar::zbar_image_scanner_create(), &zbar::zbar_image_scanner_destroy);
  const auto set = [&](zbar::zbar_symbol_type_t symbol, zbar::zbar_config_t config, int value) {
    zbar::zbar_image_scanner_set_config(scanner.get(), symbol, config, value);
  };
  set(zbar::ZBAR_NONE, zbar::ZBAR_CFG_ENABLE, 0);
  set(zbar::ZBAR_QRCODE, zbar::ZBAR_CFG_ENABLE, 1);
  set(zbar::ZBAR_QRCODE, zbar::ZBAR_CFG_BINARY, 1);
  return scanner;
}

// Reads `picture` in place.
Image MakeImage(const GrayPicture& picture) {
  Image image(zbar::zbar_image_create(), &zbar::zbar_image_destroy);
  zbar::zbar_image_set_format(image.get(), zbar_fourcc('Y', '8', '0', '0'));
  zbar::zbar_image_set_size(image.get(), unsigned(picture.width), unsigned(picture.height));
  zbar::zbar_image_set_data(image.get(), picture.pixels.data(), picture.pixels.size(), nullptr);
  return image;
}

}  // namespace

std::optional<std::string> ScanQr(const GrayPicture& picture) {
  const Scanner scanner = MakeScanner();
  const Image image = MakeImage(picture);
  if (zbar::zbar_scan_image(scanner.get(), image.get()) != 1) return std::nullopt;
  const zbar::zbar_symbol_t* const symbol = zbar::zbar_image_first_symbol(image.get());
  return std::string(zbar::zbar_symbol_get_data(symbol), zbar::zbar_symbol_get_data_length(symbol));
}

}  // namespace Veldrift
