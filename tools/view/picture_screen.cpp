#include "tools/view/picture_screen.h"

#include <SDL2_gfxPrimitives.h>

#include <algorithm>

#include "tools/av/colour_matrix.h"

namespace Veldrift {
namespace {

constexpr int kFirstWidth = 960;
constexpr int kFirstHeight = 540;
constexpr int kLetter = 8;      // pixels of the font, both ways
constexpr int kLine = 11;       // from one line to the next
constexpr int kMargin = 6;      // around the words
constexpr int kSmallest = 700;  // a window of this width or more has letters twice as large
constexpr Uint8 kShade = 168;
constexpr double kMostOfScreen = 0.9;

// What the texture takes as it is: SDL knows full range with the older matrix only.
bool IsPlain(const AVFrame& picture) {
  return picture.format == AV_PIX_FMT_YUV420P && picture.color_range != AVCOL_RANGE_JPEG;
}

}  // namespace

PictureScreen::~PictureScreen() {
  texture_.reset();
  renderer_.reset();
  window_.reset();
  if (started_) SDL_QuitSubSystem(SDL_INIT_VIDEO);
}

bool PictureScreen::Open(std::string& error) {
  // Ctrl-C is the program's.
  SDL_SetHint(SDL_HINT_NO_SIGNAL_HANDLERS, "1");
  SDL_SetHint(SDL_HINT_RENDER_SCALE_QUALITY, "1");
  started_ = SDL_InitSubSystem(SDL_INIT_VIDEO) == 0;
  if (started_) {
    window_.reset(SDL_CreateWindow("Veldrift", SDL_WINDOWPOS_CENTERED, SDL_WINDOWPOS_CENTERED,
                                   kFirstWidth, kFirstHeight,
                                   SDL_WINDOW_RESIZABLE | SDL_WINDOW_ALLOW_HIGHDPI));
  }
  if (window_) renderer_.reset(SDL_CreateRenderer(window_.get(), -1, 0));
  if (!renderer_) error = SDL_GetError();
  return renderer_ != nullptr;
}

void PictureScreen::FitWindow(const AVFrame& picture) {
  SDL_Rect screen{};
  if (SDL_GetDisplayUsableBounds(SDL_GetWindowDisplayIndex(window_.get()), &screen) != 0) return;
  const double scale = std::min(
      {1.0, screen.w * kMostOfScreen / picture.width, screen.h * kMostOfScreen / picture.height});
  SDL_SetWindowSize(window_.get(), int(picture.width * scale), int(picture.height * scale));
  SDL_SetWindowPosition(window_.get(), SDL_WINDOWPOS_CENTERED, SDL_WINDOWPOS_CENTERED);
}

bool PictureScreen::MakeTexture(Uint32 format, int width, int height) {
  if (texture_ && format == format_ && width == width_ && height == height_) return true;
  texture_.reset(
      SDL_CreateTexture(renderer_.get(), format, SDL_TEXTUREACCESS_STREAMING, width, height));
  format_ = format;
  width_ = width;
  height_ = height;
  return texture_ != nullptr;
}

void PictureScreen::PutConverted(const AVFrame& picture) {
  if (!MakeTexture(SDL_PIXELFORMAT_ARGB8888, picture.width, picture.height)) return;
  scaler_.reset(sws_getCachedContext(scaler_.release(), picture.width, picture.height,
                                     AVPixelFormat(picture.format), picture.width, picture.height,
                                     AV_PIX_FMT_BGRA, SWS_BILINEAR, nullptr, nullptr, nullptr));
  void* pixels = nullptr;
  int stride = 0;
  if (!scaler_ || SDL_LockTexture(texture_.get(), nullptr, &pixels, &stride) != 0) return;
  SetColours(*scaler_, picture);
  uint8_t* const planes[] = {static_cast<uint8_t*>(pixels)};
  sws_scale(scaler_.get(), picture.data, picture.linesize, 0, picture.height, planes, &stride);
  SDL_UnlockTexture(texture_.get());
}

void PictureScreen::Put(const AVFrame& picture) {
  if (width_ == 0) FitWindow(picture);
  if (!IsPlain(picture)) return PutConverted(picture);
  matrix_ =
      MatrixOf(picture) == SWS_CS_ITU709 ? SDL_YUV_CONVERSION_BT709 : SDL_YUV_CONVERSION_BT601;
  // The conversion may run as the picture goes in.
  SDL_SetYUVConversionMode(matrix_);
  if (!MakeTexture(SDL_PIXELFORMAT_IYUV, picture.width, picture.height)) return;
  SDL_UpdateYUVTexture(texture_.get(), nullptr, picture.data[0], picture.linesize[0],
                       picture.data[1], picture.linesize[1], picture.data[2], picture.linesize[2]);
}

// As large as fits, in the middle.
SDL_Rect PictureScreen::Place(int width, int height) const {
  const double scale = std::min(double(width) / width_, double(height) / height_);
  const int w = int(width_ * scale + 0.5), h = int(height_ * scale + 0.5);
  return {(width - w) / 2, (height - h) / 2, w, h};
}

void PictureScreen::Write(const std::vector<std::string>& lines, Corner corner, int width,
                          int height) {
  if (lines.empty()) return;
  const float scale = width >= kSmallest ? 2 : 1;
  width = int(float(width) / scale);
  height = int(float(height) / scale);
  size_t longest = 0;
  for (const std::string& line : lines) longest = std::max(longest, line.size());
  SDL_Rect box{kMargin, kMargin, int(longest) * kLetter + 2 * kMargin,
               int(lines.size()) * kLine + 2 * kMargin};
  if (corner == Corner::UpperRight) box.x = width - kMargin - box.w;
  if (corner == Corner::LowerLeft) box.y = height - kMargin - box.h;
  if (corner == Corner::Middle) {
    box.x = (width - box.w) / 2;
    box.y = (height - box.h) / 2;
  }
  SDL_RenderSetScale(renderer_.get(), scale, scale);
  SDL_SetRenderDrawBlendMode(renderer_.get(), SDL_BLENDMODE_BLEND);
  SDL_SetRenderDrawColor(renderer_.get(), 0, 0, 0, kShade);
  SDL_RenderFillRect(renderer_.get(), &box);
  for (size_t i = 0; i < lines.size(); ++i) {
    stringRGBA(renderer_.get(), Sint16(box.x + kMargin), Sint16(box.y + kMargin + int(i) * kLine),
               lines[i].c_str(), 255, 255, 255, 255);
  }
  SDL_RenderSetScale(renderer_.get(), 1, 1);
}

void PictureScreen::Draw(const Words& words) {
  int width = 0, height = 0;
  SDL_GetRendererOutputSize(renderer_.get(), &width, &height);
  SDL_SetRenderDrawColor(renderer_.get(), 0, 0, 0, 255);
  SDL_RenderClear(renderer_.get());
  if (texture_) {
    const SDL_Rect place = Place(width, height);
    SDL_SetYUVConversionMode(matrix_);
    const Uint8 light = words.notice.empty() ? 255 : 96;
    SDL_SetTextureColorMod(texture_.get(), light, light, light);
    SDL_RenderCopy(renderer_.get(), texture_.get(), nullptr, &place);
  }
  Write(words.figures, Corner::UpperLeft, width, height);
  Write(words.help, Corner::UpperRight, width, height);
  Write(words.told, Corner::LowerLeft, width, height);
  Write(words.notice, Corner::Middle, width, height);
  SDL_RenderPresent(renderer_.get());
}

void PictureScreen::SwitchFullScreen() {
  const bool full = (SDL_GetWindowFlags(window_.get()) & SDL_WINDOW_FULLSCREEN_DESKTOP) != 0;
  SDL_SetWindowFullscreen(window_.get(), full ? 0 : Uint32(SDL_WINDOW_FULLSCREEN_DESKTOP));
}

}  // namespace Veldrift
