// A screen that nobody sees, and whoever sits in front of it: programs show windows on it, its
// pixels can be read, its keys pressed. An X server that draws into a file.
//
// Threads: one thread uses it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "tools/platform/process.h"

namespace Veldrift {

// Rows of `width` pixels, 4 bytes each: blue, green, red, and one of no meaning.
struct ScreenPicture {
  int width = 0;
  int height = 0;
  std::vector<uint8_t> bgra;
  std::vector<uint8_t> luma;  // of full range

  // A mean over the whole picture, 0 to 255.
  double Brightness() const;
};

class HiddenScreen {
 public:
  // `folder`: for what the server writes; it is there already.
  HiddenScreen(const std::filesystem::path& folder, int width, int height);
  ~HiddenScreen();
  HiddenScreen(const HiddenScreen&) = delete;
  HiddenScreen& operator=(const HiddenScreen&) = delete;

  bool Ready() const { return pixels_ != nullptr; }
  // The value of the environment variable DISPLAY for programs that show windows here.
  const std::string& Display() const { return display_; }

  // What the middle shows.
  ScreenPicture Look(int width, int height) const;

  // Presses and releases keys, one after another, by the names that X gives them.
  void Press(const std::vector<std::string>& keys) const;
  // Types a text.
  void Type(const std::string& text) const;

 private:
  void Start(const std::filesystem::path& folder);
  void MapPixels(const std::filesystem::path& file);

  const int width_;
  const int height_;
  std::string display_;
  std::unique_ptr<ChildProcess> server_;
  void* map_ = nullptr;
  size_t mapBytes_ = 0;
  const uint8_t* pixels_ = nullptr;
  size_t stride_ = 0;
};

}  // namespace Veldrift
