// A window with a picture, in the colours that the picture says, as large as fits, and words over
// it.
//
// Threads: the main thread's.
#pragma once

#include <SDL.h>

#include <memory>
#include <string>
#include <vector>

#include "tools/av/av_handles.h"

namespace Veldrift {

class PictureScreen {
 public:
  ~PictureScreen();
  PictureScreen() = default;
  PictureScreen(const PictureScreen&) = delete;
  PictureScreen& operator=(const PictureScreen&) = delete;

  // False: `error` says why there can be no window.
  bool Open(std::string& error);

  // Keeps the picture; the first one gives the window its size, as far as the screen has it.
  void Put(const AVFrame& picture);

  struct Words {
    std::vector<std::string> figures;  // at the upper left
    std::vector<std::string> help;     // at the right
    std::vector<std::string> told;     // at the lower left
    std::vector<std::string> notice;   // in the middle, over a darkened picture
  };
  void Draw(const Words& words);

  void SwitchFullScreen();

 private:
  struct Deleter {
    void operator()(SDL_Window* window) const { SDL_DestroyWindow(window); }
    void operator()(SDL_Renderer* renderer) const { SDL_DestroyRenderer(renderer); }
    void operator()(SDL_Texture* texture) const { SDL_DestroyTexture(texture); }
  };
  enum class Corner { UpperLeft, UpperRight, LowerLeft, Middle };

  void FitWindow(const AVFrame& picture);
  bool MakeTexture(Uint32 format, int width, int height);
  void PutConverted(const AVFrame& picture);
  SDL_Rect Place(int width, int height) const;
  void Write(const std::vector<std::string>& lines, Corner corner, int width, int height);

  bool started_ = false;
  // Released in the reverse order.
  std::unique_ptr<SDL_Window, Deleter> window_;
  std::unique_ptr<SDL_Renderer, Deleter> renderer_;
  std::unique_ptr<SDL_Texture, Deleter> texture_;
  Uint32 format_ = 0;
  int width_ = 0;
  int height_ = 0;
  SDL_YUV_CONVERSION_MODE matrix_ = SDL_YUV_CONVERSION_BT709;
  Scaler scaler_;
};

}  // namespace Veldrift
