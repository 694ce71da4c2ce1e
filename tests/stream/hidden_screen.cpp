#include "tests/stream/hidden_screen.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstdlib>

#include "platform/file.h"
#include "support/paths.h"
#include "tests/support/eventually.h"

namespace Veldrift {
namespace {

// An X window dump's head: numbers of 32 bits, the most significant byte first.
enum HeadNumber : size_t { kHeadBytes = 0, kBitsPerPixel = 11, kBytesPerLine = 12, kColours = 19 };
constexpr size_t kHeadNumbers = 25;
constexpr size_t kColourBytes = 12;

uint32_t NumberAt(const void* file, size_t index) {
  const auto* bytes = static_cast<const uint8_t*>(file) + index * 4;
  return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
}

void Run(const std::string& display, std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), {"DISPLAY=" + display, "xdotool"});
  const auto process = StartProcess("/usr/bin/env", arguments);
  ASSERT_NE(process, nullptr);
  EXPECT_EQ(process->WaitFor(kPatienceNanos), 0) << "xdotool";
}

}  // namespace

double ScreenPicture::Brightness() const {
  double sum = 0;
  for (const uint8_t value : luma) sum += value;
  return sum / double(luma.size());
}

HiddenScreen::HiddenScreen(const std::filesystem::path& folder, int width, int height)
    : width_(width), height_(height) {
  Start(folder);
}

// It says its number when it is ready.
void HiddenScreen::Start(const std::filesystem::path& folder) {
  const std::string size = std::to_string(width_) + "x" + std::to_string(height_) + "x24";
  server_ = StartProcess("/bin/sh",
                         {"-c",
                          "exec setpriv --pdeathsig TERM Xvfb -displayfd 3 -screen 0 " + size +
                              " -nolisten tcp -fbdir \"$1\" 3>\"$1/display\"",
                          "sh", PathText(folder)},
                         ProcessOutput{folder / "server.out", folder / "server.err"});
  ASSERT_NE(server_, nullptr);
  Eventually([&] {
    display_ = ReadWholeFile(folder / "display").value_or("");
    return display_.ends_with('\n') || server_->WaitFor(0).has_value();
  });
  ASSERT_TRUE(display_.ends_with('\n')) << ReadWholeFile(folder / "server.err").value_or("");
  display_ = ":" + display_.substr(0, display_.size() - 1);
  MapPixels(folder / "Xvfb_screen0");
}

void HiddenScreen::MapPixels(const std::filesystem::path& file) {
  std::FILE* const opened = std::fopen(file.c_str(), "rb");
  ASSERT_NE(opened, nullptr);
  mapBytes_ = size_t(std::filesystem::file_size(file));
  map_ = ::mmap(nullptr, mapBytes_, PROT_READ, MAP_SHARED, ::fileno(opened), 0);
  std::fclose(opened);
  ASSERT_NE(map_, MAP_FAILED);
  ASSERT_GT(mapBytes_, kHeadNumbers * 4);
  ASSERT_EQ(NumberAt(map_, kBitsPerPixel), 32U);
  stride_ = NumberAt(map_, kBytesPerLine);
  const size_t before = NumberAt(map_, kHeadBytes) + NumberAt(map_, kColours) * kColourBytes;
  ASSERT_LE(before + stride_ * size_t(height_), mapBytes_);
  pixels_ = static_cast<const uint8_t*>(map_) + before;
}

HiddenScreen::~HiddenScreen() {
  if (map_ != nullptr) ::munmap(map_, mapBytes_);
}

ScreenPicture HiddenScreen::Look(int width, int height) const {
  ScreenPicture picture{width, height, {}, {}};
  const int left = (width_ - width) / 2, top = (height_ - height) / 2;
  for (int y = 0; y < height; ++y) {
    const uint8_t* const row = pixels_ + size_t(top + y) * stride_ + size_t(left) * 4;
    picture.bgra.insert(picture.bgra.end(), row, row + size_t(width) * 4);
  }
  for (size_t i = 0; i < picture.bgra.size(); i += 4) {
    const uint8_t* const pixel = &picture.bgra[i];
    picture.luma.push_back(uint8_t((pixel[2] * 54 + pixel[1] * 183 + pixel[0] * 19) / 256));
  }
  return picture;
}

void HiddenScreen::Press(const std::vector<std::string>& keys) const {
  std::vector<std::string> arguments = {"key", "--delay", "60"};
  arguments.insert(arguments.end(), keys.begin(), keys.end());
  Run(display_, std::move(arguments));
}

void HiddenScreen::Type(const std::string& text) const { Run(display_, {"type", text}); }

}  // namespace Veldrift
