#include "tests/window/screenshot.h"
// They need windows.h before them, and the last one the others.
#include <objidl.h>
#include <propidl.h>
//
#include <gdiplus.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>

#include "platform/file.h"
#include "platform/system.h"
#include "ui/win32/gdi_handles.h"

namespace Veldrift {
namespace {

// A window's own context for a scope: with its frame, and through its children.
class WindowContext {
 public:
  explicit WindowContext(HWND window)
      : window_(window), context_(GetDCEx(window, nullptr, DCX_WINDOW | DCX_CACHE)) {}
  ~WindowContext() { ReleaseDC(window_, context_); }
  WindowContext(const WindowContext&) = delete;
  WindowContext& operator=(const WindowContext&) = delete;
  HDC Get() const { return context_; }

 private:
  const HWND window_;
  const HDC context_;
};

BITMAPINFO TopDown(int width, int height) {
  BITMAPINFO info{};
  info.bmiHeader.biSize = sizeof(BITMAPINFOHEADER);
  info.bmiHeader.biWidth = width;
  info.bmiHeader.biHeight = -height;
  info.bmiHeader.biPlanes = 1;
  info.bmiHeader.biBitCount = 32;
  info.bmiHeader.biCompression = BI_RGB;
  return info;
}

constexpr CLSID kPngEncoder = {
    0x557CF406, 0x1A04, 0x11D3, {0x9A, 0x73, 0x00, 0x00, 0xF8, 0x1E, 0xF3, 0x2E}};

// GDI+ for a scope.
class GdiPlus {
 public:
  GdiPlus() {
    const Gdiplus::GdiplusStartupInput input;
    Gdiplus::GdiplusStartup(&token_, &input, nullptr);
  }
  ~GdiPlus() { Gdiplus::GdiplusShutdown(token_); }
  GdiPlus(const GdiPlus&) = delete;
  GdiPlus& operator=(const GdiPlus&) = delete;

 private:
  ULONG_PTR token_ = 0;
};

std::optional<std::filesystem::path> ShotPath(const std::string& name) {
  const auto folder = GetEnvironment("VD_SHOTS");
  if (!folder) return std::nullopt;
  std::filesystem::create_directories(PathFromText(*folder));
  return PathFromText(*folder) / name;
}

}  // namespace

Picture PictureOfWindow(HWND window) {
  RedrawWindow(window, nullptr, nullptr, RDW_UPDATENOW | RDW_ALLCHILDREN);
  return PictureAsItIs(window);
}

Picture PictureAsItIs(HWND window) {
  const Place place = PlaceOf(window);
  Picture picture{int(place.width), int(place.height), {}};
  picture.pixels.resize(size_t(place.width) * size_t(place.height));
  const WindowContext source(window);
  const UniqueMemoryContext memory(CreateCompatibleDC(source.Get()));
  const BITMAPINFO info = TopDown(picture.width, picture.height);
  void* bits = nullptr;
  const UniqueBitmap bitmap(
      CreateDIBSection(source.Get(), &info, DIB_RGB_COLORS, &bits, nullptr, 0));
  const HGDIOBJ before = SelectObject(memory.get(), bitmap.get());
  EXPECT_TRUE(
      BitBlt(memory.get(), 0, 0, picture.width, picture.height, source.Get(), 0, 0, SRCCOPY));
  GdiFlush();
  const auto* first = static_cast<const uint32_t*>(bits);
  std::transform(first, first + picture.pixels.size(), picture.pixels.begin(),
                 [](uint32_t pixel) { return pixel & 0xFFFFFF; });
  SelectObject(memory.get(), before);
  return picture;
}

Picture PictureOfClient(HWND window) {
  const Place outer = PlaceOf(window);
  const Place client = ClientPlaceOf(window);
  return Part(PictureOfWindow(window),
              {client.left - outer.left, client.top - outer.top, client.width, client.height});
}

Picture Part(const Picture& whole, const Place& place) {
  Picture part{int(place.width), int(place.height), {}};
  for (int y = 0; y < part.height; ++y) {
    for (int x = 0; x < part.width; ++x) {
      part.pixels.push_back(whole.At(x + place.left, y + place.top));
    }
  }
  return part;
}

Place DrawnPlace(const Picture& picture, const Place& place) {
  const uint32_t ground = picture.At(place.left, place.top);
  RECT found{place.left + place.width, place.top + place.height, place.left, place.top};
  for (int y = place.top; y < place.top + place.height; ++y) {
    for (int x = place.left; x < place.left + place.width; ++x) {
      if (picture.At(x, y) == ground) continue;
      found = {std::min<LONG>(found.left, x), std::min<LONG>(found.top, y),
               std::max<LONG>(found.right, x + 1), std::max<LONG>(found.bottom, y + 1)};
    }
  }
  if (found.right <= found.left) return {place.left, place.top, 0, 0};
  return {found.left, found.top, found.right - found.left, found.bottom - found.top};
}

void KeepShot(const std::string& name, const Picture& picture) {
  const auto path = ShotPath(name + ".png");
  if (!path) return;
  const GdiPlus library;
  std::vector<uint32_t> pixels = picture.pixels;
  Gdiplus::Bitmap bitmap(picture.width, picture.height, picture.width * 4, PixelFormat32bppRGB,
                         reinterpret_cast<BYTE*>(pixels.data()));
  EXPECT_EQ(bitmap.Save(path->c_str(), &kPngEncoder, nullptr), Gdiplus::Ok) << *path;
}

void KeepText(const std::string& name, const std::string& text) {
  if (const auto path = ShotPath(name + ".txt")) std::ofstream(*path, std::ios::binary) << text;
}

}  // namespace Veldrift
